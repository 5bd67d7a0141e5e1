#include "kx/base/CError.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/base/CStdExceptionError.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

kx::CError makeError()
{
    kx::CProps props;
    props.set("key", "value");
    return kx::CError(L"gr\u00FCn", "domain", 1LL << 40, props, kx::newObj<kx::CError>("cause"));
}

void expectSame(const kx::CError& left, const kx::CError& right)
{
    EXPECT_EQ(left.getMessage(), right.getMessage());
    EXPECT_EQ(left.getDomain(), right.getDomain());
    EXPECT_EQ(left.getCode(), right.getCode());
    EXPECT_EQ(left.getProps().getMap(), right.getProps().getMap());
    EXPECT_EQ(left.getCause(), right.getCause());
}

TEST(CErrorTest, isPlainByDefault)
{
    const kx::CError error("message");
    EXPECT_EQ(error.getMessage(), "message");
    EXPECT_EQ(error.getDomain(), "");
    EXPECT_EQ(error.getCode(), -1);
    EXPECT_TRUE(error.getProps().getMap().empty());
    EXPECT_EQ(error.getCause(), nullptr);
}

TEST(CErrorTest, keepsWhatItIsGiven)
{
    const kx::CError error = makeError();
    EXPECT_EQ(error.getDomain(), "domain");
    EXPECT_EQ(error.getCode(), 1LL << 40);
    EXPECT_EQ(error.getProps().get("key"), "value");
    EXPECT_EQ(error.getCause()->getMessage(), "cause");
}

TEST(CErrorTest, saysItsMessageInUTF8)
{
    const kx::CError error = makeError();
    EXPECT_STREQ(static_cast<const std::exception&>(error).what(), "gr\xC3\xBCn");
}

TEST(CErrorTest, isReadableWithAMessageThatHasNoUTF8Form)
{
    EXPECT_STREQ(kx::CError(kx::String(std::wstring(1, wchar_t(0xD800)))).what(), "\xEF\xBF\xBD");
}

TEST(CErrorTest, isThrownByValue)
{
    const kx::CError original = makeError();
    try {
        original.throwClone();
    } catch (const kx::CError& error) {
        expectSame(error, original);
        EXPECT_NE(&error, &original);
    }
}

TEST(CErrorTest, clonesEverything)
{
    const kx::CError error = makeError();
    expectSame(*error.clone(), error);
}

TEST(CErrorTest, isAssigned)
{
    const kx::CError error = makeError();
    kx::CError other("other");
    other = error;
    expectSame(other, error);
    EXPECT_STREQ(other.what(), error.what());
}

TEST(CInvalidArgErrorTest, namesTheFunctionAndTheDetail)
{
    const kx::CInvalidArgError error("no such thing", "CThing::find");
    EXPECT_EQ(error.getMessage(), "Invalid argument passed to 'CThing::find': no such thing.");
    EXPECT_EQ(error.getDomain(), "");
    EXPECT_EQ(error.getCode(), -1);
}

TEST(CInvalidArgErrorTest, keepsItsProperties)
{
    kx::CProps props;
    props.set("key", "value");
    EXPECT_EQ(kx::CInvalidArgError("d", "f", props).getProps().get("key"), "value");
}

TEST(CInvalidArgErrorTest, keepsItsClassWhenClonedAndThrown)
{
    const kx::CInvalidArgError error("d", "f");
    EXPECT_NE(dynamic_cast<kx::CInvalidArgError*>(error.clone().get()), nullptr);
    EXPECT_THROW(static_cast<const kx::CError&>(error).throwClone(), kx::CInvalidArgError);
}

TEST(CStdExceptionErrorTest, saysWhatTheExceptionSays)
{
    const auto error = kx::CStdExceptionError::exceptionToError(std::runtime_error("gr\xC3\xBCn"));
    EXPECT_EQ(error->getMessage(), L"gr\u00FCn");
    EXPECT_EQ(error->getDomain(), "");
    EXPECT_EQ(error->getCode(), -1);
}

TEST(CStdExceptionErrorTest, readsTextThatIsNotUTF8ByteByByte)
{
    EXPECT_EQ(kx::CStdExceptionError(std::runtime_error("gr\xFCn")).getMessage(), L"gr\u00FCn");
}

TEST(CStdExceptionErrorTest, saysNothingForAnExceptionThatSaysNothing)
{
    class CSilentException : public std::exception {
    public:
        const char* what() const noexcept override { return nullptr; }
    };
    EXPECT_EQ(kx::CStdExceptionError(CSilentException()).getMessage(), "");
}

TEST(CStdExceptionErrorTest, clonesWhatIsAnErrorAlready)
{
    const auto error = kx::CStdExceptionError::exceptionToError(kx::CInvalidArgError("d", "f"));
    EXPECT_NE(dynamic_cast<kx::CInvalidArgError*>(error.get()), nullptr);
}

TEST(CStdExceptionErrorTest, keepsItsClassWhenClonedAndThrown)
{
    const kx::CStdExceptionError error(std::runtime_error("x"));
    EXPECT_NE(dynamic_cast<kx::CStdExceptionError*>(error.clone().get()), nullptr);
    EXPECT_THROW(error.throwClone(), kx::CStdExceptionError);
}

TEST(CPropsTest, answersAnEmptyTextForAnUnknownKey)
{
    const kx::CProps props;
    EXPECT_EQ(props.get("key"), "");
    EXPECT_FALSE(props.has("key"));
}

TEST(CPropsTest, tellsAnEmptyValueFromNone)
{
    kx::CProps props;
    props.set("key", "");
    EXPECT_TRUE(props.has("key"));
    EXPECT_EQ(props.get("key"), "");
}

TEST(CPropsTest, replacesAValue)
{
    kx::CProps props;
    props.set("key", "1");
    props.set("key", "2");
    EXPECT_EQ(props.getMap(), (kx::TMap<kx::String, kx::String>{{"key", "2"}}));
}

} // namespace
