#include "kx/log/log.h"

#include <array>
#include <cstdio>
#include <iostream>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

namespace kx {

namespace {

void appendControl(std::string& line, char byte)
{
    constexpr std::string_view digits = "0123456789ABCDEF";
    const auto value = static_cast<unsigned char>(byte);
    line += "\\x";
    line += digits[value >> 4];
    line += digits[value & 0xF];
}

// Text from elsewhere must not look like an entry of its own.
void appendText(std::string& line, std::string_view text)
{
    for (size_t i = 0; i < text.size(); ++i) {
        const auto value = static_cast<unsigned char>(text[i]);
        if (text[i] == '\n')
            line += "\n    ";
        else if ((value >= 0x20 && value != 0x7F) || text[i] == '\t')
            line += text[i];
        else if (text.substr(i, 2) != "\r\n") // a line end of the network
            appendControl(line, text[i]);
    }
}

void writeToStandardError(const CLogEntry& entry)
{
    constexpr std::array levels = {"info", "warning", "error"};
    std::string line = std::string(levels[static_cast<size_t>(entry.level)]) + ": ";
    appendText(line, entry.text.toDisplayUTF8());
    if (!entry.context.isEmpty())
        appendText(line, " [" + entry.context.toDisplayUTF8() + "]");
    if (entry.error && entry.error->what())
        appendText(line, std::string(": ") + entry.error->what());
    if (!entry.dataName.isEmpty()) {
        line += '\n';
        appendText(line, entry.dataName.toDisplayUTF8() + ": " + entry.data.toDisplayUTF8());
    }
    std::cerr << line + '\n'; // one write, so that lines of several processes do not mix
}

using SharedHandler = std::shared_ptr<const LogHandler>;

// Exchanged as a whole, called and destroyed outside the lock, so that a handler may log and set handlers itself. (An
// atomic<shared_ptr> has no lock, but a data race in g++ 12's library.)
class CCurrentHandler {
public:
    SharedHandler get()
    {
        const std::lock_guard lock(m_mutex);
        return m_handler;
    }

    void set(SharedHandler handler)
    {
        const std::lock_guard lock(m_mutex);
        m_handler.swap(handler);
    }

private:
    std::mutex m_mutex;
    SharedHandler m_handler = std::make_shared<const LogHandler>(writeToStandardError);
};

// Never destroyed: destructors of static objects log too.
CCurrentHandler& currentHandler()
{
    static auto* const handler = new CCurrentHandler;
    return *handler;
}

void write(const CLogEntry& entry)
{
    const SharedHandler handler = currentHandler().get();
    (*handler)(entry);
}

} // namespace

void setLogHandler(LogHandler handler)
{
    currentHandler().set(std::make_shared<const LogHandler>(handler ? std::move(handler) : writeToStandardError));
}

void logInfo(const String& text)
{
    write({LogLevel::info, text, String(), nullptr, String(), String()});
}

void logWarning(const std::exception& error, const String& text, const String& context)
{
    write({LogLevel::warning, text, context, &error, String(), String()});
}

void logError(const std::exception& error, const String& text, const String& context)
{
    write({LogLevel::error, text, context, &error, String(), String()});
}

void logErrorQuietly(const std::exception& error, const String& text) noexcept
{
    try {
        logError(error, text, String());
    } catch (...) {
        // Not even the log works (out of memory, or a handler that throws): say what needs no allocation.
        std::fputs("An error could not be logged.\n", stderr);
    }
}

void logErrorData(const String& text, const String& dataName, const String& data)
{
    write({LogLevel::error, text, String(), nullptr, dataName, data});
}

} // namespace kx
