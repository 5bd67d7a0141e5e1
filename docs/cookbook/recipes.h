#pragma once

// What the recipes of docs/cookbook.md define, for the test that runs them.

#include "kx/containers/TArray.h"
#include "kx/containers/TMap.h"
#include "norla/core/CNetRequest.h"
#include "norla/s3/CS3Client.h"
#include "norla/s3/CS3DeleteFailure.h"

#include <functional>
#include <iosfwd>

namespace norla {
class CSMTPParams;
class CTransferPool;
struct CFileProgress;
struct CFileQueueSummary;
} // namespace norla

using Path = norla::CNetRequest::Path;

kx::String getText(const kx::String& url);
void downloadFile(const kx::String& url, const Path& path);
void downloadAndShow(
    const kx::String& url, const Path& path, const std::function<void(const norla::CFileProgress&)>& report);
long long resumeDownload(const kx::String& url, const Path& path);
void downloadLarge(const kx::String& url, const Path& path, const kx::String& sha256);
kx::TArray<kx::String> downloadAll(const kx::TArray<kx::String>& urls, const Path& folder,
    const std::function<void(const norla::CFileQueueSummary&)>& report);
kx::TMap<kx::String, kx::String> downloadMany(const kx::TMap<kx::String, Path>& paths);
bool performUnlessCancelled(
    norla::CTransferPool& pool, norla::CNetRequest& request, const std::function<bool()>& isCancelled);
long long askSize(const kx::String& url);
void uploadFile(const kx::String& url, const Path& path);
void uploadVerified(
    const kx::String& url, const Path& path, const std::function<void(const norla::CFileProgress&)>& report);
void postForm(const kx::String& url, const kx::String& title, const Path& picture);
void postFields(const kx::String& url, const kx::TMap<kx::String, kx::String>& fields);
kx::String postJSON(const kx::String& url, const kx::String& json);
void performWithToken(norla::CNetRequest& request, const kx::String& token);
void performWithLogin(norla::CNetRequest& request, const kx::String& name, const kx::String& password);
void performWithCookies(norla::CNetRequest& request, const Path& file);
long long performCompressed(norla::CNetRequest& request);
void performThroughProxy(norla::CNetRequest& request, const kx::String& proxy);
void performWithCertificate(norla::CNetRequest& request, const Path& certificate, const Path& key,
    const kx::String& keyPassword, const Path& authority);
void performWithPin(norla::CNetRequest& request, const kx::String& pin, const Path& authority);
void performInTime(norla::CNetRequest& request, const kx::CTimeSpan& longest);
void downloadSlowly(const kx::String& url, const Path& path, long long bytesPerSecond);
void storeBySFTP(const kx::String& url, const kx::String& user, const Path& privateKey, const Path& path,
    const Path& knownHosts, const std::function<bool(const kx::String& host, const kx::String& fingerprint)>& isRight);
kx::P<norla::CS3Client> openS3(const norla::CS3Endpoint& endpoint, norla::IS3Credentials* credentials);
void storeInS3(norla::CS3Client& client, const kx::String& bucket, const kx::String& name, const Path& path,
    const std::function<void(long long bytes, long long total)>& report);
void fetchFromS3(norla::CS3Client& client, const kx::String& bucket, const kx::String& name, const Path& path);
kx::TArray<kx::String> listS3Folder(norla::CS3Client& client, const kx::String& bucket, const kx::String& folder);
kx::TArray<norla::CS3DeleteFailure> removeS3Folder(
    norla::CS3Client& client, const kx::String& bucket, const kx::String& folder);
kx::String shareS3Object(norla::CS3Client& client, const kx::String& bucket, const kx::String& name);
void sendAttachment(norla::CSMTPParams params, const kx::String& sender, const kx::String& recipient,
    const kx::String& text, const Path& path);
void writeDown(const norla::CNetRequest& request, std::ostream& log);
kx::String performAndTell(norla::CNetRequest& request);
