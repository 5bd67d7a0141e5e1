// Works on the objects of an S3 store.
#include "examples/CInterruption.h"
#include "examples/CS3Commands.h"
#include "examples/TCommand.h"
#include "examples/credentials.h"
#include "examples/runProgram.h"
#include "norla/s3/CS3Client.h"
#include "norla/s3/CS3SharedCredentialsFile.h"
#include "norla/s3/CS3StaticCredentials.h"

#include <map>
#include <string>
#include <vector>

namespace {

const std::vector<TCommand<CS3Commands>> commands{
    {"put", {"FILE", "BUCKET/KEY"}, "stores a file, large ones by parts", &CS3Commands::put},
    {"get", {"BUCKET/KEY", "FILE"}, "fetches an object", &CS3Commands::get},
    {"ls", {"[BUCKET[/PREFIX]]"}, "lists objects: size, time, key; or all buckets", &CS3Commands::list},
    {"cp", {"BUCKET/KEY", "BUCKET/KEY"}, "copies an object, inside the store", &CS3Commands::copy},
    {"mv", {"BUCKET/KEY", "BUCKET/KEY"}, "copies it and removes the first", &CS3Commands::move},
    {"rm", {"BUCKET/KEY..."}, "removes objects", &CS3Commands::remove},
    {"stat", {"BUCKET/KEY"}, "shows size, type, time and metadata", &CS3Commands::stat},
    {"tag", {"BUCKET/KEY", "[NAME=VALUE]..."}, "gives it these tags, or prints its own", &CS3Commands::tag},
    {"untag", {"BUCKET/KEY"}, "takes all its tags away", &CS3Commands::untag},
    {"presign", {"BUCKET/KEY"}, "prints a URL by which anybody may fetch it", &CS3Commands::presign},
    {"mb", {"BUCKET"}, "makes a bucket", &CS3Commands::makeBucket},
    {"rb", {"BUCKET"}, "removes an empty bucket", &CS3Commands::removeBucket},
};

const CProgram program{
    .name = "s3",
    .operands = {"COMMAND..."},
    .purpose = "Works on the objects of an S3 store. The commands:\n" + helpOf(commands),
    .options = {
        {"--endpoint", "HOST[:PORT]", "the store (default: Amazon's, of the region)"},
        {"--region", "NAME", "where the buckets are (default: us-east-1)"},
        {"--profile", "NAME", "the credentials of that name in ~/.aws/credentials"},
        {"--http", "", "without TLS"},
        {"--expires", "SECONDS", "presign: for how long, 604800 at most (default: 3600)"},
        {"--content-type", "TYPE", "put: what it is, such as image/png"},
        {"--metadata", "NAME=VALUE", "put: kept with the object", true},
        {"--folders", "", "ls: one level; what has more \"/\" as a line a folder"},
        {"--page", "COUNT", "ls, rm: list so many with each request, 1 to 1000"},
        {"--part", "MIB", "put, cp, mv: in parts of that size, 5 to 5120"},
        {"--recursive", "", "rm: all objects whose names begin with BUCKET[/PREFIX]"},
        {"--versions", "", "ls: all versions: size, time, version, kind, key"},
        {"--version-id", "ID", "get, stat, cp, rm, tag, untag: that, not the newest"},
    },
    .notes = R"(Files of more than 8 MiB are stored by parts, objects of more than 5 GiB are
copied so, unless --part says otherwise. A signal withdraws the parts; a second
one does not wait for that.

A version is of the kind "latest" or "older", or "removed": the mark that a
bucket with versions keeps of a removal. New tags are in place of older ones.

Without --profile the environment gives the credentials: S3_ACCESS_KEY_ID and
S3_SECRET_ACCESS_KEY. What is not set there is asked for at the terminal.
)",
};

/// The commands that an option is for; the others are for all.
const std::map<std::string, std::string> commandsOf{
    {"--content-type", "put"},
    {"--expires", "presign"},
    {"--folders", "ls"},
    {"--metadata", "put"},
    {"--page", "ls rm"},
    {"--part", "put cp mv"},
    {"--recursive", "rm"},
    {"--version-id", "get stat cp rm tag untag"},
    {"--versions", "ls"},
};

void requireItsOptions(const CArguments& arguments, const std::string& command)
{
    for (const auto& [option, names] : commandsOf) {
        if (arguments.has(option) && (' ' + names + ' ').find(' ' + command + ' ') == std::string::npos)
            throw usageError("option '" + shownPath(option) + "' is not for " + shownPath(command));
    }
}

kx::P<norla::IS3Credentials> credentialsOf(const CArguments& arguments)
{
    if (arguments.has("--profile"))
        return kx::newObj<norla::CS3SharedCredentialsFile>(Path(), arguments.text("--profile"));
    return kx::newObj<norla::CS3StaticCredentials>(
        norla::CS3Credentials{.accessKeyId = secretOf("S3_ACCESS_KEY_ID", "Access key id"),
            .secretAccessKey = secretOf("S3_SECRET_ACCESS_KEY", "Secret access key"),
            .sessionToken = {},
            .expiry = {}});
}

/// What fails for now is tried again for some seconds. No budget: that would end large transfers too.
const norla::CRetryPolicy retries{.attempts = 5};

kx::P<norla::CS3Client> clientOf(const CArguments& arguments)
{
    const kx::String region = arguments.has("--region") ? arguments.text("--region") : "us-east-1";
    auto endpoint = norla::CS3Endpoint::aws(region);
    if (arguments.has("--endpoint"))
        endpoint = {.host = arguments.text("--endpoint"), .region = region};
    endpoint.useTLS = !arguments.has("--http");
    auto client = kx::newObj<norla::CS3Client>(endpoint, credentialsOf(arguments).get());
    client->setSafeDefaults();
    client->setRetryPolicy(retries);
    return client;
}

CS3Settings settingsOf(const CArguments& arguments)
{
    constexpr long long week = 7LL * 24 * 3600;
    constexpr long long mib = 1LL << 20;
    CS3Settings settings;
    settings.pageSize = static_cast<int>(arguments.number("--page", 1, 1000, -1));
    settings.lifetime = kx::CTimeSpan::fromSeconds(arguments.number("--expires", 1, week, 3600));
    settings.partSize = mib * arguments.number("--part", 5, 5120, 0);
    settings.versionId = arguments.text("--version-id");
    settings.isRecursive = arguments.has("--recursive");
    settings.showsFolders = arguments.has("--folders");
    settings.showsVersions = arguments.has("--versions");
    if (settings.showsFolders && settings.showsVersions)
        throw usageError("--folders and --versions exclude each other");
    settings.object.contentType = requireLine(arguments.text("--content-type"), "the value of --content-type");
    settings.object.metadata = metadataOf(arguments.texts("--metadata"));
    settings.retries = retries;
    return settings;
}

int s3(const CArguments& arguments)
{
    const std::vector<std::string>& words = arguments.operands();
    const auto& command = commandOf(commands, words);
    requireItsOptions(arguments, command.name);
    const CS3Settings settings = settingsOf(arguments); // before anything is asked for
    CS3Commands work(clientOf(arguments), settings);
    (work.*command.run)({words.begin() + 1, words.end()});
    return exitDone;
}

} // namespace

int main(int argc, char** argv)
{
    const int code = runProgram(program, argc, argv, s3);
    CInterruption::endProgram();
    return code;
}
