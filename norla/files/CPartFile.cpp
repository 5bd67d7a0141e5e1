#include "norla/files/CPartFile.h"

#include "kx/base/CError.h"
#include "kx/base/systemErrorText.h"
#include "kx/text/hex.h"
#include "kx/text/numbers.h"
#include "sela/CDigest.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <fcntl.h>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace norla {

namespace {

constexpr std::string_view partEnd = ".norla-part";
constexpr std::string_view recordEnd = ".norla-record";
constexpr std::string_view newRecordEnd = ".new";
constexpr size_t longestRecord = 1 << 20;
constexpr mode_t ownersAlone = S_IRUSR | S_IWUSR;
constexpr mode_t everybodys = 0666; // less the umask

/// The name as it stands before the ends. Where there is no room for these, a beginning of it and a digest: it must be
/// the same one every time.
std::string stemOf(const std::string& name)
{
    constexpr size_t longestStem = NAME_MAX - recordEnd.size() - newRecordEnd.size();
    if (name.size() <= longestStem)
        return name;
    sela::CDigest digest("SHA256");
    digest.update(name.data(), name.size());
    digest.finish();
    constexpr size_t bytes = 16;
    const std::string end = '.' + kx::hexEncode({reinterpret_cast<const char*>(digest.getBytes()), bytes}).toUTF8();
    return name.substr(0, longestStem - end.size()) + end;
}

/// Closes on the way out.
class COpenFile {
public:
    explicit COpenFile(int file) noexcept
        : m_file(file)
    {
    }
    COpenFile(const COpenFile&) = delete;
    COpenFile& operator=(const COpenFile&) = delete;
    ~COpenFile()
    {
        if (m_file >= 0)
            close(m_file);
    }
    int get() const noexcept { return m_file; }

private:
    const int m_file;
};

bool writeAll(int file, const unsigned char* data, size_t size, long long position)
{
    for (size_t written = 0; written < size;) {
        const ssize_t count = pwrite(file, data + written, size - written, position + static_cast<long long>(written));
        if (count < 0 && errno != EINTR)
            return false;
        written += static_cast<size_t>(std::max<ssize_t>(count, 0));
    }
    return true;
}

/// @return bytes, fewer than asked for at the file's end only; -1 behind an error
ssize_t readAll(int file, unsigned char* data, size_t size, long long position)
{
    size_t done = 0;
    while (done < size) {
        const ssize_t count = pread(file, data + done, size - done, position + static_cast<long long>(done));
        if (count < 0 && errno != EINTR)
            return -1;
        if (count == 0)
            break;
        done += static_cast<size_t>(std::max<ssize_t>(count, 0));
    }
    return static_cast<ssize_t>(done);
}

} // namespace

CPartFile::CPartFile(const Path& path, bool isPrivate)
    : m_path(path)
    , m_isPrivate(isPrivate)
{
    const std::string name = path.toBytes();
    if (name.find('\0') != std::string::npos)
        fail(EINVAL);
    const size_t nameStart = name.rfind('/') + 1; // 0 without a folder
    m_name = name.substr(nameStart);
    if (m_name.empty() || m_name == "." || m_name == "..")
        fail(name.empty() ? ENOENT : EISDIR);
    if (m_name.size() > NAME_MAX) // which would be noticed once all is there
        fail(ENAMETOOLONG);
    m_partName = stemOf(m_name).append(partEnd);
    m_recordName = stemOf(m_name).append(recordEnd);
    const std::string folder = nameStart == 0 ? "." : name.substr(0, nameStart);
    m_folder = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (m_folder < 0)
        fail(errno);
    try {
        lock();
        if (m_isPrivate && fchmod(m_file, ownersAlone) != 0) // of an older part
            fail(errno);
    } catch (const kx::CError&) {
        if (m_file >= 0)
            close(m_file);
        close(m_folder);
        throw;
    }
}

