#include "kx/log/log.h"

#include <fstream>
#include <memory>
#include <mutex>
#include <string>

// Writes the log of the library to a file in place of standard error.
void logToFile(const std::string& name)
{
    const auto file = std::make_shared<std::ofstream>(name, std::ios::app);
    const auto mutex = std::make_shared<std::mutex>(); // any thread may log
    kx::setLogHandler([file, mutex](const kx::CLogEntry& entry) {
        const std::lock_guard lock(*mutex);
        *file << (entry.level == kx::LogLevel::error ? "error: " : "") << entry.text;
        if (entry.error)
            *file << ": " << entry.error->what();
        *file << std::endl; // flushed at once, for the case that the program ends badly
    });
}
