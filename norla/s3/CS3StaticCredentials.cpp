#include "norla/s3/CS3StaticCredentials.h"

namespace norla {

CS3StaticCredentials::CS3StaticCredentials(const CS3Credentials& credentials)
    : m_credentials(credentials)
{
}

CS3StaticCredentials::~CS3StaticCredentials() = default;

CS3Credentials CS3StaticCredentials::get()
{
    return m_credentials;
}

} // namespace norla
