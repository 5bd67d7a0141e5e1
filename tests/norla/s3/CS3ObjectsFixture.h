#pragma once

#include "norla/s3/CS3Objects.h"
#include "norla/s3/CS3StaticCredentials.h"
#include "tests/norla/s3/CS3ClientFixture.h"
#include "tests/support/errorOf.h"

#include <gmock/gmock.h>

#include <string>

/// Objects in a store that is the scripted server of a CRequestFixture; all connections are closed behind their answer.
class CS3ObjectsFixture : public CS3ClientFixture {
protected:
    CS3ObjectsFixture() { m_client->setMaxRetries(0); }

    norla::CS3Client& objectClient() { return *m_client; }
    norla::CS3Objects& objects() { return *m_objects; }

    static std::string reply(const std::string& status, const std::string& headers, const std::string& body = "")
    {
        return "HTTP/1.1 " + status + "\r\nConnection: close\r\n" + headers
            + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    }

    /// Answers a request that has a body of that many bytes.
    void answerBody(int size, const std::string& bytes)
    {
        server().onConnection().readHead().readBytes(static_cast<size_t>(size)).send(bytes);
    }

    std::string requestLine()
    {
        const std::string sent = received();
        return sent.substr(0, sent.find("\r\n"));
    }

    std::string sentBody()
    {
        const std::string sent = received();
        return sent.substr(sent.find("\r\n\r\n") + 4);
    }

    /// That line was among the headers.
    bool hasSent(const std::string& line) { return received().find("\r\n" + line + "\r\n") != std::string::npos; }

    std::string get(const norla::CS3GetOptions& options = {})
    {
        m_info = m_objects->get("b", "k", m_bytes.get(), options);
        return bytes();
    }

    /// What a get has brought, also in vain.
    std::string bytes() const { return {reinterpret_cast<const char*>(m_bytes->getData()), m_bytes->getSize()}; }

    std::string messageOfGet(const norla::CS3GetOptions& options = {})
    {
        return support::messageOf([&] { get(options); }).toUTF8();
    }

    norla::CS3ObjectInfo m_info; // of the last get()

private:
    norla::CS3Endpoint endpoint()
    {
        norla::CS3Endpoint endpoint = norla::CS3Endpoint::ceph(host(), false);
        endpoint.region = "eu-north-1";
        return endpoint;
    }

    const kx::P<norla::CNetRequest::Buffer> m_bytes = kx::newObj<norla::CNetRequest::Buffer>();
    const kx::P<norla::IS3Credentials> m_credentials = kx::newObj<norla::CS3StaticCredentials>(
        norla::CS3Credentials{.accessKeyId = "AKID", .secretAccessKey = secret, .sessionToken = {}, .expiry = {}});
    const kx::P<norla::CS3Client> m_client = kx::newObj<norla::CS3Client>(endpoint(), m_credentials.get());
    const kx::P<norla::CS3Objects> m_objects = kx::newObj<norla::CS3Objects>(m_client.get(), &request());
};
