#pragma once

#include "kx/log/log.h"

#include <array>
#include <mutex>
#include <string>
#include <vector>

namespace support {

/// Takes the log's entries in place of standard error, as long as it lives. One at a time; any thread may log.
class CLogRecorder {
public:
    CLogRecorder()
    {
        kx::setLogHandler([this](const kx::CLogEntry& entry) { record(entry); });
    }
    CLogRecorder(const CLogRecorder&) = delete;
    CLogRecorder& operator=(const CLogRecorder&) = delete;
    ~CLogRecorder() { kx::setLogHandler({}); }

    /// One line an entry: "warning: text [context]: error {data name: data}".
    std::vector<std::string> lines() const
    {
        const std::lock_guard lock(m_mutex);
        return m_lines;
    }

private:
    void record(const kx::CLogEntry& entry)
    {
        constexpr std::array levels = {"info", "warning", "error"};
        std::string line = std::string(levels[static_cast<size_t>(entry.level)]) + ": " + entry.text.toUTF8();
        if (!entry.context.isEmpty())
            line += " [" + entry.context.toUTF8() + "]";
        if (entry.error)
            line += std::string(": ") + entry.error->what();
        if (!entry.dataName.isEmpty())
            line += " {" + entry.dataName.toUTF8() + ": " + entry.data.toUTF8() + "}";
        const std::lock_guard lock(m_mutex);
        m_lines.push_back(line);
    }

    mutable std::mutex m_mutex;
    std::vector<std::string> m_lines;
};

} // namespace support
