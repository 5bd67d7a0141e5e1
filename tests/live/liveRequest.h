#pragma once

#include "kx/streams/CBufferStream.h"
#include "norla/core/CCURLError.h"
#include "norla/core/CNetRequest.h"
#include "tests/support/CTestCertificates.h"
#include "tests/support/pathOf.h"

#include <string>

namespace live {

inline kx::P<norla::CNetRequest> requestFor(const std::string& url)
{
    auto request = kx::newObj<norla::CNetRequest>();
    request->setURL(kx::String::fromUTF8(url));
    request->setFullRequestTimeout(kx::CTimeSpan::fromSeconds(60));
    return request;
}

inline void trustTestCertificates(norla::CNetRequest& request)
{
    request.setRootCertBundlePath(support::pathOf(support::CTestCertificates::get().caFile()));
}

inline std::string bodyOf(const norla::CNetRequest& request)
{
    const auto buffer = request.getDefaultReceiveBuffer();
    return {reinterpret_cast<const char*>(buffer->getData()), buffer->getSize()};
}

/// The error that the transfer ends with, null when it succeeds.
inline kx::P<kx::CError> failureOf(norla::CNetRequest& request)
{
    try {
        request.perform();
    } catch (const kx::CError& error) {
        return error.clone();
    }
    return nullptr;
}

/// The error's message, "success" when there is none.
inline std::string messageOf(norla::CNetRequest& request)
{
    const auto error = failureOf(request);
    return error ? error->getMessage().toUTF8() : "success";
}

} // namespace live
