#pragma once

#include "kx/base/CBase.h"
#include "norla/core/CNetRequest.h"

#include <optional>
#include <string>
#include <sys/types.h>

namespace norla {

/// A file that is not whole yet, beside the place that it is to have: NAME.norla-part, and a text about it that
/// survives with it: NAME.norla-record. One process at a time has it. Both are found in their folder even when that is
/// moved. What of older ones is there stays until somebody truncates or removes it.
///
/// Where the part was removed or replaced meanwhile, texts and name are an error, and what is there now stays.
///
/// read() and write() may be called by several threads at once, for different bytes. Errors are kx::CError and name the
/// path and the reason; the property "systemError" is the system's number of it (errno).
class CPartFile {
public:
    using Path = CNetRequest::Path;

    /// @param path of the whole file; links are not followed
    /// @param isPrivate whether nobody else may read what is there, from now on: only finish() gives it permissions
    /// @throws also when somebody else has it, and where the parts are not ours
    explicit CPartFile(const Path& path, bool isPrivate = false);
    CPartFile(const CPartFile&) = delete;
    CPartFile& operator=(const CPartFile&) = delete;
    ~CPartFile(); ///< leaves the files as they are

    const Path& getPath() const noexcept { return m_path; }

    /// Whether something has the name already that the whole file is to have.
    bool isTaken() const;

    /// @throws where it is a folder, a device, a pipe or a socket, which no file takes the place of
    void requireReplaceable() const;

    void write(long long position, const unsigned char* data, size_t size);

    /// @return how many bytes were read, fewer than asked for at the end only
    size_t read(long long position, unsigned char* data, size_t size) const;

    long long getSize() const;
    void truncate(long long size);

    /// Sees that there is room for so many bytes, where the file system can tell.
    void reserve(long long size);

    /// What was reserved behind its end is room for others again.
    void releaseReserve();

    /// All that was written is on the disk behind it. Behind a failure it fails for ever, and so does finish().
    void sync();

    /// The text beside it. @return empty when there is none, or an enormous one
    std::optional<std::string> readRecord() const;

    /// Replaces it, all or nothing.
    void writeRecord(const std::string& text);

    /// Once it has returned, no text of before can come back.
    void removeRecord();

    struct CAttributes {
        std::optional<mode_t> permissions;
        std::optional<long long> modified; ///< seconds since 1970
    };

    /// Syncs the file, gives it the name, and removes the text.
    /// @param replaces false: where something has the name already that is an error, and stays
    void finish(const CAttributes& attributes, bool replaces);

    /// Removes both, unless somebody has put another part in the place of this one.
    void remove() noexcept;

private:
    void lock();
    bool isStillNamed() const noexcept;
    void requireStillNamed() const;
    void unlinkRecords() noexcept;
    int openOwn(const std::string& name, int flags) const;
    void giveName(bool replaces);
    void syncWith(int (*function)(int));
    void syncFolder() const;
    [[noreturn]] void fail(int errorNumber) const;
    [[noreturn]] void failWithout(const std::string& name) const; // with errno

    const Path m_path;
    const bool m_isPrivate;
    std::string m_name; // in its folder
    std::string m_partName;
    std::string m_recordName;
    int m_folder = -1;
    int m_file = -1;
    int m_syncError = 0; // of the first one that has failed
};

} // namespace norla