CPartFile::~CPartFile()
{
    if (m_file >= 0) {
        flock(m_file, LOCK_UN); // a child process that was forked meanwhile may have it, too
        close(m_file);
    }
    close(m_folder);
}

/// Who had the file before may give it its name, or remove it, between our two calls.
void CPartFile::lock()
{
    for (;;) {
        m_file = openOwn(m_partName, O_RDWR | O_CREAT);
        if (m_file < 0)
            fail(errno);
        const bool isLocked = flock(m_file, LOCK_EX | LOCK_NB) == 0;
        const int lockError = errno;
        if (isLocked && isStillNamed())
            return;
        close(std::exchange(m_file, -1));
        if (!isLocked && lockError == EWOULDBLOCK)
            throw kx::CError("The file '" + m_path.toString() + "' is being written by another transfer.");
        if (!isLocked && lockError != EINTR)
            fail(lockError);
    }
}

/// What somebody else has put there under the name would be written for him, or read from him.
int CPartFile::openOwn(const std::string& name, int flags) const
{
    const int file = openat(m_folder, name.c_str(), flags | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY | O_NONBLOCK,
        m_isPrivate ? ownersAlone : everybodys);
    if (file < 0)
        return -1;
    struct stat status {};
    if (fstat(file, &status) == 0 && S_ISREG(status.st_mode) && status.st_nlink <= 1 && status.st_uid == geteuid())
        return file;
    close(file);
    throw kx::CError("The file '" + m_path.toString() + "' cannot be written: what is called '"
        + Path::fromBytes(name).toString() + "' beside it is no file of this user alone.");
}

