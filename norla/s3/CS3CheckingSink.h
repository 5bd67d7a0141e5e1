#pragma once

#include "kx/base/CBase.h"
#include "kx/base/P.h"
#include "kx/text/String.h"
#include "norla/core/CNetRequest.h"
#include "norla/s3/CS3BodyDigest.h"
#include "norla/s3/CS3GetOptions.h"

#include <vector>

namespace norla {

/// Lets come to a sink only what was asked for of an object, and compares the whole of it with what the store says of
/// its bytes. Nothing of it is kept.
class CS3CheckingSink : public kx::CBase, public virtual CNetRequest::IDataSink {
public:
    /// @param what it is, such as "the object 'k' in the bucket 'b'", for errors
    CS3CheckingSink(kx::P<CNetRequest::IDataSink> sink, const CS3GetOptions& options, const kx::String& what);
    CS3CheckingSink(const CS3CheckingSink&) = delete;
    CS3CheckingSink& operator=(const CS3CheckingSink&) = delete;
    ~CS3CheckingSink() override;

    void begin() override;

    /// @throws kx::CError "The store was asked for ... and gave something else: ...", before a byte that was not asked
    /// for comes to the sink
    int write(const unsigned char* data, int size, int responseCode, const HeaderMap& responseHeaders) override;

    /// @throws as write(), also where less has come; kx::CError naming both digests where they differ
    void end(int responseCode, const HeaderMap& responseHeaders) override;
    bool canBeginAgain() const override { return m_sink->canBeginAgain(); }

    /// Of the whole object, in bytes; -1 when nobody says. Behind a success.
    long long getTotal() const noexcept { return m_total; }

private:
    void look(int responseCode, const HeaderMap& headers);
    void lookAtPart(int responseCode, const HeaderMap& headers, long long length);
    [[noreturn]] void refuse(int responseCode, const HeaderMap& headers, const kx::String& came) const;
    bool isWhole() const noexcept { return m_start == 0 && m_length == -1; }

    const kx::P<CNetRequest::IDataSink> m_sink;
    const long long m_start;
    const long long m_length;
    const long long m_mostBytes;
    const bool m_verifies;
    const kx::String m_what;
    bool m_hasLooked = false;
    long long m_received = 0;
    long long m_expected = -1; // bytes; -1: not known
    long long m_most = -1;     // that may come; -1: any number
    long long m_total = -1;
    std::vector<CS3BodyDigest> m_digests;
};

} // namespace norla
