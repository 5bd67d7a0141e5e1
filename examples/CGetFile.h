#pragma once

#include "examples/CGetTargets.h"
#include "examples/amounts.h"
#include "examples/exitCodes.h"
#include "examples/localFiles.h"
#include "kx/text/hex.h"
#include "norla/core/errorKind.h"
#include "norla/core/explain.h"
#include "norla/files/CFileDownload.h"
#include "sela/CDigest.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <vector>

/// How the program get fetches its files.
struct CGetSettings {
    norla::CFileDownloadOptions download;
    Path authority = {};     ///< empty: those that the system trusts
    kx::String key = {};     ///< the path of a private key; empty: none
    Path knownHosts = {};    ///< empty: the user's own
    bool skips = false;      ///< files that are there already
    bool takesNames = false; ///< that servers give
};

/// What the files of a run are called, each name once: no file takes the place of another one of the same run.
class CGetNames {
public:
    explicit CGetNames(const std::vector<CGetTarget>& targets)
    {
        for (const CGetTarget& target : targets)
            m_taken.insert(target.path);
    }

    /// @return whether it was free
    bool take(const std::filesystem::path& path) { return m_taken.insert(path).second; }

private:
    std::set<std::filesystem::path> m_taken;
};

/// A file that the program get fetches: what it is now, and what has become of it. Used by the main thread, while the
/// download runs on another one.
class CGetFile {
public:
    /// @param settings, names references are kept
    CGetFile(CGetTarget target, const CGetSettings& settings, CGetNames& names)
        : m_target(std::move(target))
        , m_settings(settings)
        , m_names(names)
        , m_name(m_target.path.filename().native())
    {
        norla::CFileDownloadOptions options = settings.download;
        options.sha256 = m_target.sha256;
        m_download = kx::newObj<norla::CFileDownload>([this](norla::CNetRequest& request) { prepare(request); },
            Path::fromBytes(m_target.path.native()), options);
    }
    CGetFile(const CGetFile&) = delete;
    CGetFile& operator=(const CGetFile&) = delete;

    norla::CFileDownload& download() const { return *m_download; }
    kx::String name() const { return shownPath(m_name); }

    /// Whether there is nothing to fetch: something of that name is there, and that is all right, or an error.
    bool isSettled()
    {
        std::error_code unknown; // the download has better words
        const auto status = std::filesystem::symlink_status(m_target.path, unknown);
        if (unknown || !std::filesystem::exists(status))
            return false;
        if (std::filesystem::is_directory(status))
            m_error = fileError("The file '" + place() + "' cannot be written", EISDIR).clone();
        else if (!m_settings.download.overwrite)
            judgeWhatIsThere();
        else
            return false;
        m_hasEnded = true;
        return true;
    }

    /// Takes note of the end of the download, once.
    /// @return whether it has ended since the last call
    bool takeEnd()
    {
        if (m_hasEnded || m_download->getState() < norla::FileState::Succeeded)
            return false;
        m_hasEnded = true;
        m_error = m_download->getError();
        if (!m_error && m_settings.takesNames)
            takeSuggestedName();
        return true;
    }

    bool hasEnded() const { return m_hasEnded; }
    bool isHere() const { return m_hasEnded && !m_error; }
    bool isCancelled() const { return m_download->getState() == norla::FileState::Cancelled; }

    /// Whether something has come that the next run goes on with.
    bool hasPart() const
    {
        std::error_code unknown;
        return !isHere() && std::filesystem::exists(m_target.path.native() + ".norla-record", unknown);
    }

    /// The end of it in a line.
    kx::String report() const
    {
        const norla::CFileProgress progress = m_download->getProgress();
        const auto done = asText(shownSize(static_cast<double>(progress.done)));
        if (isHere() && m_wasThere)
            return name() + ": is there already";
        if (isHere() && progress.moved < progress.done)
            return name() + ": " + done + ", " + asText(shownSize(static_cast<double>(progress.moved))) + " of it now";
        if (isHere())
            return name() + ": " + done;
        const kx::String reason = isCancelled() ? name() + ": not whole" : norla::explain(*m_error);
        return hasPart() ? reason + " (" + done + " kept)" : reason;
    }

    /// exitDone for a file that is here.
    ExitCode exitCode() const
    {
        if (!m_error)
            return exitDone;
        return m_error->getProps().has("systemError") ? exitLocalFile : exitCodeOf(*m_error);
    }

private:
    static kx::String asText(const std::string& ascii) { return kx::String::fromLatin1(ascii); }

    kx::String place() const { return shownPath(m_target.path.native()); }

    /// On the thread of the download.
    void prepare(norla::CNetRequest& request) const
    {
        m_target.address.applyTo(request);
        if (!m_settings.authority.isEmpty())
            request.setRootCertBundlePath(m_settings.authority);
        if (!m_settings.key.isEmpty())
            request.setOptionString(CURLOPT_SSH_PRIVATE_KEYFILE, m_settings.key);
        if (!m_settings.knownHosts.isEmpty())
            request.setSSHKnownHostsPath(m_settings.knownHosts);
    }

    /// Only a digest proves that it is what was asked for; who says --skip believes it without.
    void judgeWhatIsThere()
    {
        m_wasThere = true;
        if (m_target.sha256.isEmpty() && !m_settings.skips)
            m_error = kx::newObj<kx::CError>(
                "The file '" + place() + "' is there already: --overwrite replaces it, --skip leaves it", "file");
        else if (!m_target.sha256.isEmpty() && digestOfWhatIsThere() != m_target.sha256.toLower())
            m_error = kx::newObj<kx::CError>(
                "The file '" + place() + "' is there already, and is not the one with that digest", "file");
    }

    kx::String digestOfWhatIsThere() const
    {
        sela::CDigest digest("SHA256");
        std::ifstream file(m_target.path, std::ios::binary);
        std::array<char, 1 << 16> block{};
        while (file.read(block.data(), block.size()), file.gcount() > 0)
            digest.update(block.data(), static_cast<size_t>(file.gcount()));
        digest.finish();
        return kx::hexEncode({reinterpret_cast<const char*>(digest.getBytes()), digest.getLength()});
    }

    void takeSuggestedName()
    {
        const std::string name = m_download->getSuggestedName().toUTF8();
        if (name.empty() || name == m_name)
            return;
        const auto renamed = m_target.path.parent_path() / name;
        const unsigned flags = m_settings.download.overwrite ? 0 : RENAME_NOREPLACE;
        int error = EEXIST;
        if (m_names.take(renamed))
            error = renameat2(AT_FDCWD, m_target.path.c_str(), AT_FDCWD, renamed.c_str(), flags) == 0 ? 0 : errno;
        if (error == 0)
            m_name = name;
        else
            m_error = fileError("The file '" + place() + "' has come, but cannot have the name '" + shownPath(name)
                    + "' that the server gives it",
                error)
                          .clone();
    }

    CGetTarget m_target;
    const CGetSettings& m_settings;
    CGetNames& m_names;
    std::string m_name;
    kx::P<norla::CFileDownload> m_download;
    kx::P<kx::CError> m_error;
    bool m_hasEnded = false;
    bool m_wasThere = false;
};
