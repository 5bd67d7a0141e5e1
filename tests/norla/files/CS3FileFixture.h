#pragma once

#include "kx/text/hex.h"
#include "kx/text/numbers.h"
#include "norla/files/CFileTransfer.h"
#include "norla/s3/CS3Client.h"
#include "norla/s3/IS3Credentials.h"
#include "sela/CDigest.h"
#include "tests/norla/files/CFileDownloadFixture.h"

#include <string>
#include <thread>

/// A client of an endpoint at the scripted server. It tries nothing again by itself, and has another key for each
/// signature: AKID1, AKID2 ...
class CS3FileFixture : public CFileDownloadFixture {
protected:
    CS3FileFixture()
        : m_client(clientOf(norla::CS3Endpoint::Signature::V4))
    {
    }

    norla::CS3Client& client() { return *m_client; }

    kx::P<norla::CS3Client> clientOf(norla::CS3Endpoint::Signature signature)
    {
        norla::CS3Endpoint endpoint = norla::CS3Endpoint::ceph("127.0.0.1:" + kx::toString(server().getPort()), false);
        endpoint.region = "eu-north-1";
        endpoint.signature = signature;
        auto client = kx::newObj<norla::CS3Client>(endpoint, kx::newObj<CCountedKeys>().get());
        client->setMaxRetries(0);
        return client;
    }

    static std::string md5Of(const std::string& bytes)
    {
        sela::CDigest digest("MD5");
        digest.update(bytes.data(), bytes.size());
        digest.finish();
        return kx::hexEncode({reinterpret_cast<const char*>(digest.getBytes()), digest.getLength()}).toUTF8();
    }

    static std::string tagOf(const std::string& bytes) { return "\"" + md5Of(bytes) + "\""; }

    /// An answer with a body, after which the connection is closed.
    static std::string answerOf(int status, const std::string& body, const std::string& headers = "")
    {
        return "HTTP/1.1 " + std::to_string(status) + " Some Reason\r\nConnection: close\r\nContent-Length: "
            + std::to_string(body.size()) + "\r\n" + headers + "\r\n" + body;
    }

    static std::string errorOf(int status, const std::string& code, const std::string& headers = "")
    {
        return answerOf(status, "<Error><Code>" + code + "</Code><Message>Because</Message></Error>", headers);
    }

    std::string requestLine(size_t connection)
    {
        const std::string sent = received(connection);
        return sent.substr(0, sent.find("\r\n"));
    }

    /// Pauses the transfer, once that is on its way, and lets it go on.
    static std::thread pauseAndResume(norla::CFileTransfer& transfer, long long least)
    {
        return std::thread([&transfer, least] {
            while (transfer.getProgress().done < least)
                std::this_thread::yield();
            transfer.pause();
            while (transfer.getState() != norla::FileState::Paused)
                std::this_thread::yield();
            transfer.resume();
        });
    }

private:
    class CCountedKeys : public kx::CBase, public virtual norla::IS3Credentials {
    public:
        norla::CS3Credentials get() override
        {
            return {.accessKeyId = "AKID" + kx::toString(++m_count),
                .secretAccessKey = "not/To+Be=Seen",
                .sessionToken = {},
                .expiry = {}};
        }

    private:
        int m_count = 0;
    };

    const kx::P<norla::CS3Client> m_client;
};
