#pragma once

#include "kx/log/log.h"

#include <array>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace support {

/// Takes the log's entries in place of standard error, as long as it lives. One at a time; any thread may log, also
/// while it goes: the handler owns the lines, since a call that has begun is not waited for.
class CLogRecorder {
public:
    CLogRecorder()
    {
        kx::setLogHandler([lines = m_lines](const kx::CLogEntry& entry) { lines->add(lineOf(entry)); });
    }
    CLogRecorder(const CLogRecorder&) = delete;
    CLogRecorder& operator=(const CLogRecorder&) = delete;
    ~CLogRecorder() { kx::setLogHandler({}); }

    /// One line an entry: "warning: text [context]: error {data name: data}".
    std::vector<std::string> lines() const { return m_lines->get(); }

private:
    class CLines {
    public:
        std::vector<std::string> get() const
        {
            const std::lock_guard lock(m_mutex);
            return m_lines;
        }

        void add(std::string line)
        {
            const std::lock_guard lock(m_mutex);
            m_lines.push_back(std::move(line));
        }

    private:
        mutable std::mutex m_mutex;
        std::vector<std::string> m_lines;
    };

    static std::string lineOf(const kx::CLogEntry& entry)
    {
        constexpr std::array levels = {"info", "warning", "error"};
        std::string line = std::string(levels[static_cast<size_t>(entry.level)]) + ": " + entry.text.toUTF8();
        if (!entry.context.isEmpty())
            line += " [" + entry.context.toUTF8() + "]";
        if (entry.error)
            line += std::string(": ") + entry.error->what();
        if (!entry.dataName.isEmpty())
            line += " {" + entry.dataName.toUTF8() + ": " + entry.data.toUTF8() + "}";
        return line;
    }

    const std::shared_ptr<CLines> m_lines = std::make_shared<CLines>();
};

} // namespace support
