#pragma once

#include "norla/core/CCURLError.h"
#include "norla/core/CNetRequest.h"
#include "norla/core/CNetStringList.h"
#include "tests/support/CScriptedServer.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

/// A request and a server that answers it as the test wrote.
class CRequestFixture : public testing::Test {
protected:
    // A scripted server does not answer "Expect: 100-continue" by itself; nothing is gained by waiting for it.
    CRequestFixture() { m_request->setOptionInt(CURLOPT_EXPECT_100_TIMEOUT_MS, 1); }

    norla::CNetRequest& request() { return *m_request; }
    support::CScriptedServer& server() { return m_server; }

    /// Without open connections.
    void useNewRequest() { m_request = kx::newObj<norla::CNetRequest>(); }

    /// Answers the next connection's first request with these bytes.
    support::CScript& answer(const std::string& bytes) { return m_server.onConnection().readHead().send(bytes); }

    /// An answer of the status 200 with this body.
    static std::string ok(const std::string& body, const std::string& headers = "")
    {
        return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" + headers + "\r\n" + body;
    }

    void performPath(const std::string& path = "/")
    {
        m_request->setURL(kx::String::fromUTF8(m_server.url(path)));
        m_request->perform();
    }

    /// The error that a transfer ends with, null when it succeeds.
    kx::P<kx::CError> failureOf(const std::string& path = "/")
    {
        m_request->setURL(kx::String::fromUTF8(m_server.url(path)));
        return failure();
    }

    kx::P<kx::CError> failure()
    {
        try {
            m_request->perform();
        } catch (const kx::CError& error) {
            return error.clone();
        }
        return nullptr;
    }

    /// Shows that the request works, whatever happened to it before.
    void expectGoodTransfer()
    {
        support::CScriptedServer another;
        another.onConnection().readHead().send(ok("good"));
        m_request->reset();
        m_request->setURL(kx::String::fromUTF8(another.url()));
        m_request->perform();
        EXPECT_EQ(body(), "good");
    }

    std::string body()
    {
        const auto buffer = m_request->getDefaultReceiveBuffer();
        return {reinterpret_cast<const char*>(buffer->getData()), buffer->getSize()};
    }

    kx::String header(const kx::String& name) const
    {
        const auto found = m_request->getResponseHeaderMap().find(name);
        return found == m_request->getResponseHeaderMap().end() ? "(missing)" : found->second;
    }

    std::vector<kx::String> responseLines() const
    {
        std::vector<kx::String> lines;
        for (const auto line = m_request->getResponseInfo()->createIterator(); line->next();)
            lines.push_back(line->getCurrent());
        return lines;
    }

    /// What the server read on its connection of that number, once its script is over.
    std::string received(size_t connection = 0)
    {
        m_server.join();
        EXPECT_EQ(m_server.problems(), std::vector<std::string>());
        return m_server.received(connection);
    }

private:
    support::CScriptedServer m_server;
    kx::P<norla::CNetRequest> m_request = kx::newObj<norla::CNetRequest>();
};
