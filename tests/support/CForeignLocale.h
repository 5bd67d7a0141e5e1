#pragma once

#include <string>

namespace support {

/// The process runs under another locale, of C and of C++, as long as the object lives. The locale is made by the
/// test program, once: a machine need not have it installed. One at a time, and no other thread may use the locale
/// meanwhile.
class CForeignLocale {
public:
    /// @param name such as "tr_TR.UTF-8"
    /// @throws std::runtime_error naming the locale if it cannot be made
    explicit CForeignLocale(const std::string& name);
    CForeignLocale(const CForeignLocale&) = delete;
    CForeignLocale& operator=(const CForeignLocale&) = delete;
    ~CForeignLocale();
};

} // namespace support
