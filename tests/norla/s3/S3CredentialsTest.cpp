// Where the credentials of S3 clients come from.
#include "kx/base/CError.h"
#include "kx/base/CInvalidArgError.h"
#include "kx/base/P.h"
#include "norla/s3/CS3EnvironmentCredentials.h"
#include "norla/s3/CS3RefreshedCredentials.h"
#include "norla/s3/CS3SharedCredentialsFile.h"
#include "norla/s3/CS3StaticCredentials.h"
#include "tests/support/CLogRecorder.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/errorOf.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <initializer_list>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <vector>

namespace {

using norla::CS3Credentials;
using norla::CS3RefreshedCredentials;
using norla::CS3SharedCredentialsFile;

/// Variables of the environment, put back in the end.
class CEnvironment {
public:
    CEnvironment(std::initializer_list<std::pair<const char*, const char*>> values)
    {
        for (const auto& [name, value] : values) {
            const char* const before = std::getenv(name);
            m_before[name] = before ? std::optional<std::string>(before) : std::nullopt;
            if (value)
                setenv(name, value, 1);
            else
                unsetenv(name);
        }
    }
    CEnvironment(const CEnvironment&) = delete;
    CEnvironment& operator=(const CEnvironment&) = delete;
    ~CEnvironment()
    {
        for (const auto& [name, value] : m_before)
            if (value)
                setenv(name.c_str(), value->c_str(), 1);
            else
                unsetenv(name.c_str());
    }

private:
    std::map<std::string, std::optional<std::string>> m_before;
};

std::string told(const CS3Credentials& credentials)
{
    return (credentials.accessKeyId + "/" + credentials.secretAccessKey + "/" + credentials.sessionToken).toUTF8();
}

std::string refusalOf(norla::IS3Credentials& credentials)
{
    const auto error = support::errorOf([&credentials] { credentials.get(); });
    return error ? error->getMessage().toUTF8() : "none";
}

TEST(S3CredentialsTest, staticOnesStay)
{
    const auto credentials = kx::newObj<norla::CS3StaticCredentials>(
        CS3Credentials{.accessKeyId = "id", .secretAccessKey = "secret", .sessionToken = "", .expiry = {}});
    EXPECT_EQ(told(credentials->get()), "id/secret/");
}

TEST(S3CredentialsTest, comeFromTheEnvironment)
{
    const CEnvironment environment(
        {{"AWS_ACCESS_KEY_ID", "id"}, {"AWS_SECRET_ACCESS_KEY", "secret"}, {"AWS_SESSION_TOKEN", "token"}});
    EXPECT_EQ(told(kx::newObj<norla::CS3EnvironmentCredentials>()->get()), "id/secret/token");
}

TEST(S3CredentialsTest, nameTheVariableThatIsNotSet)
{
    const auto credentials = kx::newObj<norla::CS3EnvironmentCredentials>();
    {
        const CEnvironment environment({{"AWS_ACCESS_KEY_ID", nullptr}, {"AWS_SECRET_ACCESS_KEY", "s"}});
        EXPECT_EQ(refusalOf(*credentials),
            "There are no S3 credentials in the environment: the variable 'AWS_ACCESS_KEY_ID' is not set.");
    }
    const CEnvironment environment({{"AWS_ACCESS_KEY_ID", "id"}, {"AWS_SECRET_ACCESS_KEY", ""}});
    EXPECT_EQ(refusalOf(*credentials),
        "There are no S3 credentials in the environment: the variable 'AWS_SECRET_ACCESS_KEY' is not set.");
}

TEST(S3CredentialsTest, nameTheVariableThatIsNotUTF8)
{
    const CEnvironment environment({{"AWS_ACCESS_KEY_ID", "id"}, {"AWS_SECRET_ACCESS_KEY", "\xFFsecret"}});
    EXPECT_EQ(refusalOf(*kx::newObj<norla::CS3EnvironmentCredentials>()),
        "The S3 credentials in the environment cannot be read: the variable 'AWS_SECRET_ACCESS_KEY' is not UTF-8.");
}

class CS3SharedCredentialsFileTest : public testing::Test {
protected:
    CS3SharedCredentialsFile::Path write(const std::string& content)
    {
        return CS3SharedCredentialsFile::Path::fromBytes(m_folder.write("credentials", content).native());
    }

    std::string read(const std::string& content, const kx::String& profile = "default")
    {
        return told(kx::newObj<CS3SharedCredentialsFile>(write(content), profile)->get());
    }

    std::string failure(const std::string& content, const kx::String& profile = "default")
    {
        std::string message = refusalOf(*kx::newObj<CS3SharedCredentialsFile>(write(content), profile));
        const std::string folder = m_folder.path().native();
        const size_t at = message.find(folder);
        return at == std::string::npos ? message : message.replace(at, folder.size(), "FOLDER");
    }

