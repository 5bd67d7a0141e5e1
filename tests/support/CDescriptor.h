#pragma once

namespace support {

/// Owner of a file descriptor, which it closes. Movable; may be empty (-1).
class CDescriptor {
public:
    explicit CDescriptor(int descriptor = -1) noexcept;
    CDescriptor(CDescriptor&& other) noexcept;
    CDescriptor& operator=(CDescriptor&& other) noexcept;
    ~CDescriptor();

    /// @return the descriptor, -1 if there is none; the object keeps it.
    int get() const noexcept;
    explicit operator bool() const noexcept;

    /// Closes the descriptor now; nothing happens without one.
    void close() noexcept;

private:
    int m_descriptor;
};

} // namespace support
