#include "norla/core/CSentLines.h"

#include "kx/base/CInvalidArgError.h"
#include "norla/core/plainURL.h"

#include <string_view>

namespace norla {

namespace {

constexpr std::string_view lineEnds = "\r\n";

const char* kindOf(CURLoption option) noexcept
{
    switch (option) {
    case CURLOPT_HTTPHEADER:
    case CURLOPT_PROXYHEADER:
        return "header field";
    case CURLOPT_QUOTE:
    case CURLOPT_PREQUOTE:
    case CURLOPT_POSTQUOTE:
        return "command";
    case CURLOPT_MAIL_RCPT:
        return "recipient";
    default:
        return nullptr;
    }
}

/// The first word alone: what follows may be a secret.
[[noreturn]] void throwSecondLine(const char* kind, std::string_view line)
{
    const std::string_view name = line.substr(0, line.find_first_of(": \t\r\n"));
    throw kx::CInvalidArgError("the " + kx::String::fromLatin1(kind) + " '" + readable(name)
            + "' holds a line end, which would begin another line",
        "CNetRequest::setSafeDefaults");
}

void requireOneLine(const char* kind, std::string_view line)
{
    if (line.find_first_of(lineEnds) != std::string_view::npos)
        throwSecondLine(kind, line);
}

void requireOneLineEachOf(const char* kind, const curl_slist* list)
{
    for (; list; list = list->next)
        requireOneLine(kind, list->data);
}

} // namespace

void CSentLines::noticePointer(CURLoption option, const void* value)
{
    if (option == CURLOPT_MAIL_FROM)
        m_sender = value ? static_cast<const char*>(value) : "";
    else if (kindOf(option))
        m_lists[option] = static_cast<const curl_slist*>(value);
}

void CSentLines::noticeText(CURLoption option, const std::string& bytes)
{
    if (option == CURLOPT_MAIL_FROM)
        m_sender = bytes;
}

void CSentLines::forgetOptions() noexcept
{
    m_lists.clear();
    m_sender.clear();
}

void CSentLines::requireOneLineEach(const curl_slist* headers) const
{
    requireOneLine("sender", m_sender);
    requireOneLineEachOf(kindOf(CURLOPT_HTTPHEADER), headers);
    for (const auto& [option, list] : m_lists) {
        if (option != CURLOPT_HTTPHEADER) // of which the caller may have others by now
            requireOneLineEachOf(kindOf(option), list);
    }
}

} // namespace norla
