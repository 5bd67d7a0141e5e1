#include "norla/files/CDownloadRecord.h"

#include <gtest/gtest.h>

namespace {

using norla::CDownloadRecord;

CDownloadRecord sample()
{
    CDownloadRecord record;
    record.identity = norla::identityOf("https://example.org/file?token=secret");
    record.place = "https://example.org/file";
    record.validators = {.eTag = "\"abc\"", .lastModified = "Sun, 06 Nov 1994 08:49:37 GMT", .fileTime = 784111777};
    record.total = 1000;
    record.modified = 784111777;
    record.arrived.add(0, 100);
    record.arrived.add(500, 600);
    return record;
}

TEST(CDownloadRecordTest, isReadAsItWasWritten)
{
    EXPECT_EQ(CDownloadRecord::fromText(sample().toText()), sample());
}

TEST(CDownloadRecordTest, needsNothingButItsIdentity)
{
    CDownloadRecord record;
    record.identity = norla::identityOf("x");
    EXPECT_EQ(CDownloadRecord::fromText(record.toText()), record);
}

TEST(CDownloadRecordTest, noChangedByteIsTaken)
{
    const std::string text = sample().toText();
    for (size_t i = 0; i < text.size(); ++i) {
        std::string changed = text;
        changed[i] = changed[i] == '0' ? '1' : '0';
        EXPECT_FALSE(CDownloadRecord::fromText(changed)) << i;
    }
}

TEST(CDownloadRecordTest, noBeginningIsTaken)
{
    const std::string text = sample().toText();
    for (size_t size = 0; size < text.size(); ++size)
        EXPECT_FALSE(CDownloadRecord::fromText(text.substr(0, size))) << size;
}

TEST(CDownloadRecordTest, nothingBehindItsEndIsTaken)
{
    EXPECT_FALSE(CDownloadRecord::fromText(sample().toText() + "x"));
}

TEST(CDownloadRecordTest, bytesBehindTheEndMakeNoSense)
{
    CDownloadRecord record = sample();
    record.arrived.add(900, 1001);
    EXPECT_FALSE(CDownloadRecord::fromText(record.toText()));
}

TEST(CDownloadRecordTest, withoutIdentityItMakesNoSense)
{
    CDownloadRecord record = sample();
    record.identity.clear();
    EXPECT_FALSE(CDownloadRecord::fromText(record.toText()));
}

TEST(CDownloadRecordTest, aTextOfSeveralLinesIsLeftOut)
{
    CDownloadRecord record = sample();
    record.validators.eTag = "\"a\"\nbytes 0-1000";
    const auto read = CDownloadRecord::fromText(record.toText());
    ASSERT_TRUE(read);
    EXPECT_EQ(read->validators.eTag, "");
    EXPECT_EQ(read->arrived, sample().arrived);
}

TEST(CDownloadRecordTest, theIdentityTellsNothingOfTheName)
{
    EXPECT_EQ(sample().toText().find("secret"), std::string::npos);
    EXPECT_NE(norla::identityOf("a"), norla::identityOf("b"));
}

TEST(CDownloadRecordTest, aTimeProvesNothingWithoutASize)
{
    norla::CValidators validators;
    EXPECT_FALSE(validators.areStrong(10));
    validators.fileTime = 5;
    EXPECT_TRUE(validators.areStrong(10));
    EXPECT_FALSE(validators.areStrong({}));
    validators.eTag = "\"x\"";
    EXPECT_TRUE(validators.areStrong({}));
}

} // namespace
