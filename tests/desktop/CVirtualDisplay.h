#pragma once

#include "tests/support/CChildProcess.h"
#include "tests/support/CDescriptor.h"

#include <memory>
#include <string>
#include <vector>

/// An X server without a screen, under a number that nobody else has, as long as the object lives. See CChildProcess
/// for the thread that makes it.
class CVirtualDisplay {
public:
    /// Blocks until windows can be opened.
    /// @throws std::runtime_error when it does not start within 20 seconds
    CVirtualDisplay();

    /// For the environment of a program: where its window goes, and none of the desktop's services, which may start
    /// programs that outlive it.
    std::vector<std::string> environment() const;

private:
    std::unique_ptr<support::CChildProcess> m_server;
    std::string m_number;
};
