#include "norla/s3/CS3ChunkedSource.h"

#include "kx/base/CError.h"
#include "kx/text/numbers.h"
#include "norla/core/CNetHeaders.h"
#include "norla/s3/hexSHA256.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

namespace norla {

namespace {

constexpr size_t chunkSize = size_t{256} * 1024; // of the source's bytes; stores want 8 KiB at least
constexpr std::string_view signatureMark = ";chunk-signature=";
constexpr std::string_view chunkLineEnd = "\r\n";
constexpr long long signatureDigits = 64;

std::string hexNumber(size_t number)
{
    std::array<char, 2 * sizeof number> digits{};
    const auto end = std::to_chars(digits.begin(), digits.end(), number, 16).ptr;
    return {digits.begin(), end};
}

long long encodedChunkSize(size_t size)
{
    return static_cast<long long>(hexNumber(size).size() + signatureMark.size() + 2 * chunkLineEnd.size() + size)
        + signatureDigits;
}

std::string sentHeaderOf(CNetRequest& request, const char* name)
{
    const kx::P<CNetHeaders> headers = request.getCustomHTTPHeaders();
    kx::TMap<kx::String, kx::String> map;
    if (headers)
        headers->fillMap(map);
    const auto found = map.find(kx::String::fromLatin1(name));
    return found == map.end() ? std::string() : found->second.toUTF8();
}

} // namespace

CS3ChunkedSource::CS3ChunkedSource(CNetRequest& request, kx::P<CNetRequest::IDataSource> source, long long size)
    : m_request(request)
    , m_source(std::move(source))
    , m_size(size)
    , m_left(size)
{
}

void CS3ChunkedSource::setKey(kx::P<CS3SignerV4> signer, const CS3Credentials& credentials)
{
    m_signer = std::move(signer);
    m_credentials = credentials;
}

CS3ChunkedSource::~CS3ChunkedSource() = default;

CS3ChunkedSource* CS3ChunkedSource::in(const CNetRequest& request)
{
    return dynamic_cast<CS3ChunkedSource*>(request.getSendDataSource().get());
}

long long CS3ChunkedSource::encodedSize(long long size) noexcept
{
    const long long whole = size / static_cast<long long>(chunkSize);
    const auto rest = static_cast<size_t>(size % static_cast<long long>(chunkSize));
    return whole * encodedChunkSize(chunkSize) + (rest > 0 ? encodedChunkSize(rest) : 0) + encodedChunkSize(0);
}

void CS3ChunkedSource::seek(long long position)
{
    if (position == m_position)
        return;
    if (position != 0)
        throw kx::CError(
            "A body in signed chunks begins anew from its start alone, not from byte " + kx::toString(position) + ".");
    m_source->seek(0);
    m_chunk.clear();
    m_taken = 0;
    m_position = 0;
    m_left = m_size;
    m_isAtEnd = false;
}

void CS3ChunkedSource::begin()
{
    m_source->seek(0);
    m_timestamp = sentHeaderOf(m_request, "x-amz-date");
    const std::string authorization = sentHeaderOf(m_request, "authorization");
    m_signature = authorization.substr(authorization.rfind('=') + 1);
}

int CS3ChunkedSource::read(unsigned char* buffer, int size, const HeaderMap& responseHeaders)
{
    if (m_taken == m_chunk.size() && (m_isAtEnd || !makeChunk(responseHeaders)))
        return 0;
    const size_t count = std::min(static_cast<size_t>(std::max(0, size)), m_chunk.size() - m_taken);
    std::copy_n(m_chunk.begin() + static_cast<std::ptrdiff_t>(m_taken), count, buffer);
    m_taken += count;
    m_position += static_cast<long long>(count);
    return static_cast<int>(count);
}

/// @return false when the source has less than it should, which whoever sends the body notices by its size
bool CS3ChunkedSource::makeChunk(const HeaderMap& responseHeaders)
{
    if (m_position == 0)
        begin();
    const auto count = static_cast<size_t>(std::min<long long>(m_left, chunkSize));
    m_bytes.resize(count);
    const bool isWhole = readBytes(responseHeaders);
    m_isAtEnd = isWhole ? count == 0 : m_position > 0; // before the first byte the next attempt may find more
    if (!isWhole)
        return false;
    m_left -= static_cast<long long>(count);
    m_signature = m_signer->signChunk(m_timestamp, m_signature, hexSHA256(m_bytes), m_credentials);
    m_chunk.assign(hexNumber(count)).append(signatureMark).append(m_signature).append(chunkLineEnd);
    m_chunk.append(m_bytes).append(chunkLineEnd);
    m_taken = 0;
    return true;
}

/// @return whether the source has as many as are wanted
bool CS3ChunkedSource::readBytes(const HeaderMap& responseHeaders)
{
    for (size_t filled = 0; filled < m_bytes.size();) {
        const int read = m_source->read(reinterpret_cast<unsigned char*>(m_bytes.data()) + filled,
            static_cast<int>(m_bytes.size() - filled), responseHeaders);
        if (read <= 0)
            return false;
        filled += static_cast<size_t>(read);
    }
    return true;
}

} // namespace norla
