#pragma once

#include "kx/base/CBase.h"
#include "norla/s3/IS3Credentials.h"

namespace norla {

/// Credentials that stay as they are. Any thread.
class KX_EXPORT CS3StaticCredentials : public kx::CBase, public IS3Credentials {
public:
    explicit CS3StaticCredentials(const CS3Credentials& credentials);
    ~CS3StaticCredentials() override;

    CS3Credentials get() override;

private:
    const CS3Credentials m_credentials;
};

} // namespace norla
