#include "norla/core/CSideEffects.h"

#include "norla/core/CTransferRecord.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace norla {

namespace {

bool isOneOf(std::string_view word, std::initializer_list<std::string_view> words) noexcept
{
    return std::find(words.begin(), words.end(), word) != words.end();
}

} // namespace

void CSideEffects::noticeNumber(CURLoption option, long long value) noexcept
{
    if (option == CURLOPT_APPEND)
        m_appends = value != 0;
    else if (option == CURLOPT_RESUME_FROM || option == CURLOPT_RESUME_FROM_LARGE)
        m_resumes = value != 0;
}

void CSideEffects::noticePointer(CURLoption option, bool isThere) noexcept
{
    switch (option) {
    case CURLOPT_QUOTE:
        m_hasCommands = isThere;
        break;
    case CURLOPT_PREQUOTE:
        m_hasPreCommands = isThere;
        break;
    case CURLOPT_POSTQUOTE:
        m_hasPostCommands = isThere;
        break;
    case CURLOPT_MIMEPOST:
        m_hasMime = isThere;
        break;
    default:
        break;
    }
}

bool CSideEffects::areHarmless(const CTransferRecord& record) const
{
    const std::string scheme = record.getScheme();
    if (isOneOf(scheme, {"http", "https"}))
        return record.hasIdempotentMethod();
    if (isOneOf(scheme, {"smtp", "smtps"}))
        return !record.hasMailDataBegun();
    return isOneOf(scheme, {"ftp", "ftps", "sftp", "scp", "file"}) && areHarmlessForFiles(record);
}

// For libcurl to store a file is a PUT, and to go on with one that is there is to append. A listing may have a command
// of its own, with arguments behind it. A POST that was redirected here remains one.
bool CSideEffects::areHarmlessForFiles(const CTransferRecord& record) const
{
    if (m_hasCommands || m_hasPreCommands || m_hasPostCommands)
        return false;
    const std::string& method = record.getFirstMethod();
    if (method == "PUT")
        return !m_appends && !m_resumes;
    return isOneOf(std::string_view(method).substr(0, method.find(' ')), {"GET", "HEAD", "LIST", "NLST", "MLSD"});
}

} // namespace norla
