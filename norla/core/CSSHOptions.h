#pragma once

#include "kx/base/visibility.h"
#include "kx/files/CUnixPathTraits.h"
#include "kx/files/TPathImpl.h"
#include "kx/text/String.h"

#include <functional>

namespace norla {

/// What an SSH server shows to prove who it is.
struct KX_EXPORT CSSHHostKey {
    kx::String host;        ///< as in the URL
    int port = 22;          ///< the same
    kx::String type;        ///< such as "ssh-ed25519"
    kx::String fingerprint; ///< "SHA256:" and the digest of the key in Base64, as ssh shows it
};

/// What becomes of an SSH server that nobody knows yet.
enum class UnknownSSHHost { Refuse, Ask, Remember };

/// What a person says to it: no; yes, this time; yes, and do not ask again.
enum class SSHHostAnswer { Refuse, AcceptOnce, Remember };

/// How the two sides of an SSH connection (SFTP, SCP) prove who they are. A plain value. What is left out is as safe as
/// it can be for everybody.
struct KX_EXPORT CSSHOptions {
    using Path = kx::TPathImpl<kx::CUnixPathTraits>;

    /// Who is known, in the form of OpenSSH's known_hosts: names, patterns and hashed names, "@revoked". A file that is
    /// missing knows nobody. Empty: .ssh/known_hosts of the user (HOME, or else what the system says). It is read for
    /// every connection.
    Path knownHostsFile = {};

    /// The one key that the server has to have, whatever the file says: "SHA256:" and 43 characters of Base64, as
    /// "ssh-keygen -lf" shows it. Empty: as the file says.
    kx::String fingerprint = {};

    /// Which of its keys the server is asked to show: "ssh-ed25519", "ecdsa-sha2-nistp256" (384, 521) or "ssh-rsa".
    /// Empty: of a kind by which it is known; of an unknown server what libcurl likes best, which mostly is not what
    /// ssh likes best.
    kx::String hostKeyType = {};

    /// Of a server that is known by other keys nobody is asked: it is refused, whatever is said here.
    UnknownSSHHost unknownHost = UnknownSSHHost::Refuse;

    /// Asked with UnknownSSHHost::Ask, on the thread that drives the transfer, before anything of the login is sent;
    /// what else that thread does waits meanwhile, and the time counts for the connect timeout (30 seconds at first).
    /// What it throws is the error of the transfer. Given with another rule it is an error, because nobody would be
    /// asked.
    std::function<SSHHostAnswer(const CSSHHostKey&)> ask = {};

    /// The private key to log in with, in PEM or OpenSSH's format; the public key, which is only needed where it cannot
    /// be taken from the private one; the passphrase of the private key. Empty: none.
    Path privateKeyFile = {};
    Path publicKeyFile = {};
    kx::String passphrase = {};

    /// Whether the keys of ssh-agent (SSH_AUTH_SOCK) are tried, after private key and password. Its answers are waited
    /// for on the thread that drives the transfer.
    bool useAgent = true;
};

} // namespace norla
