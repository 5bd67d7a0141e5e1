#include "norla/s3/CS3CheckingSink.h"

#include "kx/base/CError.h"
#include "kx/text/numbers.h"
#include "norla/http/CHTTPContentRange.h"
#include "norla/s3/CObjectPart.h"
#include "norla/s3/httpStatus.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>

namespace norla {

namespace {

kx::String checkedHeader(const CNetRequest::HeaderMap& headers, const kx::String& name)
{
    const auto found = headers.find(name);
    return found == headers.end() ? kx::String() : found->second;
}

/// -1 when it does not say; nothing when it says what is no length. libcurl takes the last of several, and leaves out
/// one beyond 64 bits.
std::optional<long long> lengthSaid(const CNetRequest::HeaderMap& headers)
{
    const kx::String text = checkedHeader(headers, "content-length");
    if (text.isEmpty())
        return -1;
    const size_t last = text.rfind(L',') + 1; // 0 without one
    const kx::String length = text.substr(last).trim();
    for (size_t start = 0; start < last;) { // RFC 9110 section 8.6: one length may be there twice
        const size_t end = text.find(L",", start);
        if (text.substr(start, end - start).trim() != length)
            return std::nullopt;
        start = end + 1;
    }
    try {
        const long long number = kx::parseInt64(length, true);
        return number < 0 ? std::nullopt : std::optional(number);
    } catch (const kx::CError&) {
        return std::nullopt;
    }
}

/// The part from `start` to `last` at most that the answer says to be; nothing when it is another one.
kx::P<CHTTPContentRange> partSaid(const CNetRequest::HeaderMap& headers, long long start, long long last)
{
    kx::P<CHTTPContentRange> part;
    try {
        part = CHTTPContentRange::parse(checkedHeader(headers, "content-range"));
    } catch (const kx::CError&) {
        return nullptr;
    }
    const long long total = part->getTotal();
    if (part->getUnit() != "bytes" || part->getFirst() != start || part->getLast() < start || total < -1 || total == 0)
        return nullptr;
    const bool endsAsAsked = total == -1 ? part->getLast() <= last : part->getLast() == std::min(last, total - 1);
    return endsAsAsked ? part : nullptr;
}

} // namespace

CS3CheckingSink::CS3CheckingSink(
    kx::P<CNetRequest::IDataSink> sink, const CS3GetOptions& options, const kx::String& what)
    : m_sink(std::move(sink))
    , m_start(options.start)
    , m_length(options.length)
    , m_mostBytes(options.mostBytes)
    , m_verifies(options.verify)
    , m_what(what)
{
}

CS3CheckingSink::~CS3CheckingSink() = default;

void CS3CheckingSink::begin()
{
    m_hasLooked = false;
    m_received = 0;
    m_expected = -1;
    m_most = m_mostBytes;
    m_total = -1;
    m_digests.clear();
    m_sink->begin();
}

int CS3CheckingSink::write(const unsigned char* data, int size, int responseCode, const HeaderMap& responseHeaders)
{
    look(responseCode, responseHeaders);
    if (m_most != -1 && size > m_most - m_received)
        refuse(responseCode, responseHeaders, "more than " + kx::toString(m_most) + " bytes");
    m_received += size;
    for (CS3BodyDigest& digest : m_digests)
        digest.update({reinterpret_cast<const char*>(data), static_cast<size_t>(size)});
    return m_sink->write(data, size, responseCode, responseHeaders);
}

void CS3CheckingSink::end(int responseCode, const HeaderMap& responseHeaders)
{
    look(responseCode, responseHeaders);
    if (m_expected != -1 && m_received != m_expected)
        refuse(responseCode, responseHeaders, kx::toString(m_received) + " bytes");
    if (responseCode == httpOK)
        m_total = m_received;
    for (CS3BodyDigest& digest : m_digests)
        digest.requireAsSaid(responseHeaders, m_what);
    m_sink->end(responseCode, responseHeaders);
}

void CS3CheckingSink::look(int responseCode, const HeaderMap& headers)
{
    if (std::exchange(m_hasLooked, true))
        return;
    const std::optional<long long> said = lengthSaid(headers);
    if (!said)
        refuse(responseCode, headers, "a length that is none");
    const long long length = *said;
    if (m_mostBytes != -1 && length > m_mostBytes)
        refuse(responseCode, headers,
            kx::toString(length) + " bytes where " + kx::toString(m_mostBytes) + " at most may come");
    if (!isWhole()) {
        lookAtPart(responseCode, headers, length);
        return;
    }
    if (responseCode != httpOK)
        refuse(responseCode, headers, "another answer");
    m_expected = length;
    if (!m_verifies)
        return;
    for (const CS3Checksum kind : {CS3Checksum::MD5, CS3Checksum::SHA256, CS3Checksum::CRC32C}) {
        if (CS3BodyDigest::saidIn(headers, kind))
            m_digests.emplace_back(kind);
    }
}

void CS3CheckingSink::lookAtPart(int responseCode, const HeaderMap& headers, long long length)
{
    const auto limit = [this](long long most) { m_most = m_most == -1 ? most : std::min(m_most, most); };
    if (responseCode == httpOK && m_start == 0 && length <= m_length) { // the whole, which is no larger
        m_expected = length;
        limit(m_length);
        return;
    }
    const long long last = m_length == -1 ? std::numeric_limits<long long>::max() : m_start + m_length - 1;
    const kx::P<CHTTPContentRange> part
        = responseCode == httpPartialContent ? partSaid(headers, m_start, last) : nullptr;
    if (!part || (length != -1 && length != part->getLast() - m_start + 1))
        refuse(responseCode, headers, "another part");
    m_total = part->getTotal();
    m_expected = part->getLast() - m_start + 1;
    limit(m_expected);
}

void CS3CheckingSink::refuse(int responseCode, const HeaderMap& headers, const kx::String& came) const
{
    const kx::String asked
        = isWhole() ? m_what : "'" + CObjectPart(m_start, m_length, "CS3Objects::get").toRange() + "' of " + m_what;
    throw kx::CError("The store was asked for " + asked + " and gave something else, " + came + ": status "
        + kx::toString(responseCode) + ", Content-Range '" + checkedHeader(headers, "content-range")
        + "', Content-Length '" + checkedHeader(headers, "content-length") + "'.");
}

} // namespace norla
