#include "kx/threads/globalMutex.h"

namespace kx {

CMutex& getGlobalMutex()
{
    static CMutex mutex;
    return mutex;
}

} // namespace kx
