#include "kx/streams/CBufferStream.h"
#include "norla/mail/CMimeMessage.h"
#include "norla/mail/CSMTPClient.h"
#include "norla/mail/CSMTPParams.h"

// Sends a text from Zoë. The parameters: host, port, ConnectStartTLS as a rule, user name and password.
void sendText(norla::CSMTPParams params, const kx::String& recipient, const std::string& text)
{
    const auto body = kx::newObj<norla::CMimeMessage::Buffer>();
    body->append(reinterpret_cast<const unsigned char*>(text.data()), text.size());
    const auto message = kx::newObj<norla::CMimeMessage>("text/plain; charset=utf-8");
    message->getHeaders()["From"] = norla::CMimeMessage::toEncodedWord(u8"Zoë") + " <zoe@example.org>";
    message->getHeaders()["To"] = recipient;
    message->getHeaders()["Subject"] = u8"Grüße"; // encoded when it is stored
    message->getHeaders()["Date"] = norla::CSMTPClient::getDateHeaderString(kx::CTimeFields(kx::CTime::now()));
    message->setBody(body.get(), "8bit"); // lines end with "\r\n"
    const auto stored = kx::newObj<norla::CMimeMessage::Buffer>();
    message->store(*kx::newObj<kx::CBufferStream>(stored));
    params.safeDefaults.emplace(); // the server proves who it is before it is told the password
    kx::newObj<norla::CSMTPClient>(params)->sendMail("zoe@example.org", {recipient}, *stored);
}
