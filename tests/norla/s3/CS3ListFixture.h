#pragma once

#include "norla/s3/CS3StaticCredentials.h"
#include "tests/norla/s3/CS3ClientFixture.h"
#include "tests/support/errorOf.h"

#include <gmock/gmock.h>

#include <string>

/// A client of an endpoint, which tries once, for buckets and what is in them. Every connection has one request.
class CS3ListFixture : public CS3ClientFixture {
protected:
    CS3ListFixture() { m_endpointClient->setMaxRetries(0); }

    norla::CS3Client& store() { return *m_endpointClient; }

    void answerDocument(const std::string& document) { answer(answerWith(200, document)); }

    /// Answers a request with a body of that size.
    void answerBody(size_t size, const std::string& document)
    {
        server().onConnection().readHead().readBytes(size).send(answerWith(200, document));
    }

    std::string requestLine(size_t connection = 0)
    {
        const std::string sent = received(connection);
        return sent.substr(0, sent.find("\r\n"));
    }

    std::string sentBody(size_t connection = 0)
    {
        const std::string sent = received(connection);
        return sent.substr(sent.find("\r\n\r\n") + 4);
    }

    /// A document as it is sent, with its root's content.
    static std::string documentToSend(const std::string& root, const std::string& content)
    {
        return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<" + root
            + " xmlns=\"http://s3.amazonaws.com/doc/2006-03-01/\">" + content + "</" + root + ">";
    }

private:
    norla::CS3Endpoint here()
    {
        norla::CS3Endpoint endpoint = norla::CS3Endpoint::ceph(host(), false);
        return endpoint;
    }

    const kx::P<norla::IS3Credentials> m_credentials = kx::newObj<norla::CS3StaticCredentials>(
        norla::CS3Credentials{.accessKeyId = "AKID", .secretAccessKey = secret, .sessionToken = {}, .expiry = {}});
    const kx::P<norla::CS3Client> m_endpointClient = kx::newObj<norla::CS3Client>(here(), m_credentials.get());
};
