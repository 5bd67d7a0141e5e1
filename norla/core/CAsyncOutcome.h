#pragma once

#include "kx/base/P.h"
#include "kx/text/String.h"
#include "kx/threads/CMutex.h"
#include "kx/threads/CSignal.h"

#include <curl/curl.h>

namespace norla {

/// How a transfer in the background has ended, once it has. The signal and the mutex are for any thread; what they
/// guard, and whatever of the request the mutex is to keep still meanwhile, is looked at and changed under the mutex.
class CAsyncOutcome {
public:
    kx::CMutex& getMutex() noexcept { return m_mutex; }
    const kx::P<kx::CSignal>& getDoneSignal() const noexcept { return m_done; }

    /// A transfer begins. @param result until it is known
    void begin(CURLcode result)
    {
        m_done->reset();
        set(result, kx::String());
    }

    /// The signal is set by CSetAtEnd.
    void set(CURLcode result, const kx::String& message)
    {
        m_message = message;
        m_result = result;
    }

    CURLcode getResult() const noexcept { return m_result; }

    /// What libcurl said about a failure.
    const kx::String& getMessage() const noexcept { return m_message; }

    /// Sets the done signal when it goes. Whoever waits may use the request from that moment on.
    class CSetAtEnd {
    public:
        explicit CSetAtEnd(CAsyncOutcome& outcome)
            : m_outcome(outcome)
        {
        }
        CSetAtEnd(const CSetAtEnd&) = delete;
        CSetAtEnd& operator=(const CSetAtEnd&) = delete;
        ~CSetAtEnd() { m_outcome.m_done->set(); }

    private:
        CAsyncOutcome& m_outcome;
    };

private:
    const kx::P<kx::CSignal> m_done = kx::newObj<kx::CSignal>();
    kx::CMutex m_mutex;
    CURLcode m_result = CURLE_OK;
    kx::String m_message;
};

} // namespace norla
