// Messages: storing a large body beside copying it, and how fast encoded words are made.
#include "bench/compare.h"
#include "kx/streams/CBufferStream.h"
#include "norla/mail/CMultiPartMimeMessage.h"
#include "sela/base64.h"

#include <openssl/evp.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

using Buffer = kx::TBuffer<unsigned char>;

constexpr size_t bodySize = 25u << 20;
constexpr int rounds = 101;

kx::P<Buffer> newBody()
{
    auto body = kx::newObj<Buffer>(bodySize);
    std::fill_n(body->getData(), bodySize, static_cast<unsigned char>('x'));
    return body;
}

kx::P<norla::CMimeMessage> newMessage(const Buffer& body)
{
    auto message = kx::newObj<norla::CMimeMessage>("application/octet-stream");
    message->getHeaders()["Subject"] = L"Gr\u00FC\u00DFe";
    message->setBody(&body, "binary");
    return message;
}

/// Into memory that is there already, on both sides.
bool compareStoring(const char* name, const norla::CMimeMessage& message, const Buffer& body)
{
    std::vector<unsigned char> copy(bodySize);
    const auto stored = kx::newObj<Buffer>(bodySize + 4096);
    std::fill_n(stored->getData(), stored->getSize(), static_cast<unsigned char>(0));
    return bench::compare({name, 1.10, rounds,
        [&copy, &body] {
            std::memcpy(copy.data(), body.getData(), bodySize);
            asm volatile("" : : "r"(copy.data()) : "memory"); // the copy is made although nobody reads it
        },
        [&stored, &message] {
            stored->setSize(0);
            message.store(*kx::newObj<kx::CBufferStream>(stored));
        }});
}

/// Into a buffer that begins empty: what a caller does who keeps a message to send it.
bool compareStoringIntoOwnBuffer(const norla::CMimeMessage& message, const Buffer& body)
{
    return bench::compare({"the message into a buffer of its own", 1.10, rounds, [&body] { kx::newObj<Buffer>(body); },
        [&message] { message.store(*kx::newObj<kx::CBufferStream>()); }});
}

bool compareBase64(const Buffer& body)
{
    return bench::compare({"Base64 of 25 MiB in lines, beside OpenSSL's without", 1.10, rounds,
        [&body] {
            std::vector<unsigned char> text;
            text.reserve(bodySize / 3 * 4 + 5);
            EVP_EncodeBlock(text.data(), body.getData(), static_cast<int>(bodySize));
        },
        [&body] {
            Buffer text;
            sela::base64Encode(body.getData(), body.getSize(), true, true, text);
        }});
}

size_t countWords(const kx::String& encoded)
{
    const kx::String start = "=?utf-8?q?";
    size_t words = 0;
    for (size_t hit = encoded.find(start); hit != kx::String::npos; hit = encoded.find(start, hit + 1))
        ++words;
    return words;
}

void printWordsPerSecond(const char* name, const kx::String& text)
{
    constexpr int count = 2000;
    size_t written = 0;
    const double start = bench::threadSeconds();
    for (int i = 0; i < count; ++i)
        written += norla::CMimeMessage::toEncodedWord(text).size();
    const double seconds = bench::threadSeconds() - start;
    const kx::String encoded = norla::CMimeMessage::toEncodedWord(text);
    if (written != encoded.size() * count)
        std::printf("encoded words differ from one time to the next\n");
    const double words = static_cast<double>(countWords(encoded)) * count;
    const double characters = static_cast<double>(text.size()) * count;
    std::printf(
        "%-44s %7.1f million words/s, %6.1f ns a character\n", name, words / seconds / 1e6, seconds * 1e9 / characters);
}

kx::String repeated(const kx::String& text, int count)
{
    kx::String all;
    for (int i = 0; i < count; ++i)
        all += text;
    return all;
}

} // namespace

int main()
{
    std::printf("%-44s %12s %12s %7s %7s\n", "CPU time, median", "copy ms", "norla ms", "ratio", "limit");
    const auto body = newBody();
    const auto message = newMessage(*body);
    const auto mail = kx::newObj<norla::CMultiPartMimeMessage>("mixed");
    mail->addPart(kx::newObj<norla::CMimeMessage>("text/plain").get());
    mail->addPart(message.get());
    bool good = compareStoring("storing a message of 25 MiB", *message, *body);
    good &= compareStoring("storing a multipart with a part of 25 MiB", *mail, *body);
    good &= compareStoringIntoOwnBuffer(*message, *body);
    good &= compareBase64(*body);
    printWordsPerSecond("encoded words of ASCII letters", repeated("a", 46 * 20));
    printWordsPerSecond("encoded words of two-byte characters", repeated(L"\u00FC", 8 * 20));
    printWordsPerSecond("encoded words of a subject of 60 characters", repeated(L"Gr\u00FC\u00DFe ", 10));
    return good ? 0 : 1;
}
