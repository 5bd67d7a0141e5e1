#pragma once

#include "kx/text/String.h"
#include "norla/core/TransferPhase.h"

namespace norla {

/// Which limit of time has ended a transfer.
enum class TransferLimit {
    None,
    Connect,    ///< until the server is connected, agrees on encryption and lets log in
    Inactivity, ///< while nothing moves
    Total,      ///< from the start to the end
};

/// Where a transfer was when it failed: CCURLError::getDetails(). What is not known is empty. There is never a user, a
/// password or a query in it, but for what the server says (ftpReply).
struct CFailureDetails {
    TransferPhase phase = TransferPhase::Unknown;
    TransferLimit limit = TransferLimit::None;
    kx::String limitText = {}; ///< a sentence about the limit that was reached: what was waited for, and how long; what
                               ///< was too large; which redirect is not followed; what this process may have no more of
    kx::String host = {};      ///< of the URL, after redirects, with the port that stands there: "localhost:8080"
    kx::String path = {};      ///< of the same URL, as it stands there
    kx::String url = {};       ///< as it was set, without login and query, when it is none that can be used
    kx::String address = {};   ///< of the connection's other end, which may be a proxy's: "127.0.0.1:8080"
    kx::String proxy = {};     ///< that the transfer goes over, with its port; empty also when that is not certain
    kx::String ftpReply = {};  ///< what an FTP server refused with, as CCURLError::getServerReply() does for mails
    int proxyStatus = 0;       ///< of the proxy that was asked for a tunnel (HTTP); 0: none
    bool isRecipientRefused = false; ///< a mail server has taken the sender and none of the data yet
};

} // namespace norla
