#pragma once

#include "kx/base/language.h"

namespace norla {

/// How far a transfer has come, or had come when it failed. Of several addresses, redirects or rounds of a login it is
/// the last one.
enum class TransferPhase {
    Unknown,    ///< none was running, or it never got as far as to look for the host
    NameLookup, ///< of the host, or of its proxy
    Connect,    ///< to the host, or to and through its proxy
    Encryption, ///< agreeing on TLS or on SSH's keys, and on who the server is
    Login,      ///< of FTP, mail and SSH: greeting and login
    Sending,    ///< the request or its body; of a mail the addresses too
    Waiting,    ///< for the first byte of the answer; of FTP also for that of the next command
    Receiving,  ///< the answer
};

} // namespace norla
