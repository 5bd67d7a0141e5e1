#pragma once

#include "kx/base/CBase.h"
#include "kx/base/P.h"
#include "norla/core/CNetRequest.h"

namespace norla {

/// Lets only a success come to a sink: what a store says of a failure goes where its readers look for it.
class CS3AnswerSink : public kx::CBase, public virtual CNetRequest::IDataSink {
public:
    /// @param failures takes the document of a failure, of which it has the first MiB
    CS3AnswerSink(kx::P<CNetRequest::IDataSink> sink, kx::P<CNetRequest::Buffer> failures);
    CS3AnswerSink(const CS3AnswerSink&) = delete;
    CS3AnswerSink& operator=(const CS3AnswerSink&) = delete;
    ~CS3AnswerSink() override;

    void begin() override
    {
        m_isGiven = false;
        m_sink->begin();
    }
    int write(const unsigned char* data, int size, int responseCode, const HeaderMap& responseHeaders) override;
    void end(int responseCode, const HeaderMap& responseHeaders) override
    {
        m_sink->end(responseCode, responseHeaders);
    }
    bool canBeginAgain() const override { return !m_isGiven || m_sink->canBeginAgain(); }

private:
    const kx::P<CNetRequest::IDataSink> m_sink;
    const kx::P<CNetRequest::Buffer> m_failures;
    bool m_isGiven = false; // anything, to the sink
};

} // namespace norla
