#pragma once

#include "kx/streams/CBufferStream.h"
#include "norla/core/CNetRequest.h"
#include "tests/support/CDescriptor.h"
#include "tests/support/systemError.h"

#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <thread>
#include <vector>

namespace live {

/// A file that takes a few bytes and then no more: who writes to its end waits as long as the object lives, and answers
/// nobody meanwhile. (It is a pipe that nobody reads.)
class CStuckFile {
public:
    /// @throws std::system_error if there is something of that name
    explicit CStuckFile(const std::filesystem::path& path)
    {
        support::checked(mkfifo(path.c_str(), S_IRUSR | S_IWUSR), "mkfifo");
        m_reader
            = support::CDescriptor(support::checked(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC), "open"));
    }

    /// Lets a request append more to a file than this one takes.
    static void appendMuch(norla::CNetRequest& request)
    {
        constexpr int size = 4 << 20;
        const auto stream = kx::newObj<kx::CBufferStream>();
        stream->write(std::vector<unsigned char>(size).data(), size);
        stream->seek(0);
        request.setUpload(true);
        request.setOptionInt(CURLOPT_APPEND, 1);
        request.setSendDataStream(stream.get());
    }

    /// @return whether it has taken so much that the next piece is too large, within 20 seconds
    bool waitUntilStuck() const
    {
        const int enough = support::checked(fcntl(m_reader.get(), F_GETPIPE_SZ), "fcntl") / 2;
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        int taken = 0;
        while (taken < enough && std::chrono::steady_clock::now() < limit) {
            support::checked(ioctl(m_reader.get(), FIONREAD, &taken), "ioctl");
            std::this_thread::yield();
        }
        return taken >= enough;
    }

private:
    support::CDescriptor m_reader;
};

} // namespace live
