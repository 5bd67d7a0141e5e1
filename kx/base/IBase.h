#pragma once

#include "kx/base/visibility.h"

namespace kx {

/// The root of every reference-counted interface. Interfaces derive from it virtually, so that one object that
/// implements several of them has one count.
class KX_EXPORT IBase {
public:
    IBase() noexcept = default;
    IBase(const IBase&) noexcept = default;
    IBase& operator=(const IBase&) noexcept = default;
    virtual ~IBase();

    /// Adds one reference. Any thread. Counts on const objects too: a reference to a const object keeps it alive as
    /// well.
    virtual void addRef() const noexcept = 0;

    /// Drops one reference; the object deletes itself with the last one. Any thread.
    virtual void release() const noexcept = 0;

    /// Asked before the object is handed out under another of its interfaces.
    /// @throws CError if the object is already being deleted.
    virtual void checkCastAllowed() const = 0;

protected:
    /// Ends the object's life, called once by the release() that drops the last reference.
    virtual void deleteThis() const noexcept = 0;
};

} // namespace kx
