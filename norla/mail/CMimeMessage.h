#pragma once

#include "kx/base/CBase.h"
#include "kx/base/P.h"
#include "kx/containers/TBuffer.h"
#include "kx/containers/TMap.h"
#include "kx/streams/IOutStream.h"
#include "kx/text/String.h"

#include <string_view>

namespace norla {

class CNetHeaders;
class CNetRequest;

/// One MIME entity, a whole mail or a part of one: header fields and a body. Built by one thread; once it is finished,
/// several threads may store it at a time.
class KX_EXPORT CMimeMessage : public virtual kx::CBase {
public:
    using HeaderMap = kx::TMap<kx::String, kx::String>;
    using Buffer = kx::TBuffer<unsigned char>;

    /// A message with the field "MIME-Version" and no body.
    /// @param contentType such as "text/plain; charset=utf-8"; empty for no "Content-Type" field
    explicit CMimeMessage(const kx::String& contentType);
    CMimeMessage(const CMimeMessage&) = delete;
    CMimeMessage& operator=(const CMimeMessage&) = delete;
    ~CMimeMessage() override;

    /// The fields, one value a name, to add to and to change. Names are told apart by letter case. Nothing is checked:
    /// a name has to be ASCII without ":", and a line end in an ASCII value gets into the header block as it is.
    /// Whoever takes values from outside refuses line ends in them before. Parameters: makeParameter().
    HeaderMap& getHeaders() noexcept { return m_headers; }
    const HeaderMap& getHeaders() const noexcept { return m_headers; }

    /// Shares the buffer instead of copying it: what it holds when the message is stored is what is stored.
    /// @param body encoded already as transferEncoding says; null for none
    /// @param transferEncoding such as "base64"; empty removes the "Content-Transfer-Encoding" field
    virtual void setBody(const Buffer* body, const kx::String& transferEncoding);

    /// Writes header block and body.
    /// @throws as storeHeader() and storeBody()
    virtual void store(kx::IOutStream& out) const;

    /// Writes the fields as makeHeaderField() makes them, in the order of their names (upper case before lower case),
    /// each with its line end, and the empty line that ends the block.
    /// @throws kx::CError when a name has a character beyond U+00FF or a value one that has no UTF-8 form, before
    /// anything is written; when the stream takes no more bytes. What the stream throws
    virtual void storeHeader(kx::IOutStream& out) const;

    /// Writes the body's bytes as they are.
    /// @throws kx::CError when the stream takes no more bytes. What the stream throws
    virtual void storeBody(kx::IOutStream& out) const;

    /// One header line without line end: the value as it is when all of it is ASCII, however long; otherwise, all of
    /// it, as toEncodedWord() makes it. An address field whose names need encoding is therefore put together by the
    /// caller: toEncodedWord(name) + " <address>".
    /// @param name never encoded
    /// @throws as toEncodedWord()
    static kx::String makeHeaderField(const kx::String& name, const kx::String& value);

    /// The text as encoded words of RFC 2047: UTF-8, the "Q" encoding, in which ASCII letters and digits alone stay as
    /// they are. Words are folded with "\r\n " and have at most 69 characters; none ends within a character. An empty
    /// text gives an empty one.
    /// @throws kx::CError when the text has no UTF-8 form
    static kx::String toEncodedWord(const kx::String& text);

    /// The text as a quoted string of RFC 5322, for parameters and names: within double quotes, with a backslash before
    /// each backslash, double quote and carriage return. Nothing else is changed; text outside ASCII stays outside
    /// ASCII.
    static kx::String toQuotedString(const kx::String& text);

    /// One parameter of a structured field: makeParameter("filename", value) behind "attachment; " for
    /// "Content-Disposition". Visible ASCII and blanks are quoted as by toQuotedString(): filename="report.txt".
    /// Everything else, control characters and line ends included, and what a reader could take for an encoded word, is
    /// escaped in UTF-8 (RFC 2231 section 4): filename*=utf-8''Gr%C3%BC%C3%9Fe.pdf. The result is ASCII without line
    /// ends, so that it adds nothing to a header block and makeHeaderField() leaves it as it is. It is one piece
    /// however long the value is, without the continuations of RFC 2231 section 3: a value of more than about 300 bytes
    /// outside ASCII gives a line of more than the 998 characters that RFC 5322 allows.
    /// @param name of letters, digits and "!#$&+-.^_`{|}~"
    /// @param value any text; an empty one gives name=""
    /// @throws kx::CInvalidArgError for any other name; kx::CError when the value has no UTF-8 form
    static kx::String makeParameter(const kx::String& name, const kx::String& value);

    /// Adds every field to the headers of a request, in the order of the names; values are not encoded.
    /// @throws as CNetHeaders::add()
    void updateNetHeaders(CNetHeaders& headers) const;

    /// Adds the fields to the custom headers of the request, as updateNetHeaders(), and makes the body, as it is stored
    /// now, the request's data to send. The request does not keep the message.
    /// @throws as updateNetHeaders() and storeBody(); CCURLError if libcurl refuses
    void fillRequest(CNetRequest& request) const;

protected:
    /// Writes all bytes, in as many steps as the stream makes of them.
    /// @throws kx::CError when the stream takes no more bytes. What the stream throws
    static void writeAll(kx::IOutStream& out, std::string_view bytes);

private:
    HeaderMap m_headers;
    kx::PC<Buffer> m_body;
};

} // namespace norla
