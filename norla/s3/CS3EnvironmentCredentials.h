#pragma once

#include "kx/base/CBase.h"
#include "norla/s3/IS3Credentials.h"

namespace norla {

/// The credentials in AWS_ACCESS_KEY_ID, AWS_SECRET_ACCESS_KEY and, for those of a while, AWS_SESSION_TOKEN. Any
/// thread, as long as nobody changes the environment meanwhile (getenv).
class KX_EXPORT CS3EnvironmentCredentials : public kx::CBase, public IS3Credentials {
public:
    CS3EnvironmentCredentials();
    ~CS3EnvironmentCredentials() override;

    /// Looked up each time.
    /// @throws kx::CError naming the variable that is missing, empty or not UTF-8
    CS3Credentials get() override;
};

} // namespace norla
