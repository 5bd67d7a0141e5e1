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

constexpr size_t maxDepth = 4096; // in characters; PATH_MAX of Linux

[[noreturn]] void throwBadPath(const kx::String& what, const kx::String& path)
{
    throw kx::CInvalidArgError(what + ": '" + path + "'", "CFTPClient::deleteDirWithAllContents");
}

void checkPath(const kx::String& path)
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
    return !name.isEmpty() && name != "." && name != ".." && name.find(L'/') == kx::String::npos;
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
    checkPath(topDir);
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
    m_client.prepareListDirRequest(m_request, m_topDir);
    try {
        m_request.perform();
        m_listsFromRoot = !isTopListedFromRoot();
    } catch (const CCURLError& error) {
        m_listsFromRoot = isRefusal(error) && !isTopListedFromRoot();
        if (!m_listsFromRoot)
            throw;
    }
    return m_listsFromRoot ? list(m_topDir) : m_client.readListing(m_request);
}

kx::P<CFTPListDirResult> CFTPTreeDeletion::list(const kx::String& dir)
{
    return m_client.listDir(m_request, m_listsFromRoot ? "/" + dir : dir); // libcurl takes "//" in a URL for the root
}

bool CFTPTreeDeletion::isTopListedFromRoot()
{
    return m_topDir.startsWith("//") || isLoginAtRoot();
}

/// Known from the answer to PWD of a connection that was opened for this transfer alone: what libcurl remembers
/// (CURLINFO_FTP_ENTRY_PATH) may have been answered on another connection.
bool CFTPTreeDeletion::isLoginAtRoot()
{
    for (const auto line = m_request.getResponseInfo()->createIterator(); line->next();) {
        const kx::String reply = line->getCurrent();
        if (!reply.startsWith("257 "))
            continue;
        const kx::String path = reply.substr(std::min(reply.find(L'"'), reply.size()));
        return path.startsWith(R"("/")") && !path.startsWith(R"("/"")"); // a quote mark within is doubled (RFC 959)
    }
    return false;
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
            m_client.deleteFile(m_request, child);
        else if (entry->getType() == CFTPDirEntry::TypeDir)
            isEmpty = deleteSubDir(child) && isEmpty;
    }
    if (isEmpty)
        m_client.removeDir(m_request, dir);
    return isEmpty;
}

bool CFTPTreeDeletion::deleteSubDir(const kx::String& dir)
{
    // A server that answers every listing with one more directory would lead down without end.
    if (dir.size() > m_topDir.size() + maxDepth)
        throw kx::CError("FTP directory is nested deeper than " + kx::toString(maxDepth) + " characters: '"
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
