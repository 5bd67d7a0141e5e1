#include "norla/core/CSentHeaders.h"

#include "kx/base/CInvalidArgError.h"
#include "norla/core/CEasyHandle.h"

#include <algorithm>
#include <array>
#include <utility>

namespace norla {

namespace {

std::string toLower(std::string_view text)
{
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
        [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return lower;
}

// Of a line as libcurl takes it: behind the name comes ":", or ";" where an empty value is sent.
std::string nameOf(std::string_view line)
{
    const std::string name = toLower(line.substr(0, line.find_first_of(":;")));
    const size_t first = name.find_first_not_of(" \t");
    return first == std::string::npos ? std::string() : name.substr(first, name.find_last_not_of(" \t") - first + 1);
}

void requireOneLine(std::string_view text)
{
    if (text.find_first_of(std::string_view("\r\n\0", 3)) != std::string_view::npos)
        throw kx::CInvalidArgError("a header line holds a line end or a zero character", "CSentHeaders::setLine");
}

// Fields about the message itself and what may come back (RFC 9110, RFC 9111). What is unknown may be a secret.
constexpr auto harmlessNames = std::to_array<std::string_view>(
    {"accept", "accept-charset", "accept-encoding", "accept-language", "accept-ranges", "cache-control", "connection",
        "content-disposition", "content-encoding", "content-language", "content-length", "content-location",
        "content-md5", "content-range", "content-type", "date", "digest", "dnt", "expect", "if-match",
        "if-modified-since", "if-none-match", "if-range", "if-unmodified-since", "pragma", "prefer", "priority",
        "range", "te", "trailer", "transfer-encoding", "upgrade-insecure-requests", "user-agent"});

// A line that holds another one in it may hold anything.
bool isHarmless(std::string_view line)
{
    return line.find_first_of("\r\n") == std::string_view::npos
        && std::find(harmlessNames.begin(), harmlessNames.end(), nameOf(line)) != harmlessNames.end();
}

} // namespace

CSentHeaders::CSentHeaders(CEasyHandle& handle)
    : m_handle(handle)
{
}

// The old lists are dropped last: libcurl holds on to them until it has taken the new one.
void CSentHeaders::setCallers(CNetHeaders* headers)
{
    m_handle.set(CURLOPT_HTTPHEADER, headers ? headers->getCurlList() : nullptr);
    m_callers = headers;
    m_optionList = nullptr;
    m_composed = nullptr;
}

void CSentHeaders::noticePointer(CURLoption option, void* value) noexcept
{
    if (option != CURLOPT_HTTPHEADER)
        return;
    m_optionList = static_cast<curl_slist*>(value);
    m_composed = nullptr;
}

void CSentHeaders::setLine(std::string_view name, std::string_view value, Precedence precedence)
{
    requireOneLine(name);
    requireOneLine(value);
    std::string text(name);
    text += value.empty() ? ":" : ": ";
    text += value;
    m_own.insert_or_assign(toLower(name), CLine{std::move(text), precedence});
}

void CSentHeaders::removeLine(std::string_view name)
{
    m_own.erase(toLower(name));
}

void CSentHeaders::forgetOptions() noexcept
{
    m_callers = nullptr;
    m_optionList = nullptr;
    m_own.clear();
    m_composed = nullptr;
}

curl_slist* CSentHeaders::getCallersList() const
{
    return m_callers ? m_callers->getCurlList() : m_optionList;
}

bool CSentHeaders::isReplaced(std::string_view callersLine) const
{
    const auto own = m_own.find(nameOf(callersLine));
    return own != m_own.end() && own->second.precedence == Precedence::Own;
}

void CSentHeaders::begin()
{
    if (m_own.empty()) {
        if (m_callers || m_composed)
            m_handle.set(CURLOPT_HTTPHEADER, getCallersList());
        m_composed = nullptr;
        return;
    }
    const auto lines = kx::newObj<CNetStringList>();
    kx::TMap<std::string, CLine> left = m_own;
    for (const curl_slist* line = getCallersList(); line; line = line->next) {
        if (isReplaced(line->data))
            continue;
        lines->addUTF8(line->data);
        left.erase(nameOf(line->data));
    }
    for (const auto& [name, line] : left)
        lines->addUTF8(line.text);
    hand(lines);
}

void CSentHeaders::sendHarmlessOnly()
{
    const curl_slist* const sent = m_composed ? m_composed->getCurlList() : getCallersList();
    if (!sent)
        return;
    const auto lines = kx::newObj<CNetStringList>();
    for (const curl_slist* line = sent; line; line = line->next) {
        if (isHarmless(line->data))
            lines->addUTF8(line->data);
    }
    hand(lines);
}

void CSentHeaders::hand(const kx::P<CNetStringList>& lines)
{
    m_handle.set(CURLOPT_HTTPHEADER, lines->getCurlList());
    m_composed = lines;
}

} // namespace norla
