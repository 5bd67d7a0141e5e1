// The command lines of the example programs: what they share, and that all of them use it.
#include "examples/CArguments.h"
#include "tests/live/exampleRun.h"
#include "tests/support/errorOf.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

const CProgram downloader{.name = "program",
    .operands = {"FILE", "URL..."},
    .purpose = "Does things.\n",
    .options = {
        {"--output", "FILE", "writes there"},
        {"--header", "LINE", "sends it", true},
        {"--quietly", "", "says nothing"},
        {.name = "--text", .value = "TEXT", .help = "says it", .mayBeEmpty = true},
    }};

kx::String refusalOf(const std::vector<std::string>& words)
{
    return support::messageOf([&] { const CArguments arguments(downloader, words); });
}

TEST(ExampleArgumentsTest, haveTheirValuesBehindABlankOrAnEqualsSign)
{
    for (const std::vector<std::string>& words :
        {std::vector<std::string>{"--output", "a=b", "f", "u"}, {"--output=a=b", "f", "u"}})
        EXPECT_EQ(CArguments(downloader, words).value("--output"), "a=b");
}

TEST(ExampleArgumentsTest, haveNoEmptyValuesButWhereTheTableSaysSo)
{
    for (const std::vector<std::string>& words :
        {std::vector<std::string>{"--output=", "f", "u"}, {"--output", "", "f", "u"}})
        EXPECT_EQ(refusalOf(words), "option '--output' needs a value: FILE");
    for (const std::vector<std::string>& words :
        {std::vector<std::string>{"--text=", "f", "u"}, {"--text", "", "f", "u"}}) {
        const CArguments arguments(downloader, words);
        EXPECT_TRUE(arguments.has("--text"));
        EXPECT_EQ(arguments.value("--text"), "");
    }
}

TEST(ExampleArgumentsTest, mayHaveValuesThatLookLikeOptions)
{
    const CArguments arguments(downloader, {"--header", "--quietly", "f", "u"});
    EXPECT_EQ(arguments.value("--header"), "--quietly");
    EXPECT_FALSE(arguments.has("--quietly"));
}

TEST(ExampleArgumentsTest, standAnywhere)
{
    const CArguments arguments(downloader, {"f", "--quietly", "u", "--output", "o", "-"});
    EXPECT_TRUE(arguments.has("--quietly"));
    EXPECT_EQ(arguments.value("--output"), "o");
    EXPECT_THAT(arguments.operands(), ElementsAre("f", "u", "-"));
}

TEST(ExampleArgumentsTest, areNoOptionsBehindTwoDashes)
{
    const CArguments arguments(downloader, {"f", "--", "--quietly", "--help", "--"});
    EXPECT_FALSE(arguments.has("--quietly"));
    EXPECT_FALSE(arguments.asksForHelp());
    EXPECT_THAT(arguments.operands(), ElementsAre("f", "--quietly", "--help", "--"));
}

TEST(ExampleArgumentsTest, mayBeRepeatedWhereTheTableSaysSo)
{
    const CArguments arguments(downloader, {"--header", "a", "f", "--header=b", "u"});
    EXPECT_THAT(arguments.values("--header"), ElementsAre("a", "b"));
    EXPECT_EQ(refusalOf({"--output", "a", "--output", "b", "f", "u"}), "option '--output' is given more than once");
}

TEST(ExampleArgumentsTest, areNamedWhenTheyAreWrong)
{
    EXPECT_EQ(refusalOf({"--outptu", "o", "f", "u"}), "unknown option '--outptu'");
    EXPECT_EQ(refusalOf({"--outptu=o", "f", "u"}), "unknown option '--outptu'");
    EXPECT_EQ(refusalOf({"-o", "f", "u"}), "unknown option '-o'");
    EXPECT_EQ(refusalOf({"f", "u", "--output"}), "option '--output' needs a value: FILE");
    EXPECT_EQ(refusalOf({"--quietly=1", "f", "u"}), "option '--quietly' takes no value");
    EXPECT_EQ(refusalOf({}), "FILE is missing");
    EXPECT_EQ(refusalOf({"f"}), "URL is missing");
    EXPECT_EQ(support::messageOf([] { CArguments::requireOperands({"FILE"}, {"a", "b"}); }), "too many words: 'b'");
}

