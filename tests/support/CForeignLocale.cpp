#include "tests/support/CForeignLocale.h"

#include "tests/support/CProcessRun.h"

#include <clocale>
#include <cstdlib>
#include <locale>
#include <stdexcept>

// The C library's setlocale() loses its copy of LOCPATH; LeakSanitizer asks for this when it is there.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:__argz_add_sep";
}

namespace support {

CForeignLocale::CForeignLocale(const std::string& name)
{
    const CProcessRun run({.arguments
        = {"localedef", "-i", name.substr(0, name.find('.')), "-f", "UTF-8", (m_folder.path() / name).string()},
        .package = "locales"});
    setenv("LOCPATH", m_folder.path().c_str(), 1);
    if (run.exitStatus() != 0 || !std::setlocale(LC_ALL, name.c_str()))
        throw std::runtime_error("There is no locale " + name + ": " + run.errors());
    std::locale::global(std::locale(name));
}

CForeignLocale::~CForeignLocale()
{
    std::locale::global(std::locale::classic());
    std::setlocale(LC_ALL, "C");
    unsetenv("LOCPATH");
}

} // namespace support
