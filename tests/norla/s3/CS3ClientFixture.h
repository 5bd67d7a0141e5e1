#pragma once

#include "kx/text/numbers.h"
#include "norla/core/CNetHeaders.h"
#include "norla/s3/CS3Client.h"
#include "tests/norla/core/CRequestFixture.h"

#include <string>

/// A client whose store is the scripted server of a CRequestFixture.
class CS3ClientFixture : public CRequestFixture {
protected:
    static constexpr char secret[] = "not/To+Be=Seen";

    norla::CS3Client& client() { return *m_client; }

    kx::String host() { return "127.0.0.1:" + kx::toString(server().getPort()); }

    /// An answer with a body, after which the connection is closed.
    static std::string answerWith(int status, const std::string& body)
    {
        return "HTTP/1.1 " + std::to_string(status)
            + " Some Reason\r\nConnection: close\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    }

    static std::string errorDocument(const std::string& code)
    {
        return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><Error><Code>" + code
            + "</Code><Message>Because</Message><Resource>/bucket/key</Resource><RequestId>tx01</RequestId></Error>";
    }

    /// The value of a header that the request is going to send; "(missing)" when it is not.
    kx::String sentHeader(const kx::String& name)
    {
        kx::TMap<kx::String, kx::String> map;
        if (const auto headers = request().getCustomHTTPHeaders())
            headers->fillMap(map);
        const auto found = map.find(name.toLower());
        return found == map.end() ? "(missing)" : found->second;
    }

private:
    kx::P<norla::CS3Client> m_client = kx::newObj<norla::CS3Client>("AKID", secret, false, host());
};
