#pragma once

#include "norla/s3/CS3Client.h"
#include "norla/s3/CS3StaticCredentials.h"
#include "tests/live/exampleRun.h"
#include "tests/support/CCephServer.h"
#include "tests/support/CTemporaryFolder.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace live {

/// The example s3, run as a person runs it, with a bucket named "bucket".
class S3ExampleSession : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        s_store = std::make_unique<support::CCephServer>();
        s_store->makeBucket("bucket");
    }
    static void TearDownTestSuite() { s_store.reset(); }

    support::CProcessRun s3(
        std::vector<std::string> words, support::CProcessRun::Terminal terminal = support::CProcessRun::Terminal::None)
    {
        words.insert(words.begin(), {"s3", "--endpoint", s_store->host(), "--http"});
        return run({.arguments = std::move(words),
            .environment = {"S3_ACCESS_KEY_ID=" + s_store->accessKeyId(), "S3_SECRET_ACCESS_KEY=" + m_secret},
            .terminal = terminal});
    }

    /// The same without credentials in the environment.
    support::CProcessRun s3ByProfile(std::vector<std::string> words)
    {
        const auto file = m_folder.write("credentials",
            "[other]\naws_access_key_id = " + s_store->accessKeyId() + "\naws_secret_access_key = " + m_secret + "\n");
        words.insert(words.begin(), {"s3", "--endpoint", s_store->host(), "--http", "--profile", "other"});
        return run({.arguments = std::move(words), .environment = {"AWS_SHARED_CREDENTIALS_FILE=" + file.string()}});
    }

    support::CProcessRun s3ToFullDisk(std::vector<std::string> words)
    {
        words.insert(words.begin(), {"s3", "--endpoint", s_store->host(), "--http"});
        return runRedirected(
            words, "> /dev/full", {"S3_ACCESS_KEY_ID=" + s_store->accessKeyId(), "S3_SECRET_ACCESS_KEY=" + m_secret});
    }

    /// The most memory that a run had which succeeds, in bytes.
    static long long peakMemoryOf(const std::vector<std::string>& words)
    {
        std::vector<std::string> command{"python3", "-c",
            "import resource, subprocess, sys\n"
            "subprocess.run(sys.argv[1:], check=True, stderr=subprocess.DEVNULL)\n"
            "print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)",
            NORLA_EXAMPLES_DIR "/s3", "--endpoint", s_store->host(), "--http"};
        command.insert(command.end(), words.begin(), words.end());
        const support::CProcessRun result({.arguments = command,
            .package = "python3",
            .environment
            = {"S3_ACCESS_KEY_ID=" + s_store->accessKeyId(), "S3_SECRET_ACCESS_KEY=" + s_store->secretAccessKey(),
                "ASAN_OPTIONS=quarantine_size_mb=1"}}); // what is free would count
        EXPECT_EQ(result.exitStatus(), 0) << result.errors();
        return 1024 * std::stoll("0" + result.output());
    }

    static support::CCephServer& store() { return *s_store; }

    /// For what the example has no command for.
    static kx::P<norla::CS3Client> client()
    {
        const auto credentials = kx::newObj<norla::CS3StaticCredentials>(
            norla::CS3Credentials{.accessKeyId = kx::String::fromUTF8(s_store->accessKeyId()),
                .secretAccessKey = kx::String::fromUTF8(s_store->secretAccessKey()),
                .sessionToken = {},
                .expiry = {}});
        return kx::newObj<norla::CS3Client>(
            norla::CS3Endpoint::ceph(kx::String::fromUTF8(s_store->host()), false), credentials.get());
    }

    std::string m_secret = s_store->secretAccessKey();
    support::CTemporaryFolder m_folder;

private:
    static inline std::unique_ptr<support::CCephServer> s_store;
};

} // namespace live
