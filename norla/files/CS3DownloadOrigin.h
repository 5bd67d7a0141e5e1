#pragma once

#include "kx/text/String.h"
#include "norla/core/CNetRequest.h"
#include "norla/files/CS3FileDownload.h"
#include "norla/files/IDownloadOrigin.h"
#include "norla/s3/CS3Attempt.h"
#include "norla/s3/CS3Call.h"

#include <map>

namespace norla {

/// An object of a store as what a file is made of.
class CS3DownloadOrigin : public IDownloadOrigin {
public:
    /// @throws kx::CInvalidArgError for an empty name, and for an option that makes no sense
    CS3DownloadOrigin(CS3Client& client, const kx::String& bucketName, const kx::String& objectName,
        const CS3FileDownloadOptions& options);

    void prepare(CNetRequest& request) override;
    kx::String getIdentity() override;
    void learn(CNetRequest& request) override;
    kx::P<kx::CError> explain(CNetRequest& request, const kx::CError& error) override;
    kx::P<kx::CError> judge(const NextBlock& nextBlock) override;

private:
    struct CAttempt {
        CS3Attempt attempt;
        bool isCorrected = false; // the next request belongs to it, too
    };

    CS3Client& m_client;
    const CS3Call m_call;
    const kx::String m_versionId;
    const bool m_verifies;
    std::map<const CNetRequest*, CAttempt> m_attempts; // of one connection each
    CNetRequest::HeaderMap m_said;                     // by the store, of the whole object
};

} // namespace norla
