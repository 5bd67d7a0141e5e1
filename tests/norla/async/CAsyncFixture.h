#pragma once

#include "norla/async/CAsyncNetRequestManager.h"
#include "norla/core/CNetRequest.h"
#include "tests/support/CScriptedServer.h"
#include "tests/support/waitUntil.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <sys/select.h>
#include <thread>
#include <utility>
#include <vector>

/// A request that tells when it goes.
class CWatchedRequest : public norla::CNetRequest {
public:
    explicit CWatchedRequest(std::shared_ptr<std::atomic<bool>> gone)
        : m_gone(std::move(gone))
    {
    }
    ~CWatchedRequest() override { *m_gone = true; }

private:
    const std::shared_ptr<std::atomic<bool>> m_gone;
};

/// Runs the test's own code at the end of a transfer.
class CActionListener : public kx::CBase, public virtual norla::CNetRequest::IDoneListener {
public:
    using Action = std::function<void(norla::CNetRequest*, const kx::CError*)>;

    explicit CActionListener(Action action)
        : m_action(std::move(action))
    {
    }

    void onNetRequestDone(norla::CNetRequest* request, const kx::CError* error) override
    {
        ++m_calls;
        m_action(request, error);
    }

    std::atomic<int> m_calls{0};

private:
    const Action m_action;
};

/// Runs the test's own code for each block of a body.
class CActionSink : public kx::CBase, public virtual norla::CNetRequest::IDataSink {
public:
    explicit CActionSink(std::function<void()> action)
        : m_action(std::move(action))
    {
    }

    int write(const unsigned char*, int size, int, const norla::CNetRequest::HeaderMap&) override
    {
        m_action();
        return size;
    }

private:
    const std::function<void()> m_action;
};

/// Requests and a server that answers them as the test wrote, in a process with as many descriptors as desktop programs
/// have: with more, newer libcurls are waited for in another way.
class CAsyncFixture : public testing::Test {
protected:
    using Request = kx::P<norla::CNetRequest>;

    CAsyncFixture()
    {
        rlimit limit{};
        getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = std::min<rlim_t>(limit.rlim_cur, FD_SETSIZE);
        setrlimit(RLIMIT_NOFILE, &limit);
    }

    support::CScriptedServer& server() { return m_server; }

    static std::string ok(const std::string& body)
    {
        return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    }

    /// Answers the next connection with these bytes.
    void answer(const std::string& bytes) { m_server.onConnection().readHead().send(bytes); }

    /// A request to the server, with a URL that libcurl refuses in its first step, or to a server that does not answer.
    Request newRequest() { return requestTo(m_server.url()); }
    static Request badRequest() { return requestTo("nonsense://127.0.0.1/"); }
    Request stalledRequest()
    {
        m_server.onConnection().readHead().stall();
        return newRequest();
    }

    static Request requestTo(const std::string& url)
    {
        auto request = kx::newObj<norla::CNetRequest>();
        request->setURL(kx::String::fromUTF8(url));
        return request;
    }

    static std::string bodyOf(const Request& request)
    {
        const auto buffer = request->getDefaultReceiveBuffer();
        return {reinterpret_cast<const char*>(buffer->getData()), buffer->getSize()};
    }

    /// How the transfer has ended: "success", "not done" or the error's message.
    static std::string resultOf(const Request& request)
    {
        if (!request->isAsyncDone())
            return "not done";
        try {
            request->checkAsyncResult();
        } catch (const kx::CError& error) {
            return error.getMessage().toUTF8();
        }
        return "success";
    }

    static bool waitUntil(const std::function<bool()>& condition) { return support::waitUntil(condition); }

private:
    support::CScriptedServer m_server;
};
