#include "norla/core/CFileSink.h"

#include <functional>

namespace {

// Passes a download on to its file, and tells how far it has come. The size is -1 while it is unknown.
class CProgressSink : public kx::CBase, public virtual norla::CNetRequest::IDataSink {
public:
    using Report = std::function<bool(double received, double size)>;

    CProgressSink(norla::CNetRequest& request, norla::CFileSink* file, const Report& report)
        : m_request(request)
        , m_file(file)
        , m_report(report)
    {
    }

    void begin() override { m_file->begin(); }

    int write(const unsigned char* data, int size, int responseCode,
        const norla::CNetRequest::HeaderMap& responseHeaders) override
    {
        m_file->write(data, size, responseCode, responseHeaders);
        const auto received = static_cast<double>(m_file->getFile().getLength());
        if (responseCode < 300 && !m_report(received, m_request.getDownloadSize()))
            throw kx::CError("The download was cancelled.");
        return size;
    }

private:
    norla::CNetRequest& m_request;
    const kx::P<norla::CFileSink> m_file;
    const Report m_report;
};

} // namespace

// Downloads into a file until the report says false.
void downloadWithProgress(const kx::String& url, const norla::CNetRequest::Path& path,
    const std::function<bool(double received, double size)>& report)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    request->setSafeDefaults();
    request->setURL(url);
    const auto file = kx::newObj<norla::CFileSink>(*request, path);
    request->setReceiveDataSink(kx::newObj<CProgressSink>(*request, file.get(), report).get());
    request->perform(); // throws what the sink throws
    file->finish();
}
