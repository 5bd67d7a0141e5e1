#include "norla/pool/await.h"

#include "norla/core/CNetRequest.h"
#include "norla/core/explain.h"

#include <functional>

namespace {

// A coroutine that nobody waits for. Who uses a library of coroutines has types like this one from there.
struct CDetached {
    struct promise_type {
        static CDetached get_return_object() { return {}; }
        static std::suspend_never initial_suspend() { return {}; }
        static std::suspend_never final_suspend() noexcept { return {}; }
        static void return_void() {}
        static void unhandled_exception() { std::terminate(); }
    };
};

using Tell = std::function<void(const kx::String& text)>;

// What it uses while it waits are copies.
CDetached followAddressInTurn(kx::P<norla::CTransferPool> pool, kx::String url, Tell tell)
{
    try {
        kx::String text = url;
        for (int page = 0; page < 2; ++page) {
            const auto request = kx::newObj<norla::CNetRequest>();
            request->setSafeDefaults();
            request->setURL(text);
            co_await pool->run(request.get()); // throws what went wrong
            const auto body = request->getDefaultReceiveBuffer();
            text = kx::String::fromUTF8({reinterpret_cast<const char*>(body->getData()), body->getSize()});
        }
        tell(text);
    } catch (const kx::CError& error) {
        tell(norla::explain(error));
    }
}

} // namespace

// Fetches a page, and then the one whose address that is; returns at once. Tells the second page, or what went wrong.
void followAddress(norla::CTransferPool& pool, const kx::String& url, const Tell& tell)
{
    followAddressInTurn(&pool, url, tell);
}
