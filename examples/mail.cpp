// Sends a mail with a text, an HTML version of it and attached files.
#include "examples/CProgressBar.h"
#include "examples/arguments.h"
#include "kx/streams/CBufferStream.h"
#include "kx/text/numbers.h"
#include "norla/core/CCURLError.h"
#include "norla/core/CNetRequest.h"
#include "norla/mail/CMultiPartMimeMessage.h"
#include "norla/mail/CSMTPClient.h"
#include "sela/base64.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <limits>
#include <string>
#include <string_view>
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

/// Addresses and the fields of a message go out as they are: a line end would begin a command or a field of its own.
void refuseLineEnds(const std::string& name, const std::string& value)
{
    if (value.find_first_of(std::string_view("\r\n\0", 3)) != std::string::npos)
        throw kx::CError("The value of " + shownPath(name) + " must not have a line end.");
}

void setOption(COptions& options, const std::string& name, const std::string& value)
{
    if (name == "--attach") {
        options.attachments.emplace_back(value);
        return;
    }
    const kx::String text = textOf(value, "The value of " + shownPath(name));
    if (name == "--from" || name == "--to" || name == "--subject" || name == "--user")
        refuseLineEnds(name, value);
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
    refuseLineEnds("HOST:PORT", words[next]);
    setServer(options.server, words[next]);
    return options;
}

/// The library sends from nobody ("<>"), too, which is for bounces.
void checkAddresses(const COptions& options)
{
    if (options.from.isEmpty())
        throw kx::CError("A mail needs a sender (--from).");
    if (std::find(options.recipients.begin(), options.recipients.end(), kx::String()) != options.recipients.end())
        throw kx::CError("A recipient (--to) must not be empty.");
}

std::string contentOf(const std::filesystem::path& file)
{
    const kx::String name = "'" + shownPath(file.native()) + "'";
    if (std::filesystem::is_directory(file))
        throw kx::CError("The attachment " + name + " is a directory.");
    std::ifstream in(file, std::ios::binary);
    std::string content;
    std::array<char, 65536> block{};
    while (in.read(block.data(), block.size()) || in.gcount() > 0)
        content.append(block.data(), static_cast<size_t>(in.gcount()));
    if (!in.eof())
        throw kx::CError("The file " + name + " cannot be read.");
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

/// What is not UTF-8 in it becomes U+FFFD: a mail has no other encoding for it.
kx::String fileNameOf(const std::filesystem::path& file)
{
    return kx::String::fromUTF8(shownPath(file.filename().native()).toDisplayUTF8());
}

kx::P<norla::CMimeMessage> newAttachment(const std::filesystem::path& file)
{
    auto part = newPart("application/octet-stream", contentOf(file));
    part->getHeaders()["Content-Disposition"]
        = "attachment; " + norla::CMimeMessage::makeParameter("filename", fileNameOf(file));
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

void send(const COptions& options, const kx::P<Buffer>& message)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    const auto stream = kx::newObj<CShownStream>(message);
    norla::CSMTPClient::makeSendMailRequest(*request, options.server, options.from, options.recipients, stream.get());
    request->perform();
}

void run(const COptions& options)
{
    if (options.onlyChecks) {
        norla::CSMTPClient(options.server).testConnection();
        std::cerr << "the server is ready\n";
        return;
    }
    checkAddresses(options);
    const auto bytes = kx::newObj<Buffer>();
    newMessage(options)->store(*kx::newObj<kx::CBufferStream>(bytes));
    send(options, bytes);
    std::cerr << bytes->getSize() << " bytes sent\n";
}

/// What has failed, and what the server said if it was the server that refused.
std::string toldOf(const kx::CError& error)
{
    const auto* const failure = dynamic_cast<const norla::CCURLError*>(&error);
    const kx::String reply = failure ? failure->getServerReply() : kx::String();
    return (reply.isEmpty() ? error.getMessage() : error.getMessage() + "\n" + reply).toDisplayUTF8();
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
    } catch (const kx::CError& error) {
        std::cerr << "mail: " << toldOf(error) << '\n';
        return 1;
    } catch (const std::exception& error) {
        std::cerr << "mail: " << error.what() << '\n';
        return 1;
    }
}
