#include "kx/files/CResourceManager.h"

#include "kx/base/CInvalidArgError.h"

#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

namespace kx {

namespace {

// The kernel adds the mark when the file that the process was started from is gone, as after an upgrade (proc(5)). A
// name may also end in it by itself.
std::string withoutDeletedMark(const std::string& path)
{
    constexpr std::string_view mark = " (deleted)";
    std::error_code error;
    if (!path.ends_with(mark) || std::filesystem::exists(path, error))
        return path;
    return path.substr(0, path.size() - mark.size());
}

CResourceManager::Path pathOfThisProgram()
{
    std::error_code error;
    const auto path = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? CResourceManager::Path() : CResourceManager::Path::fromBytes(withoutDeletedMark(path.native()));
}

// The system would take the part before it for the whole name.
void requireWithoutZero(const CResourceManager::Path& path, const char* function)
{
    if (path.toString().find(L'\0') != String::npos)
        throw CInvalidArgError("zero character in the path '" + path.toString() + "'", String::fromLatin1(function));
}

bool isFile(const CResourceManager::Path& path)
{
    std::error_code error;
    return std::filesystem::is_regular_file(path.toBytes(), error);
}

} // namespace

TSafeGlobalPointer<CResourceManager>& CResourceManager::get()
{
    const auto lock = TSafeGlobalPointer<CResourceManager>::lockUntilConstructed(globalInstanceGuard());
    static TSafeGlobalPointer<CResourceManager> g_pInstance(
        globalInstanceGuard(), [] { return newObj<CResourceManager>(pathOfThisProgram()); });
    return TSafeGlobalPointer<CResourceManager>::waitConstructed(g_pInstance, globalInstanceGuard());
}

CSafeGlobalGuard& CResourceManager::globalInstanceGuard()
{
    static constinit CSafeGlobalGuard g_Guard;
    return g_Guard;
}

CResourceManager::CResourceManager(const Path& executable)
    : m_executable(executable)
{
}

CResourceManager::~CResourceManager() = default;

void CResourceManager::addResourceFolder(const Path& folder)
{
    constexpr auto function = "CResourceManager::addResourceFolder";
    requireWithoutZero(folder, function);
    if (!folder.isAbsolute())
        throw CInvalidArgError("not an absolute path: '" + folder.toString() + "'", String::fromLatin1(function));
    const CMutexLock lock(m_mutex);
    m_folders.push_back(folder);
}

TArray<CResourceManager::Path> CResourceManager::folders() const
{
    TArray<Path> all;
    {
        const CMutexLock lock(m_mutex);
        all = m_folders;
    }
    if (!m_executable.isAbsolute()) // or the working directory would say where its resources are
        return all;
    const Path home = (m_executable / "..").toNormalized(true, Path());
    all.push_back(home / "resources");
    all.push_back((home / ".." / "share" / m_executable.getFileName()).toNormalized(true, Path()));
    return all;
}

CResourceManager::Path CResourceManager::findResource(const Path& relativePath) const
{
    constexpr auto function = "CResourceManager::findResource";
    requireWithoutZero(relativePath, function);
    if (relativePath.isAbsolute())
        throw CInvalidArgError("not a relative path: '" + relativePath.toString() + "'", String::fromLatin1(function));
    for (const Path& folder : folders()) {
        Path candidate = folder / relativePath;
        if (isFile(candidate))
            return candidate;
    }
    return Path();
}

} // namespace kx
