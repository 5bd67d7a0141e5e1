// How a file gets to an FTP or SFTP server: what is there of it, the rest, and its name.

#include "kx/log/log.h"
#include "kx/text/numbers.h"
#include "norla/core/CCURLError.h"
#include "norla/core/CNetStringList.h"
#include "norla/core/errorKind.h"
#include "norla/core/isTransient.h"
#include "norla/core/plainURL.h"
#include "norla/files/CUploadRun.h"

#include <algorithm>
#include <string>

namespace norla {

namespace {

constexpr long long proofSize = 64 << 10; // bytes at either end of a part

bool isRefusal(const kx::CError& error)
{
    const auto* const transfer = dynamic_cast<const CCURLError*>(&error);
    return transfer && (transfer->getCode() == CURLE_UPLOAD_FAILED || !isTransient(error))
        && getErrorKind(error) != ErrorKind::Cancelled;
}

kx::P<CNetStringList> remoteCommands(std::initializer_list<std::string> lines)
{
    auto list = kx::newObj<CNetStringList>();
    for (const std::string& line : lines)
        list->addUTF8(line);
    return list;
}

/// What was proved before each attempt makes that one harmless.
CRetryPolicy repeatingAll(CRetryPolicy policy)
{
    policy.repeatUnsafe = true;
    return policy;
}

} // namespace

void CUploadRun::sendAsFile(const std::string& url)
{
    m_file = uploadPlaceOf(url, m_source->digits());
    if (!m_options.temporaryName)
        m_file.temporaryURL = m_file.url;
    try {
        if (!m_options.overwrite)
            requireFree();
        sendAllBytes();
        m_source->requireUnchanged();
        if (m_options.temporaryName)
            giveName();
    } catch (...) { // of callbacks, anything
        if (m_isOurs && m_options.temporaryName && (!m_options.keepPart || m_isWrong || m_source->hasChanged()))
            removePart();
        throw;
    }
}

/// A server may still have been writing what an earlier connection had brought when its size was asked for: what was
/// appended behind that size stands at a wrong place then, and the file is too long.
void CUploadRun::sendAllBytes()
{
    sendBytes();
    m_signals->setState(FileState::Finishing);
    CRemoteFile file = find(m_file.temporaryURL);
    if (m_hasAppended && m_mayAppend && file.isThere && file.size != m_size) {
        m_mayAppend = false;
        m_isPartThere = true;
        m_signals->setState(FileState::Running);
        sendBytes();
        m_signals->setState(FileState::Finishing);
        file = find(m_file.temporaryURL);
    }
    requireSize(file);
}

/// Until all of it is there.
void CUploadRun::sendBytes()
{
    CRetries retries(repeatingAll(m_options.retries));
    retries.start();
    long long furthest = 0; // a server may lose what it had, and have it again
    for (bool mayGoOn = m_options.resume;; mayGoOn = true) {
        pauseIfWanted();
        const long long start = m_options.temporaryName && m_mayAppend ? partThere(mayGoOn) : 0;
        if (start > furthest) {
            retries.start();
            furthest = start;
        }
        if (start == m_size && m_size > 0)
            return;
        m_signals->setStart(start);
        m_isOurs = true;
        m_hasAppended = start > 0;
        const auto error = attempt([this, start](CNetRequest& request) { prepareFile(request, start); }, true);
        if (!error)
            return;
        if (m_isInterrupted)
            continue;
        if (start > 0 && m_source->getReached() < 0 && isRefusal(*error)) {
            m_mayAppend = false; // some servers store files, and append to none
            continue;
        }
        const std::optional<kx::CTimeSpan> pause = retries.afterFailure(*m_request, *error);
        if (!pause)
            error->throwClone();
        kx::logInfo("The upload of '" + m_source->getPath().toString() + "' is tried again: " + error->getMessage());
        waitOrPause(*pause);
    }
}

/// How much of the file stands under the temporary name, proved to be of it; 0 when it is to be sent anew.
long long CUploadRun::partThere(bool mayGoOn)
{
    const CRemoteFile part = find(m_file.temporaryURL);
    m_isPartThere = part.isThere;
    const long long size = part.size.value_or(0);
    if (!mayGoOn || size <= 0 || size > m_size)
        return 0;
    const long long count = std::min(size, proofSize);
    if (size <= 2 * proofSize)
        return isSameAtServer(0, size) ? size : 0;
    return isSameAtServer(0, count) && isSameAtServer(size - count, count) ? size : 0;
}

/// Whether the server has the same bytes there as the file; not when it gives none.
bool CUploadRun::isSameAtServer(long long start, long long count)
{
    const auto error = ask([&](CNetRequest& request) {
        request.setURL(readable(m_file.temporaryURL));
        request.setDefaultReceiveDataStream();
        request.setRange(start, start > 0 ? -1 : count);
    });
    if (error && !isRefusal(*error))
        error->throwClone();
    const auto buffer = m_request->getDefaultReceiveBuffer();
    return !error
        && m_source->bytesAt(start, count)
        == std::string(reinterpret_cast<const char*>(buffer->getData()), buffer->getSize());
}

void CUploadRun::prepareFile(CNetRequest& request, long long start)
{
    request.setURL(readable(m_file.temporaryURL));
    request.setUpload(true);
    prepareBody(request);
    if (!m_file.isSFTP)
        request.setFTPFileMethod(CURLFTPMETHOD_MULTICWD);
    if (start > 0)
        request.setOptionInt64(CURLOPT_RESUME_FROM_LARGE, start);
    else if (m_options.temporaryName && m_isPartThere && !m_file.isSFTP) // which not every server replaces
        request.setFTPCustomPreCommands(remoteCommands({"*DELE " + m_file.temporaryName}).get());
}

CUploadRun::CRemoteFile CUploadRun::find(const std::string& url)
{
    const auto error = ask([&](CNetRequest& request) {
        request.setURL(readable(url));
        request.setOptionInt(CURLOPT_NOBODY, 1);
    });
    if (!error) {
        const long long size = m_request->getInfoInt64(CURLINFO_CONTENT_LENGTH_DOWNLOAD_T);
        if (size < 0 && m_file.isSFTP)
            return {.isKnown = true, .isThere = true, .size = 0}; // which is told as unknown
        return {.isKnown = size >= 0, .isThere = size >= 0, .size = size < 0 ? std::nullopt : std::optional(size)};
    }
    const ErrorKind kind = getErrorKind(*error); // libcurl's code calls every 550 a missing file
    if (kind == ErrorKind::NotFound)
        return {.isKnown = true, .isThere = false, .size = {}};
    if (kind != ErrorKind::Denied && kind != ErrorKind::Refused)
        error->throwClone();
    return {};
}

void CUploadRun::requireFree()
{
    const CRemoteFile file = find(m_file.url);
    if (file.isThere)
        throw kx::CError("There is a file '" + m_place + "' already.");
    if (!file.isKnown)
        throw kx::CError("It cannot be told whether there is a file '" + m_place
            + "' already, which is not to be replaced: the server does not say.");
}

void CUploadRun::requireSize(const CRemoteFile& file)
{
    if (!file.isKnown || (file.isThere && file.size == m_size))
        return;
    m_isWrong = true;
    throwOtherSize(file.size.value_or(0));
}

/// The answer may be lost: then it is looked who has which name.
void CUploadRun::giveName()
{
    CRetries retries(repeatingAll(m_options.retries));
    retries.start();
    for (;;) {
        if (!m_options.overwrite)
            requireFree();
        const auto error = attempt([this](CNetRequest& request) { prepareRename(request); }, false);
        if (!error)
            return;
        const std::optional<kx::CTimeSpan> pause = retries.afterFailure(*m_request, *error);
        if (!pause)
            throw kx::CError("The file '" + m_place
                    + "' is at the server under its temporary name, and cannot be given "
                    + "its own: " + error->getMessage(),
                kx::String(), -1, kx::CProps(), error);
        waitOrPause(*pause);
        const CRemoteFile part = find(m_file.temporaryURL);
        if (part.isKnown && !part.isThere) {
            requireSize(find(m_file.url));
            return;
        }
    }
}

void CUploadRun::prepareRename(CNetRequest& request)
{
    if (!m_file.isSFTP)
        prepareCommands(request, {"RNFR " + m_file.temporaryName, "RNTO " + m_file.name});
    else if (m_options.overwrite) // of version 3 of SFTP a rename replaces nothing
        prepareCommands(request, {"*rm " + m_file.name, "rename " + m_file.temporaryName + ' ' + m_file.name});
    else
        prepareCommands(request, {"rename " + m_file.temporaryName + ' ' + m_file.name});
}

void CUploadRun::prepareCommands(CNetRequest& request, std::initializer_list<std::string> lines) const
{
    const kx::P<CNetStringList> commands = remoteCommands(lines);
    request.setURL(readable(m_file.folderURL));
    request.setOptionInt(CURLOPT_NOBODY, 1);
    if (m_file.isSFTP) {
        request.keepObject(commands.get());
        request.setOptionPtr(CURLOPT_QUOTE, commands->getCurlList());
        return;
    }
    request.setFTPFileMethod(CURLFTPMETHOD_MULTICWD);
    request.setFTPCustomPreCommands(commands.get());
}

/// Behind a failure, also behind a cancellation.
void CUploadRun::removePart() noexcept
{
    constexpr int longestRemoval = 10; // seconds
    try {
        m_request->reset();
        m_request->setSafeDefaults();
        m_prepare(*m_request);
        prepareCommands(*m_request, {(m_file.isSFTP ? "rm " : "DELE ") + m_file.temporaryName});
        CTransfer::Options options;
        options.deadline = kx::CTimeSpan::fromSeconds(longestRemoval);
        const auto transfer = m_pool->start(m_request.get(), options);
        transfer->wait();
        transfer->check();
    } catch (const std::exception& error) {
        kx::logError(error, "A part of a file cannot be removed from the server", kx::String());
    }
}

} // namespace norla
