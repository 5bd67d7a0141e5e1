#pragma once

#include "kx/base/P.h"
#include "kx/text/String.h"
#include "norla/core/CNetRequest.h"
#include "norla/http/CHeaderAssembler.h"

#include <string_view>

namespace norla {

class CNetStringList;
class CRequestURL;

/// What has been answered so far in a transfer: reply lines of all protocols, and of HTTP the status and the header map
/// of the last response; and where its body goes. Used by the thread of the transfer.
class CResponse {
public:
    using Buffer = CNetRequest::Buffer;
    using HeaderMap = CNetRequest::HeaderMap;
    using IDataSink = CNetRequest::IDataSink;

    CResponse();
    CResponse(const CResponse&) = delete;
    CResponse& operator=(const CResponse&) = delete;
    ~CResponse();

    /// A transfer begins: forgets the last answer, whose list of lines stays what it is for those who have it.
    /// beginBody() comes next.
    void begin();

    /// Lets the sink begin. @throws what it throws
    void beginBody();

    /// Null for none; a reference is kept.
    void setServerInfoToUpdate(CServerInfo* serverInfo) { m_headerAssembler.setServerInfoToUpdate(serverInfo); }

    /// Whether a header line may end in a line feed alone, also the empty one; not at first.
    void takeBareLineFeeds(bool take) noexcept { m_takesBareLineFeeds = take; }

    /// A line with its end, as it came.
    /// @throws kx::CError when it is not UTF-8, or makes no sense; it is left out then, but for the status that a line
    /// of HTTP tells
    void takeLine(std::string_view bytes, const CRequestURL& url);

    /// A block of the body, for the sink. A status line that makes no sense is logged with URL and method. @throws what
    /// the sink throws
    /// @param method empty for GET
    void takeBody(const unsigned char* data, int size, const CRequestURL& url, const kx::String& method);

    /// The transfer has succeeded: tells the sink. @throws what the sink throws
    /// @param responseCode as for IDataSink::end()
    void endBody(int responseCode);

    /// Whether a transfer that begins now makes what has come void, wherever it went.
    bool canBeginAgain() const;

    CNetStringList* getLines() const noexcept { return m_lines.get(); }
    const HeaderMap& getHeaderMap() const { return m_headerAssembler.getHeaderMap(); }

    /// What the server says about a failure: the last reply line of a mail server, or the text in the body that an HTTP
    /// server sent into the default receive buffer. Empty when there is nothing.
    kx::String getServerMessage(const kx::String& responseCodeDomain, int responseCode) const;

    /// The last refusal of a mail server; empty when there was none.
    kx::String getRefusal() const;

    /// The same of an FTP server.
    kx::String getFTPRefusal() const;

    /// Null discards the body; a reference is kept.
    void setSink(IDataSink* sink) { m_sink = sink; }
    void setDefaultSink() { m_sink = m_defaultSink; }
    bool hasDefaultSink() const noexcept { return m_sink == m_defaultSink; }

    /// Whether the body replaces a file, so that none must be taken for an empty one.
    bool hasFileSink() const noexcept;

    const kx::P<Buffer>& getDefaultBuffer() const noexcept { return m_defaultBuffer; }

private:
    void readStatus(const CRequestURL& url, const kx::String& method);
    void takeStatusLine(const kx::String& line);
    void keepReply(std::string_view bytes);
    kx::String getLastLine() const;

    const kx::P<Buffer> m_defaultBuffer;
    const kx::P<kx::IOutStream> m_defaultStream;
    const kx::P<IDataSink> m_defaultSink;
    kx::P<IDataSink> m_sink;
    CHeaderAssembler m_headerAssembler;
    kx::String m_statusLine;
    int m_status = unread;
    bool m_takesBareLineFeeds = false;
    bool m_isBodyGiven = false; // some of it, to a sink of the caller's
    kx::P<CNetStringList> m_lines;
    kx::P<CNetStringList> m_replies; // of a mail server, for people; null: none yet
    static constexpr int unread = -1;
};

} // namespace norla
