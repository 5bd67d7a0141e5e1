#pragma once

#include "kx/base/CError.h"
#include "kx/base/P.h"
#include "kx/text/String.h"
#include "norla/core/CNetRequest.h"

#include <functional>
#include <string_view>

namespace norla {

/// From where a file is fetched: how its requests are made, and what is known of the answers beside the protocol. Used
/// on the thread of CFileDownload::run() alone.
class IDownloadOrigin {
public:
    /// Gives the file's bytes, one block behind the other; behind the last one an empty block.
    using NextBlock = std::function<std::string_view()>;

    virtual ~IDownloadOrigin() = default;

    /// As CFileDownload::Prepare.
    virtual void prepare(CNetRequest& request) = 0;

    /// What names the resource; empty: its URL.
    virtual kx::String getIdentity() { return {}; }

    /// An attempt has brought something of the resource.
    virtual void learn(CNetRequest& /*request*/) {}

    /// What the failure of an attempt means. @return null when the request is to be made again at once
    virtual kx::P<kx::CError> explain(CNetRequest& /*request*/, const kx::CError& error) { return error.clone(); }

    /// All bytes are there. @return what is wrong with them, null when nothing is
    virtual kx::P<kx::CError> judge(const NextBlock& /*nextBlock*/) { return nullptr; }
};

} // namespace norla
