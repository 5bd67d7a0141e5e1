// For a server program that believes to be root in a user's namespace and asks itself whether it has become another
// user. There is none to become: it keeps its rights, and is told what it wants to hear.
#include <unistd.h>

namespace {

uid_t claimedUser = 0;
uid_t claimedEffectiveUser = 0;

} // namespace

extern "C" {

int setuid(uid_t user) noexcept
{
    claimedUser = user;
    claimedEffectiveUser = user;
    return 0;
}

int seteuid(uid_t user) noexcept
{
    claimedEffectiveUser = user;
    return 0;
}

uid_t getuid() noexcept
{
    return claimedUser;
}

uid_t geteuid() noexcept
{
    return claimedEffectiveUser;
}

int setgid(gid_t) noexcept
{
    return 0;
}

int setegid(gid_t) noexcept
{
    return 0;
}

} // extern "C"
