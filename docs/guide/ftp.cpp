#include "norla/ftp/CFTPClient.h"

// Stores a report, together with the folder that it is for; returns the names of all files there. The client:
// kx::newObj<norla::CFTPClient>("host:port", user, password, norla::CFTPClient::ConnectExplicitTLS).
kx::TArray<kx::String> storeReport(norla::CFTPClient& client, const std::string& report)
{
    client.setSafeDefaults();
    const auto request = kx::newObj<norla::CNetRequest>(); // stays logged in from one operation to the next
    const int size = static_cast<int>(report.size());
    client.prepareUploadRequest(*request, "/2026/may/report.txt", report.data(), size, true);
    request->perform();
    const auto listing = client.listDir(*request, "/2026/may");
    kx::TArray<kx::String> names;
    for (const auto& entry : listing->getEntries()) {
        if (entry->getType() == norla::CFTPDirEntry::TypeFile)
            names.push_back(entry->getName());
    }
    return names;
}
