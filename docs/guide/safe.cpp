#include "norla/core/CDeadlines.h"
#include "norla/core/CFileSink.h"
#include "norla/core/CSafeDefaults.h"
#include "norla/core/CTLSOptions.h"
#include "norla/core/errorKind.h"
#include "norla/core/explain.h"

// Downloads from a server of one's own authority; returns what to show to a person, which is empty when all went well.
kx::String downloadSafely(
    const kx::String& url, const norla::CNetRequest::Path& path, const norla::CNetRequest::Path& authority)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    try {
        request->setSafeDefaults({.maxRedirects = 3});
        request->setTLSOptions({.rootsFile = authority});
        request->setDeadlines({.connect = kx::CTimeSpan::fromSeconds(10)});
        request->setURL(url);
        const auto file = kx::newObj<norla::CFileSink>(*request, path);
        request->setReceiveDataSink(file.get());
        request->perform();
        file->finish();
        return "";
    } catch (const kx::CError& error) {
        if (norla::getErrorKind(error) == norla::ErrorKind::Certificate)
            return norla::explain(error) + " Please ask your administrator.";
        return norla::explain(error);
    }
}
