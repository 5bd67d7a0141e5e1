#pragma once

#include "norla/files/CS3FileUpload.h"
#include "tests/norla/files/CS3FileFixture.h"

#include <functional>
#include <string>
#include <thread>

/// A file, and a store that answers as the test wrote. Objects are replaced unless a test says otherwise.
class CS3FileUploadFixture : public CS3FileFixture {
protected:
    static constexpr size_t partSize = 5 << 20;

    CS3FileUploadFixture()
    {
        m_options.overwrite = true;
        m_options.partSize = partSize;
        m_options.atOnce = 1;
        m_options.retries = options().retries;
        m_options.pool = options().pool;
    }

    void write(const std::string& bytes) const { folder().write("file", bytes); }

    kx::P<norla::CS3FileUpload> upload()
    {
        return kx::newObj<norla::CS3FileUpload>(&client(), target(), "bucket", "key", m_options);
    }
    kx::P<kx::CError> failure() { return failureOf(*upload()); }

    /// Takes a body of that size on the next connection.
    support::CScript& take(size_t size, const std::string& bytes)
    {
        return server().onConnection().readHead().readBytes(size).send(bytes).close();
    }

    static std::string stored(const std::string& bytes) { return answerOf(200, "", "ETag: " + tagOf(bytes) + "\r\n"); }

    /// To a question for the object.
    void answerSize(size_t size)
    {
        answer("HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: " + std::to_string(size) + "\r\n\r\n");
    }
    void answerMissing() { answer("HTTP/1.1 404 Not Found\r\nConnection: close\r\nContent-Length: 0\r\n\r\n"); }

    /// What a transfer ends with that is cancelled as soon as something is so.
    static kx::P<kx::CError> failureOfCancelled(norla::CS3FileUpload& file, const std::function<bool()>& isSo)
    {
        std::thread canceller([&] {
            while (!isSo())
                std::this_thread::yield();
            file.cancel();
        });
        const auto error = failureOf(file);
        canceller.join();
        return error;
    }

    norla::CS3FileUploadOptions m_options;
};
