#include "norla/ftp/CFTPClient.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/random/CMTRand.h"
#include "kx/streams/CBufferStream.h"
#include "kx/text/CStringFormat.h"
#include "kx/text/numbers.h"
#include "norla/core/CNetStringList.h"
#include "norla/ftp/CFTPDirWalk.h"
#include "norla/ftp/CFTPTreeDeletion.h"

#include <array>
#include <initializer_list>
#include <limits>
#include <utility>

namespace norla {

namespace {

kx::P<CNetStringList> commands(std::initializer_list<kx::String> lines)
{
    auto list = kx::newObj<CNetStringList>();
    for (const kx::String& line : lines)
        list->add(line);
    return list;
}

/// As the URL of a directory.
kx::String withSlash(const kx::String& path)
{
    return path.endsWith("/") ? path : path + "/";
}

void sendNothing(CNetRequest& request)
{
    request.setUpload(true);
    request.setSendDataStream(kx::newObj<kx::CBufferStream>().get());
}

} // namespace

CFTPClient::CFTPClient(
    const kx::String& host, const kx::String& userName, const kx::String& password, ConnectType connectType)
    : m_host(host)
    , m_userName(userName)
    , m_password(password)
    , m_connectType(connectType)
{
}

CFTPClient::~CFTPClient() = default;

void CFTPClient::beginPrepareRequest(CNetRequest& request, const kx::String& path, bool createMissingDirs)
{
    request.reset();
    if (m_safeDefaults)
        request.setSafeDefaults(*m_safeDefaults);
    request.setURL(kx::String::fromLatin1(m_connectType == ConnectImplicitTLS ? "ftps://" : "ftp://") + m_host + path);
    request.setUserName(m_userName);
    request.setUserPassword(m_password);
    if (m_connectType == ConnectExplicitTLS)
        request.setFTPUseSSL(CURLUSESSL_ALL);
    if (!m_rootCertBundlePath.isEmpty())
        request.setRootCertBundlePath(m_rootCertBundlePath);
    setFileMethod(request, createMissingDirs);
    request.setFTPCreateMissingDirs(createMissingDirs ? CURLFTP_CREATE_DIR_RETRY : CURLFTP_CREATE_DIR_NONE);
}

void CFTPClient::setFileMethod(CNetRequest& request, bool createMissingDirs) const
{
    // By CWDType, whose numbers are not libcurl's.
    constexpr std::array<int, 3> methods = {CURLFTPMETHOD_MULTICWD, CURLFTPMETHOD_SINGLECWD, CURLFTPMETHOD_NOCWD};
    if (m_overrideCWDType == CWDInvalid) // a server can be asked for directories only on a walk step by step
        request.setFTPFileMethod(createMissingDirs ? CURLFTPMETHOD_MULTICWD : CURLFTPMETHOD_NOCWD);
    else if (m_overrideCWDType >= CWDSteps && m_overrideCWDType <= CWDNone)
        request.setFTPFileMethod(methods[static_cast<size_t>(m_overrideCWDType)]);
}

void CFTPClient::prepareUploadRequest(
    CNetRequest& request, const kx::String& path, const void* data, int size, bool createMissingDirs)
{
    beginPrepareRequest(request, path, createMissingDirs);
    request.setUpload(true);
    const auto body = kx::newObj<CNetRequest::Buffer>();
    if (size > 0)
        body->append(static_cast<const unsigned char*>(data), static_cast<size_t>(size));
    request.setSendDataStream(kx::newObj<kx::CBufferStream>(body).get());
    request.setSendDataSize(size);
}

void CFTPClient::prepareDownloadRequest(
    CNetRequest& request, const kx::String& path, long long offset, long long length)
{
    long long end = 0;
    if (__builtin_add_overflow(offset, length, &end) || end == std::numeric_limits<long long>::min())
        throw kx::CInvalidArgError(
            "offset + length is beyond 64 bits: " + kx::toString(offset) + ", " + kx::toString(length),
            "CFTPClient::prepareDownloadRequest");
    beginPrepareRequest(request, path, false);
    if (offset == 0 && length == -1)
        return;
    kx::String last;
    if (length != -1)
        last = kx::toString(end - 1);
    request.setOptionString(CURLOPT_RANGE, kx::toString(offset) + "-" + last);
}

void CFTPClient::prepareVerifyExistsRequest(CNetRequest& request, const kx::String& path)
{
    prepareCommandRequest(request, "MLST " + path);
}

void CFTPClient::prepareGetInfoRequest(CNetRequest& request, const kx::String& path)
{
    prepareVerifyExistsRequest(request, path);
}

void CFTPClient::prepareMoveFileRequest(
    CNetRequest& request, const kx::String& fromPath, const kx::String& toPath, bool createMissingDirs)
{
    if (!createMissingDirs) {
        prepareRename(request, fromPath, toPath);
        return;
    }
    // The walk to an upload makes the target's directory. What is uploaded then is nothing, to the end of the moved
    // file.
    beginPrepareRequest(request, toPath, true);
    request.setFTPCustomPreCommands(commands({"RNFR " + fromPath, "RNTO " + toPath}).get());
    sendNothing(request);
    request.setOptionInt(CURLOPT_APPEND, 1);
}

void CFTPClient::prepareMoveDirRequest(
    CNetRequest& request, const kx::String& fromDir, const kx::String& toDir, bool createMissingDirs)
{
    if (!createMissingDirs) {
        prepareRename(request, fromDir, toDir);
        return;
    }
    // The walk to an upload makes the target, the rename replaces it, and the empty file that was uploaded is deleted.
    // Its random name keeps moves at the same time apart.
    const kx::String dummyPath = toDir + "/__dummy" + kx::CStringFormat("%llu", kx::rand64()).toString();
    beginPrepareRequest(request, dummyPath, true);
    request.setFTPCustomPreCommands(commands({"RNFR " + fromDir, "RNTO " + toDir}).get());
    sendNothing(request);
    request.setFTPCustomPostCommands(commands({"DELE " + dummyPath}).get());
}

void CFTPClient::prepareRename(CNetRequest& request, const kx::String& fromPath, const kx::String& toPath)
{
    beginPrepareRequest(request, kx::String(), false);
    request.setFTPCustomPreCommands(commands({"RNFR " + fromPath, "RNTO " + toPath}).get());
    request.setOptionInt(CURLOPT_NOBODY, 1);
}

void CFTPClient::prepareCommandRequest(CNetRequest& request, const kx::String& command)
{
    beginPrepareRequest(request, kx::String(), false);
    request.setFTPCustomPreCommands(commands({command}).get());
    request.setOptionInt(CURLOPT_NOBODY, 1);
}

void CFTPClient::prepareDeleteFileRequest(CNetRequest& request, const kx::String& path)
{
    prepareCommandRequest(request, "DELE " + path);
}

void CFTPClient::deleteFile(CNetRequest& request, const kx::String& path)
{
    prepareDeleteFileRequest(request, path);
    request.perform();
}

void CFTPClient::prepareRemoveDirRequest(CNetRequest& request, const kx::String& path)
{
    prepareCommandRequest(request, "RMD " + path);
}

void CFTPClient::removeDir(CNetRequest& request, const kx::String& path)
{
    prepareRemoveDirRequest(request, path);
    request.perform();
}

void CFTPClient::prepareCreateDirRequest(CNetRequest& request, const kx::String& path, bool recursive)
{
    if (!recursive) {
        prepareCommandRequest(request, "MKD " + path);
        return;
    }
    // The walk to a listing of the directory makes it; libcurl sends no commands before a listing.
    beginPrepareRequest(request, withSlash(path), true);
    request.setFTPCustomPreCommands(commands({"MKD " + path}).get());
}

void CFTPClient::createDir(CNetRequest& request, const kx::String& path, bool recursive)
{
    prepareCreateDirRequest(request, path, recursive);
    request.perform();
}

void CFTPClient::createDirs(CNetRequest& request, const kx::String& path)
{
    CFTPDirWalk(*this, request, path).run();
}

void CFTPClient::prepareListDirRequest(CNetRequest& request, const kx::String& path)
{
    beginPrepareRequest(request, withSlash(path), false);
    request.setFTPListOverrideCommand("MLSD");
}

kx::P<CFTPListDirResult> CFTPClient::listDir(CNetRequest& request, const kx::String& path)
{
    prepareListDirRequest(request, path);
    request.perform();
    return readListing(request);
}

kx::P<CFTPListDirResult> CFTPClient::readListing(CNetRequest& request) const
{
    return kx::newObj<CFTPListDirResult>(*request.getDefaultReceiveBuffer(),
        m_keepUnreadableLines ? CFTPListDirResult::KeepUnreadable : CFTPListDirResult::RefuseUnreadable);
}

void CFTPClient::deleteDirWithAllContents(CNetRequest& request, const kx::String& dirPath)
{
    CFTPTreeDeletion(*this, request, dirPath).run();
}

kx::String CFTPClient::cwdTypeToString(CWDType type)
{
    switch (type) {
    case CWDInvalid:
        return "CWDInvalid";
    case CWDSteps:
        return "CWDSteps";
    case CWDDirect:
        return "CWDDirect";
    case CWDNone:
        return "CWDNone";
    }
    throw kx::CError(kx::CStringFormat("Unknown CWDType: %d", static_cast<int>(type)));
}

} // namespace norla
