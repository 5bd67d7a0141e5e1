#include "kx/files/COutputFile.h"

#include "kx/base/CError.h"
#include "kx/base/systemErrorText.h"
#include "kx/random/CMTRand.h"
#include "kx/text/numbers.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <utility>

namespace kx {

namespace {

constexpr mode_t ownerOnly = 0600;

/// Where the links lead, also when nothing is there yet. There are no circles and no more links than the kernel
/// follows, unless somebody makes them at this moment.
std::string followLinks(std::string path)
{
    constexpr int mostLinks = 40; // as many as the kernel follows
    for (int i = 0; i < mostLinks; ++i) {
        std::error_code noLink;
        const std::filesystem::path inner = std::filesystem::read_symlink(path, noLink);
        if (noLink)
            break;
        path = std::filesystem::path(path).parent_path() / inner; // inner alone when it is absolute
    }
    return path;
}

bool isSameFile(const struct stat& status, const std::string& name)
{
    struct stat other {};
    return stat(name.c_str(), &other) == 0 && other.st_dev == status.st_dev && other.st_ino == status.st_ino;
}

/// The name with a random end, as short as a name must be.
std::string partNameFor(const std::string& name)
{
    std::array<char, 32> end{};
    std::snprintf(end.data(), end.size(), ".%016llx.part", rand64());
    const std::string_view endText = end.data();
    return name.substr(0, std::min(name.size(), NAME_MAX - endText.size())).append(endText);
}

} // namespace

COutputFile::COutputFile(const Path& path)
    : COutputFile(path, COptions())
{
}

COutputFile::COutputFile(const Path& path, const COptions& options)
    : m_path(path)
    , m_options(options)
    , m_startsWith(options.start)
{
    const std::string name = path.toBytes();
    if (name.find('\0') != std::string::npos)
        fail(EINVAL);
    struct stat status {};
    const bool exists = stat(name.c_str(), &status) == 0;
    if (!exists && errno == ELOOP)
        fail(ELOOP); // rather than put a file in the place of a link
    const std::string target = followLinks(name);
    if (m_options.readers == Readers::Owner && exists && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode))
        throw CError("The file '" + path.toString() + "' cannot be written: it is no regular file.");
    if (exists && (!S_ISREG(status.st_mode) || !isSameFile(status, target))) // or open, but without a name any more
        openAsItIs(name);
    else
        openPart(target);
}

COutputFile::~COutputFile()
{
    abandon();
}

void COutputFile::openAsItIs(const std::string& name)
{
    m_file = open(name.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC | O_NOCTTY);
    if (m_file < 0)
        fail(errno);
}

