// Objects beside the programs that people would take instead, and beside libcurl by hand, with one store: a large one
// up and down, and many small ones. Each is a program of its own; all of them do the same work, in turns.
#include "bench/peers/contest/CProgramContest.h"
#include "bench/peers/contest/checkedFiles.h"
#include "bench/peers/contest/programs.h"
#include "bench/peers/s3/CCheckedStore.h"
#include "bench/peers/s3/s3Work.h"
#include "tests/support/CTemporaryFolder.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace {

using bench::CProgramContender;
using bench::CProgramStep;
using bench::Words;

constexpr char bareName[] = "libcurl by hand";
constexpr char norlaName[] = "libnorla";
constexpr long long objectSize = 4096;

/// What the command line sets.
struct CSizes {
    long long largeMiB = 1024;
    int objects = 2000;
    int rounds = 5;
};

CSizes sizesOf(int count, char** arguments)
{
    CSizes sizes;
    for (int i = 1; i < count; i += 2) {
        const std::string name = arguments[i];
        const int value = i + 1 < count ? std::atoi(arguments[i + 1]) : 0;
        if (value <= 0)
            throw std::runtime_error("Usage: s3_peers_bench [--mib SIZE] [--objects COUNT] [--rounds COUNT]");
        if (name == "--mib")
            sizes.largeMiB = value;
        else if (name == "--objects")
            sizes.objects = value;
        else if (name == "--rounds")
            sizes.rounds = value;
        else
            throw std::runtime_error("there is no option " + name);
    }
    return sizes;
}

class CComparison {
public:
    explicit CComparison(const CSizes& sizes)
        : m_sizes(sizes)
        , m_store(sizes.largeMiB << 20)
    {
        std::filesystem::create_directory(m_objects);
        std::filesystem::create_directory(m_fetched);
        bench::makeFile(m_large, sizes.largeMiB << 20);
        for (int i = 0; i < sizes.objects; ++i)
            bench::makeFile(m_objects / std::to_string(1'000'000 + i), objectSize);
        m_folder.write("s3cmd.cfg",
            "[default]\naccess_key = " + server().accessKeyId() + "\nsecret_key = " + server().secretAccessKey()
                + "\nhost_base = " + server().host() + "\nhost_bucket = " + server().host()
                + "\nuse_https = False\ncheck_ssl_certificate = False\nbucket_location = us-east-1\n");
        server().makeBucket("large");
        m_store.put("large", "down", m_large);
    }

    void run()
    {
        const bench::CProgramContest contest(m_folder.path() / "log", environment());
        for (auto contenders : {uploads(), downloads(), small()}) {
            contest.run(contenders, m_sizes.rounds);
            bench::printProgramTables(contenders);
        }
    }

private:
    support::CCephServer& server() { return m_store.server(); }

    /// Where the store is, for each of them.
    Words environment()
    {
        const std::string rclone = "RCLONE_CONFIG_STORE_";
        return {"AWS_CA_BUNDLE=", "S3_ENDPOINT=" + server().host(), "AWS_ACCESS_KEY_ID=" + server().accessKeyId(),
            "AWS_SECRET_ACCESS_KEY=" + server().secretAccessKey(),
            "RCLONE_CONFIG=" + (m_folder.path() / "none").native(), rclone + "TYPE=s3", rclone + "PROVIDER=Ceph",
            rclone + "ENDPOINT=http://" + server().host(), rclone + "REGION=us-east-1",
            rclone + "ACCESS_KEY_ID=" + server().accessKeyId(),
            rclone + "SECRET_ACCESS_KEY=" + server().secretAccessKey()};
    }

    static Words rclone(const Words& words)
    {
        return bench::joined(
            {"rclone", "--quiet", "--s3-no-check-bucket", "--retries=1", "--low-level-retries=1"}, words);
    }
    Words s3cmd(const Words& words) const
    {
        return bench::joined({"s3cmd", "--config=" + (m_folder.path() / "s3cmd.cfg").native(), "--no-progress"}, words);
    }

    /// @return a contender with the only step
    CProgramContender upload(const std::string& name, const Words& command)
    {
        const auto check = [this](const std::string&) { m_store.requireObject("large", "up", m_large); };
        return {name, {{sizeText() + " from a file, in parts of 8 MiB, 4 at once", command, check}}};
    }

    std::vector<CProgramContender> uploads()
    {
        std::vector<CProgramContender> all{upload(bareName, {NORLA_S3_BARE_PEER, "up", "large", m_large, "up"}),
            upload("the same, without digests", {NORLA_S3_BARE_PEER, "up-undigested", "large", m_large, "up"}),
            upload(norlaName, {NORLA_S3_NORLA_PEER, "up", "large", m_large, "up"})};
        if (bench::isInstalled("rclone"))
            all.push_back(upload("rclone",
                rclone({"copyto", "--s3-chunk-size=8Mi", "--s3-upload-concurrency=4", "--s3-upload-cutoff=8Mi",
                    "--s3-disable-checksum", "--no-check-dest", m_large, "store:large/up"})));
        if (bench::isInstalled("s3cmd"))
            all.push_back(upload("s3cmd, one at once",
                s3cmd({"put", "--no-preserve", "--multipart-chunk-size-mb=8", m_large, "s3://large/up"})));
        return all;
    }

