#pragma once

#include "examples/CGetFile.h"
#include "examples/amounts.h"
#include "examples/terminal.h"
#include "kx/log/log.h"
#include "norla/files/CFileQueue.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

using GetFiles = std::vector<std::unique_ptr<CGetFile>>;

/// As long as it lives, what the library logs is kept for somebody who shows it: lines in between would be drawn over.
class CLoggedLines {
public:
    struct CLine {
        kx::String text;
        bool isError;
    };

    CLoggedLines()
    {
        kx::setLogHandler([lines = m_lines](const kx::CLogEntry& entry) {
            kx::String text = entry.text;
            if (entry.error)
                text += ": " + shownPath(entry.error->what());
            const std::lock_guard lock(lines->mutex);
            lines->lines.push_back({text, entry.level != kx::LogLevel::info});
        });
    }
    CLoggedLines(const CLoggedLines&) = delete;
    CLoggedLines& operator=(const CLoggedLines&) = delete;
    ~CLoggedLines() { kx::setLogHandler({}); }

    std::vector<CLine> take()
    {
        const std::lock_guard lock(m_lines->mutex);
        return std::exchange(m_lines->lines, {});
    }

private:
    struct CLines { // which a thread may still be writing to when this has gone
        std::mutex mutex;
        std::vector<CLine> lines;
    };

    const std::shared_ptr<CLines> m_lines = std::make_shared<CLines>();
};

/// What the program get shows on standard error: lines that stay, and on a terminal below them, drawn again in place, a
/// line for each file that is on its way, and one for all.
class CGetView {
public:
    CGetView(const GetFiles& files, bool isQuiet)
        : m_files(files)
        , m_isQuiet(isQuiet)
        , m_isDrawn(!isQuiet && canGoUp(STDERR_FILENO))
    {
    }
    CGetView(const CGetView&) = delete;
    CGetView& operator=(const CGetView&) = delete;
    ~CGetView() { draw({}); }

    /// A line that stays. @param isError shown to who wants it quiet, too
    void say(const kx::String& line, bool isError)
    {
        sayLogged();
        addSaid(line, isError);
    }

    /// Draws what is on its way.
    void show(const norla::CFileQueueSummary& summary)
    {
        std::vector<std::string> lines;
        if (m_isDrawn) {
            const CTerminalSize size = terminalSize(STDERR_FILENO);
            m_columns = size.columns - 1; // in the last one the cursor might wrap
            addFiles(std::max<size_t>(size.rows, 3) - 2, lines);
            if (m_files.size() > 1)
                lines.push_back(lineOfAll(summary));
        }
        draw(lines);
    }

private:
    static std::string percentOf(long long done, const std::optional<long long>& total)
    {
        if (total.value_or(0) <= 0)
            return "";
        const double part = std::min(static_cast<double>(done) / static_cast<double>(*total), 1.0);
        return std::to_string(static_cast<int>(100 * part)) + '%';
    }

    static std::string rateOf(double bytesPerSecond)
    {
        return bytesPerSecond > 0 ? shownSize(bytesPerSecond) + "/s" : "";
    }

    static std::string restOf(const std::optional<double>& seconds)
    {
        return seconds ? shownTime(*seconds) + " left" : "";
    }

    /// @param values what there is room for, from the first one on; each to the right in its column
    std::string line(const kx::String& name, const std::vector<std::string>& values) const
    {
        constexpr std::array<size_t, 4> widths{5, 10, 12, 14};
        constexpr size_t leastName = 8;
        std::string right;
        for (size_t i = 0; i < values.size() && right.size() + widths[i] + leastName <= m_columns; ++i)
            right += std::string(widths[i] - std::min(widths[i], values[i].size()), ' ') + values[i];
        return filled(name, m_columns - right.size()) + right;
    }

    void addFiles(size_t rows, std::vector<std::string>& lines) const
    {
        for (const auto& file : m_files) {
            const norla::FileState state = file->download().getState();
            if (file->hasEnded() || state == norla::FileState::Waiting || lines.size() == rows)
                continue;
            const norla::CFileProgress progress = file->download().getProgress();
            const std::string rest = state == norla::FileState::Finishing ? "checking" : restOf(progress.secondsLeft);
            lines.push_back(line(file->name(),
                {percentOf(progress.done, progress.total), shownSize(static_cast<double>(progress.done)),
                    rateOf(progress.bytesPerSecond), rest}));
        }
    }

    std::string lineOfAll(const norla::CFileQueueSummary& summary) const
    {
        const auto here
            = std::count_if(m_files.begin(), m_files.end(), [](const auto& file) { return file->isHere(); });
        const kx::String name = kx::toString(static_cast<long long>(here)) + " of "
            + kx::toString(static_cast<long long>(m_files.size())) + " files";
        return line(name,
            {percentOf(summary.doneBytes, summary.totalBytes), shownSize(static_cast<double>(summary.doneBytes)),
                rateOf(summary.bytesPerSecond), restOf(summary.secondsLeft)});
    }

    void addSaid(const kx::String& line, bool isError)
    {
        if (isError || !m_isQuiet)
            m_said += printable("get: " + line) + '\n';
    }

    void sayLogged()
    {
        for (const CLoggedLines::CLine& logged : m_logged.take())
            addSaid(logged.text, logged.isError);
    }

    /// In one piece, so that nothing flickers.
    void draw(const std::vector<std::string>& lines)
    {
        sayLogged();
        std::string text;
        for (const std::string& line : lines)
            text += line + "\033[K\n";
        if (m_said.empty() && text == m_shown)
            return;
        std::string whole = m_shownLines > 0 ? "\033[" + std::to_string(m_shownLines) + "A" : "";
        whole += m_isDrawn ? "\r\033[J" + m_said + text : m_said;
        std::fputs(whole.c_str(), stderr);
        m_said.clear();
        m_shown = text;
        m_shownLines = lines.size();
    }

    const GetFiles& m_files;
    const bool m_isQuiet;
    const bool m_isDrawn;
    CLoggedLines m_logged;
    size_t m_columns = 0;
    std::string m_said;
    std::string m_shown;
    size_t m_shownLines = 0;
};
