#pragma once

#include "kx/base/CBase.h"
#include "kx/files/CUnixPathTraits.h"
#include "kx/files/TPathImpl.h"
#include "kx/streams/IOutStream.h"

#include <string>

namespace kx {

/// A file that is written anew and appears under its name whole or not at all. What is written goes to a file beside
/// it, whose random name nobody else can have taken; finish() gives it the name. Until then an older file of that name
/// is untouched, and it stays when finish() is never called: the destructor removes what was written.
///
/// Links are followed: the file that they lead to is replaced. The older file's permissions are kept, those of single
/// users too (acl(5)), and its owner and group where the process may give them; other hard links to it keep the older
/// content. A new file gets the permissions that the process's umask leaves. What exists and is no regular file (a
/// device, a pipe, a terminal) is never replaced: it is written to as it is, at once.
///
/// Used by one thread at a time. Errors are CError and name the path and the reason; of those that the system tells,
/// the property "systemError" is its number (errno) in decimal.
class KX_EXPORT COutputFile : public CBase, public virtual IOutStream {
public:
    using Path = TPathImpl<CUnixPathTraits>;

    /// What a new file begins with, and who may read it.
    enum class Start { Empty, OlderContent };
    enum class Readers { Everybody, Owner };
    /// How a file is made. A value.
    struct COptions {
        /// OlderContent: the file goes on behind what an older one of its name holds, which is copied.
        Start start = Start::Empty;
        /// Everybody: whom the umask and an older file allow. Owner: nobody but the user who
        /// writes, also where an older file was open to others or was theirs; what is no regular file is refused.
        Readers readers = Readers::Everybody;
    };

    /// Makes the file beside, or opens what is no regular file, which for a pipe waits for somebody who reads.
    /// @throws CError when that is not possible: a directory, an older file that must not be written, a folder that is
    /// not there or takes no file
    explicit COutputFile(const Path& path);
    COutputFile(const Path& path, const COptions& options);
    COutputFile(const COutputFile&) = delete;
    COutputFile& operator=(const COutputFile&) = delete;
    ~COutputFile() override;

    /// Takes all bytes; none when the size is below 0. @throws CError; the file is closed and removed then, and takes
    /// nothing any more
    int write(const unsigned char* data, int size) override;

    /// The bytes that the file will have.
    long long getLength() override { return m_length; }

    /// @param position getLength() at most, at least that of the older content with which the file began
    /// @throws CError on another position, and when the file cannot seek, which closes it
    void seek(long long position) override;
    long long getPosition() override { return m_position; }

    /// Forgets what was written, and begins anew: as at first, or with another start. @throws CError when the file
    /// cannot seek and bytes have gone out, which closes it; when the older content cannot be copied
    void restart();
    void restart(Start start);

    /// Sees that all bytes are on the disk, and gives the file its name. What is no regular file is closed.
    /// @throws CError when that fails, or was done before; what was written is removed then, and the older file stays
    void finish();

    /// As given.
    const Path& getPath() const noexcept { return m_path; }

    /// What is being written, for programs that end by a signal and remove it themselves. Empty when nothing has to be
    /// removed: behind finish(), and for what is no regular file.
    Path getPartPath() const;

private:
    void openAsItIs(const std::string& name);
    void openPart(const std::string& target);
    void keepAttributes();
    void copyOlder();
    bool keepAccessList() const;
    void abandon() noexcept;
    void requireOpen() const;
    [[noreturn]] void failForGood();
    [[noreturn]] void fail(int errorNumber) const;

    const Path m_path;
    const COptions m_options;
    Start m_startsWith;
    long long m_start = 0; // how much older content there is
    long long m_length = 0;
    long long m_position = 0;
    int m_file = -1;
    int m_folder = -1;        // of the part, which is found there even if the folder is moved
    std::string m_folderName; // with its "/", or empty
    std::string m_targetName; // what the part is to be called; empty when there is no part
    std::string m_partName;
};

} // namespace kx
