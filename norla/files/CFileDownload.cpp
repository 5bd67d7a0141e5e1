#include "norla/files/CFileDownload.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/text/hex.h"
#include "kx/text/numbers.h"
#include "norla/core/plainURL.h"
#include "norla/files/CDownloadRun.h"
#include "norla/files/IDownloadOrigin.h"
#include "norla/files/suggestedName.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <utility>

namespace norla {

namespace {

constexpr char downloadClass[] = "CFileDownload";

void requireHexDigits(const kx::String& digest, size_t count, const char* name)
{
    if (digest.isEmpty())
        return;
    const auto isHex = [](wchar_t c) { return c < 128 && kx::hexDecodeCharLax(static_cast<char>(c)) >= 0; };
    if (digest.size() != count || !std::all_of(digest.begin(), digest.end(), isHex))
        throw kx::CInvalidArgError(kx::String::fromLatin1(name) + " is '" + digest + "', and not "
                + kx::toString(static_cast<long long>(count)) + " hexadecimal digits",
            downloadClass);
}

void requireDownloadOptions(const CFileDownloadOptions& options)
{
    constexpr int mostSegments = 16;
    constexpr size_t sha256Digits = 64;
    constexpr size_t md5Digits = 32;
    if (options.segments < 1 || options.segments > mostSegments)
        throw kx::CInvalidArgError(
            "segments is " + kx::toString(options.segments) + ", and not 1 to 16", downloadClass);
    if (options.speedLimit < 0)
        throw kx::CInvalidArgError(
            "speedLimit is " + kx::toString(options.speedLimit) + ", and not 0 or more", downloadClass);
    if (options.expectedSize && *options.expectedSize < 0)
        throw kx::CInvalidArgError("expectedSize is negative", downloadClass);
    constexpr unsigned special = 07000; // what a number without its leading 0 has mostly: 600, 644, 755
    if (options.permissions && (*options.permissions & special) != 0)
        throw kx::CInvalidArgError("permissions is " + kx::toString(static_cast<long long>(*options.permissions))
                + ", and not mode bits of 0 to 0777, which are octal",
            downloadClass);
    requireHexDigits(options.sha256, sha256Digits, "sha256");
    requireHexDigits(options.md5, md5Digits, "md5");
}

/// URLs may come from elsewhere, and must not name files of this machine. libcurl guesses where there is no scheme.
void requireServed(const kx::String& url)
{
    constexpr std::array<std::string_view, 6> served{"", "http", "https", "ftp", "ftps", "sftp"};
    const std::string scheme = schemeOf(url.toUTF8());
    if (std::find(served.begin(), served.end(), scheme) == served.end())
        throw kx::CInvalidArgError(
            "a file is fetched over HTTP, FTP or SFTP, and not over '" + readable(scheme) + "'", downloadClass);
}

class CPreparedOrigin : public IDownloadOrigin {
public:
    explicit CPreparedOrigin(CFileDownload::Prepare prepare)
        : m_prepare(std::move(prepare))
    {
        if (!m_prepare)
            throw kx::CInvalidArgError("the function that prepares requests is empty", downloadClass);
    }

    void prepare(CNetRequest& request) override
    {
        m_prepare(request);
        requireServed(request.getURL());
    }

private:
    const CFileDownload::Prepare m_prepare;
};

} // namespace

CFileDownload::CFileDownload(const kx::String& url, const Path& path, const Options& options)
    : CFileDownload([url](CNetRequest& request) { request.setURL(url); }, path, options)
{
    if (url.isEmpty())
        throw kx::CInvalidArgError("the URL is empty", downloadClass);
}

CFileDownload::CFileDownload(Prepare prepare, const Path& path, const Options& options)
    : CFileDownload(std::make_shared<CPreparedOrigin>(std::move(prepare)), path, options)
{
}

CFileDownload::CFileDownload(std::shared_ptr<IDownloadOrigin> origin, const Path& path, const Options& options)
    : m_origin(std::move(origin))
    , m_path(path)
    , m_options(options)
{
    requireDownloadOptions(options);
}

CFileDownload::~CFileDownload() = default;

kx::String CFileDownload::getSuggestedName() const
{
    return m_suggestedName;
}

kx::String CFileDownload::suggestNameFor(const kx::String& url)
{
    return suggestedNameOf(pathOf(url.toUTF8()));
}

void CFileDownload::transfer()
{
    CDownloadRun run(*m_origin, m_path, m_options, getSignals());
    run.run();
    m_suggestedName = run.getSuggestedName();
}

} // namespace norla
