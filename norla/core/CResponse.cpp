#include "norla/core/CResponse.h"

#include "kx/base/CError.h"
#include "kx/log/log.h"
#include "kx/streams/CBufferStream.h"
#include "norla/core/CFileSink.h"
#include "norla/core/CNetStringList.h"
#include "norla/core/CRequestURL.h"
#include "norla/core/refusal.h"
#include "norla/http/serverMessage.h"
#include "norla/http/util.h"

#include <algorithm>
#include <string>

namespace norla {

CResponse::CResponse()
    : m_defaultBuffer(kx::newObj<Buffer>())
    , m_defaultStream(kx::newObj<kx::CBufferStream>(m_defaultBuffer))
    , m_defaultSink(kx::newObj<CNetRequest::CStreamDataSink>(m_defaultStream.get()))
    , m_sink(m_defaultSink)
    , m_lines(kx::newObj<CNetStringList>())
{
}

CResponse::~CResponse() = default;

void CResponse::begin()
{
    m_headerAssembler.reset();
    m_statusLine = kx::String();
    m_status = unread;
    m_isBodyGiven = false;
    m_lines = kx::newObj<CNetStringList>();
    m_replies = nullptr;
    m_defaultStream->seek(0);
    m_defaultBuffer->setSize(0);
}

void CResponse::beginBody()
{
    if (const kx::P<IDataSink> sink = m_sink) // which may put another one in its place
        sink->begin();
}

void CResponse::takeLine(std::string_view bytes, const CRequestURL& url)
{
    if (url.isMail())
        keepReply(bytes);
    const bool isStatusLine = url.isHTTP() && bytes.starts_with("HTTP/");
    kx::String line;
    try {
        line = kx::String::fromUTF8(bytes);
    } catch (const kx::CError&) {
        if (isStatusLine) // whose reason phrase may have any bytes (RFC 9112 section 4)
            takeStatusLine(kx::String::fromLatin1(bytes));
        throw;
    }
    if (isStatusLine) {
        takeStatusLine(line);
    } else if (url.isHTTP()) {
        // The assembler takes a line of white space for a continuation.
        m_headerAssembler.handleHeaderLine(m_takesBareLineFeeds && bytes == "\n" ? kx::String("\r\n") : line);
    }
    m_lines->addUTF8(bytes);
}

// An interim response, a redirect or a proxy's answer came before: only the last response counts.
void CResponse::takeStatusLine(const kx::String& line)
{
    if (!m_statusLine.isEmpty())
        m_headerAssembler.reset();
    m_statusLine = line.trim();
}

// What a mail server says is shown to people, in whatever encoding it says it.
void CResponse::keepReply(std::string_view bytes)
{
    std::string line(bytes.substr(0, bytes.find_last_not_of("\r\n") + 1));
    std::replace_if(
        line.begin(), line.end(), [](char byte) { return static_cast<unsigned char>(byte) < ' ' || byte == 127; }, '?');
    if (!m_replies)
        m_replies = kx::newObj<CNetStringList>();
    try {
        m_replies->add(kx::String::fromUTF8(line));
    } catch (const kx::CError&) {
        m_replies->add(kx::String::fromLatin1(line));
    }
}

void CResponse::takeBody(const unsigned char* data, int size, const CRequestURL& url, const kx::String& method)
{
    const kx::P<IDataSink> sink = m_sink; // which may put another one in its place
    if (!sink)
        return;
    if (m_status == unread && url.isHTTP())
        readStatus(url, method);
    m_isBodyGiven = m_isBodyGiven || sink != m_defaultSink;
    sink->write(data, size, m_status, getHeaderMap());
}

void CResponse::endBody(int responseCode)
{
    if (const kx::P<IDataSink> sink = m_sink) // which may put another one in its place
        sink->end(responseCode, getHeaderMap());
}

bool CResponse::hasFileSink() const noexcept
{
    return dynamic_cast<const CFileSink*>(m_sink.get()) != nullptr;
}

bool CResponse::canBeginAgain() const
{
    return !m_isBodyGiven || !m_sink || m_sink->canBeginAgain();
}

void CResponse::readStatus(const CRequestURL& url, const kx::String& method)
{
    try {
        m_status = getStatusCodeFromHTTPStatusLine(m_statusLine);
    } catch (const kx::CError& error) {
        // The text really ends without a closing quote.
        kx::logError(error,
            "Error parsing HTTP status line - ignoring (statusLine: '" + m_statusLine + "', method: '"
                + (method.isEmpty() ? "GET" : method) + "', URL: '" + url.toString() + ")",
            "");
        m_status = 0;
    }
}

kx::String CResponse::getServerMessage(const kx::String& responseCodeDomain, int responseCode) const
{
    if (responseCodeDomain == "smtp" && responseCode >= 1)
        return getLastLine();
    if (responseCodeDomain != "http" || m_defaultBuffer->getSize() == 0)
        return kx::String();
    return serverMessage(
        {reinterpret_cast<const char*>(m_defaultBuffer->getData()), m_defaultBuffer->getSize()}, getHeaderMap());
}

kx::String CResponse::getRefusal() const
{
    return m_replies ? lastRefusal(*m_replies) : kx::String();
}

kx::String CResponse::getFTPRefusal() const
{
    return lastRefusal(*m_lines);
}

kx::String CResponse::getLastLine() const
{
    kx::String last;
    for (const auto line = m_lines->createIterator(); line->next();)
        last = line->getCurrent();
    return last;
}

} // namespace norla
