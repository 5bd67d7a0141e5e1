#pragma once

#include "kx/base/P.h"
#include "kx/text/String.h"
#include "norla/core/CNetRequest.h"
#include "norla/files/CS3FileUpload.h"
#include "norla/files/IUploadSession.h"
#include "norla/files/IUploadWay.h"
#include "norla/s3/CS3Call.h"
#include "norla/s3/CS3MultipartUpload.h"
#include "norla/s3/CS3ObjectInfo.h"
#include "norla/s3/CS3ParallelUpload.h"
#include "norla/s3/CS3PartDigest.h"

namespace norla {

/// The way of a file into a store: by one PUT, or by parts.
class CS3UploadWay : public IUploadWay {
public:
    /// @param options make sense but for what the store's headers are made of, and the size of the parts
    /// @throws kx::CInvalidArgError for an empty name and for what of these makes no sense
    CS3UploadWay(CS3Client& client, const kx::String& bucketName, const kx::String& objectName,
        const CS3FileUploadOptions& options);

    void send(IUploadSession& session) override;

    const kx::String& getETag() const noexcept { return m_eTag; }
    const kx::String& getUploadId() const noexcept { return m_uploadId; }

private:
    // By one PUT: CS3UploadWay.cpp.
    void sendFile();
    void sendWhole();
    kx::P<kx::CError> performWhole(const CS3Call& call);
    void requireWholeArrived(const CS3PartDigest& digest);
    bool isOurs(const CS3PartDigest& digest);
    CS3ObjectInfo head();
    void requireFree();
    void requireSize();
    bool isTaken(const kx::CError& error) const;
    [[noreturn]] void throwTaken(const kx::CError& cause, const char* end) const;
    kx::String place() const;

    // By parts: CS3UploadWayParts.cpp.
    void sendParts();
    bool sendPartsOnce();
    CS3ParallelUploadOptions optionsOfParts();
    kx::String findUpload();
    bool isOfFile(const kx::String& uploadId);
    void giveUp() noexcept;

    CS3Client& m_client;
    const kx::String m_bucketName;
    const kx::String m_objectName;
    const CS3FileUploadOptions m_options;
    CS3Call m_call;                  // of the PUT
    CS3MultipartOptions m_multipart; // its headers, for an upload by parts
    const kx::P<CNetRequest> m_request = kx::newObj<CNetRequest>();
    IUploadSession* m_session = nullptr; // during send()
    long long m_size = 0;
    kx::String m_eTag;
    kx::String m_uploadId;
    kx::String m_startedId; // that was told
    bool m_isFound = false; // the upload of that id: it is of an earlier program, or from before a pause
};

} // namespace norla
