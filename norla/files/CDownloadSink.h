#pragma once

#include "kx/base/CBase.h"
#include "norla/core/CNetRequest.h"
#include "norla/files/downloadAnswer.h"

#include <mutex>
#include <optional>

namespace norla {

class CPartFile;

/// Writes what one connection brings to its place in the part, once the answer is what was asked for and continues the
/// bytes that are there. write() on the thread of the transfer, everything else on any; expect() while no transfer is
/// under way.
class CDownloadSink : public kx::CBase, public virtual CNetRequest::IDataSink {
public:
    /// What of the resource a connection is to bring.
    struct CTask {
        long long start = 0;          ///< of the first byte that is missing
        std::optional<long long> end; ///< behind the last one; empty: all that comes
        long long overlap = 0;        ///< bytes before it that are there, and are asked for again to be compared
    };

    /// @param request, part outlive this object's use
    CDownloadSink(CNetRequest& request, CPartFile& part);
    ~CDownloadSink() override;

    /// What the next attempt is to bring, and what is known of the resource by then.
    void expect(const CTask& task, const CKnownResource& known);

    CAskedPart getAsked() const;

    void begin() override;
    int write(
        const unsigned char* data, int size, int responseCode, const CNetRequest::HeaderMap& responseHeaders) override;
    void end(int responseCode, const CNetRequest::HeaderMap& responseHeaders) override;
    bool canBeginAgain() const override { return true; }

    /// Where the attempt is, and what it has come to.
    struct CStatus {
        long long start = 0;    ///< as CTask::start
        long long position = 0; ///< behind the last byte that was written
        std::optional<long long> end;
        bool isJudged = false; ///< the answer was what was asked for
        bool isOther = false;  ///< another resource than before, or one without parts: AnswerVerdict::StartAnew
        bool isDone = false;   ///< it has brought all up to its end, or to the resource's
        CKnownResource known;
    };
    CStatus getStatus() const;

    /// Lets another connection bring what is behind that position.
    /// @return false when it is that far already, or not much before
    bool yieldFrom(long long position);

private:
    void judge(int responseCode, const CNetRequest::HeaderMap& headers);
    size_t compare(const unsigned char* data, size_t size);
    [[noreturn]] void startAnew();

    CNetRequest& m_request;
    CPartFile& m_part;
    mutable std::mutex m_mutex;
    CTask m_task;
    bool m_isPart = false;
    long long m_position = 0; // in the resource, of the next byte that comes
    CStatus m_status;
};

} // namespace norla
