#pragma once

#include <curl/curl.h>

#include <chrono>

namespace norla {

/// Tells libcurl what happens to the sockets of transfers, and nothing else. It is told of transfers that older
/// versions of libcurl may not go on with then, so that it lets libcurl look at them now and then.
class IStallWatcher {
public:
    virtual void setMayStall(CURL* handle, bool mayStall) noexcept = 0;

    /// How long the call to libcurl lasts already, asked by a callback in it.
    virtual std::chrono::steady_clock::duration getCallDuration() const noexcept = 0;

protected:
    ~IStallWatcher() = default;
};

} // namespace norla
