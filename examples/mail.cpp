// Sends a mail with a text, an HTML version of it and attached files.
#include "examples/CProgressBar.h"
#include "examples/arguments.h"
#include "kx/streams/CBufferStream.h"
#include "kx/text/CURI.h"
#include "kx/text/numbers.h"
#include "norla/core/CNetRequest.h"
#include "norla/core/CNetStringList.h"
#include "norla/mail/CMultiPartMimeMessage.h"
#include "norla/mail/CSMTPClient.h"
#include "sela/base64.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr const char* usage = R"(Usage: mail [options] HOST:PORT
  --from ADDRESS     the sender
  --to ADDRESS       a recipient; may be given several times
  --subject TEXT
  --text TEXT        what is to be read
  --html HTML        what is to be read by programs that show HTML
  --attach FILE      may be given several times
  --security TYPE    starttls (without the option), ssl or unencrypted
  --user NAME        logs in; the environment variable MAIL_PASSWORD gives the password
  --check            connects and logs in, and sends nothing
)";

class CUsageError : public std::exception {};

using Buffer = norla::CSMTPClient::Buffer;

struct COptions {
    norla::CSMTPParams server;
    kx::String from;
    kx::TArray<kx::String> recipients;
    kx::String subject;
    kx::String text;
    kx::String html;
    std::vector<std::filesystem::path> attachments;
    bool onlyChecks = false;
};

kx::String passwordFromEnvironment()
{
    const char* const password = std::getenv("MAIL_PASSWORD");
    if (!password)
        throw kx::CError("The environment variable MAIL_PASSWORD is not set.");
    return textOf(password, "The environment variable MAIL_PASSWORD");
}

void setOption(COptions& options, const std::string& name, const std::string& value)
{
    if (name == "--attach") {
        options.attachments.emplace_back(value);
        return;
    }
    const kx::String text = textOf(value, "The value of " + shownPath(name));
    if (name == "--from") {
        options.from = text;
    } else if (name == "--to") {
        options.recipients.push_back(text);
    } else if (name == "--subject") {
        options.subject = text;
    } else if (name == "--text") {
        options.text = text;
    } else if (name == "--html") {
        options.html = text;
    } else if (name == "--security") {
        options.server.connectType = norla::CSMTPParams::connectTypeToInt(text);
    } else if (name == "--user") {
        options.server.userName = text;
        options.server.password = passwordFromEnvironment();
    } else {
        throw CUsageError();
    }
}

void setServer(norla::CSMTPParams& server, const std::string& place)
{
    const size_t colon = place.rfind(':');
    if (colon == std::string::npos)
        throw CUsageError();
    server.host = textOf(place.substr(0, colon), "HOST");
    const long long port = kx::parseInt64(textOf(place.substr(colon + 1), "PORT"), false);
    if (port < 1 || port > std::numeric_limits<unsigned short>::max())
        throw CUsageError();
    server.port = static_cast<int>(port);
}

COptions parseOptions(const std::vector<std::string>& words)
{
    COptions options;
    options.server.connectType = norla::CSMTPParams::ConnectStartTLS;
    size_t next = 0;
    while (next < words.size() && words[next].starts_with("--")) {
        if (words[next] == "--check") {
            options.onlyChecks = true;
            ++next;
            continue;
        }
        if (next + 1 == words.size())
            throw CUsageError();
        setOption(options, words[next], words[next + 1]);
        next += 2;
    }
    if (next + 1 != words.size())
        throw CUsageError();
    setServer(options.server, words[next]);
    return options;
}

std::string contentOf(const std::filesystem::path& file)
{
    std::ifstream in(file, std::ios::binary);
    std::string content = (std::ostringstream() << in.rdbuf()).str();
    if (!in)
        throw kx::CError("The file '" + shownPath(file.native()) + "' cannot be read.");
    return content;
}

/// In Base64, which survives every mail server.
kx::P<norla::CMimeMessage> newPart(const kx::String& contentType, const std::string& content)
{
    const auto* const bytes = reinterpret_cast<const unsigned char*>(content.data());
    const std::string encoded = sela::base64Encode(bytes, content.size(), true, true).toLatin1();
    const auto body = kx::newObj<Buffer>();
    body->append(reinterpret_cast<const unsigned char*>(encoded.data()), encoded.size());
    auto part = kx::newObj<norla::CMimeMessage>(contentType);
    part->setBody(body.get(), "base64");
    return part;
}

