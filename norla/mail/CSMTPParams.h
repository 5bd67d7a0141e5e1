#pragma once

#include "kx/base/CBase.h"
#include "kx/text/String.h"

namespace norla {

/// Where and how to reach a mail server: a plain value.
class KX_EXPORT CSMTPParams : public virtual kx::CBase {
public:
    /// How the connection is secured. The numbers and texts are what applications store.
    enum ConnectType : int {
        ConnectUnencrypted = 0, ///< "unencrypted": never
        ConnectSSL = 1,         ///< "ssl": TLS from the first byte
        ConnectStartTLS = 2     ///< "starttls": TLS after STARTTLS, without which nothing is sent
    };

    CSMTPParams() = default;
    CSMTPParams(const CSMTPParams&) = default;
    CSMTPParams& operator=(const CSMTPParams&) = default;
    ~CSMTPParams() override;

    /// The type of that text; letter case matters.
    /// @throws kx::CInvalidArgError naming any other text
    static ConnectType connectTypeToInt(const kx::String& text);

    /// The text of that type.
    /// @throws kx::CInvalidArgError naming any other value
    static kx::String connectTypeToString(ConnectType type);

    /// Name or address; an IPv6 address in brackets.
    kx::String host;
    int port = 0;
    ConnectType connectType = ConnectUnencrypted;
    /// Empty for no login, whatever the password is.
    kx::String userName;
    kx::String password;
};

} // namespace norla
