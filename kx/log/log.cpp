#include "kx/log/log.h"

#include "kx/text/utf8.h"

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

// What a terminal would act on, and what makes it show the rest of a line in another order.
constexpr bool steersTerminal(wchar_t character) noexcept
{
    const bool isControl = character < 0x20 || (character >= 0x7F && character < 0xA0);
    const bool isDirection = character == 0x061C || character == 0x200E || character == 0x200F
        || (character >= 0x2028 && character <= 0x202E) || (character >= 0x2066 && character <= 0x2069);
    return (isControl && character != L'\t') || isDirection;
}

void appendCode(std::string& line, wchar_t character)
{
    const auto code = static_cast<unsigned>(isScalarValue(character) ? character : character & 0xFF); // or a byte
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), code > 0xFF ? "\\u%04X" : "\\x%02X", code);
    line += text.data();
}

// Text from elsewhere must not look like an entry of its own.
void appendText(std::string& line, std::string_view text)
{
    const std::wstring characters = decodeUTF8KeepingBytes(text);
    for (size_t i = 0; i < characters.size(); ++i) {
        const wchar_t character = characters[i];
        if (character == L'\n')
            line += "\n    ";
        else if (isScalarValue(character) && !steersTerminal(character))
            line += encodeUTF8({&character, 1});
        else if (characters.compare(i, 2, L"\r\n") != 0) // a line end of the network
            appendCode(line, character);
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