bool CPartFile::isStillNamed() const noexcept
{
    struct stat ours {};
    struct stat named {};
    return fstat(m_file, &ours) == 0 && fstatat(m_folder, m_partName.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0
        && named.st_dev == ours.st_dev && named.st_ino == ours.st_ino;
}

/// Somebody may have removed it, and somebody else may write another one under its name by now.
void CPartFile::requireStillNamed() const
{
    if (!isStillNamed())
        throw kx::CError("The file '" + m_path.toString() + "' cannot be written: its part '"
            + Path::fromBytes(m_partName).toString() + "' was taken away meanwhile.");
}

bool CPartFile::isTaken() const
{
    struct stat status {};
    return fstatat(m_folder, m_name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
}

void CPartFile::requireReplaceable() const
{
    struct stat status {};
    if (fstatat(m_folder, m_name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        return;
    if (S_ISDIR(status.st_mode))
        fail(EISDIR);
    if (!S_ISREG(status.st_mode) && !S_ISLNK(status.st_mode)) // root would replace /dev/null for everybody
        throw kx::CError("The file '" + m_path.toString() + "' cannot be written: what has that name is no file.");
}

void CPartFile::write(long long position, const unsigned char* data, size_t size)
{
    if (!writeAll(m_file, data, size, position))
        fail(errno);
}

size_t CPartFile::read(long long position, unsigned char* data, size_t size) const
{
    const ssize_t count = readAll(m_file, data, size, position);
    if (count < 0)
        fail(errno);
    return static_cast<size_t>(count);
}

long long CPartFile::getSize() const
{
    struct stat status {};
    if (fstat(m_file, &status) != 0)
        fail(errno);
    return status.st_size;
}

void CPartFile::truncate(long long size)
{
    if (ftruncate(m_file, size) != 0)
        fail(errno);
}

void CPartFile::reserve(long long size)
{
    if (size <= 0 || fallocate(m_file, FALLOC_FL_KEEP_SIZE, 0, size) == 0)
        return;
    if (errno == ENOSPC || errno == EFBIG || errno == EDQUOT)
        fail(errno);
}

void CPartFile::releaseReserve()
{
    truncate(getSize());
}

void CPartFile::sync()
{
    syncWith(&fdatasync);
}

/// The system tells once that it has lost bytes: no later success proves that they are there.
void CPartFile::syncWith(int (*function)(int))
{
    if (m_syncError == 0 && function(m_file) != 0)
        m_syncError = errno;
    if (m_syncError != 0)
        fail(m_syncError);
}

std::optional<std::string> CPartFile::readRecord() const
{
    const COpenFile file(openOwn(m_recordName, O_RDONLY));
    if (file.get() < 0) {
        if (errno == ENOENT)
            return std::nullopt;
        fail(errno);
    }
    std::string text(longestRecord + 1, '\0');
    const ssize_t count = readAll(file.get(), reinterpret_cast<unsigned char*>(text.data()), text.size(), 0);
    if (count < 0)
        fail(errno);
    text.resize(static_cast<size_t>(count));
    return count > static_cast<ssize_t>(longestRecord) ? std::nullopt : std::optional(std::move(text));
}

void CPartFile::writeRecord(const std::string& text)
{
    requireStillNamed();
    const std::string newName = m_recordName + std::string(newRecordEnd);
    unlinkat(m_folder, newName.c_str(), 0); // left by a process that was killed
    {
        const COpenFile file(openOwn(newName, O_WRONLY | O_CREAT | O_EXCL));
        if (file.get() < 0 || !writeAll(file.get(), reinterpret_cast<const unsigned char*>(text.data()), text.size(), 0)
            || fdatasync(file.get()) != 0)
            failWithout(newName);
    }
    if (renameat(m_folder, newName.c_str(), m_folder, m_recordName.c_str()) != 0)
        failWithout(newName);
}

void CPartFile::failWithout(const std::string& name) const
{
    const int error = errno;
    unlinkat(m_folder, name.c_str(), 0);
    fail(error);
}

void CPartFile::removeRecord()
{
    requireStillNamed();
    if (unlinkat(m_folder, m_recordName.c_str(), 0) != 0) {
        if (errno == ENOENT)
            return;
        fail(errno);
    }
    syncFolder();
}

void CPartFile::finish(const CAttributes& attributes, bool replaces)
{
    if (attributes.permissions && fchmod(m_file, *attributes.permissions) != 0)
        fail(errno);
    if (attributes.modified) {
        const timespec time{*attributes.modified, 0};
        const std::array<timespec, 2> times{time, time};
        if (futimens(m_file, times.data()) != 0)
            fail(errno);
    }
    syncWith(&fsync);
    requireStillNamed();
    giveName(replaces);
    syncFolder();
    unlinkRecords(); // they say nothing any more: their part is gone
}

void CPartFile::unlinkRecords() noexcept
{
    unlinkat(m_folder, m_recordName.c_str(), 0);
    try {
        unlinkat(m_folder, (m_recordName + std::string(newRecordEnd)).c_str(), 0);
    } catch (const std::bad_alloc&) { // the next one sees to it
    }
}

void CPartFile::giveName(bool replaces)
{
    const auto rename = [this](unsigned flags) {
        return renameat2(m_folder, m_partName.c_str(), m_folder, m_name.c_str(), flags) == 0;
    };
    if (rename(replaces ? 0 : RENAME_NOREPLACE))
        return;
    if (replaces || errno != EINVAL)
        fail(errno);
    if (isTaken()) // a file system that cannot do both at once
        fail(EEXIST);
    if (!rename(0))
        fail(errno);
}

void CPartFile::remove() noexcept
{
    if (!isStillNamed())
        return;
    unlinkRecords();
    unlinkat(m_folder, m_partName.c_str(), 0);
}

void CPartFile::syncFolder() const
{
    if (fsync(m_folder) != 0 && errno != EINVAL && errno != EROFS) // not every file system can
        fail(errno);
}

void CPartFile::fail(int errorNumber) const
{
    kx::CProps props;
    props.set("systemError", kx::toString(errorNumber));
    throw kx::CError(
        "The file '" + m_path.toString() + "' cannot be written: " + kx::systemErrorText(errorNumber) + ".",
        kx::String(), -1, props);
}

} // namespace norla
