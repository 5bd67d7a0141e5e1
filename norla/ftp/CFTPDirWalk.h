#pragma once

#include "kx/containers/TArray.h"
#include "kx/text/String.h"

namespace norla {

class CFTPClient;
class CNetRequest;

/// One run of CFTPClient::createDirs(): on the caller's stack, used once.
class CFTPDirWalk {
public:
    /// @throws kx::CInvalidArgError for an empty path and for control characters
    CFTPDirWalk(CFTPClient& client, CNetRequest& request, const kx::String& path);

    void run();

private:
    void tryToMakeAll();
    bool enter(const kx::String& dir);
    void makeStepByStep();
    kx::String make(const kx::String& dir);
    [[noreturn]] void throwNoWay(
        const kx::String& dir, const kx::String& answerToEnter, const kx::String& answerToMake);
    void perform();
    kx::String serverWords();

    CFTPClient& m_client;
    CNetRequest& m_request;
    kx::TArray<kx::String> m_dirs; // from the first to the whole path
};

} // namespace norla