/// A name outside ASCII is escaped (RFC 2231 section 4).
kx::String fileNameParameter(const kx::String& name)
{
    const bool isASCII
        = std::all_of(name.begin(), name.end(), [](wchar_t letter) { return letter >= 0 && letter < 0x80; });
    if (isASCII)
        return "filename=" + norla::CMimeMessage::toQuotedString(name);
    return "filename*=utf-8''" + kx::CURI::escape(name, true, "").replaceAll("+", "%20");
}

/// What is not UTF-8 in it becomes U+FFFD: a mail has no other encoding for it.
kx::String fileNameOf(const std::filesystem::path& file)
{
    return kx::String::fromUTF8(shownPath(file.filename().native()).toDisplayUTF8());
}

kx::P<norla::CMimeMessage> newAttachment(const std::filesystem::path& file)
{
    auto part = newPart("application/octet-stream", contentOf(file));
    part->getHeaders()["Content-Disposition"] = "attachment; " + fileNameParameter(fileNameOf(file));
    return part;
}

/// Text, HTML or both, of which a mail program shows the last that it can.
kx::P<norla::CMimeMessage> newReadablePart(const COptions& options)
{
    auto text = newPart("text/plain; charset=utf-8", options.text.toUTF8());
    if (options.html.isEmpty())
        return text;
    auto html = newPart("text/html; charset=utf-8", options.html.toUTF8());
    if (options.text.isEmpty())
        return html;
    const auto both = kx::newObj<norla::CMultiPartMimeMessage>("alternative");
    both->addPart(text.get());
    both->addPart(html.get());
    return both;
}

kx::P<norla::CMimeMessage> newMessage(const COptions& options)
{
    kx::P<norla::CMimeMessage> message = newReadablePart(options);
    if (!options.attachments.empty()) {
        const auto all = kx::newObj<norla::CMultiPartMimeMessage>("mixed");
        all->addPart(message.get());
        for (const std::filesystem::path& file : options.attachments)
            all->addPart(newAttachment(file).get());
        message = all;
    }
    kx::String to;
    for (const kx::String& recipient : options.recipients)
        to += kx::String::fromLatin1(to.isEmpty() ? "" : ", ") + recipient;
    auto& headers = message->getHeaders();
    headers["From"] = options.from;
    headers["To"] = to;
    headers["Subject"] = options.subject;
    headers["Date"] = norla::CSMTPClient::getDateHeaderString(kx::CTimeFields(kx::CTime::now()));
    return message;
}

/// Gives a message to the transfer and shows how far it is.
class CShownStream : public kx::CBufferStream {
public:
    using CBufferStream::CBufferStream;

    int read(unsigned char* buffer, int size) override
    {
        const int count = CBufferStream::read(buffer, size);
        m_progress.show(static_cast<double>(getPosition()), static_cast<double>(getLength()));
        return count;
    }

private:
    CProgressBar m_progress;
};

/// The server's own words: its lines with the code of the failure.
kx::String refusalIn(const norla::CNetRequest& request, const kx::CError& error)
{
    const kx::String code = error.getProps().get("responseCode");
    kx::String refusal;
    for (const auto line = request.getResponseInfo()->createIterator(); !code.isEmpty() && line->next();) {
        if (line->getCurrent().startsWith(code))
            refusal += "\n" + line->getCurrent().trim();
    }
    return refusal;
}

void send(const COptions& options, const kx::P<Buffer>& message)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    const auto stream = kx::newObj<CShownStream>(message);
    norla::CSMTPClient::makeSendMailRequest(*request, options.server, options.from, options.recipients, stream.get());
    try {
        request->perform();
    } catch (const kx::CError& error) {
        throw kx::CError(error.getMessage() + refusalIn(*request, error));
    }
}

void run(const COptions& options)
{
    if (options.onlyChecks) {
        norla::CSMTPClient(options.server).testConnection();
        std::cerr << "the server is ready\n";
        return;
    }
    const auto bytes = kx::newObj<Buffer>();
    newMessage(options)->store(*kx::newObj<kx::CBufferStream>(bytes));
    send(options, bytes);
    std::cerr << bytes->getSize() << " bytes sent\n";
}

} // namespace

int main(int argc, char** argv)
{
    try {
        run(parseOptions({argv + 1, argv + argc}));
        return 0;
    } catch (const CUsageError&) {
        std::cerr << usage;
        return 2;
    } catch (const std::exception& error) {
        std::cerr << "mail: " << error.what() << '\n';
        return 1;
    }
}
