#pragma once

#include "kx/base/IBase.h"

#include <atomic>

namespace kx {

/// The reference count that the library's classes share. An object made with newObj() lives as long as a P or PC points
/// to it.
///
/// An object on the stack, or inside another object, is right where nobody takes a reference to it: a client, an
/// enumeration or a settings object that is used and forgotten in one function. What is handed to a setter that keeps a
/// reference (a sink, a source, a list of headers, a request in the background) is made with newObj(). The mistake is
/// logged as an error in two cases: an object goes while references to it are held, after which these
/// point nowhere; or an object on the stack of the running thread loses its last reference, and is not deleted then.
class KX_EXPORT CBase : public virtual IBase {
public:
    CBase() noexcept = default;
    /// A copy is a new object: nobody refers to it yet.
    CBase(const CBase& other) noexcept;
    CBase& operator=(const CBase&) noexcept;
    ~CBase() override;

    void addRef() const noexcept override;
    void release() const noexcept final;
    void checkCastAllowed() const final;

protected:
    void deleteThis() const noexcept override;

private:
    mutable std::atomic<int> m_references{0};
};

} // namespace kx
