#pragma once

#include <condition_variable>
#include <mutex>

/// Holds the lookups of "hanging.test" up until it is opened. One a program, in which CLookupGate.cpp stands before the
/// C library's getaddrinfo(). Any thread.
class CLookupGate {
public:
    static CLookupGate& get();

    /// What a lookup does.
    void pass();

    void shut();

    /// @return whether a lookup waits or comes to wait within 20 seconds
    bool waitForLookup();

    bool isHolding();

    /// Lets all go, and waits until they are gone.
    void open();

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_isOpen = true;
    int m_waiting = 0;
};
