#pragma once

namespace norla {

class IUploadSession;

/// How a file gets to where it is to be, where that is not by one request to an URL. Used on the thread of
/// CFileUpload::run() alone.
class IUploadWay {
public:
    virtual ~IUploadWay() = default;

    /// Sends the whole file, and sees that it is there. Called once.
    /// @throws as CFileTransfer::run(); what is to be kept at the server is left there, and all else removed
    virtual void send(IUploadSession& session) = 0;
};

} // namespace norla
