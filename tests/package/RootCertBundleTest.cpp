// An application built against the installed package, with root certificates of its own, as it finds them in its build
// tree and where it is installed.
#include "tests/support/CChildProcess.h"
#include "tests/support/CNginxServer.h"
#include "tests/support/CProcessRun.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/CTestCertificates.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

using support::CProcessRun;
using Path = std::filesystem::path;

void runCMake(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), NORLA_CMAKE);
    const CProcessRun run(arguments);
    if (run.exitStatus() != 0)
        throw std::runtime_error(run.output() + run.errors());
}

class RootCertBundlePackageTest : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        s_folder = std::make_unique<support::CTemporaryFolder>();
        s_server = std::make_unique<support::CNginxServer>();
        runCMake({"--install", NORLA_BUILD_DIR, "--prefix", (folder() / "norla").string()});
        build("application", support::CTestCertificates::get().caFile());
    }

    static void TearDownTestSuite()
    {
        s_server.reset();
        s_folder.reset();
    }

    static Path folder() { return s_folder->path(); }
    static Path buildTree() { return folder() / "application"; }

    /// Builds the application in a folder of this name, to ship the certificates in the file.
    static void build(const std::string& name, const Path& bundle)
    {
        runCMake({"-S", NORLA_APPLICATION_DIR, "-B", (folder() / name).string(), "-G", "Ninja",
            "-DCMAKE_PREFIX_PATH=" + (folder() / "norla").string(), "-DCMAKE_CXX_FLAGS=" NORLA_CXX_FLAGS,
            "-DAPPLICATION_CA_BUNDLE=" + bundle.string()});
        runCMake({"--build", (folder() / name).string()});
    }

    static Path install(const std::string& name)
    {
        const Path prefix = folder() / name;
        runCMake({"--install", buildTree().string(), "--prefix", prefix.string()});
        return prefix;
    }

    static CProcessRun runApplication(const Path& program)
    {
        return CProcessRun({.arguments = {program.string(), s_server->httpsURL("/digits.txt")},
            .environment = support::inheritedLibraryPath()});
    }

    /// The application prints where its certificates are, and then the file, which came from a server that it has
    /// verified.
    static void expectVerifiedWith(const Path& bundle, const CProcessRun& run)
    {
        EXPECT_EQ(run.output(), bundle.string() + "\n0123456789");
        EXPECT_EQ(run.errors(), "");
        EXPECT_EQ(run.exitStatus(), 0);
    }

private:
    static inline std::unique_ptr<support::CTemporaryFolder> s_folder;
    static inline std::unique_ptr<support::CNginxServer> s_server;
};

TEST_F(RootCertBundlePackageTest, isFoundInTheBuildTree)
{
    expectVerifiedWith(buildTree() / "resources/norla/ca-bundle.crt", runApplication(buildTree() / "application"));
}

TEST_F(RootCertBundlePackageTest, isFoundInTheInstallation)
{
    const Path prefix = install("installed");
    expectVerifiedWith(prefix / "share/application/norla/ca-bundle.crt", runApplication(prefix / "bin/application"));
}

TEST_F(RootCertBundlePackageTest, isFoundInAnInstallationThatWasMoved)
{
    const Path prefix = folder() / "another place";
    std::filesystem::rename(install("to be moved"), prefix);
    expectVerifiedWith(prefix / "share/application/norla/ca-bundle.crt", runApplication(prefix / "bin/application"));
}

TEST_F(RootCertBundlePackageTest, isAllThatIsTrusted)
{
    build("mistrustful", support::CTestCertificates::get().otherCAFile());
    const auto run = runApplication(folder() / "mistrustful/application");
    EXPECT_EQ(run.errors(),
        "SSL peer certificate or SSH remote key was not OK: SSL certificate problem: unable to get local issuer "
        "certificate\n");
    EXPECT_EQ(run.exitStatus(), 1);
}

TEST_F(RootCertBundlePackageTest, isMissedWhereItWasNotShipped)
{
    build("careless", "");
    const auto run = runApplication(folder() / "careless/application");
    EXPECT_EQ(run.output(), "");
    EXPECT_EQ(run.errors(), "INTERNAL ERROR: Root certificate bundle not found in application resources.\n");
    EXPECT_EQ(run.exitStatus(), 1);
}

} // namespace
