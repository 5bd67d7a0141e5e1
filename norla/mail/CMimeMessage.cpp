#include "norla/mail/CMimeMessage.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/streams/CBufferStream.h"
#include "kx/text/CURI.h"
#include "norla/core/CNetHeaders.h"
#include "norla/core/CNetRequest.h"

#include <algorithm>
#include <limits>
#include <string>
#include <utility>

namespace norla {

namespace {

constexpr std::string_view wordStart = "=?utf-8?q?";
constexpr std::string_view wordEnd = "?=";

// An encoded word has at most 75 characters (RFC 2047 section 2). It ends as soon as no more than the reserve is left:
// the next character can take twelve.
constexpr size_t maximumChunk = 75 - wordStart.size() - wordEnd.size();
constexpr size_t reserveOfChunk = 17;

bool isASCII(const kx::String& text)
{
    return std::all_of(text.begin(), text.end(), [](wchar_t c) { return static_cast<char32_t>(c) < 0x80; });
}

constexpr bool isLetterOrDigit(wchar_t c) noexcept
{
    return (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z') || (c >= L'0' && c <= L'9');
}

constexpr bool isContinuationByte(char byte) noexcept
{
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

/// Of RFC 2231 section 7.
bool isAttributeCharacter(wchar_t c)
{
    constexpr std::wstring_view others = L"!#$&+-.^_`{|}~";
    return isLetterOrDigit(c) || others.find(c) != others.npos;
}

void appendQEncoded(std::string& chunk, char byte)
{
    if (isLetterOrDigit(static_cast<unsigned char>(byte))) {
        chunk += byte;
        return;
    }
    constexpr std::string_view digits = "0123456789ABCDEF";
    const auto value = static_cast<unsigned char>(byte);
    chunk += '=';
    chunk += digits[value >> 4];
    chunk += digits[value & 0xF];
}

void flushWord(std::string& words, std::string& chunk)
{
    if (!words.empty())
        words += "\r\n ";
    words.append(wordStart).append(chunk).append(wordEnd);
    chunk.clear();
}

} // namespace

CMimeMessage::CMimeMessage(const kx::String& contentType)
{
    m_headers["MIME-Version"] = "1.0";
    if (!contentType.isEmpty())
        m_headers["Content-Type"] = contentType;
}

CMimeMessage::~CMimeMessage() = default;

void CMimeMessage::setBody(const Buffer* body, const kx::String& transferEncoding)
{
    m_body = body;
    if (transferEncoding.isEmpty())
        m_headers.erase("Content-Transfer-Encoding");
    else
        m_headers["Content-Transfer-Encoding"] = transferEncoding;
}

void CMimeMessage::store(kx::IOutStream& out) const
{
    storeHeader(out);
    storeBody(out);
}

void CMimeMessage::storeHeader(kx::IOutStream& out) const
{
    std::string block;
    for (const auto& [name, value] : m_headers)
        block.append(makeHeaderField(name, value).toLatin1()).append("\r\n");
    writeAll(out, block.append("\r\n"));
}

void CMimeMessage::storeBody(kx::IOutStream& out) const
{
    if (m_body)
        writeAll(out, {reinterpret_cast<const char*>(m_body->getData()), m_body->getSize()});
}

kx::String CMimeMessage::makeHeaderField(const kx::String& name, const kx::String& value)
{
    return name + ": " + (isASCII(value) ? value : toEncodedWord(value));
}

kx::String CMimeMessage::toEncodedWord(const kx::String& text)
{
    const std::string bytes = text.toUTF8();
    std::string words;
    std::string chunk;
    for (size_t i = 0; i < bytes.size(); ++i) {
        appendQEncoded(chunk, bytes[i]);
        const bool isCharacterEnd = i + 1 == bytes.size() || !isContinuationByte(bytes[i + 1]);
        if (isCharacterEnd && chunk.size() + reserveOfChunk >= maximumChunk)
            flushWord(words, chunk);
    }
    if (!chunk.empty())
        flushWord(words, chunk);
    return kx::String::fromLatin1(words);
}

kx::String CMimeMessage::toQuotedString(const kx::String& text)
{
    std::wstring quoted = L"\"";
    for (const wchar_t character : text) {
        if (character == L'\\' || character == L'"' || character == L'\r')
            quoted += L'\\';
        quoted += character;
    }
    return kx::String(std::move(quoted += L'"'));
}

kx::String CMimeMessage::makeParameter(const kx::String& name, const kx::String& value)
{
    if (name.isEmpty() || !std::all_of(name.begin(), name.end(), isAttributeCharacter))
        throw kx::CInvalidArgError("'" + name + "' is no name of a parameter", "CMimeMessage::makeParameter");
    const bool isPlain = std::all_of(value.begin(), value.end(), [](wchar_t c) { return c >= 0x20 && c < 0x7F; });
    if (isPlain && value.find(kx::String("=?")) == kx::String::npos)
        return name + "=" + toQuotedString(value);
    return name + "*=utf-8''"
        + kx::CURI::escape(value, true, "").replaceAll("+", "%20"); // a plus itself is "%2B" there
}

void CMimeMessage::updateNetHeaders(CNetHeaders& headers) const
{
    for (const auto& [name, value] : m_headers)
        headers.add(name, value);
}

void CMimeMessage::fillRequest(CNetRequest& request) const
{
    kx::P<CNetHeaders> headers = request.getCustomHTTPHeaders();
    if (!headers) {
        headers = kx::newObj<CNetHeaders>();
        request.setCustomHTTPHeaders(headers.get());
    }
    updateNetHeaders(*headers);
    const auto body = kx::newObj<Buffer>();
    const auto stream = kx::newObj<kx::CBufferStream>(body);
    storeBody(*stream);
    request.setSendDataStream(stream.get());
    request.setSendDataSize(static_cast<long long>(body->getSize()));
}

void CMimeMessage::writeAll(kx::IOutStream& out, std::string_view bytes)
{
    while (!bytes.empty()) {
        const size_t most = std::min(bytes.size(), static_cast<size_t>(std::numeric_limits<int>::max()));
        const int taken = out.write(reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(most));
        if (taken <= 0)
            throw kx::CError("The stream to which a message is stored takes no more bytes.");
        bytes.remove_prefix(std::min(static_cast<size_t>(taken), most));
    }
}

} // namespace norla
