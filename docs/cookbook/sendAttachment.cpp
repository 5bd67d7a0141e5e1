#include "kx/files/CInputFile.h"
#include "kx/streams/CBufferStream.h"
#include "norla/mail/CMultiPartMimeMessage.h"
#include "norla/mail/CSMTPClient.h"
#include "norla/mail/CSMTPParams.h"
#include "sela/base64.h"

#include <string_view>

namespace {

using Buffer = norla::CMimeMessage::Buffer;

kx::P<norla::CMimeMessage> textPart(const kx::String& text)
{
    const std::string bytes = text.toUTF8();
    const auto body = kx::newObj<Buffer>();
    body->append(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    const auto part = kx::newObj<norla::CMimeMessage>("text/plain; charset=utf-8");
    part->setBody(body.get(), "8bit");
    return part;
}

kx::P<norla::CMimeMessage> attachment(const kx::CInputFile::Path& path)
{
    const auto file = kx::newObj<kx::CInputFile>(path);
    Buffer content(static_cast<size_t>(file->getLength()));
    file->read(content.getData(), static_cast<int>(content.getSize()));
    const auto body = kx::newObj<Buffer>();
    sela::base64Encode(content.getData(), content.getSize(), true, true, *body);
    const auto part = kx::newObj<norla::CMimeMessage>("application/octet-stream");
    part->getHeaders()["Content-Disposition"]
        = "attachment; " + norla::CMimeMessage::makeParameter("filename", path.getFileName());
    part->setBody(body.get(), "base64");
    return part;
}

} // namespace

void sendAttachment(norla::CSMTPParams params, const kx::String& sender, const kx::String& recipient,
    const kx::String& text, const kx::CInputFile::Path& path)
{
    const auto message = kx::newObj<norla::CMultiPartMimeMessage>("mixed");
    message->getHeaders()["From"] = sender;
    message->getHeaders()["To"] = recipient;
    message->getHeaders()["Subject"] = "A file for you";
    message->getHeaders()["Date"] = norla::CSMTPClient::getDateHeaderString(kx::CTimeFields(kx::CTime::now()));
    message->addPart(textPart(text).get());
    message->addPart(attachment(path).get());
    const auto stored = kx::newObj<Buffer>();
    message->store(*kx::newObj<kx::CBufferStream>(stored));
    params.safeDefaults.emplace(); // the server proves who it is before it is told the password
    kx::newObj<norla::CSMTPClient>(params)->sendMail(sender, {recipient}, *stored);
}
