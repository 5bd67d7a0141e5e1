#include "kx/log/log.h"
#include "norla/core/CFileSink.h"
#include "norla/core/CNetRequest.h"
#include "norla/core/performWithRetries.h"

// Downloads from a server that may be down for a while: at most ten attempts within a minute.
void downloadPatiently(const kx::String& url, const norla::CNetRequest::Path& path)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    request->setSafeDefaults();
    request->setURL(url);
    const auto file = kx::newObj<norla::CFileSink>(*request, path);
    request->setReceiveDataSink(file.get());
    const kx::TArray<norla::CAttempt> attempts
        = norla::performWithRetries(*request, {.attempts = 10, .budget = kx::CTimeSpan::fromSeconds(60)});
    file->finish();
    for (const norla::CAttempt& attempt : attempts) {
        if (attempt.error)
            kx::logWarning(*attempt.error, "An attempt has failed.", "");
    }
}
