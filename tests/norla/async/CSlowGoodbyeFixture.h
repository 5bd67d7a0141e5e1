#pragma once

#include "tests/norla/async/CAsyncFixture.h"

/// Transfers whose servers never answer the goodbye which libcurl says when it closes their connections.
class CSlowGoodbyeFixture : public CAsyncFixture {
protected:
    /// A transfer that needs no data connection, and leaves one that libcurl may use again.
    Request ftpRequest()
    {
        server()
            .onConnection()
            .send("220 hello\r\n")
            .readUntil("USER anonymous\r\n")
            .send("230 in\r\n")
            .readUntil("PWD\r\n")
            .send("257 \"/\"\r\n")
            .readUntil("QUIT\r\n")
            .readToEnd();
        auto request = requestTo(server().url("/", "ftp"));
        request->setOptionInt(CURLOPT_NOBODY, 1);
        return request;
    }

    Request mailRequest()
    {
        server()
            .onConnection()
            .send("220 hello\r\n")
            .readUntil("\r\n")
            .send("250 you are welcome\r\n")
            .readUntil("HELP\r\n")
            .send("214 fine\r\n")
            .readUntil("QUIT\r\n")
            .readToEnd();
        return requestTo(server().url("/", "smtp"));
    }

    /// The goodbye is said all the same.
    void expectGoodbye()
    {
        EXPECT_TRUE(waitUntil([this] { return server().received(0).ends_with("QUIT\r\n"); })) << server().received(0);
    }
};
