#include "norla/ftp/CFTPDirWalk.h"

#include "kx/base/CInvalidArgError.h"
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

constexpr char function[] = "CFTPClient::createDirs";

void checkPath(const kx::String& path)
{
    if (path.isEmpty())
        throw kx::CInvalidArgError("the path is empty", function);
    const std::wstring& text = path.toWide();
    if (std::any_of(text.begin(), text.end(), [](wchar_t character) { return character < L' ' || character == 0x7f; }))
        throw kx::CInvalidArgError("control character in the path: '" + path + "'", function);
}

/// "/a" and "/a/b" for "/a//b/", "/" for the root alone.
kx::TArray<kx::String> dirsOnTheWay(const kx::String& path)
{
    kx::TArray<kx::String> dirs;
    kx::String dir;
    if (path.startsWith("/"))
        dir = "/";
    forEachField(path.toWide(), L'/', [&dirs, &dir](std::wstring_view part) {
        if (part.empty())
            return;
        if (!dir.isEmpty() && !dir.endsWith("/"))
            dir += "/";
        dir += kx::String(std::wstring(part));
        dirs.push_back(dir);
    });
    if (dirs.empty())
        dirs.push_back(dir);
    return dirs;
}

/// For a URL, in which it keeps its meaning: the path of a URL leads on from the directory of the login, and from the
/// root only with a "/" of its own.
kx::String urlPathOf(CNetRequest& request, const kx::String& dir)
{
    kx::String path = "/";
    if (dir.startsWith("/"))
        path += "/";
    forEachField(dir.toWide(), L'/', [&request, &path](std::wstring_view part) {
        if (!part.empty())
            path += request.urlEscape(kx::String(std::wstring(part))) + "/";
    });
    return path;
}

} // namespace

CFTPDirWalk::CFTPDirWalk(CFTPClient& client, CNetRequest& request, const kx::String& path)
    : m_client(client)
    , m_request(request)
{
    checkPath(path);
    m_dirs = dirsOnTheWay(path);
}

void CFTPDirWalk::run()
{
    tryToMakeAll();
    if (!enter(m_dirs.back()))
        makeStepByStep();
}

void CFTPDirWalk::tryToMakeAll()
{
    const auto commands = kx::newObj<CNetStringList>();
    for (const kx::String& dir : m_dirs) {
        if (dir != "/")
            commands->add("*MKD " + dir); // "*": libcurl goes on when the server refuses
    }
    if (commands->isEmpty())
        return;
    m_client.beginPrepareRequest(m_request, kx::String(), false);
    m_request.setFTPCustomPreCommands(commands.get());
    m_request.setOptionInt(CURLOPT_NOBODY, 1);
    perform();
}

/// Goes there as libcurl does before a transfer, so that it knows where the connection stands. A CWD among the commands
/// would lead later relative paths astray.
bool CFTPDirWalk::enter(const kx::String& dir)
{
    m_client.beginPrepareRequest(m_request, urlPathOf(m_request, dir), false);
    m_request.setFTPFileMethod(CURLFTPMETHOD_SINGLECWD);
    m_request.setOptionInt(CURLOPT_PATH_AS_IS, 1); // ".." is the server's to understand, as in commands
    m_request.setOptionInt(CURLOPT_NOBODY, 1);
    try {
        perform();
        return true;
    } catch (const CCURLError& error) {
        if (error.getDomain() != "curl" || error.getCode() != CURLE_REMOTE_ACCESS_DENIED)
            throw;
        return false;
    }
}

/// Finds out where the way ends, and why.
void CFTPDirWalk::makeStepByStep()
{
    bool isThere = false;
    kx::String answerToMake;
    for (const kx::String& dir : m_dirs) {
        isThere = enter(dir);
        if (!isThere)
            answerToMake = make(dir);
    }
    if (!isThere && !enter(m_dirs.back())) // some servers say of anything that it is made
        throwNoWay(m_dirs.back(), serverWords(), answerToMake);
}

/// @return what the server says
kx::String CFTPDirWalk::make(const kx::String& dir)
{
    const kx::String refusalToEnter = serverWords();
    m_client.prepareCreateDirRequest(m_request, dir, false);
    try {
        perform();
    } catch (const CCURLError& error) {
        // Access is denied when libcurl cannot go back to the directory of the login before it says MKD.
        if (error.getDomain() != "curl"
            || (error.getCode() != CURLE_QUOTE_ERROR && error.getCode() != CURLE_REMOTE_ACCESS_DENIED))
            throw;
        throwNoWay(dir, refusalToEnter, serverWords());
    }
    return serverWords();
}

void CFTPDirWalk::throwNoWay(const kx::String& dir, const kx::String& answerToEnter, const kx::String& answerToMake)
{
    m_request.throwError(CURLE_QUOTE_ERROR, m_request.getResponseCodeDomain(), m_request.getResponseCode(),
        "FTP directory '" + dir + "' can neither be entered (" + answerToEnter + ") nor made (" + answerToMake + ")");
}

/// On a connection that was open before, paths without "/" lead on from where it stands. libcurl goes back to the
/// directory of the login only when it has understood the answer to PWD.
void CFTPDirWalk::perform()
{
    if (!m_dirs.front().startsWith("/"))
        m_request.setOptionInt(CURLOPT_FRESH_CONNECT, 1);
    m_request.perform();
}

/// The last reply of the server.
kx::String CFTPDirWalk::serverWords()
{
    const kx::String code = kx::toString(m_request.getResponseCode());
    kx::String last;
    for (const auto line = m_request.getResponseInfo()->createIterator(); line->next();)
        last = line->getCurrent();
    return last.startsWith(code) ? last.trim() : code; // lines that are not UTF-8 are left out
}

} // namespace norla