TEST(ExampleArgumentsTest, mayBeMissingWhereTheirNameIsInBrackets)
{
    const std::vector<std::string> names{"FILE", "[URL]..."};
    EXPECT_NO_THROW(CArguments::requireOperands(names, {"f"}));
    EXPECT_NO_THROW(CArguments::requireOperands(names, {"f", "u", "v"}));
    EXPECT_EQ(support::messageOf([&] { CArguments::requireOperands(names, {}); }), "FILE is missing");
}

TEST(ExampleArgumentsTest, areNumbersInTheirBounds)
{
    const CArguments arguments(downloader, {"--output", "7", "f", "u"});
    EXPECT_EQ(arguments.number("--output", 1, 7, 3), 7);
    EXPECT_EQ(arguments.number("--header", 1, 7, 3), 3);
    EXPECT_EQ(support::messageOf([&] { arguments.number("--output", 1, 6, 3); }),
        "the value of --output is no whole number from 1 to 6: '7'");
}

TEST(ExampleArgumentsTest, areNotLookedAtAnyMoreWhenSomebodyAsksForHelp)
{
    for (const std::string help : {"--help", "-h"})
        EXPECT_TRUE(CArguments(downloader, {help, "--unknown"}).asksForHelp());
}

/// With the name of a program.
class ExampleHelpTest : public testing::TestWithParam<std::string> {};

TEST_P(ExampleHelpTest, isPrintedToStandardOutput)
{
    for (const std::string help : {"--help", "-h"}) {
        const auto result = live::runLightly({GetParam(), help});
        EXPECT_TRUE(result.output().starts_with("Usage: " + GetParam() + " ")) << result.output();
        EXPECT_EQ(result.errors(), "");
        EXPECT_EQ(result.exitStatus(), 0);
    }
}

TEST_P(ExampleHelpTest, tellsTheExitCodes)
{
    EXPECT_THAT(live::runLightly({GetParam(), "--help"}).output(), HasSubstr(exitCodesHelp));
}

TEST_P(ExampleHelpTest, fitsATerminal)
{
    std::istringstream help(live::runLightly({GetParam(), "--help"}).output());
    for (std::string line; std::getline(help, line);)
        EXPECT_LE(line.size(), 80U) << line;
}

TEST_P(ExampleHelpTest, isPointedToByWhatIsWrong)
{
    const auto result = live::runLightly({GetParam(), "--outptu", "x"});
    EXPECT_EQ(result.errors(), GetParam() + ": unknown option '--outptu'\nTry '" + GetParam() + " --help'.\n");
    EXPECT_EQ(result.output(), "");
    EXPECT_EQ(result.exitStatus(), 2);
}

INSTANTIATE_TEST_SUITE_P(All, ExampleHelpTest,
    testing::Values("downloads", "fetch", "ftp", "get", "mail", "s3", "upload"),
    [](const testing::TestParamInfo<std::string>& row) { return row.param; });

TEST(HelloTest, takesNoOptionForAHost)
{
    const auto help = live::runLightly({"hello", "--help"});
    EXPECT_EQ(help.output(), "Usage: hello [URL]\n");
    EXPECT_EQ(help.exitStatus(), 0);
    EXPECT_EQ(live::runLightly({"hello", "--hepl"}).exitStatus(), 2);
}

struct CWrongWordsRow {
    const char* name;
    std::vector<std::string> words;
    const char* error;
};

class ExampleWrongWordsTest : public testing::TestWithParam<CWrongWordsRow> {};

TEST_P(ExampleWrongWordsTest, areNamed)
{
    const auto result = live::runLightly(
        GetParam().words, {"S3_ACCESS_KEY_ID=me", "S3_SECRET_ACCESS_KEY=secret", "FTP_PASSWORD=secret"});
    EXPECT_EQ(result.errors().substr(0, result.errors().find('\n')), GetParam().error);
    EXPECT_EQ(result.exitStatus(), 2);
}

