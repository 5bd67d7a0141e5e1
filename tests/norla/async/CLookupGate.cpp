#include "tests/norla/async/CLookupGate.h"

#include <chrono>
#include <cstring>
#include <dlfcn.h>
#include <netdb.h>

CLookupGate& CLookupGate::get()
{
    static auto* const instance = new CLookupGate; // threads of libcurl's may outlive main()
    return *instance;
}

void CLookupGate::pass()
{
    std::unique_lock lock(m_mutex);
    ++m_waiting;
    m_changed.notify_all();
    m_changed.wait_for(lock, std::chrono::seconds(30), [this] { return m_isOpen; });
    --m_waiting;
    m_changed.notify_all();
}

void CLookupGate::shut()
{
    const std::lock_guard lock(m_mutex);
    m_isOpen = false;
}

bool CLookupGate::waitForLookup()
{
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, std::chrono::seconds(20), [this] { return m_waiting > 0; });
}

bool CLookupGate::isHolding()
{
    const std::lock_guard lock(m_mutex);
    return m_waiting > 0;
}

void CLookupGate::open()
{
    std::unique_lock lock(m_mutex);
    m_isOpen = true;
    m_changed.notify_all();
    m_changed.wait_for(lock, std::chrono::seconds(20), [this] { return m_waiting == 0; });
}

// Stands before the C library's function, in libcurl too.
extern "C" int getaddrinfo(const char* node, const char* service, const addrinfo* hints, addrinfo** result)
{
    if (node && std::strcmp(node, "hanging.test") == 0) {
        CLookupGate::get().pass();
        return EAI_NONAME;
    }
    using Function = int (*)(const char*, const char*, const addrinfo*, addrinfo**);
    static const auto original = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "getaddrinfo"));
    return original(node, service, hints, result);
}
