#include "norla/core/CGlobalInit.h"

#include "kx/base/onExceptionInDestructorIgnored.h"
#include "sela/COpenSSLInit.h"

#include <curl/curl.h>

namespace norla {

kx::TSafeGlobalPointer<CGlobalInit>& CGlobalInit::get()
{
    const auto lock = kx::TSafeGlobalPointer<CGlobalInit>::lockUntilConstructed(globalInstanceGuard());
    static kx::TSafeGlobalPointer<CGlobalInit> g_pInstance(
        globalInstanceGuard(), [] { return kx::P<CGlobalInit>(new CGlobalInit); });
    return kx::TSafeGlobalPointer<CGlobalInit>::waitConstructed(g_pInstance, globalInstanceGuard());
}

kx::CSafeGlobalGuard& CGlobalInit::globalInstanceGuard()
{
    static constinit kx::CSafeGlobalGuard g_Guard;
    return g_Guard;
}

// OpenSSL comes first: libcurl's TLS back end builds on it. Being registered first for the exit, it also goes last.
CGlobalInit::CGlobalInit()
{
    sela::COpenSSLInit::CThreadStuff::get();
    sela::COpenSSLInit::CCleaner::get();
    if (curl_global_init(CURL_GLOBAL_ALL) != CURLE_OK)
        throw kx::CError("curl global init failed");
}

CGlobalInit::~CGlobalInit()
{
    try {
        curl_global_cleanup();
    } catch (const std::exception& error) {
        kx::onExceptionInDestructorIgnored("norla::CGlobalInit", error, true);
    }
}

} // namespace norla
