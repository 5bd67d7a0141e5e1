#pragma once

/// Defined where AddressSanitizer or ThreadSanitizer checks each access to memory.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define NORLA_TEST_MEMORY_IS_SANITIZED
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define NORLA_TEST_MEMORY_IS_SANITIZED
#endif
#endif

namespace support {

/// By how much a limit of time is longer there.
#ifdef NORLA_TEST_MEMORY_IS_SANITIZED
constexpr int slowdown = 4;
#else
constexpr int slowdown = 1;
#endif

} // namespace support
