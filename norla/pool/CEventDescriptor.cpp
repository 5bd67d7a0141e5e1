#include "norla/pool/CEventDescriptor.h"

#include "kx/base/CError.h"
#include "kx/base/systemErrorText.h"

#include <cerrno>
#include <cstdint>
#include <sys/eventfd.h>
#include <unistd.h>

namespace norla {

namespace {

int newEventDescriptor()
{
    const int descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (descriptor == -1)
        throw kx::CError("Error creating an event descriptor: " + kx::systemErrorText(errno) + ".");
    return descriptor;
}

} // namespace

CEventDescriptor::CEventDescriptor()
    : m_descriptor(newEventDescriptor())
{
}

CEventDescriptor::~CEventDescriptor()
{
    close(m_descriptor);
}

// The counter is far from full: who reads takes all of it.
void CEventDescriptor::signal() noexcept
{
    const std::uint64_t one = 1;
    while (write(m_descriptor, &one, sizeof one) == -1 && errno == EINTR) {
    }
}

void CEventDescriptor::clear() noexcept
{
    std::uint64_t count = 0;
    while (read(m_descriptor, &count, sizeof count) == -1 && errno == EINTR) {
    }
}

} // namespace norla
