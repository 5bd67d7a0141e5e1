#include "sela/COpenSSLInit.h"

#include "sela/CErrorMark.h"

#include <openssl/crypto.h>
#include <openssl/ssl.h>

namespace sela {

namespace {

template <typename T>
kx::TSafeGlobalPointer<T>& instanceOf()
{
    const auto lock = kx::TSafeGlobalPointer<T>::lockUntilConstructed(T::globalInstanceGuard());
    static kx::TSafeGlobalPointer<T> g_pInstance(T::globalInstanceGuard(), [] { return kx::newObj<T>(); });
    return kx::TSafeGlobalPointer<T>::waitConstructed(g_pInstance, T::globalInstanceGuard());
}

} // namespace

kx::TSafeGlobalPointer<COpenSSLInit::CThreadStuff>& COpenSSLInit::CThreadStuff::get()
{
    return instanceOf<CThreadStuff>();
}

kx::CSafeGlobalGuard& COpenSSLInit::CThreadStuff::globalInstanceGuard()
{
    static constinit kx::CSafeGlobalGuard g_Guard;
    return g_Guard;
}

COpenSSLInit::CThreadStuff::CThreadStuff()
{
    const CErrorMark mark;
    if (OPENSSL_init_ssl(0, nullptr) != 1)
        throw kx::CError("Construction of static object has failed.");
}

COpenSSLInit::CThreadStuff::~CThreadStuff() = default;

kx::TSafeGlobalPointer<COpenSSLInit::CCleaner>& COpenSSLInit::CCleaner::get()
{
    return instanceOf<CCleaner>();
}

kx::CSafeGlobalGuard& COpenSSLInit::CCleaner::globalInstanceGuard()
{
    static constinit kx::CSafeGlobalGuard g_Guard;
    return g_Guard;
}

COpenSSLInit::CCleaner::CCleaner() noexcept = default;

COpenSSLInit::CCleaner::~CCleaner()
{
    OPENSSL_thread_stop();
}

} // namespace sela
