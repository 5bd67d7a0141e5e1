#include "kx/base/CBase.h"

#include "kx/base/CError.h"

#include <limits>

namespace kx {

namespace {

// So far below zero that references taken and dropped by the destructors of the object never bring the count back to one.
constexpr int deletedMark = std::numeric_limits<int>::min() / 2;

} // namespace

IBase::~IBase() = default;

CBase::CBase(const CBase& other) noexcept
    : IBase(other)
{
}

CBase& CBase::operator=(const CBase&) noexcept
{
    return *this;
}

CBase::~CBase() = default;

void CBase::addRef() const noexcept
{
    m_references.fetch_add(1, std::memory_order_relaxed);
}

void CBase::release() const noexcept
{
    if (m_references.fetch_sub(1, std::memory_order_acq_rel) != 1)
        return;
    m_references.store(deletedMark, std::memory_order_relaxed);
    deleteThis();
}

void CBase::checkCastAllowed() const
{
    if (m_references.load(std::memory_order_relaxed) < 0)
        throw CError("The object is being deleted and cannot be handed out any more.");
}

void CBase::deleteThis() const noexcept
{
    delete this;
}

} // namespace kx
