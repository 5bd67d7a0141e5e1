#pragma once

// Of LeakSanitizer, where the program is built with it.
extern "C" __attribute__((weak)) void __lsan_disable();
extern "C" __attribute__((weak)) void __lsan_enable();

namespace support {

/// Runs the action, in which somebody else's library allocates what it never frees.
template <typename TAction>
void withoutLeakCheck(TAction action)
{
    if (__lsan_disable)
        __lsan_disable();
    action();
    if (__lsan_enable)
        __lsan_enable();
}

} // namespace support
