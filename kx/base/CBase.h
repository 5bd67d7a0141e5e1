#pragma once

#include "kx/base/IBase.h"

#include <atomic>

namespace kx {

/// The reference count that the library's classes share. An object made with newObj() lives as long as a P or PC points to
/// it. An object on the stack or inside another object counts too, but no P to it may drop the last reference.
class KX_EXPORT CBase : public virtual IBase {
public:
    CBase() noexcept = default;
    /// A copy is a new object: nobody refers to it yet.
    CBase(const CBase& other) noexcept;
    CBase& operator=(const CBase&) noexcept;
    ~CBase() override;

    void addRef() const noexcept override;
    void release() const noexcept override;
    void checkCastAllowed() const override;

protected:
    void deleteThis() const noexcept override;

private:
    mutable std::atomic<int> m_references{0};
};

} // namespace kx
