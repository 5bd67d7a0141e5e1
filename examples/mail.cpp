// Sends a mail with a text, an HTML version of it and attached files.
#include "examples/CProgressBar.h"
#include "examples/credentials.h"
#include "examples/localFiles.h"
#include "examples/naming.h"
#include "examples/runProgram.h"
#include "kx/files/CInputFile.h"
#include "kx/streams/CBufferStream.h"
#include "norla/core/CNetRequest.h"
#include "norla/mail/CMultiPartMimeMessage.h"
#include "norla/mail/CSMTPClient.h"
#include "sela/base64.h"

#include <filesystem>
#include <iostream>
#include <limits>
#include <string>
#include <vector>

namespace {

const CProgram program{
    .name = "mail",
    .operands = {"HOST:PORT"},
    .purpose = "Sends a mail with a text, an HTML version of it and attached files.\n",
    .options = {
        {"--from", "ADDRESS", "the sender"},
        {"--to", "ADDRESS", "a recipient", true},
        {.name = "--subject", .value = "TEXT", .help = "what it is about", .mayBeEmpty = true},
        {.name = "--text", .value = "TEXT", .help = "what is to be read", .mayBeEmpty = true},
        {"--html", "HTML", "what is to be read by programs that show HTML"},
        {"--attach", "FILE", "send this file too", true},
        {"--security", "TYPE", "starttls (default), ssl or unencrypted"},
        {"--user", "NAME", "log in"},
        {"--ca", "FILE", "trust the certificates in this file only"},
        {"--check", "", "connect and log in, and send nothing"},
    },
    .notes = R"(The password is that of the environment variable MAIL_PASSWORD, or is asked for
at the terminal.
)",
};

using Buffer = norla::CSMTPClient::Buffer;

struct COptions {
    kx::String from;
    kx::TArray<kx::String> recipients;
    kx::String subject;
    kx::String text;
    kx::String html;
    std::vector<std::filesystem::path> attachments;
};

/// Addresses and the fields of a message go out as they are: a line end would begin a command or a field of its own.
const kx::String& withoutLineEnd(const kx::String& text, const kx::String& name)
{
    for (const wchar_t character : text) {
        if (character == L'\r' || character == L'\n')
            throw usageError(name + " must not have a line end");
    }
    return text;
}

kx::String fieldOf(const CArguments& arguments, const std::string& option)
{
    return withoutLineEnd(arguments.text(option), "the value of " + shownPath(option));
}

void setPlace(norla::CSMTPParams& server, const kx::String& place)
{
    constexpr long long mostPort = std::numeric_limits<unsigned short>::max();
    const size_t colon = place.rfind(L':');
    if (colon == kx::String::npos)
        throw usageError("no HOST:PORT: '" + place + "'");
    server.host = place.substr(0, colon);
    server.port = static_cast<int>(numberOf(place.substr(colon + 1), "PORT", 1, mostPort));
}

norla::CSMTPParams serverOf(const CArguments& arguments)
{
    norla::CSMTPParams server;
    setPlace(server, withoutLineEnd(textOf(arguments.operands().front(), "HOST:PORT"), "HOST:PORT"));
    const bool hasType = arguments.has("--security");
    server.connectType = hasType ? norla::CSMTPParams::connectTypeToInt(arguments.text("--security"))
                                 : norla::CSMTPParams::ConnectStartTLS;
    server.userName = fieldOf(arguments, "--user");
    if (!server.userName.isEmpty())
        server.password = secretOf("MAIL_PASSWORD", "Password for " + server.userName);
    return server;
}

/// The library sends from nobody ("<>"), too, which is for bounces.
void requireAddresses(const COptions& options)
{
    if (options.from.isEmpty())
        throw usageError("a mail needs a sender (--from)");
    if (options.recipients.empty())
        throw usageError("a mail needs a recipient (--to)");
}

COptions optionsOf(const CArguments& arguments)
{
    COptions options;
    options.from = fieldOf(arguments, "--from");
    options.recipients = arguments.texts("--to");
    for (const kx::String& recipient : options.recipients)
        withoutLineEnd(recipient, "the value of --to");
    options.subject = fieldOf(arguments, "--subject");
    options.text = arguments.text("--text");
    options.html = arguments.text("--html");
    for (const std::string& file : arguments.values("--attach"))
        options.attachments.emplace_back(file);
    return options;
}

/// All of it at one time, or nothing.
std::string contentOf(const std::filesystem::path& file)
{
    constexpr int blockSize = 64 << 10;
    return withLocalFile([&file] {
        kx::CInputFile in(Path::fromBytes(file.native()));
        std::string content;
        std::vector<unsigned char> block(blockSize);
        while (const int count = in.read(block.data(), blockSize))
            content.append(block.begin(), block.begin() + count);
        in.requireUnchanged();
        return content;
    });
}

/// In Base64, which survives every mail server.
kx::P<norla::CMimeMessage> newPart(const kx::String& contentType, const std::string& content)
{
    const auto* const bytes = reinterpret_cast<const unsigned char*>(content.data());
    const auto body = kx::newObj<Buffer>();
    sela::base64Encode(bytes, content.size(), true, true, *body);
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

/// The mail client believes any certificate; who sends a password should not.
void performSafely(const norla::CSMTPParams& server, norla::CNetRequest& request, const CArguments& arguments)
{
    request.setSafeDefaults();
    if (arguments.has("--ca"))
        request.setRootCertBundlePath(readablePath(arguments.value("--ca")));
    naming(server.host, &request, [&] { request.perform(); });
}

/// @param message as it goes over the wire
void send(const CArguments& arguments, const COptions& options, const kx::P<Buffer>& message)
{
    const auto server = serverOf(arguments);
    const auto request = kx::newObj<norla::CNetRequest>();
    const auto stream = kx::newObj<CShownStream>(message);
    norla::CSMTPClient::makeSendMailRequest(*request, server, options.from, options.recipients, stream.get());
    performSafely(server, *request, arguments);
}

void check(const CArguments& arguments)
{
    const auto server = serverOf(arguments);
    const auto request = kx::newObj<norla::CNetRequest>();
    norla::CSMTPClient::doInitialRequestInit(*request, server);
    request->setOptionInt(CURLOPT_CONNECT_ONLY, 1);
    performSafely(server, *request, arguments);
    std::cerr << "the server is ready\n";
}

/// Nothing is sent before all of the message is there.
int mail(const CArguments& arguments)
{
    if (arguments.has("--check")) {
        check(arguments);
        return exitDone;
    }
    const COptions options = optionsOf(arguments);
    requireAddresses(options);
    const auto bytes = kx::newObj<Buffer>();
    newMessage(options)->store(*kx::newObj<kx::CBufferStream>(bytes));
    send(arguments, options, bytes);
    std::cerr << bytes->getSize() << " bytes sent\n";
    return exitDone;
}

} // namespace

int main(int argc, char** argv)
{
    return runProgram(program, argc, argv, mail);
}
