#pragma once

#include "kx/base/P.h"
#include "kx/text/String.h"
#include "norla/core/CNetRequest.h"

#include <curl/curl.h>

#include <optional>
#include <string>

namespace norla {

class CEasyHandle;

/// What a transfer sends: a method with a body, of which libcurl lets each option change the other. Used by the thread
/// of the transfer.
class CSending {
public:
    using HeaderMap = CNetRequest::HeaderMap;
    using IDataSource = CNetRequest::IDataSource;

    /// @param handle outlives this object
    explicit CSending(CEasyHandle& handle);
    CSending(const CSending&) = delete;
    CSending& operator=(const CSending&) = delete;

    /// First and second half of CNetRequest::reset(): what the caller has given, and what goes with the handle's
    /// options.
    void forgetSource();
    void forgetOptions();

    /// A transfer begins: nothing of it is sent yet. rewind() comes next, last of all that begins.
    void begin() noexcept;

    /// The source begins at its start. @throws what it throws
    void rewind();

    /// Whether it does, after that. @throws what it throws
    bool isAtStart() const { return !m_source || m_source->getPosition() == 0; }

    /// As CNetRequest::setHTTPMethod(). The text was checked.
    void setMethod(const kx::String& method);

    /// As set; empty while none was.
    const kx::String& getMethod() const noexcept { return m_method; }

    void setUpload(bool upload);

    /// As in CNetRequest.
    void setSource(IDataSource* source);

    /// A source whose size belongs to it: it is forgotten with the source.
    /// @param size in bytes; -1 when unknown
    void setSizedSource(IDataSource* source, long long size);
    const kx::P<IDataSource>& getSource() const noexcept { return m_source; }
    bool hasSource(const IDataSource& source) const noexcept { return m_source.get() == &source; }

    void setBuffer(const CNetRequest::Buffer& buffer);
    void setText(const kx::String& text);
    void setSize(long long size);

    /// Whether the size is known, and less than this many bytes.
    bool isSmallerThan(long long size) const noexcept { return m_size >= 0 && m_size < size; }

    /// A body that libcurl copies and sends by itself.
    void setCopiedBody(const std::string& bytes);

    /// The application sets a body of its own, or none, past this object.
    void forgetSizeOfOwnBody();

    /// @throws kx::CInvalidArgError when libcurl would send what lies behind its copy of a body
    void requireWithinCopiedBody(long long size) const;

    /// libcurl's list of a mail's recipients, which is the caller's.
    void noticeRecipients(void* recipients) noexcept { m_recipients = recipients; }
    bool hasRecipients() const noexcept { return m_recipients != nullptr; }

    /// Around the withdrawal of a transfer: without recipients libcurl has no mail to end.
    void hideRecipients();
    void showRecipients();

    /// Fills libcurl's buffer.
    /// @return how many bytes; 0 at the end. @throws what the source throws; kx::CError when it ends before its size
    size_t read(char* buffer, int size, const HeaderMap& responseHeaders);

    /// @param origin SEEK_SET, SEEK_CUR or SEEK_END
    /// @return false when it cannot be done. @throws what the source throws
    bool seek(long long offset, int origin);

    /// libcurl could not rewind. It keeps that in mind, over a reset too.
    void noticeFailedRewind() noexcept { m_hasRewindPending = true; }

    /// Whether libcurl has been content with a mail that it never asked for.
    bool isUnsentMail() const noexcept { return m_upload && !m_recipients && !m_wasRead; }

private:
    void switchOffOtherMethods(const kx::String& method);
    void switchOnMethod(const kx::String& method);
    void setPostSize(long long size);
    void useSource(IDataSource* source);
    void useBody(kx::IInStream* stream, long long size);
    size_t readSource(IDataSource& source, char* buffer, int size, const HeaderMap& responseHeaders);
    static bool seekSource(IDataSource& source, long long offset, int origin);

    CEasyHandle& m_handle;
    kx::String m_method;
    bool m_upload = false;
    kx::P<IDataSource> m_source;
    kx::P<kx::IBase> m_holder; // of what the source reads, when it was made here
    long long m_size = -1;
    bool m_isSizeOfOwnBody = false;          // set together with a body
    std::optional<std::string> m_copiedBody; // what libcurl has as CURLOPT_COPYPOSTFIELDS
    void* m_recipients = nullptr;
    long long m_position = 0;        // of what libcurl gets next, where the size is known
    bool m_wasRead = false;          // during the current transfer, or tried to
    bool m_hasRewindPending = false; // libcurl's, of an earlier transfer
};

} // namespace norla
