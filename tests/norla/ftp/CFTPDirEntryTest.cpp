#include "norla/ftp/CFTPDirEntry.h"

#include "kx/containers/TArray.h"
#include "kx/time/CTimeFields.h"
#include "tests/support/CLogRecorder.h"
#include "tests/support/errorOf.h"

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <vector>

namespace {

using norla::CFTPDirEntry;

kx::CTime utc(long long year, long long month, long long day, long long hour, long long minute, long long second)
{
    kx::CTimeFields fields;
    fields.setDate(year, month, day);
    fields.setTime(hour, minute, second);
    return fields.toTime();
}

kx::String messageOf(const kx::String& line)
{
    return support::messageOf([&line] { CFTPDirEntry{line}; });
}

kx::String timeMessageOf(const kx::String& value)
{
    return support::messageOf([&value] { CFTPDirEntry::parseTimeValue(value); });
}

// Programs pass these numbers on.
static_assert(CFTPDirEntry::TypeOther == 0 && CFTPDirEntry::TypeFile == 1 && CFTPDirEntry::TypeDir == 2);
static_assert(std::is_same_v<std::underlying_type_t<CFTPDirEntry::Type>, int> && sizeof(CFTPDirEntry::Type) == 4);

TEST(CFTPDirEntryTest, logsNothing)
{
    const support::CLogRecorder log;
    for (const kx::String& line :
        kx::TArray<kx::String>{"type=file;size=1;modify=20200131235959; f", "broken", "size=x; f", "modify=1; f"})
        messageOf(line);
    EXPECT_EQ(log.lines(), std::vector<std::string>());
}

TEST(CFTPDirEntryTest, isNothingKnownAtFirst)
{
    const CFTPDirEntry entry;
    EXPECT_EQ(entry.getType(), CFTPDirEntry::TypeOther);
    EXPECT_EQ(entry.getName(), "");
    EXPECT_EQ(entry.getSize(), 0);
    EXPECT_FALSE(entry.getModificationTime().isSet());
}

TEST(CFTPDirEntryTest, readsAFile)
{
    const CFTPDirEntry entry("type=file;size=1024;modify=20200131235959; report.txt");
    EXPECT_EQ(entry.getType(), CFTPDirEntry::TypeFile);
    EXPECT_EQ(entry.getName(), "report.txt");
    EXPECT_EQ(entry.getSize(), 1024);
    EXPECT_EQ(entry.getModificationTime(), utc(2020, 1, 31, 23, 59, 59));
}

TEST(CFTPDirEntryTest, tellsASizeOfNothingFromNone)
{
    EXPECT_TRUE(CFTPDirEntry("type=file;size=0; empty").hasSize());
    EXPECT_FALSE(CFTPDirEntry("type=file; unknown").hasSize());
    EXPECT_FALSE(CFTPDirEntry().hasSize());
}

TEST(CFTPDirEntryTest, readsADirectory)
{
    const CFTPDirEntry entry("type=dir;modify=20200131235959.123; my dir");
    EXPECT_EQ(entry.getType(), CFTPDirEntry::TypeDir);
    EXPECT_EQ(entry.getName(), "my dir");
    EXPECT_EQ(entry.getSize(), 0);
    EXPECT_EQ(entry.getModificationTime().getMicroseconds(), utc(2020, 1, 31, 23, 59, 59).getMicroseconds() + 123'000);
}

TEST(CFTPDirEntryTest, takesEverythingElseForAnotherType)
{
    for (const kx::String& line : kx::TArray<kx::String>{
             "type=cdir;perm=el; .", "type=pdir; ..", "type=OS.unix=slink:/x; l", "size=5; n", "type=; n"})
        EXPECT_EQ(CFTPDirEntry(line).getType(), CFTPDirEntry::TypeOther) << line;
    EXPECT_EQ(CFTPDirEntry("type=cdir;perm=el; .").getName(), ".");
}

TEST(CFTPDirEntryTest, keepsATypeThatAnotherDoesNotReplace)
{
    EXPECT_EQ(CFTPDirEntry("type=file;type=cdir; n").getType(), CFTPDirEntry::TypeFile);
}

TEST(CFTPDirEntryTest, takesTheLastOfSeveralFacts)
{
    const CFTPDirEntry entry("type=file;size=1;type=dir;size=2; n");
    EXPECT_EQ(entry.getType(), CFTPDirEntry::TypeDir);
    EXPECT_EQ(entry.getSize(), 2);
}

TEST(CFTPDirEntryTest, readsFactsInAnyCase)
{
    const CFTPDirEntry entry("Type=DIR;SIZE=7; Name");
    EXPECT_EQ(entry.getType(), CFTPDirEntry::TypeDir);
    EXPECT_EQ(entry.getSize(), 7);
    EXPECT_EQ(entry.getName(), "Name");
}

TEST(CFTPDirEntryTest, passesOverOtherFacts)
{
    EXPECT_EQ(CFTPDirEntry("perm=adfr;unique=1U2;unix.mode=0644;create=nonsense;x=a=b;size=3; n").getSize(), 3);
}

TEST(CFTPDirEntryTest, endsItsFactsAtTheFirstSpace)
{
    const CFTPDirEntry entry("type=file;size=5 a b");
    EXPECT_EQ(entry.getName(), "a b");
    EXPECT_EQ(entry.getSize(), 5);
}

TEST(CFTPDirEntryTest, keepsItsNameAsItStands)
{
    EXPECT_EQ(CFTPDirEntry("type=file;  lead and trail ").getName(), " lead and trail ");
    EXPECT_EQ(CFTPDirEntry("type=file; a;b=c").getName(), "a;b=c");
    EXPECT_EQ(
        CFTPDirEntry(L"type=file; Gr\u00fc\u00dfe \U0001f600").getName(), kx::String(L"Gr\u00fc\u00dfe \U0001f600"));
    EXPECT_EQ(CFTPDirEntry("type=file; ").getName(), "");
}

TEST(CFTPDirEntryTest, mayHaveNoFacts)
{
    EXPECT_EQ(CFTPDirEntry(" n").getName(), "n");
}

TEST(CFTPDirEntryTest, readsSizesBeyond32Bits)
{
    EXPECT_EQ(CFTPDirEntry("size=5497558138880; n").getSize(), 5497558138880);
}

TEST(CFTPDirEntryTest, refusesALineWithoutASpace)
{
    EXPECT_EQ(messageOf("noSpaceHere"), "Invalid FTP dir entry: 'noSpaceHere'");
    EXPECT_EQ(messageOf(""), "Invalid FTP dir entry: ''");
    EXPECT_EQ(messageOf("type=file;\tn"), "Invalid FTP dir entry: 'type=file;\tn'");
}

TEST(CFTPDirEntryTest, refusesAFactWithoutAValue)
{
    for (const kx::String& line : kx::TArray<kx::String>{
             "type=file;bogus; x", "type=file;;size=5; x", ";type=file; x", "; x", "-rw-r--r-- 1 u g 5 x"})
        EXPECT_EQ(messageOf(line), "Invalid FTP dir entry: '" + line + "'");
}

TEST(CFTPDirEntryTest, isAPlainErrorWhenItCannotBeRead)
{
    for (const kx::String& line : kx::TArray<kx::String>{"nothing", "modify=1; x"}) {
        const auto error = support::errorOf([&line] { CFTPDirEntry{line}; });
        ASSERT_TRUE(error);
        EXPECT_EQ(error->getDomain(), "");
        EXPECT_EQ(error->getCode(), -1);
        EXPECT_TRUE(error->getProps().getMap().empty());
    }
}

TEST(CFTPDirEntryTest, refusesASizeThatIsNoNumber)
{
    for (const kx::String& value : kx::TArray<kx::String>{"", "5k", " ", "9223372036854775808"})
        EXPECT_NE(messageOf("size=" + value + "; n"), "(no error)") << value;
}

TEST(CFTPDirEntryTest, namesTheTimeAndNotTheLineWhenTheTimeIsWrong)
{
    EXPECT_EQ(messageOf("type=file;modify=2020013123595; n"), "Invalid FTP time value: '2020013123595'");
}

TEST(CFTPDirEntryTest, lowersTheValuesThatItNames)
{
    EXPECT_EQ(messageOf("Size=5K; N"), "Invalid number: '5k'.");
    EXPECT_EQ(messageOf("modify=20200131235959Z; N"), "Invalid FTP time value: '20200131235959z'");
    EXPECT_EQ(messageOf("modify=2020013123X959; N"), "Invalid number: 'x9'.");
    EXPECT_EQ(messageOf("modify=20200131235959.5S; N"), "Invalid decimal number: '.5s'.");
}

TEST(CFTPDirEntryTest, quotesALineInItsOwnCase)
{
    EXPECT_EQ(messageOf("Type=File;Bogus; N"), "Invalid FTP dir entry: 'Type=File;Bogus; N'");
}

TEST(CFTPTimeValueTest, isUTC)
{
    EXPECT_EQ(CFTPDirEntry::parseTimeValue("19700101000000").getMicroseconds(), 0);
    EXPECT_EQ(CFTPDirEntry::parseTimeValue("20200229120000"), utc(2020, 2, 29, 12, 0, 0));
    EXPECT_EQ(CFTPDirEntry::parseTimeValue("19691231235959").getMicroseconds(), -1'000'000);
}

TEST(CFTPTimeValueTest, mayHaveAFraction)
{
    EXPECT_EQ(CFTPDirEntry::parseTimeValue("19700101000000.5").getMicroseconds(), 500'000);
    EXPECT_EQ(CFTPDirEntry::parseTimeValue("19700101000001.000001").getMicroseconds(), 1'000'001);
}

TEST(CFTPTimeValueTest, refusesOtherLengthsAndSigns)
{
    for (const kx::String& value :
        kx::TArray<kx::String>{"", "2020013123595", "20200131235959Z", "202001312359590", "20200131235959,5"})
        EXPECT_EQ(timeMessageOf(value), "Invalid FTP time value: '" + value + "'");
}

TEST(CFTPTimeValueTest, refusesWhatIsNoTime)
{
    for (const kx::String& value : kx::TArray<kx::String>{"20x00131235959", "20201331235959", "20200230000000",
             "20200131250000", "20200131235959.", "20200131235959.x"})
        EXPECT_NE(timeMessageOf(value), "(no error)") << value;
}

} // namespace
