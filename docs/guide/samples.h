#pragma once

// What the samples of docs/guide.md define, for the test that runs them.

#include "kx/base/P.h"
#include "kx/containers/TArray.h"
#include "kx/files/CUnixPathTraits.h"
#include "kx/files/TPathImpl.h"
#include "kx/text/String.h"
#include "kx/time/CTime.h"

#include <functional>
#include <string>

namespace norla {
class CFTPClient;
class CNetRequest;
class CS3Client;
class IS3Credentials;
struct CS3Endpoint;
class CSMTPParams;
class CTransferPool;
struct CFileProgress;
struct CFileQueueSummary;
} // namespace norla

kx::String postNote(const kx::String& url, const kx::String& note);
void download(const kx::String& url, const kx::TPathImpl<kx::CUnixPathTraits>& path);
kx::String downloadSafely(const kx::String& url, const kx::TPathImpl<kx::CUnixPathTraits>& path,
    const kx::TPathImpl<kx::CUnixPathTraits>& authority);
void downloadPatiently(const kx::String& url, const kx::TPathImpl<kx::CUnixPathTraits>& path);
void downloadWithProgress(const kx::String& url, const kx::TPathImpl<kx::CUnixPathTraits>& path,
    const std::function<bool(double received, double size)>& report);
kx::String fetchRelease(const kx::String& url, const kx::TPathImpl<kx::CUnixPathTraits>& path, const kx::String& sha256,
    const std::function<void(const norla::CFileProgress&)>& report);
kx::String storeAndFetch(norla::CS3Client& client, const kx::String& bucket, const kx::String& name,
    const kx::TPathImpl<kx::CUnixPathTraits>& file, const kx::TPathImpl<kx::CUnixPathTraits>& copy);
kx::String sendFile(const kx::String& url, const kx::TPathImpl<kx::CUnixPathTraits>& path,
    const std::function<void(const norla::CFileProgress&)>& report);
kx::TArray<kx::String> fetchFiles(const kx::TArray<kx::String>& urls, const kx::TPathImpl<kx::CUnixPathTraits>& folder,
    const std::function<void(const norla::CFileQueueSummary&)>& report);
kx::String searchURL(const kx::String& url, const kx::String& words);
kx::CTime fetchRest(norla::CNetRequest& request, const kx::String& url, long long position, long long& size);
void useProxies(const kx::String& proxies, const kx::String& directHosts);
void performAsTheUserWants(norla::CNetRequest& request);
kx::TArray<kx::String> storeNote(norla::CS3Client& client, const kx::String& bucket, const std::string& note);
kx::P<norla::CS3Client> openStore(const norla::CS3Endpoint& endpoint, norla::IS3Credentials* credentials);
kx::TArray<kx::String> archive(norla::CS3Client& client, const kx::String& bucket, const std::string& note,
    const kx::TPathImpl<kx::CUnixPathTraits>& file,
    const std::function<void(long long bytes, long long total)>& report);
kx::String linkTo(norla::CS3Client& client, const kx::String& bucket, const kx::String& name);
kx::String problemWith(norla::CS3Client& client, const kx::String& bucket, const kx::String& name);
kx::TArray<kx::String> storeReport(norla::CFTPClient& client, const std::string& report);
void sendText(norla::CSMTPParams params, const kx::String& recipient, const std::string& text);
kx::TArray<kx::String> fetchPages(const kx::TArray<kx::String>& urls);
kx::P<norla::CTransferPool> makeWindowPool();
std::function<void()> showDownload(
    norla::CTransferPool& pool, const kx::String& url, const std::function<void(const kx::String& line)>& show);
kx::String fetchUnlessKey(const kx::String& url, int keyboard);
void followAddress(
    norla::CTransferPool& pool, const kx::String& url, const std::function<void(const kx::String& text)>& tell);
int fetchAll(const kx::TArray<kx::String>& urls);
void logToFile(const std::string& name);
