#include "kx/base/CError.h"
#include "kx/text/hex.h"
#include "sela/CDigestType_MD5.h"
#include "tests/support/errorOf.h"

#include <gtest/gtest.h>
#include <openssl/err.h>

#include <string>
#include <string_view>

namespace {

kx::String valueOf(const sela::CDigest& digest)
{
    return kx::hexEncode({reinterpret_cast<const char*>(digest.getBytes()), digest.getLength()});
}

kx::String md5(std::string_view text)
{
    const auto digest = sela::CDigestType_MD5::createDigest();
    digest->update(text.data(), text.size());
    digest->finish();
    return valueOf(*digest);
}

TEST(CDigestTest, givesTheValuesOfRFC1321)
{
    EXPECT_EQ(md5(""), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(md5("a"), "0cc175b9c0f1b6a831c399e269772661");
    EXPECT_EQ(md5("abc"), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(md5("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
    EXPECT_EQ(md5("abcdefghijklmnopqrstuvwxyz"), "c3fcd3d76192e4007dfb496cca67e13b");
    EXPECT_EQ(
        md5("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"), "d174ab98d277d9f5a5611c2c9f419d9f");
    EXPECT_EQ(md5("12345678901234567890123456789012345678901234567890123456789012345678901234567890"),
        "57edf4a22be3c955ac49da2e2107b67a");
}

TEST(CDigestTest, takesItsTextInPieces)
{
    const auto digest = sela::CDigestType_MD5::createDigest();
    digest->update("a", 1);
    digest->update("", 0);
    digest->update("bc", 2);
    digest->finish();
    EXPECT_EQ(valueOf(*digest), md5("abc"));
}

TEST(CDigestTest, hasNoLengthBeforeItIsFinished)
{
    const auto digest = sela::CDigestType_MD5::createDigest();
    EXPECT_EQ(digest->getLength(), 0u);
    digest->finish();
    EXPECT_EQ(digest->getLength(), 16u);
}

TEST(CDigestTest, startsAnewAfterReset)
{
    const auto digest = sela::CDigestType_MD5::createDigest();
    digest->update("x", 1);
    digest->finish();
    digest->reset();
    EXPECT_EQ(digest->getLength(), 0u);
    digest->update("abc", 3);
    digest->finish();
    EXPECT_EQ(valueOf(*digest), md5("abc"));
}

TEST(CDigestTest, isFinishedOnce)
{
    const auto digest = sela::CDigestType_MD5::createDigest();
    digest->update("abc", 3);
    digest->finish();
    digest->finish();
    EXPECT_EQ(valueOf(*digest), md5("abc"));
}

TEST(CDigestTest, takesNoMoreBytesOnceItIsFinished)
{
    const auto digest = sela::CDigestType_MD5::createDigest();
    digest->update("abc", 3);
    digest->finish();
    EXPECT_EQ(support::messageOf([&digest] { digest->update("d", 1); }),
        "The MD5 digest is finished and takes no more bytes.");
    EXPECT_EQ(valueOf(*digest), md5("abc"));
}

TEST(CDigestTest, keepsTheNameOfItsAlgorithm)
{
    std::string name = "MD5";
    const auto digest = kx::newObj<sela::CDigest>(name.c_str());
    name = "SHA1";
    digest->reset();
    digest->update("abc", 3);
    digest->finish();
    EXPECT_EQ(valueOf(*digest), md5("abc"));
}

TEST(CDigestTest, leavesNoErrorForOthers)
{
    ERR_clear_error();
    EXPECT_THROW(kx::newObj<sela::CDigest>("MD0"), kx::CError);
    EXPECT_EQ(ERR_peek_error(), 0u);
}

TEST(CDigestTest, leavesTheErrorsOfOthers)
{
    ERR_clear_error();
    ERR_raise(ERR_LIB_USER, ERR_R_INTERNAL_ERROR);
    EXPECT_THROW(kx::newObj<sela::CDigest>("MD0"), kx::CError);
    EXPECT_NE(ERR_get_error(), 0u);
    EXPECT_EQ(ERR_peek_error(), 0u);
}

TEST(CDigestTest, namesAnUnknownAlgorithm)
{
    try {
        kx::newObj<sela::CDigest>("MD0");
        FAIL() << "no error";
    } catch (const kx::CError& error) {
        EXPECT_EQ(error.getMessage(), "OpenSSL cannot calculate MD0.");
    }
}

} // namespace
