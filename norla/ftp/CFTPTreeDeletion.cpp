#include "norla/ftp/CFTPTreeDeletion.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/text/CStringFormat.h"
#include "kx/text/numbers.h"
#include "norla/core/CCURLError.h"
#include "norla/core/CNetStringList.h"
#include "norla/ftp/CFTPClient.h"
#include "norla/ftp/tokens.h"

#include <algorithm>
#include <string>
#include <string_view>

namespace norla {

namespace {

constexpr size_t maxPathSize = 4096; // in characters; PATH_MAX of Linux

[[noreturn]] void throwBadPath(const kx::String& what, const kx::String& path)
{
    throw kx::CInvalidArgError(what + ": '" + path + "'", "CFTPClient::deleteDirWithAllContents");
}

void checkTopDir(const kx::String& path)
{
    forEachField(path.toWide(), L'/', [&path](std::wstring_view part) {
        if (part == L"." || part == L"..")
            throwBadPath("the path of a directory to delete must not have parts '.' and '..'", path);
    });
    if (!path.startsWith("/")) // in a URL it would be a part of the host
        throwBadPath("the path of a directory to delete must begin with '/'", path);
}

// Of an entry in a directory. The others lead out of it or around in it, whatever type a server gives them.
bool isNameWithin(const kx::String& name)
{
    return !name.isEmpty() && name != "." && name != ".." && name.find(L'/') == kx::String::npos
        && name.find(L'\\') == kx::String::npos; // some servers take it for a "/"
}

/// Whether the server had an answer for a listing, and it was no.
bool isRefusal(const CCURLError& error)
{
    return error.getDomain() == "curl"
        && (error.getCode() == CURLE_FTP_COULDNT_RETR_FILE || error.getCode() == CURLE_REMOTE_ACCESS_DENIED);
}

/// The text that a person can be shown for bytes of any kind.
kx::String shown(const std::string& bytes)
{
    try {
        return kx::String::fromUTF8(bytes);
    } catch (const kx::CError&) {
        kx::String text;
        for (const char byte : bytes) {
            if (byte >= ' ' && byte <= '~')
                text += kx::String::fromLatin1({&byte, 1});
            else
                text += kx::CStringFormat("\\x%02X", static_cast<unsigned>(static_cast<unsigned char>(byte)));
        }
        return text;
    }
}

} // namespace

CFTPTreeDeletion::CFTPTreeDeletion(CFTPClient& client, CNetRequest& request, const kx::String& topDir)
    : m_client(client)
    , m_request(request)
    , m_topDir(topDir)
{
    checkTopDir(topDir);
}

void CFTPTreeDeletion::run()
{
    if (!deleteDir(m_topDir, *listTop()))
        m_unreadable->throwClone();
}

/// A path in a URL leads on from the directory of the login, one in a command from the root: where these differ, so do
/// the listed directory and the one to delete, and only the second counts.
kx::P<CFTPListDirResult> CFTPTreeDeletion::listTop()
{
    auto listing = isPlain(m_topDir) ? listFromLogin(m_topDir) : nullptr;
    return listing ? listing : listFromRoot(m_topDir);
}

kx::P<CFTPListDirResult> CFTPTreeDeletion::list(const kx::String& dir)
{
    auto listing = isListedFromRoot() && isPlain(dir) ? listFromLogin(dir) : nullptr;
    return listing ? listing : listFromRoot(dir);
}

/// @return null when it was another directory, or one that nobody knows
kx::P<CFTPListDirResult> CFTPTreeDeletion::listFromLogin(const kx::String& dir)
{
    m_client.prepareListDirRequest(m_request, dir);
    try {
        m_request.perform();
        noteLogin();
    } catch (const CCURLError& error) {
        noteLogin();
        if (isListedFromRoot() || !isRefusal(error))
            throw;
    }
    return isListedFromRoot() ? m_client.readListing(m_request) : nullptr;
}

kx::P<CFTPListDirResult> CFTPTreeDeletion::listFromRoot(const kx::String& dir)
{
    auto listing = m_client.listDir(m_request, "/" + escaped(dir)); // libcurl takes "//" in a URL for the root
    noteLogin();
    return listing;
}

/// Whether the path can stand in a URL as it is.
bool CFTPTreeDeletion::isPlain(const kx::String& dir)
{
    return escaped(dir) == (dir.endsWith("/") ? dir : dir + "/");
}

/// For a URL, in which a name then means what it does in a command. With a "/" at the end.
kx::String CFTPTreeDeletion::escaped(const kx::String& dir)
{
    kx::String path;
    forEachField(dir.toWide(), L'/', [this, &path](std::wstring_view part) {
        if (!part.empty())
            path += m_request.urlEscape(kx::String(std::wstring(part)));
        path += "/";
    });
    return path;
}

bool CFTPTreeDeletion::isListedFromRoot() const
{
    return m_topDir.startsWith("//") || m_isLoginAtRoot;
}

/// Any transfer can come over a new connection, when the server has closed the one before, and that may begin
/// elsewhere. What libcurl itself remembers of answers to PWD (CURLINFO_FTP_ENTRY_PATH) may be of other connections.
void CFTPTreeDeletion::noteLogin()
{
    for (const auto line = m_request.getResponseInfo()->createIterator(); line->next();) {
        const kx::String reply = line->getCurrent();
        if (reply.startsWith("257 ")) { // a quote mark within a name is doubled (RFC 959 appendix II)
            const kx::String path = reply.substr(std::min(reply.find(L'"'), reply.size()));
            m_isLoginAtRoot = path.startsWith(R"("/")") && !path.startsWith(R"("/"")");
        } else if (reply.startsWith("220") || reply.startsWith("230")) {
            m_isLoginAtRoot = false;
        }
    }
}

/// @return whether the directory is gone; if not, it has lines that could not be read
bool CFTPTreeDeletion::deleteDir(const kx::String& dir, const CFTPListDirResult& listing)
{
    bool isEmpty = hasAllEntries(dir, listing);
    for (const auto& entry : listing.getEntries()) {
        const kx::String& name = entry->getName();
        if (!isNameWithin(name))
            continue;
        const kx::String child = dir + "/" + name;
        if (entry->getType() == CFTPDirEntry::TypeFile)
            deleteFile(child);
        else if (entry->getType() == CFTPDirEntry::TypeDir)
            isEmpty = deleteSubDir(child) && isEmpty;
    }
    if (isEmpty)
        removeDir(dir);
    return isEmpty;
}

void CFTPTreeDeletion::deleteFile(const kx::String& path)
{
    m_client.deleteFile(m_request, path);
    noteLogin();
}

void CFTPTreeDeletion::removeDir(const kx::String& dir)
{
    m_client.removeDir(m_request, dir);
    noteLogin();
}

bool CFTPTreeDeletion::deleteSubDir(const kx::String& dir)
{
    // A server that answers every listing with one more directory would lead down without end.
    if (dir.size() > m_topDir.size() + maxPathSize)
        throw kx::CError("FTP directory is nested deeper than " + kx::toString(maxPathSize) + " characters: '"
            + dir.substr(0, 100) + "...'.");
    return deleteDir(dir, *list(dir));
}

bool CFTPTreeDeletion::hasAllEntries(const kx::String& dir, const CFTPListDirResult& listing)
{
    if (listing.getUnreadableLines().empty())
        return true;
    if (!m_unreadable)
        m_unreadable = kx::newObj<kx::CError>("FTP directory '" + dir
            + "' was not deleted: its listing has a line that cannot be read: '"
            + shown(listing.getUnreadableLines().front()) + "'.");
    return false;
}

} // namespace norla
