#pragma once

#include "norla/s3/IS3Credentials.h"
#include "tests/norla/s3/CS3ClientFixture.h"

#include <string>

/// Other ones for each signature: AKID1, AKID2 ...
class CNumberedCredentials : public kx::CBase, public virtual norla::IS3Credentials {
public:
    norla::CS3Credentials get() override
    {
        return {
            .accessKeyId = "AKID" + kx::toString(++m_count), .secretAccessKey = "s", .sessionToken = {}, .expiry = {}};
    }

private:
    int m_count = 0;
};

/// A client of an endpoint at the scripted server, and what stores answer to uploads by parts.
class CMultipartFixture : public CS3ClientFixture {
protected:
    CMultipartFixture() { m_store->setMaxRetries(0); }

    norla::CS3Client& store() { return *m_store; }

    static std::string created(const std::string& id)
    {
        return answerWith(200,
            "<InitiateMultipartUploadResult><Bucket>bucket</Bucket><UploadId>" + id
                + "</UploadId></InitiateMultipartUploadResult>");
    }

    static std::string completed(const std::string& eTag)
    {
        return answerWith(200,
            "<?xml version=\"1.0\"?><CompleteMultipartUploadResult><ETag>" + eTag
                + "</ETag></CompleteMultipartUploadResult>");
    }

    static std::string stored(const std::string& eTag, const std::string& headers = "")
    {
        return "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 0\r\nETag: " + eTag + "\r\n" + headers + "\r\n";
    }

    static std::string part(int number, long long size, const std::string& eTag)
    {
        return "<Part><PartNumber>" + std::to_string(number) + "</PartNumber><ETag>" + eTag + "</ETag><Size>"
            + std::to_string(size) + "</Size></Part>";
    }

    static std::string partList(const std::string& parts, const std::string& more = "<IsTruncated>false</IsTruncated>")
    {
        return answerWith(200, "<ListPartsResult>" + parts + more + "</ListPartsResult>");
    }

    void answerBody(size_t size, const std::string& bytes)
    {
        server().onConnection().readHead().readBytes(size).send(bytes);
    }

    /// Takes the list of parts and answers so.
    void answerCompletion(const std::string& bytes)
    {
        server().onConnection().readHead().readUntil("</CompleteMultipartUpload>").send(bytes);
    }

    std::string requestLine(size_t connection)
    {
        const std::string sent = received(connection);
        return sent.substr(0, sent.find("\r\n"));
    }

    std::string bodyReceived(size_t connection)
    {
        const std::string sent = received(connection);
        return sent.substr(sent.find("\r\n\r\n") + 4);
    }

private:
    norla::CS3Endpoint endpoint()
    {
        norla::CS3Endpoint endpoint = norla::CS3Endpoint::ceph(host(), false);
        endpoint.region = "eu-north-1";
        return endpoint;
    }

    const kx::P<norla::IS3Credentials> m_credentials = kx::newObj<CNumberedCredentials>();
    const kx::P<norla::CS3Client> m_store = kx::newObj<norla::CS3Client>(endpoint(), m_credentials.get());
};
