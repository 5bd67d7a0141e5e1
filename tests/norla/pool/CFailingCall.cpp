#include "tests/norla/pool/CFailingCall.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <dlfcn.h>
#include <new>
#include <pthread.h>
#include <stdexcept>
#include <string_view>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

namespace {

enum Kind { None, New, EventDescriptor, EpollDescriptor, EpollChange, EpollWait, Socket, Connect, ThreadStart };

struct CKindRow {
    const char* name;
    Kind kind;
};

constexpr std::array kinds = std::to_array<CKindRow>({
    {CFailingCall::allocation, New},
    {"eventfd", EventDescriptor},
    {"epoll_create1", EpollDescriptor},
    {"epoll_ctl", EpollChange},
    {"epoll_wait", EpollWait},
    {"socket", Socket},
    {"connect", Connect},
    {"pthread_create", ThreadStart},
});

std::atomic<int> armedKind{None};
std::atomic<long> callsLeft{0}; // until the one that fails
thread_local bool isInLibrary = false;

int kindOf(const std::string& function)
{
    const auto* const row
        = std::find_if(kinds.begin(), kinds.end(), [&](const CKindRow& known) { return function == known.name; });
    if (row == kinds.end())
        throw std::invalid_argument("no function that can be made to fail: " + function);
    return row->kind;
}

/// Pools' threads are the library's alone, as are those that libcurl starts there, which have their name.
bool isThreadOfPool()
{
    static thread_local bool isKnown = false;
    if (!isKnown) {
        char name[16] = "";
        pthread_getname_np(pthread_self(), name, sizeof name);
        isKnown = std::string_view(name) == "norla.pool";
    }
    return isKnown;
}

bool isToFail(Kind kind) noexcept
{
    return armedKind == kind && (isInLibrary || isThreadOfPool()) && callsLeft-- == 0;
}

template <typename TFunction>
TFunction* original(TFunction*, const char* name)
{
    void* const found = dlsym(RTLD_NEXT, name);
    if (!found)
        std::abort();
    return reinterpret_cast<TFunction*>(found);
}

int failed(int error) noexcept
{
    errno = error;
    return -1;
}

} // namespace

std::vector<std::string> CFailingCall::functions()
{
    std::vector<std::string> names;
    for (const CKindRow& row : kinds)
        if (row.kind != New)
            names.emplace_back(row.name);
    return names;
}

CFailingCall::CFailingCall(const std::string& function, long number)
    : m_kind(kindOf(function))
{
    callsLeft = number;
}

CFailingCall::~CFailingCall()
{
    disarm();
}

void CFailingCall::arm() const noexcept
{
    armedKind = m_kind;
}

void CFailingCall::disarm() noexcept
{
    armedKind = None;
}

bool CFailingCall::hasFailed() const noexcept
{
    return callsLeft < 0;
}

CFailingCall::CInLibrary::CInLibrary() noexcept
{
    isInLibrary = true;
}

CFailingCall::CInLibrary::~CInLibrary()
{
    isInLibrary = false;
}

void* operator new(size_t size)
{
    if (isToFail(New))
        throw std::bad_alloc();
    if (void* const block = std::malloc(size))
        return block;
    throw std::bad_alloc();
}

void operator delete(void* block) noexcept
{
    std::free(block);
}

void operator delete(void* block, size_t) noexcept
{
    std::free(block);
}

extern "C" {

// Of a sanitizer that is linked into the program, which has to know all threads.
int __interceptor_pthread_create(
    pthread_t* thread, const pthread_attr_t* attributes, void* (*function)(void*), void* data) __attribute__((weak));

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*function)(void*), void* data) noexcept
{
    if (isToFail(ThreadStart))
        return EAGAIN;
    if (__interceptor_pthread_create)
        return __interceptor_pthread_create(thread, attributes, function, data);
    static const auto system = original(&pthread_create, "pthread_create");
    return system(thread, attributes, function, data);
}

int eventfd(unsigned int count, int flags) noexcept
{
    if (isToFail(EventDescriptor))
        return failed(EMFILE);
    return original(&eventfd, "eventfd")(count, flags);
}

int epoll_create1(int flags) noexcept
{
    if (isToFail(EpollDescriptor))
        return failed(EMFILE);
    return original(&epoll_create1, "epoll_create1")(flags);
}

// A descriptor that is not to be watched any more needs no memory.
int epoll_ctl(int events, int operation, int descriptor, epoll_event* event) noexcept
{
    if (operation != EPOLL_CTL_DEL && isToFail(EpollChange))
        return failed(ENOMEM);
    static const auto system = original(&epoll_ctl, "epoll_ctl");
    return system(events, operation, descriptor, event);
}

int epoll_wait(int events, epoll_event* found, int count, int milliseconds)
{
    if (isToFail(EpollWait))
        return failed(EINTR);
    static const auto system = original(&epoll_wait, "epoll_wait");
    return system(events, found, count, milliseconds);
}

int socket(int family, int type, int protocol) noexcept
{
    if (isToFail(Socket))
        return failed(EMFILE);
    return original(&socket, "socket")(family, type, protocol);
}

int connect(int descriptor, const sockaddr* address, socklen_t size)
{
    if (isToFail(Connect))
        return failed(ENETUNREACH);
    return original(&connect, "connect")(descriptor, address, size);
}

} // extern "C"
