#include "kx/base/CBase.h"

#include "kx/base/CError.h"
#include "kx/log/log.h"

#include <cstdint>
#include <cstdio>
#include <limits>
#include <pthread.h>

namespace kx {

namespace {

// So far below zero that references taken and dropped by the destructors of the object never bring the count back to
// one.
constexpr int deletedMark = std::numeric_limits<int>::min() / 2;

// The stack of the running thread.
struct CStack {
    CStack() noexcept
    {
        pthread_attr_t attributes;
        if (pthread_getattr_np(pthread_self(), &attributes) != 0)
            return; // nothing counts as being on it
        void* lowest = nullptr;
        size_t size = 0;
        if (pthread_attr_getstack(&attributes, &lowest, &size) == 0) {
            begin = reinterpret_cast<std::uintptr_t>(lowest);
            end = begin + size;
        }
        pthread_attr_destroy(&attributes);
    }

    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
};

// Between our own frame and the end of the stack, so that what else may lie below a stack that can grow does not count.
// A coroutine with a stack of its own has its frame elsewhere.
bool isOnStack(const void* object) noexcept
{
    static thread_local const CStack stack;
    const auto frame = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    const auto address = reinterpret_cast<std::uintptr_t>(object);
    return frame >= stack.begin && address > frame && address < stack.end;
}

void reportMistake(const char* text) noexcept
{
    try {
        logError(CError(String::fromLatin1(text)), "Wrong use of a counted object.", "");
    } catch (...) { // no memory, or a log handler that throws
        std::fputs("Wrong use of a counted object; it could not be logged.\n", stderr);
    }
}

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

CBase::~CBase()
{
    if (m_references.load(std::memory_order_relaxed) > 0)
        reportMistake("An object goes while references to it are held. Make it with kx::newObj().");
}

void CBase::addRef() const noexcept
{
    m_references.fetch_add(1, std::memory_order_relaxed);
}

void CBase::release() const noexcept
{
    if (m_references.fetch_sub(1, std::memory_order_acq_rel) != 1)
        return;
    if (isOnStack(this)) {
        reportMistake("An object on the stack has lost its last reference. Make it with kx::newObj().");
        return;
    }
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
