#include "sela/hmac.h"

#include "kx/text/hex.h"

#include <gtest/gtest.h>

#include <string>

namespace {

kx::String hmac(const std::string& key, const std::string& message)
{
    kx::TBuffer<unsigned char> result;
    sela::calcHMAC_SHA1(result, reinterpret_cast<const unsigned char*>(message.data()), message.size(),
        reinterpret_cast<const unsigned char*>(key.data()), key.size());
    return kx::hexEncode({reinterpret_cast<const char*>(result.getData()), result.getSize()});
}

std::string counted(char first, char last)
{
    std::string bytes;
    for (char byte = first; byte <= last; ++byte)
        bytes += byte;
    return bytes;
}

TEST(HMACTest, givesTheSevenValuesOfRFC2202)
{
    EXPECT_EQ(hmac(std::string(20, '\x0B'), "Hi There"), "b617318655057264e28bc0b6fb378c8ef146be00");
    EXPECT_EQ(hmac("Jefe", "what do ya want for nothing?"), "effcdf6ae5eb2fa2d27416d5f184df9c259a7c79");
    EXPECT_EQ(hmac(std::string(20, '\xAA'), std::string(50, '\xDD')), "125d7342b9ac11cd91a39af48aa17b4f63f175d3");
    EXPECT_EQ(hmac(counted(1, 25), std::string(50, '\xCD')), "4c9007f4026250c6bc8414f9bf50c86c2d7235da");
    EXPECT_EQ(hmac(std::string(20, '\x0C'), "Test With Truncation"), "4c1a03424b55e07fe7f27be1d58bb9324a9a5a04");
    EXPECT_EQ(hmac(std::string(80, '\xAA'), "Test Using Larger Than Block-Size Key - Hash Key First"),
        "aa4ae5e15272d00e95705637ce8a3b55ed402112");
    EXPECT_EQ(
        hmac(std::string(80, '\xAA'), "Test Using Larger Than Block-Size Key and Larger Than One Block-Size Data"),
        "e8e99d0f45237d786d6bbaa7965c7808bbff1a91");
}

TEST(HMACTest, takesAnEmptyKeyAndMessage)
{
    EXPECT_EQ(hmac("", ""), "fbdb1d1b18aa6c08324b7d64b71fb76370690e1d");
}

TEST(HMACTest, takesNullForAnEmptyKeyAndMessage)
{
    kx::TBuffer<unsigned char> result;
    sela::calcHMAC_SHA1(result, nullptr, 0, nullptr, 0);
    EXPECT_EQ(kx::hexEncode({reinterpret_cast<const char*>(result.getData()), result.getSize()}), hmac("", ""));
}

TEST(HMACTest, takesAMessageAndAKeyThatLieInItsBuffer)
{
    kx::TBuffer<unsigned char> buffer;
    const std::string bytes = "keymessage";
    buffer.append(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    sela::calcHMAC_SHA1(buffer, buffer.getData() + 3, 7, buffer.getData(), 3);
    EXPECT_EQ(
        kx::hexEncode({reinterpret_cast<const char*>(buffer.getData()), buffer.getSize()}), hmac("key", "message"));
}

TEST(HMACTest, replacesWhatTheBufferHeld)
{
    kx::TBuffer<unsigned char> result(size_t{100});
    sela::calcHMAC_SHA1(result, nullptr, 0, nullptr, 0);
    EXPECT_EQ(result.getSize(), 20u);
}

} // namespace