    support::CTemporaryFolder m_folder;
};

TEST_F(CS3SharedCredentialsFileTest, readsAProfile)
{
    const std::string content = "# keys\n[default]\naws_access_key_id=a\naws_secret_access_key=b\n"
                                "\n[work]\r\n  aws_access_key_id = c =\r\n; aws_access_key_id = x\nregion = eu\n"
                                "aws_secret_access_key = d#1\naws_session_token\t=\te";
    EXPECT_EQ(read(content), "a/b/");
    EXPECT_EQ(read(content, "work"), "c =/d#1/e");
}

TEST_F(CS3SharedCredentialsFileTest, takesNoKeysOfAnotherProfileBehindAComment)
{
    const std::string content = "[default]\naws_access_key_id=a\naws_secret_access_key=b\n"
                                "[work] # production\naws_access_key_id=c\naws_secret_access_key=d\n"
                                "[other\naws_access_key_id=e\naws_secret_access_key=f\n";
    EXPECT_EQ(read(content), "a/b/");
    EXPECT_EQ(read(content, "work"), "c/d/");
}

TEST_F(CS3SharedCredentialsFileTest, mayBeginWithAByteOrderMark)
{
    EXPECT_EQ(read("\xEF\xBB\xBF[default]\naws_access_key_id=a\naws_secret_access_key=b\n"), "a/b/");
}

TEST_F(CS3SharedCredentialsFileTest, namesFileProfileAndWhatIsMissing)
{
    EXPECT_EQ(failure("[default]\naws_access_key_id=a\n"),
        "The file 'FOLDER/credentials' has no 'aws_secret_access_key' in the profile 'default'.");
    EXPECT_EQ(failure("aws_access_key_id=a\n[defaul]\n=\n[", "other"),
        "The file 'FOLDER/credentials' has no 'aws_access_key_id' in the profile 'other'.");
    EXPECT_EQ(failure(""), "The file 'FOLDER/credentials' has no 'aws_access_key_id' in the profile 'default'.");
}

TEST_F(CS3SharedCredentialsFileTest, refusesAFileThatIsTooLarge)
{
    EXPECT_EQ(
        failure(std::string((1 << 20) + 1, '#')), "The file 'FOLDER/credentials' cannot be read: it is too large.");
    EXPECT_EQ(failure(std::string(1 << 20, '#')),
        "The file 'FOLDER/credentials' has no 'aws_access_key_id' in the profile 'default'.");
}

TEST_F(CS3SharedCredentialsFileTest, waitsForNobodyWhoWritesIntoAPipe)
{
    const std::string name = (m_folder.path() / "pipe").native();
    ASSERT_EQ(mkfifo(name.c_str(), S_IRUSR | S_IWUSR), 0);
    const auto path = CS3SharedCredentialsFile::Path::fromBytes(name);
    EXPECT_EQ(refusalOf(*kx::newObj<CS3SharedCredentialsFile>(path)),
        "The file '" + name + "' cannot be read: it is no regular file.");
}

TEST_F(CS3SharedCredentialsFileTest, namesAKeyThatIsNotUTF8)
{
    EXPECT_EQ(failure("# \xFF\n[default]\naws_access_key_id=a\naws_secret_access_key=\xFFsecret\n"),
        "The file 'FOLDER/credentials' has an 'aws_secret_access_key' that is not UTF-8 in the profile 'default'.");
}

TEST_F(CS3SharedCredentialsFileTest, namesAFileThatIsNotThere)
{
    const auto path = CS3SharedCredentialsFile::Path::fromBytes("/nowhere/credentials");
    EXPECT_EQ(refusalOf(*kx::newObj<CS3SharedCredentialsFile>(path)),
        "The file '/nowhere/credentials' cannot be read: No such file or directory.");
}

TEST_F(CS3SharedCredentialsFileTest, readsWhatHasBeenWrittenSince)
{
    const auto file
        = kx::newObj<CS3SharedCredentialsFile>(write("[default]\naws_access_key_id=a\naws_secret_access_key=b"));
    EXPECT_EQ(told(file->get()), "a/b/");
    write("[default]\naws_access_key_id=c\naws_secret_access_key=d");
    EXPECT_EQ(told(file->get()), "c/d/");
}

TEST_F(CS3SharedCredentialsFileTest, isFoundWhereToolsPutIt)
{
    const CEnvironment environment(
        {{"HOME", "/home/a"}, {"AWS_SHARED_CREDENTIALS_FILE", nullptr}, {"AWS_PROFILE", nullptr}});
    const auto byHome = kx::newObj<CS3SharedCredentialsFile>();
    EXPECT_EQ(byHome->getPath().toString(), "/home/a/.aws/credentials");
    EXPECT_EQ(byHome->getProfile(), "default");
    const CEnvironment named({{"AWS_SHARED_CREDENTIALS_FILE", "/b"}, {"AWS_PROFILE", "work"}});
    const auto byName = kx::newObj<CS3SharedCredentialsFile>();
    EXPECT_EQ(byName->getPath().toString(), "/b");
    EXPECT_EQ(byName->getProfile(), "work");
}

TEST_F(CS3SharedCredentialsFileTest, saysThatNoPlaceIsKnown)
{
    const CEnvironment environment({{"HOME", nullptr}, {"AWS_SHARED_CREDENTIALS_FILE", nullptr}});
    const auto error = support::errorOf([] { kx::newObj<CS3SharedCredentialsFile>(); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getMessage(),
        "It is not known where the S3 credentials are: neither AWS_SHARED_CREDENTIALS_FILE nor HOME is set.");
}

/// Counts how often it is asked, and gives credentials that end then and then.
class CS3RefreshedCredentialsTest : public testing::Test {
protected:
    CS3Credentials fetch()
    {
        if (m_isDown)
            throw kx::CError("no answer");
        return {.accessKeyId = kx::String::fromUTF8(std::to_string(++m_count)),
            .secretAccessKey = "s",
            .sessionToken = "t",
            .expiry
            = m_lifetime ? kx::CTime(kx::CTime::now().getMicroseconds() + *m_lifetime * 1'000'000) : kx::CTime()};
    }

    kx::P<CS3RefreshedCredentials> make(long long earlySeconds)
    {
        return kx::newObj<CS3RefreshedCredentials>(
            [this] { return fetch(); }, kx::CTimeSpan::fromSeconds(earlySeconds));
    }

    std::atomic<int> m_count{0};
    bool m_isDown = false;
    std::optional<long long> m_lifetime; // in seconds
};

TEST_F(CS3RefreshedCredentialsTest, areFetchedOnceWhenTheyHaveNoEnd)
{
    const auto credentials = make(60);
    EXPECT_EQ(m_count, 0);
    EXPECT_EQ(told(credentials->get()), "1/s/t");
    EXPECT_EQ(told(credentials->get()), "1/s/t");
}

TEST_F(CS3RefreshedCredentialsTest, areFetchedAnewBeforeTheirEnd)
{
    m_lifetime = 100;
    const auto late = make(50);
    late->get();
    EXPECT_EQ(told(late->get()), "1/s/t");
    const auto early = make(150);
    early->get();
    EXPECT_EQ(told(early->get()), "3/s/t");
}

TEST_F(CS3RefreshedCredentialsTest, serveToTheirEndWhileNobodyHasNewOnes)
{
    const support::CLogRecorder log;
    m_lifetime = 100;
    const auto credentials = make(150);
    credentials->get();
    m_isDown = true;
    EXPECT_EQ(told(credentials->get()), "1/s/t");
    EXPECT_EQ(log.lines(),
        std::vector<std::string>({"warning: The S3 credentials could not be fetched anew; the last "
                                  "ones serve until they end.: no answer"}));
}

TEST_F(CS3RefreshedCredentialsTest, areNotAskedForAgainAtOnceWhereNobodyHasNewOnes)
{
    const support::CLogRecorder log;
    m_lifetime = 100;
    const auto credentials = make(150);
    credentials->get();
    m_isDown = true;
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(told(credentials->get()), "1/s/t");
    EXPECT_EQ(log.lines().size(), 1U);
}

TEST_F(CS3RefreshedCredentialsTest, mayBeFetchedHoweverEarly)
{
    m_lifetime = 100;
    const auto credentials = kx::newObj<CS3RefreshedCredentials>(
        [this] { return fetch(); }, kx::CTimeSpan::fromMicroseconds(std::numeric_limits<long long>::max()));
    credentials->get();
    EXPECT_EQ(told(credentials->get()), "2/s/t");
}

TEST_F(CS3RefreshedCredentialsTest, doNotServeBeyondTheirEnd)
{
    m_lifetime = -1;
    const auto credentials = make(0);
    credentials->get();
    m_isDown = true;
    EXPECT_EQ(refusalOf(*credentials), "no answer");
    m_isDown = false;
    EXPECT_EQ(told(credentials->get()), "2/s/t");
}

TEST_F(CS3RefreshedCredentialsTest, areFetchedByOneOfManyThreads)
{
    const auto credentials = make(0);
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&credentials] { credentials->get(); });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(m_count, 1);
}

TEST_F(CS3RefreshedCredentialsTest, refuseNoFunction)
{
    EXPECT_THROW(kx::newObj<CS3RefreshedCredentials>(CS3RefreshedCredentials::Fetch()), kx::CInvalidArgError);
}

} // namespace
