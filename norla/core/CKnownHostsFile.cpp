#include "norla/core/CKnownHostsFile.h"

#include "kx/base/CError.h"
#include "kx/base/systemErrorText.h"
#include "kx/files/readWholeFile.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace norla {

namespace {

using Path = CKnownHostsFile::Path;

constexpr size_t mostFileBytes = 64 << 20;

std::string homeOfUser()
{
    const char* const home = std::getenv("HOME");
    if (home && home[0] == '/')
        return home;
    constexpr size_t bufferSize = 16 << 10;
    std::vector<char> buffer(bufferSize);
    passwd user{};
    passwd* found = nullptr;
    if (getpwuid_r(geteuid(), &user, buffer.data(), buffer.size(), &found) != 0 || !found || !found->pw_dir)
        return {};
    return found->pw_dir;
}

/// An open file whose lock goes with it.
class CLockedFile {
public:
    explicit CLockedFile(int file) noexcept
        : m_file(file)
    {
    }
    CLockedFile(const CLockedFile&) = delete;
    CLockedFile& operator=(const CLockedFile&) = delete;
    ~CLockedFile()
    {
        if (m_file >= 0)
            ::close(m_file);
    }

    /// @return 0 when it is a regular file and nobody else has the lock; EWOULDBLOCK when somebody has
    int lock() const noexcept
    {
        struct stat status {};
        if (fstat(m_file, &status) != 0)
            return errno;
        if (!S_ISREG(status.st_mode))
            return EINVAL;
        return flock(m_file, LOCK_EX | LOCK_NB) == 0 ? 0 : errno;
    }

    /// Whether it is still the one of that name: others may have put a new one into its place.
    bool isAt(const std::string& name) const noexcept
    {
        struct stat own {};
        struct stat there {};
        return fstat(m_file, &own) == 0 && stat(name.c_str(), &there) == 0 && own.st_dev == there.st_dev
            && own.st_ino == there.st_ino;
    }

    /// All of the text or nothing. @return whether it is there
    bool append(std::string_view text) const noexcept
    {
        const off_t end = lseek(m_file, 0, SEEK_END);
        const ssize_t written = end < 0 ? -1 : write(m_file, text.data(), text.size());
        if (written == static_cast<ssize_t>(text.size()))
            return true;
        const int errorNumber = written < 0 ? errno : ENOSPC;
        if (written > 0 && ftruncate(m_file, end) != 0)
            return false;
        errno = errorNumber;
        return false;
    }

    /// What some file systems say only now.
    bool close() noexcept { return ::close(std::exchange(m_file, -1)) == 0; }

private:
    int m_file;
};

/// @param open which opens the file, anew for each try: others may put a new one into its place meanwhile
/// @return 0, or why it is not ours; EWOULDBLOCK when others have locked it all that time
template <typename TOpen>
int openLocked(
    std::optional<CLockedFile>& file, const std::string& name, std::chrono::milliseconds patience, TOpen open)
{
    using Clock = std::chrono::steady_clock;
    constexpr auto pause = std::chrono::milliseconds(10);
    const auto end = Clock::now() + patience;
    do {
        file.emplace(open());
        const int errorNumber = file->lock();
        if (errorNumber == 0 && file->isAt(name))
            return 0;
        if (errorNumber != 0 && errorNumber != EWOULDBLOCK)
            return errorNumber;
        std::this_thread::sleep_for(pause);
    } while (Clock::now() < end);
    return EWOULDBLOCK;
}

} // namespace

Path CKnownHostsFile::usualPath()
{
    const std::string home = homeOfUser();
    if (home.empty())
        throw kx::CError("The user has no home folder, whose .ssh/known_hosts would tell the known SSH hosts.");
    return Path::fromBytes(home) / ".ssh/known_hosts";
}

CKnownHosts CKnownHostsFile::read() const
{
    return CKnownHosts(kx::readWholeFileIfThere(m_path, mostFileBytes).value_or(std::string()));
}

CKnownHosts::Verdict CKnownHostsFile::add(
    const CKnownHosts::CHost& host, std::string_view key, std::chrono::milliseconds patience) const
{
    const std::string line = CKnownHosts::lineFor(host, key);
    if (line.empty())
        throw kx::CError("The host '" + kx::String::fromLatin1(host.name) + "' cannot be remembered in the file '"
            + m_path.toString() + "': its name cannot stand there.");
    std::optional<CLockedFile> file;
    const int errorNumber = openLocked(file, m_path.toBytes(), patience, [this] { return open(); });
    if (errorNumber == EWOULDBLOCK)
        fail("locked by others");
    if (errorNumber != 0)
        fail(errorNumber);
    const std::string bytes = kx::readWholeFile(m_path, mostFileBytes);
    const CKnownHosts::Verdict verdict = CKnownHosts(bytes).judge(host, key);
    if (verdict != CKnownHosts::Verdict::Unknown)
        return verdict;
    const bool isInLine = !bytes.empty() && bytes.back() != '\n';
    if (!file->append((isInLine ? "\n" : "") + line + "\n") || !file->close())
        fail(errno);
    return CKnownHosts::Verdict::Known;
}

int CKnownHostsFile::open() const
{
    const std::string name = m_path.toBytes();
    const std::string folder = std::filesystem::path(name).parent_path();
    constexpr mode_t ownFolder = 0700;
    constexpr mode_t ownFile = 0600;
    if (!folder.empty() && mkdir(folder.c_str(), ownFolder) != 0 && errno != EEXIST)
        fail(errno);
    const int file = ::open(name.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, ownFile);
    if (file < 0)
        fail(errno);
    return file;
}

void CKnownHostsFile::fail(const kx::String& reason) const
{
    throw kx::CError("The file '" + m_path.toString() + "' of known SSH hosts cannot be written: " + reason + ".");
}

void CKnownHostsFile::fail(int errorNumber) const
{
    fail(kx::systemErrorText(errorNumber));
}

} // namespace norla
