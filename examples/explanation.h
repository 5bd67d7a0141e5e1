#pragma once

#include "norla/core/CNetRequest.h"

#include <algorithm>

/// Whether a body of that status explains why the server has refused something, and is not what was asked for.
constexpr bool isExplanation(int responseCode)
{
    return responseCode >= 300;
}

/// Keeps what explains a refusal where the request and its client look for it, in the default receive buffer: the
/// beginning of it, because a server may go on for ever.
inline void keepExplanation(norla::CNetRequest& request, const unsigned char* data, int size)
{
    constexpr size_t most = 64 << 10;
    const auto buffer = request.getDefaultReceiveBuffer();
    const size_t room = most - std::min(buffer->getSize(), most);
    buffer->append(data, std::min(static_cast<size_t>(size), room));
}