    CProgramContender download(const std::string& name, bool isChecked, const Words& command)
    {
        const std::string title
            = sizeText() + " into a file, one connection, " + (isChecked ? "MD5 compared" : "nothing compared");
        return {name, {{title, command, [this](const std::string&) { bench::requireSameFile(m_down, m_large); }}}};
    }

    std::vector<CProgramContender> downloads()
    {
        std::vector<CProgramContender> all;
        for (const bool isChecked : {true, false}) {
            const std::string operation = isChecked ? "down" : "down-unchecked";
            for (const auto& [name, program] :
                {std::pair{bareName, NORLA_S3_BARE_PEER}, {norlaName, NORLA_S3_NORLA_PEER}})
                all.push_back(download(name, isChecked, {program, operation, "large", "down", m_down}));
            if (bench::isInstalled("rclone"))
                all.push_back(download("rclone", isChecked,
                    rclone({"copyto", "--multi-thread-streams=0", "--no-check-dest", "--use-server-modtime",
                        isChecked ? "--ignore-checksum=false" : "--ignore-checksum", "store:large/down", m_down})));
        }
        if (bench::isInstalled("s3cmd"))
            all.push_back(download("s3cmd", true, s3cmd({"get", "s3://large/down", m_down})));
        return all;
    }

    /// The commands of somebody who has a bucket of his own.
    struct CCommands {
        Words put;
        Words list;
        Words get;
        Words remove;
    };

    CProgramContender smallContender(
        const std::string& name, const std::string& bucket, const CCommands& commands, bool showsAll = true)
    {
        server().makeBucket(bucket);
        const std::string count = std::to_string(m_sizes.objects) + " objects of 4 KiB ";
        const auto hasAll
            = [this, bucket](const std::string&) { m_store.requireCount(bucket, m_sizes.objects, objectSize); };
        const auto isListed = [this](const std::string& output) {
            if (std::count(output.begin(), output.end(), '\n') != m_sizes.objects)
                throw std::runtime_error("not all objects are listed: " + output.substr(0, 500));
        };
        const auto isFetched = [this](const std::string&) { bench::requireSameFiles(m_fetched, m_objects); };
        const auto isEmpty = [this, bucket](const std::string&) { m_store.requireCount(bucket, 0, objectSize); };
        return {name,
            {{count + "put, 8 at once", commands.put, hasAll},
                {showsAll ? count + "listed" : "", commands.list, isListed},
                {count + "fetched, 8 at once", commands.get, isFetched},
                {showsAll ? count + "removed" : "", commands.remove, isEmpty}}};
    }

    std::vector<CProgramContender> small()
    {
        const std::string from = m_objects.native();
        const std::string to = m_fetched.native();
        const auto peer = [&](const std::string& program, const std::string& bucket, const std::string& way = {}) {
            return CCommands{{program, "put" + way, bucket, from}, {program, "list", bucket},
                {program, "get" + way, bucket, to}, {program, "delete", bucket}};
        };
        std::vector<CProgramContender> all{smallContender(bareName, "bare", peer(NORLA_S3_BARE_PEER, "bare")),
            smallContender("libnorla's pool", "pool", peer(NORLA_S3_NORLA_PEER, "pool")),
            smallContender(
                "libnorla in 8 threads", "threads", peer(NORLA_S3_NORLA_PEER, "threads", "-threads"), false)};
        if (bench::isInstalled("rclone"))
            all.push_back(smallContender("rclone", "rclone",
                {rclone({"copy", "--transfers=8", "--no-check-dest", "--s3-no-head", from, "store:rclone"}),
                    rclone({"lsf", "--format=sp", "--fast-list", "store:rclone"}),
                    rclone({"copy", "--transfers=8", "--no-check-dest", "--s3-no-head-object", "--use-server-modtime",
                        "store:rclone", to}),
                    rclone({"delete", "--checkers=8", "--transfers=8", "--use-server-modtime", "store:rclone"})}));
        if (bench::isInstalled("s3cmd"))
            all.push_back(smallContender("s3cmd, one at once", "s3cmd",
                {s3cmd({"put", "--no-preserve", "--quiet", "--recursive", from + '/', "s3://s3cmd/"}),
                    s3cmd({"ls", "s3://s3cmd"}), s3cmd({"get", "--quiet", "--recursive", "s3://s3cmd/", to + '/'}),
                    s3cmd({"del", "--quiet", "--recursive", "--force", "s3://s3cmd/"})}));
        return all;
    }

    std::string sizeText() const { return std::to_string(m_sizes.largeMiB) + " MiB"; }

    const CSizes m_sizes;
    bench::CCheckedStore m_store;
    const support::CTemporaryFolder m_folder;
    const std::filesystem::path m_large = m_folder.path() / "large";
    const std::filesystem::path m_down = m_folder.path() / "down";
    const std::filesystem::path m_objects = m_folder.path() / "objects";
    const std::filesystem::path m_fetched = m_folder.path() / "fetched";
};

} // namespace

int main(int count, char** arguments)
{
    try {
        CComparison(sizesOf(count, arguments)).run();
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "s3_peers_bench: %s\n", error.what());
        return 1;
    }
}
