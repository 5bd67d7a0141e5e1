#pragma once

#include <curl/curl.h>

namespace norla {

/// Tells libcurl what happens to the sockets of transfers, and nothing else. It is told of transfers that older
/// versions of libcurl may not go on with then, so that it lets libcurl look at them now and then.
class IStallWatcher {
public:
    virtual void setMayStall(CURL* handle, bool mayStall) noexcept = 0;

protected:
    ~IStallWatcher() = default;
};

} // namespace norla
