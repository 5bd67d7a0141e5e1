// Makes all that a process has one of, on many threads at once: the library's instances, and two of an application
// whose construction makes a request.
//   instances_program ROTATION   the number decides which thread wants which instance first
#include "kx/files/CResourceManager.h"
#include "norla/core/CGlobalInit.h"
#include "norla/core/CNetRequest.h"
#include "norla/proxy/CProxySettings.h"
#include "sela/COpenSSLInit.h"

#include <array>
#include <atomic>
#include <cstdlib>
#include <thread>
#include <vector>

namespace {

class CApplication : public kx::CBase {
public:
    static kx::TSafeGlobalPointer<CApplication>& get()
    {
        const auto lock = kx::TSafeGlobalPointer<CApplication>::lockUntilConstructed(globalInstanceGuard());
        static kx::TSafeGlobalPointer<CApplication> g_pInstance(
            globalInstanceGuard(), [] { return kx::newObj<CApplication>(); });
        return kx::TSafeGlobalPointer<CApplication>::waitConstructed(g_pInstance, globalInstanceGuard());
    }

    static kx::CSafeGlobalGuard& globalInstanceGuard()
    {
        static constinit kx::CSafeGlobalGuard g_Guard;
        return g_Guard;
    }

private:
    const kx::P<norla::CNetRequest> m_request = kx::newObj<norla::CNetRequest>();
};

void makeAPlainStatic()
{
    static const auto request = kx::newObj<norla::CNetRequest>();
}

constexpr std::array makers = {
    +[] { norla::CGlobalInit::get(); },
    +[] { sela::COpenSSLInit::CCleaner::get(); },
    +[] { CApplication::get(); },
    +[] { sela::COpenSSLInit::CThreadStuff::get(); },
    +[] { kx::CResourceManager::get(); },
    +[] { norla::CProxySettings::getUserSettings(); },
    &makeAPlainStatic,
};

constexpr size_t threadCount = makers.size();

// All of them come here before one goes on.
void meet(std::atomic<size_t>& arrived)
{
    ++arrived;
    while (arrived < threadCount)
        std::this_thread::yield();
}

} // namespace

int main(int argc, char** argv)
{
    const size_t rotation = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 0;
    std::atomic<size_t> arrived{0};
    std::vector<std::thread> threads;
    for (size_t i = 0; i < threadCount; ++i) {
        threads.emplace_back([&arrived, first = i + rotation] {
            meet(arrived);
            for (size_t step = 0; step < makers.size(); ++step)
                makers[(first + step) % makers.size()]();
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    return 0;
}
