#include "norla/core/CFileSink.h"

#include <functional>

namespace {

// A file, and who is told how much of it has come. The size is -1 while it is unknown.
class CShownFile : public norla::CFileSink {
public:
    using Report = std::function<void(long long received, long long size)>;

    CShownFile(norla::CNetRequest& request, const norla::CNetRequest::Path& path, const Report& report)
        : CFileSink(request, path)
        , m_request(request)
        , m_report(report)
    {
    }

    int write(const unsigned char* data, int size, int responseCode,
        const norla::CNetRequest::HeaderMap& responseHeaders) override
    {
        CFileSink::write(data, size, responseCode, responseHeaders);
        m_report(getFile().getLength(), static_cast<long long>(m_request.getDownloadSize()));
        return size;
    }

private:
    norla::CNetRequest& m_request;
    const Report m_report;
};

} // namespace

// Downloads a file, and tells at each block how far it is. What the report throws ends the download.
void downloadAndShow(const kx::String& url, const norla::CNetRequest::Path& path, const CShownFile::Report& report)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    request->setSafeDefaults();
    request->setURL(url);
    const auto file = kx::newObj<CShownFile>(*request, path, report);
    request->setReceiveDataSink(file.get());
    request->perform();
    file->finish();
}
