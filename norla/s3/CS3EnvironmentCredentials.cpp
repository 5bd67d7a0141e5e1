#include "norla/s3/CS3EnvironmentCredentials.h"

#include "kx/base/CError.h"

#include <cstdlib>

namespace norla {

namespace {

kx::String valueOf(const char* name)
{
    const char* const value = std::getenv(name);
    try {
        return value ? kx::String::fromUTF8(value) : kx::String();
    } catch (const kx::CError&) {
        throw kx::CError("The S3 credentials in the environment cannot be read: the variable '"
            + kx::String::fromLatin1(name) + "' is not UTF-8.");
    }
}

kx::String demandedValueOf(const char* name)
{
    kx::String value = valueOf(name);
    if (value.isEmpty())
        throw kx::CError("There are no S3 credentials in the environment: the variable '" + kx::String::fromLatin1(name)
            + "' is not set.");
    return value;
}

} // namespace

CS3EnvironmentCredentials::CS3EnvironmentCredentials() = default;
CS3EnvironmentCredentials::~CS3EnvironmentCredentials() = default;

CS3Credentials CS3EnvironmentCredentials::get()
{
    return {.accessKeyId = demandedValueOf("AWS_ACCESS_KEY_ID"),
        .secretAccessKey = demandedValueOf("AWS_SECRET_ACCESS_KEY"),
        .sessionToken = valueOf("AWS_SESSION_TOKEN"),
        .expiry = {}};
}

} // namespace norla
