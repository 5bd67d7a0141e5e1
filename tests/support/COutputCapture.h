#pragma once

#include "tests/support/CDescriptor.h"

#include <string>

namespace support {

/// A pipe or a terminal that a program writes to, and what it has written.
class COutputCapture {
public:
    /// @param isTerminal a pseudo-terminal of 80 columns that changes no byte, and not a pipe
    /// @throws std::system_error
    explicit COutputCapture(bool isTerminal);

    /// @return the end for the program; -1 after closeTheirEnd()
    int theirEnd() const;

    /// Closes our copy of the program's end, without which the end of the output would never come.
    void closeTheirEnd();

    /// @return the descriptor to wait on with poll(); -1 when the output has ended
    int ourEnd() const;

    /// Reads once; blocks as long as there is nothing.
    /// @throws std::system_error
    void read();

    const std::string& text() const;

private:
    void openTerminal();
    void openPipe();

    CDescriptor m_ourEnd;
    CDescriptor m_theirEnd;
    std::string m_text;
};

} // namespace support
