#include "tests/support/packages.h"

#include <cstdlib>
#include <stdexcept>

namespace support {

namespace {

std::string variable(const char* name)
{
    const char* const value = std::getenv(name);
    return value ? value : "";
}

/// The same folder as in scripts/install-packages.
std::filesystem::path unpackedPackages()
{
    const std::string cache = variable("XDG_CACHE_HOME");
    return std::filesystem::path(cache.empty() ? variable("HOME") + "/.cache" : cache) / "norla-test-packages";
}

} // namespace

std::filesystem::path packageFile(const std::string& package, const std::filesystem::path& file)
{
    for (const std::filesystem::path& root : {unpackedPackages() / package, std::filesystem::path("/")}) {
        if (exists(root / file))
            return root / file;
    }
    throw std::runtime_error(
        "there is no " + file.string() + " of the Debian package " + package + ": run 'scripts/install-packages test'");
}

} // namespace support
