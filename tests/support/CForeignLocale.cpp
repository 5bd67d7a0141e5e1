#include "tests/support/CForeignLocale.h"

#include "tests/support/CProcessRun.h"
#include "tests/support/CTemporaryFolder.h"

#include <clocale>
#include <cstdlib>
#include <locale>
#include <map>
#include <stdexcept>

namespace support {

namespace {

/// @return the folder with the locale, which is made when it is asked for the first time: that takes a second
const CTemporaryFolder& folderOf(const std::string& name)
{
    static std::map<std::string, CTemporaryFolder> folders;
    const auto known = folders.find(name);
    if (known != folders.end())
        return known->second;
    const CTemporaryFolder& folder = folders[name];
    const CProcessRun run({.arguments
        = {"localedef", "-i", name.substr(0, name.find('.')), "-f", "UTF-8", (folder.path() / name).string()},
        .package = "locales"});
    if (run.exitStatus() != 0)
        throw std::runtime_error("There is no locale " + name + ": " + run.errors());
    return folder;
}

} // namespace

CForeignLocale::CForeignLocale(const std::string& name)
{
    setenv("LOCPATH", folderOf(name).path().c_str(), 1);
    if (!std::setlocale(LC_ALL, name.c_str()))
        throw std::runtime_error("The locale " + name + " cannot be used.");
    std::locale::global(std::locale(name));
}

CForeignLocale::~CForeignLocale()
{
    std::locale::global(std::locale::classic());
    std::setlocale(LC_ALL, "C");
    unsetenv("LOCPATH");
}

} // namespace support
