#include "norla/mail/CSMTPParams.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/base/P.h"
#include "kx/containers/TArray.h"

#include <gtest/gtest.h>

namespace {

using norla::CSMTPParams;

TEST(CSMTPParamsTest, isAnUnencryptedServerWithoutLoginAtFirst)
{
    const CSMTPParams params;
    EXPECT_EQ(params.host, "");
    EXPECT_EQ(params.port, 0);
    EXPECT_EQ(params.connectType, CSMTPParams::ConnectUnencrypted);
    EXPECT_EQ(params.userName, "");
    EXPECT_EQ(params.password, "");
    EXPECT_TRUE(params.connectTimeout.isInfinite());
    EXPECT_TRUE(params.responseTimeout.isInfinite());
    EXPECT_TRUE(params.fullTimeout.isInfinite());
}

TEST(CSMTPParamsTest, numbersItsTypesAsTheyAreStored)
{
    EXPECT_EQ(static_cast<int>(CSMTPParams::ConnectUnencrypted), 0);
    EXPECT_EQ(static_cast<int>(CSMTPParams::ConnectSSL), 1);
    EXPECT_EQ(static_cast<int>(CSMTPParams::ConnectStartTLS), 2);
    EXPECT_EQ(sizeof(CSMTPParams::ConnectType), 4u);
}

TEST(CSMTPParamsTest, readsTheTextOfAType)
{
    EXPECT_EQ(CSMTPParams::connectTypeToInt("unencrypted"), 0);
    EXPECT_EQ(CSMTPParams::connectTypeToInt("ssl"), 1);
    EXPECT_EQ(CSMTPParams::connectTypeToInt("starttls"), 2);
}

TEST(CSMTPParamsTest, writesTheTextOfAType)
{
    EXPECT_EQ(CSMTPParams::connectTypeToString(CSMTPParams::ConnectUnencrypted), "unencrypted");
    EXPECT_EQ(CSMTPParams::connectTypeToString(CSMTPParams::ConnectSSL), "ssl");
    EXPECT_EQ(CSMTPParams::connectTypeToString(CSMTPParams::ConnectStartTLS), "starttls");
}

TEST(CSMTPParamsTest, refusesAnyOtherText)
{
    for (const kx::String& text : kx::TArray<kx::String>{"tls", "SSL", "StartTLS", " ssl", "ssl ", "", "1"}) {
        try {
            CSMTPParams::connectTypeToInt(text);
            ADD_FAILURE() << "no error for '" << text << "'";
        } catch (const kx::CInvalidArgError& error) {
            EXPECT_EQ(error.getMessage(),
                "Invalid argument passed to 'CSMTPParams::connectTypeToInt': invalid connect type: " + text + ".");
        }
    }
}

TEST(CSMTPParamsTest, refusesAnyOtherValue)
{
    for (const int value : {3, -1, 1000}) {
        try {
            CSMTPParams::connectTypeToString(static_cast<CSMTPParams::ConnectType>(value));
            ADD_FAILURE() << "no error for " << value;
        } catch (const kx::CInvalidArgError& error) {
            EXPECT_EQ(error.getMessage(),
                "Invalid argument passed to 'CSMTPParams::connectTypeToString': invalid connect type: "
                    + kx::String::fromUTF8(std::to_string(value)) + ".");
        }
    }
}

TEST(CSMTPParamsTest, isCopiedFieldByField)
{
    const auto original = kx::newObj<CSMTPParams>();
    original->host = "h";
    original->port = 25;
    original->connectType = CSMTPParams::ConnectSSL;
    original->userName = "user";
    original->password = "secret";
    const CSMTPParams copy = *original;
    original->host = "changed";
    EXPECT_EQ(copy.host, "h");
    EXPECT_EQ(copy.port, 25);
    EXPECT_EQ(copy.connectType, CSMTPParams::ConnectSSL);
    EXPECT_EQ(copy.userName, "user");
    EXPECT_EQ(copy.password, "secret");
}

} // namespace
