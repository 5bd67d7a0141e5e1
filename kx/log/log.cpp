#include "kx/log/log.h"

#include <array>
#include <atomic>
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <utility>

namespace kx {

namespace {

void writeToStandardError(const CLogEntry& entry)
{
    constexpr std::array levels = {"info", "warning", "error"};
    std::string line = std::string(levels[static_cast<size_t>(entry.level)]) + ": " + entry.text.toDisplayUTF8();
    if (!entry.context.isEmpty())
        line += " [" + entry.context.toDisplayUTF8() + "]";
    if (entry.error)
        line += std::string(": ") + entry.error->what();
    if (!entry.dataName.isEmpty())
        line += "\n" + entry.dataName.toDisplayUTF8() + ": " + entry.data.toDisplayUTF8();
    std::cerr << line + '\n'; // one write, so that lines of several processes do not mix
}

using SharedHandler = std::shared_ptr<const LogHandler>;

// Exchanged as a whole and called outside any lock, so that a handler may log and set handlers itself. Never destroyed:
// destructors of static objects log too.
std::atomic<SharedHandler>& currentHandler()
{
    static auto* const handler
        = new std::atomic<SharedHandler>(std::make_shared<const LogHandler>(writeToStandardError));
    return *handler;
}

void write(const CLogEntry& entry)
{
    const SharedHandler handler = currentHandler();
    (*handler)(entry);
}

} // namespace

void setLogHandler(LogHandler handler)
{
    currentHandler() = std::make_shared<const LogHandler>(handler ? std::move(handler) : writeToStandardError);
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
    } catch (const std::exception&) {
        // Not even the log works (out of memory, or a handler that throws): say what needs no allocation.
        std::fputs("An error could not be logged.\n", stderr);
    }
}

void logErrorData(const String& text, const String& dataName, const String& data)
{
    write({LogLevel::error, text, String(), nullptr, dataName, data});
}

} // namespace kx
