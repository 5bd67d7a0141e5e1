#include "sela/CHMAC.h"

#include "kx/text/hex.h"
#include "tests/support/errorOf.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string codeOf(const std::string& key, const std::string& message)
{
    return kx::hexEncode(sela::CHMAC("SHA256", key).calculate(message)).toUTF8();
}

// RFC 4231 section 4.
TEST(CHMACTest, knownCodes)
{
    EXPECT_EQ(codeOf(std::string(20, '\x0b'), "Hi There"),
        "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7");
    EXPECT_EQ(codeOf("Jefe", "what do ya want for nothing?"),
        "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
    EXPECT_EQ(codeOf(std::string(131, '\xaa'), "Test Using Larger Than Block-Size Key - Hash Key First"),
        "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54");
}

TEST(CHMACTest, knownCodeOfAnotherDigest) // RFC 2202 section 3
{
    EXPECT_EQ(kx::hexEncode(sela::CHMAC("SHA1", "Jefe").calculate("what do ya want for nothing?")).toUTF8(),
        "effcdf6ae5eb2fa2d27416d5f184df9c259a7c79");
}

TEST(CHMACTest, takesNoKeyAndNoMessage)
{
    EXPECT_EQ(codeOf("", ""), "b613679a0814d9ec772f95d778c35fc5ff1697c493715653c6c712144292c5ad");
}

TEST(CHMACTest, makesTheSameCodeAgain)
{
    sela::CHMAC mac("SHA256", "key");
    const std::string first = mac.calculate("one");
    mac.calculate("two");
    EXPECT_EQ(mac.calculate("one"), first);
}

TEST(CHMACTest, namesADigestThatIsNotThere)
{
    const auto error = support::errorOf([] { sela::CHMAC("MD47", "secret"); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getMessage(), "OpenSSL cannot calculate HMAC-MD47.");
}

} // namespace
