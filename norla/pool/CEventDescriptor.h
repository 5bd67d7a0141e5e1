#pragma once

namespace norla {

/// A descriptor that becomes readable when it is signalled (eventfd(2)), so that a thread that waits for others wakes
/// up for this one too. Any thread.
class CEventDescriptor {
public:
    /// @throws kx::CError when the system has no descriptor to give
    CEventDescriptor();
    CEventDescriptor(const CEventDescriptor&) = delete;
    CEventDescriptor& operator=(const CEventDescriptor&) = delete;
    ~CEventDescriptor();

    int get() const noexcept { return m_descriptor; }

    /// Readable from now on, until clear().
    void signal() noexcept;
    void clear() noexcept;

private:
    const int m_descriptor;
};

} // namespace norla
