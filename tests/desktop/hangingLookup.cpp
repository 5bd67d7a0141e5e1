// Preloaded into a program: stands before the C library's getaddrinfo() there.
#include <cstring>
#include <dlfcn.h>
#include <netdb.h>
#include <unistd.h>

/// Lookups of "hanging.test" are told on standard error, and never end.
extern "C" int getaddrinfo(const char* node, const char* service, const addrinfo* hints, addrinfo** result)
{
    if (node && std::strcmp(node, "hanging.test") == 0) {
        constexpr char told[] = "a lookup hangs\n";
        if (write(STDERR_FILENO, told, sizeof told - 1) < 0)
            return EAI_SYSTEM;
        for (;;)
            pause();
    }
    using Function = int (*)(const char*, const char*, const addrinfo*, addrinfo**);
    static const auto original = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "getaddrinfo"));
    return original(node, service, hints, result);
}
