#include "tests/norla/files/CDiskCalls.h"

#include "tests/curlcalls/TWatcher.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

support::TWatcher<CDiskCalls> diskWatcher;

std::string nameOf(int descriptor)
{
    struct stat status {};
    if (fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode))
        return "folder";
    std::error_code ignored; // then the name is empty
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), ignored).filename().string();
}

template <typename TFunction>
TFunction* systemsOwn(TFunction*, const char* name)
{
    void* const found = dlsym(RTLD_NEXT, name);
    if (!found)
        std::abort();
    return reinterpret_cast<TFunction*>(found);
}

template <typename TFunction, typename... TArguments>
int callWatched(const std::string& call, TFunction* function, TArguments... arguments)
{
    const int error = diskWatcher.ask([&call](CDiskCalls& calls) { return calls.errorOf(call); });
    if (error != 0) {
        errno = error;
        return -1;
    }
    const int result = function(arguments...);
    if (result == 0) {
        diskWatcher.ask([&call](CDiskCalls& calls) {
            calls.note(call);
            return true;
        });
    }
    return result;
}

} // namespace

CDiskCalls::CDiskCalls()
{
    diskWatcher.set(*this);
}

CDiskCalls::~CDiskCalls()
{
    diskWatcher.forget();
}

std::vector<std::string> CDiskCalls::takeCalls()
{
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_calls, {});
}

void CDiskCalls::onNext(const std::string& call, std::function<int()> action)
{
    const std::lock_guard lock(m_mutex);
    m_actions[call] = std::move(action);
}

int CDiskCalls::errorOf(const std::string& call)
{
    std::function<int()> action;
    {
        const std::lock_guard lock(m_mutex);
        if (const auto found = m_actions.extract(call))
            action = found.mapped();
    }
    return action ? action() : 0;
}

void CDiskCalls::note(const std::string& call)
{
    const std::lock_guard lock(m_mutex);
    m_calls.push_back(call);
}

extern "C" {

int fsync(int descriptor)
{
    return callWatched("fsync " + nameOf(descriptor), systemsOwn(&fsync, "fsync"), descriptor);
}

int fdatasync(int descriptor)
{
    return callWatched("fdatasync " + nameOf(descriptor), systemsOwn(&fdatasync, "fdatasync"), descriptor);
}

int renameat(int oldFolder, const char* oldName, int newFolder, const char* newName) noexcept
{
    return callWatched(std::string("renameat ") + oldName + ' ' + newName, systemsOwn(&renameat, "renameat"), oldFolder,
        oldName, newFolder, newName);
}

int renameat2(int oldFolder, const char* oldName, int newFolder, const char* newName, unsigned flags) noexcept
{
    return callWatched(std::string("renameat2 ") + oldName + ' ' + newName, systemsOwn(&renameat2, "renameat2"),
        oldFolder, oldName, newFolder, newName, flags);
}

int unlinkat(int folder, const char* name, int flags) noexcept
{
    return callWatched(std::string("unlinkat ") + name, systemsOwn(&unlinkat, "unlinkat"), folder, name, flags);
}

} // extern "C"
