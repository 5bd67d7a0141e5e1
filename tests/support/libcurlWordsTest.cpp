#include "tests/support/libcurlWords.h"

#include <curl/curl.h>
#include <gtest/gtest.h>

#include <cstdlib>

namespace support {
namespace {

std::string loadedVersion()
{
    return curl_version_info(CURLVERSION_NOW)->version;
}

/// Who lets the tests run with another libcurl than the one they were compiled with names it in the environment.
std::string expectedVersion()
{
    const char* const expected = std::getenv("NORLA_EXPECT_LIBCURL");
    return expected ? expected : LIBCURL_VERSION;
}

TEST(LibcurlTest, isTheOneThatIsMeant)
{
    EXPECT_EQ(loadedVersion(), expectedVersion());
}

TEST(LibcurlTest, hasItsOwnWords)
{
    EXPECT_EQ(curl_easy_strerror(CURLE_COULDNT_CONNECT), libcurlSays("Couldn't connect to server"));
    EXPECT_EQ(curl_easy_strerror(CURLE_COULDNT_RESOLVE_HOST), libcurlSays("Couldn't resolve host name"));
}

TEST(LibcurlTest, hasAVersion)
{
    EXPECT_TRUE(isLibcurlSince(7, 88));
    EXPECT_EQ(isLibcurlSince(8, 14), loadedVersion() >= "8.14");
    EXPECT_FALSE(isLibcurlSince(9, 0));
}

} // namespace
} // namespace support
