#include "kx/files/readWholeFile.h"

#include "kx/base/CError.h"
#include "kx/base/systemErrorText.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kx {

namespace {

using Path = TPathImpl<CUnixPathTraits>;

[[noreturn]] void fail(const Path& path, const String& reason)
{
    throw CError("The file '" + path.toString() + "' cannot be read: " + reason + ".");
}

class CDescriptor {
public:
    explicit CDescriptor(int number) noexcept
        : m_number(number)
    {
    }
    CDescriptor(const CDescriptor&) = delete;
    CDescriptor& operator=(const CDescriptor&) = delete;
    ~CDescriptor()
    {
        if (m_number >= 0)
            close(m_number);
    }

    int get() const noexcept { return m_number; }

private:
    const int m_number;
};

void requireRegular(const Path& path, int file)
{
    struct stat status {};
    if (fstat(file, &status) != 0)
        fail(path, systemErrorText(errno));
    if (S_ISDIR(status.st_mode))
        fail(path, systemErrorText(EISDIR));
    if (!S_ISREG(status.st_mode))
        fail(path, "it is no regular file");
}

std::string readAll(const Path& path, int file, size_t most)
{
    constexpr size_t blockSize = 16 << 10;
    std::string bytes;
    for (;;) {
        const size_t end = bytes.size();
        bytes.resize(end + blockSize);
        const ssize_t count = read(file, bytes.data() + end, blockSize);
        const int errorNumber = errno;
        bytes.resize(end + static_cast<size_t>(count > 0 ? count : 0));
        if (count == 0)
            return bytes;
        if (count < 0 && errorNumber != EINTR)
            fail(path, systemErrorText(errorNumber));
        if (bytes.size() > most)
            fail(path, "it is too large");
    }
}

} // namespace

std::optional<std::string> readWholeFileIfThere(const Path& path, size_t most)
{
    const std::string name = path.toBytes();
    if (name.find('\0') != std::string::npos)
        fail(path, systemErrorText(EINVAL));
    const CDescriptor file(open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    if (file.get() < 0 && errno == ENOENT)
        return std::nullopt;
    if (file.get() < 0)
        fail(path, systemErrorText(errno));
    requireRegular(path, file.get());
    return readAll(path, file.get(), most);
}

std::string readWholeFile(const Path& path, size_t most)
{
    std::optional<std::string> bytes = readWholeFileIfThere(path, most);
    if (!bytes)
        fail(path, systemErrorText(ENOENT));
    return *std::move(bytes);
}

} // namespace kx
