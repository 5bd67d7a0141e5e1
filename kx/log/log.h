#pragma once

#include "kx/base/visibility.h"
#include "kx/text/String.h"

#include <exception>
#include <functional>

namespace kx {

enum class LogLevel { info, warning, error };

/// One entry of the log, as the handler gets it. The references are valid during the call only.
struct CLogEntry {
    LogLevel level;
    const String& text;
    const String& context;       ///< what the text is about; empty when it speaks for itself
    const std::exception* error; ///< the error that led to the entry; null when there is none
    const String& dataName;      ///< name of the attached data; empty when nothing is attached
    const String& data;          ///< text attached for whoever analyses the log, such as a server's answer
};

/// Gets the entries on whichever thread logs, possibly on several at once. What it throws reaches the code that logged.
using LogHandler = std::function<void(const CLogEntry&)>;

/// Replaces the handler; an empty one brings back the default, which writes a line to standard error. An entry that
/// another thread is just logging may still go to the old handler.
///
/// The default handler begins further lines of a text with four blanks, and writes control characters as "\x1B", those
/// that change the direction of writing as "\u202E" and bytes that are not UTF-8 as "\xFC": text from elsewhere can
/// neither look like an entry of its own nor steer a terminal.
KX_EXPORT void setLogHandler(LogHandler handler);

KX_EXPORT void logInfo(const String& text);
KX_EXPORT void logWarning(const std::exception& error, const String& text, const String& context);
KX_EXPORT void logError(const std::exception& error, const String& text, const String& context);

/// The same for where nothing may be thrown, as in destructors and in callbacks of C libraries: what the handler throws
/// is said on standard error. No context.
KX_EXPORT void logErrorQuietly(const std::exception& error, const String& text) noexcept;

/// An error with text attached to it.
KX_EXPORT void logErrorData(const String& text, const String& dataName, const String& data);

} // namespace kx
