#include "norla/files/CFileUpload.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/text/numbers.h"
#include "norla/files/CUploadRun.h"
#include "norla/files/IUploadWay.h"

#include <utility>

namespace norla {

namespace {

constexpr char uploadClass[] = "CFileUpload";

} // namespace

CFileUpload::CFileUpload(const kx::String& url, const Path& path, const Options& options)
    : CFileUpload([url](CNetRequest& request) { request.setURL(url); }, path, options)
{
    if (url.isEmpty())
        throw kx::CInvalidArgError("the URL is empty", uploadClass);
}

CFileUpload::CFileUpload(Prepare prepare, const Path& path, const Options& options)
    : m_prepare(std::move(prepare))
    , m_path(path)
    , m_options(options)
{
    if (!m_prepare)
        throw kx::CInvalidArgError("the function that prepares requests is empty", uploadClass);
    if (options.speedLimit < 0)
        throw kx::CInvalidArgError(
            "speedLimit is " + kx::toString(options.speedLimit) + ", and not 0 or more", uploadClass);
}

CFileUpload::CFileUpload(std::shared_ptr<IUploadWay> way, const Path& path, const Options& options)
    : m_way(std::move(way))
    , m_path(path)
    , m_options(options)
{
}

CFileUpload::~CFileUpload() = default;

void CFileUpload::transfer()
{
    CUploadRun run(m_prepare, m_path, m_options, getSignals());
    if (m_way)
        run.runBy(*m_way);
    else
        run.run();
}

} // namespace norla