void COutputFile::openPart(const std::string& target)
{
    const size_t nameStart = target.rfind('/') + 1; // 0 without a folder
    m_folderName = target.substr(0, nameStart);
    m_targetName = target.substr(nameStart);
    if (m_targetName.empty())
        fail(target.empty() ? ENOENT : EISDIR);
    m_folder = open(m_folderName.empty() ? "." : m_folderName.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (m_folder < 0)
        fail(errno);
    const mode_t permissions = m_options.readers == Readers::Owner ? ownerOnly : 0666; // less the umask
    do {
        m_partName = partNameFor(m_targetName);
        m_file = openat(
            m_folder, m_partName.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY, permissions);
    } while (m_file < 0 && errno == EEXIST);
    if (m_file < 0) {
        const int error = errno;
        m_partName.clear(); // it is nobody's, or somebody else's
        abandon();
        fail(error);
    }
    try {
        keepAttributes();
        if (m_options.start == Start::OlderContent)
            copyOlder();
    } catch (const CError&) {
        abandon();
        throw;
    }
}

/// Those of an older file of that name, before anybody can read a byte that it kept to itself.
void COutputFile::keepAttributes()
{
    struct stat older {};
    if (fstatat(m_folder, m_targetName.c_str(), &older, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno != ENOENT)
            fail(errno);
        return;
    }
    if (faccessat(m_folder, m_targetName.c_str(), W_OK, AT_EACCESS) != 0)
        fail(errno);
    if (m_options.readers == Readers::Owner) // who is the one that writes, and not whom the older file belonged to
        return;
    constexpr auto unchanged = static_cast<uid_t>(-1);
    const bool hasGroup
        = fchown(m_file, older.st_uid, older.st_gid) == 0 || fchown(m_file, unchanged, older.st_gid) == 0;
    mode_t permissions = older.st_mode & 0777; // to run as somebody else is not inherited
    if (!hasGroup || !keepAccessList())        // another group may do no more than everybody
        permissions = (permissions & 0707) | (permissions & 07) << 3;
    if (fchmod(m_file, permissions) != 0)
        fail(errno);
}

/// The access list (acl(5)), where there is one: the mode tells then what the most favoured of several users and groups
/// may do, not what the group may.
/// @return false if the older file has one that this file cannot have
bool COutputFile::keepAccessList() const
{
    constexpr const char* attribute = "system.posix_acl_access";
    const std::string older = m_folderName + m_targetName;
    const ssize_t size = getxattr(older.c_str(), attribute, nullptr, 0);
    if (size <= 0) {                     // or none can be had here
        fremovexattr(m_file, attribute); // one that the folder gives to every new file
        return true;
    }
    std::string list(static_cast<size_t>(size), '\0');
    return getxattr(older.c_str(), attribute, list.data(), list.size()) == size
        && fsetxattr(m_file, attribute, list.data(), list.size(), 0) == 0;
}

/// Begins the empty part with what the older file holds.
void COutputFile::copyOlder()
{
    const int older = openat(m_folder, m_targetName.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY);
    if (older < 0) {
        if (errno != ENOENT)
            fail(errno);
        return;
    }
    constexpr size_t blockSize = 1 << 20;
    ssize_t count = 0;
    while ((count = sendfile(m_file, older, nullptr, blockSize)) > 0 || (count < 0 && errno == EINTR))
        m_start += std::max<ssize_t>(count, 0);
    const int errorNumber = errno;
    close(older);
    if (count < 0)
        fail(errorNumber);
    m_position = m_start;
    m_length = m_start;
}

int COutputFile::write(const unsigned char* data, int size)
{
    requireOpen();
    if (size <= 0)
        return 0;
    for (int written = 0; written < size;) {
        const ssize_t count = ::write(m_file, data + written, static_cast<size_t>(size - written));
        if (count < 0 && errno != EINTR)
            failForGood();
        written += static_cast<int>(std::max<ssize_t>(count, 0));
    }
    m_position += size;
    m_length = std::max(m_length, m_position);
    return size;
}

void COutputFile::seek(long long position)
{
    requireOpen();
    if (position == m_position)
        return;
    if (position < m_start || position > m_length)
        throw CError("There is no position " + toString(position) + " in the file '" + m_path.toString() + "'.");
    if (lseek(m_file, position, SEEK_SET) < 0)
        failForGood();
    m_position = position;
}

void COutputFile::restart()
{
    restart(m_options.start);
}

void COutputFile::restart(Start start)
{
    requireOpen();
    const bool hasNewStart = !m_partName.empty() && start != m_startsWith;
    const long long kept = hasNewStart ? 0 : m_start;
    if (m_length != kept && (ftruncate(m_file, kept) != 0 || lseek(m_file, kept, SEEK_SET) < 0))
        failForGood();
    m_start = kept;
    m_position = kept;
    m_length = kept;
    if (!hasNewStart)
        return;
    m_startsWith = start;
    if (start == Start::OlderContent)
        copyOlder();
}

void COutputFile::finish()
{
    requireOpen();
    if (!m_partName.empty() && fsync(m_file) != 0)
        failForGood();
    if (close(std::exchange(m_file, -1)) != 0 && errno != EINTR) // what a signal interrupts is closed all the same
        failForGood();
    if (!m_partName.empty() && renameat(m_folder, m_partName.c_str(), m_folder, m_targetName.c_str()) != 0)
        failForGood();
    m_partName.clear();
    abandon();
}

COutputFile::Path COutputFile::getPartPath() const
{
    return m_partName.empty() ? Path() : Path::fromBytes(m_folderName + m_partName);
}

void COutputFile::abandon() noexcept
{
    if (m_file >= 0)
        close(std::exchange(m_file, -1));
    if (!m_partName.empty())
        unlinkat(m_folder, m_partName.c_str(), 0);
    m_partName.clear();
    if (m_folder >= 0)
        close(std::exchange(m_folder, -1));
}

void COutputFile::requireOpen() const
{
    if (m_file < 0)
        throw CError("The file '" + m_path.toString() + "' is closed.");
}

/// As fail(), with the system's error; nothing of the file is left then.
void COutputFile::failForGood()
{
    const int errorNumber = errno;
    abandon();
    fail(errorNumber);
}

void COutputFile::fail(int errorNumber) const
{
    CProps props;
    props.set("systemError", toString(errorNumber));
    throw CError("The file '" + m_path.toString() + "' cannot be written: " + systemErrorText(errorNumber) + ".",
        String(), -1, props);
}

} // namespace kx
