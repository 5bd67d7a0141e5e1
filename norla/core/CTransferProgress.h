#pragma once

#include "kx/base/visibility.h"

#include <optional>

namespace norla {

/// How far a transfer has come, in bytes of body.
struct CTransferProgress {
    long long received = 0;
    std::optional<long long> toReceive; ///< all in all, as far as the server has said
    long long sent = 0;
    std::optional<long long> toSend; ///< all in all, as far as the request says
};

} // namespace norla
