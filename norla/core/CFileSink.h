#pragma once

#include "kx/files/COutputFile.h"
#include "norla/core/CNetRequest.h"

namespace norla {

/// Puts the body of a transfer into a file that appears under its name whole or not at all (kx::COutputFile says how):
///
///     const auto sink = kx::newObj<CFileSink>(*request, path);
///     request->setReceiveDataSink(sink.get());
///     request->perform();
///     sink->finish();
///
/// Without finish(), because the transfer has failed or for any other reason, nothing of it stays and an older file of
/// that name is untouched. A transfer that is performed again begins anew. The text that explains an HTTP error (status
/// 300 and above) is not the file: it goes to the request's default receive buffer, up to 64 KiB of it, where the
/// transfer's error finds the server's words. An answer of HTTP that breaks off in its header is an error, as long as
/// the sink is the request's own and no part of another one.
///
/// The rest of a file of which the beginning is there:
///
///     const auto sink = kx::newObj<CFileSink>(*request, path, CFileSink::Older::Resume);
///     request->setRange(sink->getFile().getLength(), -1);
///
/// It has two descriptors from the start to finish() or its own end: who fetches more files than a process may have
/// open makes each one when its transfer starts, as examples/downloads.cpp does.
///
/// Used by one thread at a time: after a transfer in the background, once that has ended.
class KX_EXPORT CFileSink : public kx::CBase, public virtual CNetRequest::IDataSink {
public:
    /// What becomes of an older file of that name, at the end of all. Its content is copied where it stays.
    enum class Older {
        /// The body takes its place.
        Replace,

        /// The body comes behind what it holds, whatever it is.
        Append,

        /// Where the server has sent the part behind it (status 206), that comes behind what it holds; another part is
        /// an error, and so is one that ends before the resource does: a range of the caller's own (setRange()) has no
        /// end. A body that is the whole resource takes its place, an empty one too. Other protocols than HTTP tell
        /// neither: there it is as Append. That the resource is still the same is for the caller to see to (a header
        /// line "If-Range").
        Resume
    };

    /// @param request whose body it is; no reference is kept
    /// @throws kx::CError which names path and reason when the file cannot be made, or the older one not copied
    CFileSink(CNetRequest& request, const CNetRequest::Path& path, Older older = Older::Replace);
    ~CFileSink() override;

    void begin() override;

    /// @throws kx::CError which names path and reason when the file takes no more, or the server has sent another part
    /// than the one that is missing; the transfer ends with it
    int write(
        const unsigned char* data, int size, int responseCode, const CNetRequest::HeaderMap& responseHeaders) override;

    /// @throws kx::CError which names path and reason when the server has sent less than the rest that is missing
    void end(int responseCode, const CNetRequest::HeaderMap& responseHeaders) override;
    bool canBeginAgain() const override { return true; }

    /// Gives the file its name, on success of the transfer, once. After a failure that keeps what has come so far.
    /// @throws kx::CError which names path and reason; also when no transfer has used this sink
    /// (CNetRequest::setReceiveDataSink() was forgotten), and an older file stays then
    void finish();

    /// How many bytes it has, and what to remove when the program ends by a signal (kx::COutputFile::getPartPath()).
    kx::COutputFile& getFile() const noexcept { return *m_file; }

private:
    void goOn(int responseCode, const CNetRequest::HeaderMap& responseHeaders);
    void requireRest(const CNetRequest::HeaderMap& responseHeaders) const;
    void requireEnd(const CNetRequest::HeaderMap& responseHeaders) const;

    const Older m_older;
    const kx::P<kx::COutputFile> m_file;
    const kx::P<CNetRequest::Buffer> m_explanation;
    bool m_isUsed = false;   // by a transfer
    bool m_hasBegun = false; // to take the body
};

} // namespace norla