INSTANTIATE_TEST_SUITE_P(All, ExampleWrongWordsTest,
    testing::ValuesIn(std::vector<CWrongWordsRow>{
        {"fetchNothing", {"fetch"}, "fetch: URL is missing"},
        {"fetchTwo", {"fetch", "http://a/", "http://b/"}, "fetch: too many words: 'http://b/'"},
        {"fetchNoRange", {"fetch", "--range", "5", "http://a/"}, "fetch: no range FIRST-[LAST]: '5'"},
        {"fetchRangeBackwards", {"fetch", "--range", "5-2", "http://a/"},
            "fetch: the last byte of --range is no whole number from 5 to 9223372036854775806: '2'"},
        {"fetchRangeOfLetters", {"fetch", "--range", "a-2", "http://a/"},
            "fetch: the first byte of --range is no whole number from 0 to 9223372036854775806: 'a'"},
        {"fetchTwoHeadersInOne", {"fetch", "--header", "A: b\rC: d", "http://a/"},
            "fetch: the header 'A: b\\x0dC: d' holds a line end, which would begin another one"},
        {"fetchHeaderWithALineFeed", {"fetch", "--header", "A: b\nC: d", "http://a/"}, "fetch: the header 'A: b"},
        {"fetchHeaderWithoutAName", {"fetch", "--header", "nonsense", "http://a/"},
            "fetch: no header NAME: VALUE: 'nonsense'"},
        {"uploadNothing", {"upload", "file"}, "upload: URL is missing"},
        {"downloadsNothing", {"downloads", "/tmp"}, "downloads: URL is missing"},
        {"downloadsTwins", {"downloads", "/tmp", "http://a/x", "http://b/x"}, "downloads: two files named x"},
        {"getNothing", {"get"}, "get: URL is missing"},
        {"getOneNameForTwo", {"get", "--output", "x", "http://a/1", "http://a/2"},
            "get: option '--output' is for one URL"},
        {"getOneDigestForTwo", {"get", "--sha256", "x", "http://a/1", "http://a/2"},
            "get: option '--sha256' is for one URL"},
        {"getTwoWishes", {"get", "--overwrite", "--skip", "http://a/1"},
            "get: --overwrite and --skip exclude each other"},
        {"getResumeAnew", {"get", "--resume", "--anew", "http://a/1"}, "get: --resume and --anew exclude each other"},
        {"getTooManySegments", {"get", "--segments", "17", "http://a/1"},
            "get: the value of --segments is no whole number from 1 to 16: '17'"},
        {"getNoLimit", {"get", "--limit", "fast", "http://a/1"},
            "get: the value of --limit is no size such as 800, 500k, 1M or 2G: 'fast'"},
        {"getNoDigest", {"get", "--sha256", "abc", "http://a/1"},
            "get: sha256 is 'abc', and not 64 hexadecimal digits."},
        {"getNoName", {"get", "http://a/"}, "get: no file name in the URL http://a/: --output gives it one"},
        {"getStandardOutput", {"get", "--output", "-", "http://a/1"},
            "get: no file '-': the program fetch writes to standard output"},
        {"getPasswordOnTheCommandLine", {"get", "--user", "me:secret", "http://a/1"},
            "get: --user takes a name alone: the password is that of GET_PASSWORD, or is asked for"},
        {"ftpNothing", {"ftp", "host"}, "ftp: COMMAND is missing"},
        {"ftpUnknown", {"ftp", "host", "sing"}, "ftp: unknown command 'sing'"},
        {"ftpTooFew", {"ftp", "host", "get", "/one"}, "ftp: FILE is missing"},
        {"ftpTooMany", {"ftp", "host", "ls", "/", "/etc"}, "ftp: too many words: '/etc'"},
        {"ftpURL", {"ftp", "ftp://host/", "ls", "/"}, "ftp: HOST[:PORT] is no URL: 'ftp://host/'"},
        {"ftpTreeOfNothing", {"ftp", "localhost", "rmtree", ""},
            "ftp: the path of a directory to delete must begin with '/': ''."},
        {"s3URL", {"s3", "--endpoint", "http://host", "ls", "bucket"},
            "s3: endpoint host must be a host name with or without a port, not 'http://host'."},
        {"s3Nothing", {"s3"}, "s3: COMMAND is missing"},
        {"s3Unknown", {"s3", "sing", "a", "song"}, "s3: unknown command 'sing'"},
        {"s3TooFew", {"s3", "put", "one"}, "s3: BUCKET/KEY is missing"},
        {"s3Page", {"s3", "--page", "0", "ls", "bucket"},
            "s3: the value of --page is no whole number from 1 to 1000: '0'"},
        {"s3PageOfBuckets", {"s3", "--page", "9", "ls"}, "s3: BUCKET is missing"},
        {"s3FoldersOfBuckets", {"s3", "--folders", "ls"}, "s3: BUCKET is missing"},
        {"s3PageOfAnObject", {"s3", "--page", "9", "get", "bucket/key", "file"}, "s3: option '--page' is not for get"},
        {"s3VersionMoved", {"s3", "--version-id", "1", "mv", "bucket/a", "bucket/b"},
            "s3: option '--version-id' is not for mv"},
        {"s3VersionOfTwo", {"s3", "--version-id", "1", "rm", "bucket/a", "bucket/b"},
            "s3: a version is one of one object"},
        {"s3VersionsOfBuckets", {"s3", "--versions", "ls"}, "s3: BUCKET is missing"},
        {"s3VersionsInFolders", {"s3", "--versions", "--folders", "ls", "bucket"},
            "s3: --folders and --versions exclude each other"},
        {"s3VersionsRemoved", {"s3", "--versions", "rm", "bucket/a"}, "s3: option '--versions' is not for rm"},
        {"s3TypeOfACopy", {"s3", "--content-type", "a/b", "cp", "bucket/a", "bucket/b"},
            "s3: option '--content-type' is not for cp"},
        {"s3TypeOfTwoLines", {"s3", "--content-type", "a/b\rX: y", "put", "file", "bucket/key"},
            "s3: the value of --content-type holds a control character: 'a/b\\x0dX: y'"},
        {"s3MetadataOfACopy", {"s3", "--metadata", "a=b", "cp", "bucket/a", "bucket/b"},
            "s3: option '--metadata' is not for cp"},
        {"s3MetadataWithoutAValue", {"s3", "--metadata", "nonsense", "put", "file", "bucket/key"},
            "s3: no metadata NAME=VALUE: 'nonsense'"},
        {"s3MetadataWithoutAName", {"s3", "--metadata", "=b", "put", "file", "bucket/key"},
            "s3: no metadata NAME=VALUE: '=b'"},
        {"s3MetadataTwice", {"s3", "--metadata", "a=b", "--metadata", "A=c", "put", "file", "bucket/key"},
            "s3: the metadata 'a' is given more than once"},
        {"s3MetadataOfNoHeader", {"s3", "--metadata", "a b=c", "put", "file", "bucket/key"},
            "s3: the name of metadata has other characters than A-Z, a-z, 0-9, '-', '_' and '.': 'a b=c'"},
        {"s3MetadataOfTwoLines", {"s3", "--metadata", "a=b\rX: y", "put", "file", "bucket/key"},
            "s3: metadata holds a control character: 'a=b\\x0dX: y'"},
        {"s3TagWithoutAValue", {"s3", "tag", "bucket/key", "nonsense"}, "s3: no tag NAME=VALUE: 'nonsense'"},
        {"s3TagTwice", {"s3", "tag", "bucket/key", "a=b", "a=c"}, "s3: the tag 'a' is given more than once"},
        {"s3TagOfABucket", {"s3", "tag", "bucket"}, "s3: KEY is missing: 'bucket'"},
        {"s3NoBucket", {"s3", "rm", "/key"}, "s3: BUCKET is missing: '/key'"},
        {"mailNothing", {"mail"}, "mail: HOST:PORT is missing"},
    }),
    [](const testing::TestParamInfo<CWrongWordsRow>& row) { return row.param.name; });

} // namespace
