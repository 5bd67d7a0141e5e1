// A tree of messages that the input describes, read back by a strict reader: ( and ) begin and end a multipart,
// everything between them is the body of a part, and what looks like a boundary stays what it is.
#include "kx/streams/CBufferStream.h"
#include "norla/mail/CMultiPartMimeMessage.h"
#include "tests/fuzz/require.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace {

constexpr size_t deepest = 20;

/// A message, and the input that describes it.
struct CMade {
    kx::P<norla::CMimeMessage> message;
    std::string description;
};

CMade makeBody(std::string_view& input)
{
    const std::string_view body = input.substr(0, input.find_first_of("()"));
    input.remove_prefix(body.size());
    const auto buffer = kx::newObj<kx::TBuffer<unsigned char>>();
    buffer->append(reinterpret_cast<const unsigned char*>(body.data()), body.size());
    const auto message = kx::newObj<norla::CMimeMessage>("");
    message->setBody(buffer.get(), "");
    return {message, std::string(body)};
}

CMade makeMultiPart(std::string_view& input, size_t depth)
{
    const auto message = kx::newObj<norla::CMultiPartMimeMessage>("mixed");
    std::string description = "(";
    while (!input.empty() && input.front() != ')') {
        const bool isMultiPart = input.front() == '(' && depth < deepest;
        if (input.front() == '(')
            input.remove_prefix(1);
        const CMade part = isMultiPart ? makeMultiPart(input, depth + 1) : makeBody(input);
        message->addPart(part.message.get());
        description += part.description.starts_with('(') ? part.description : '[' + part.description + ']';
    }
    if (!input.empty())
        input.remove_prefix(1);
    return {message, description + ")"};
}

void take(std::string_view& text, std::string_view expected, const char* what)
{
    require(text.starts_with(expected), what);
    text.remove_prefix(expected.size());
}

std::string readEntity(std::string_view text);

std::string readParts(std::string_view text, const std::string& boundary)
{
    const std::string delimiter = "\r\n--" + boundary;
    std::string description = "(";
    if (text != delimiter + "--\r\n") {
        take(text, delimiter.substr(2) + "\r\n", "a multipart begins with its boundary");
        for (size_t end = text.find(delimiter); !text.starts_with("--\r\n"); end = text.find(delimiter)) {
            require(end != text.npos, "a part ends at the boundary");
            description += readEntity(text.substr(0, end));
            text.remove_prefix(end + delimiter.size());
            if (!text.starts_with("--"))
                take(text, "\r\n", "a boundary line ends");
        }
        require(text == "--\r\n", "nothing follows the closing boundary");
    }
    return description + ")";
}

std::string readEntity(std::string_view text)
{
    constexpr std::string_view multiPart = "Content-Type: multipart/mixed; boundary=";
    if (!text.starts_with(multiPart)) {
        take(text, "MIME-Version: 1.0\r\n\r\n", "a part begins with its header block");
        return '[' + std::string(text) + ']';
    }
    text.remove_prefix(multiPart.size());
    const std::string boundary(text.substr(0, text.find('\r')));
    require(boundary.size() >= 10 && boundary.find_first_not_of("0123456789abcdef") == std::string::npos,
        "a boundary is of hexadecimal digits");
    text.remove_prefix(boundary.size());
    take(text, "\r\nMIME-Version: 1.0\r\n\r\n", "a multipart has its header block");
    return readParts(text, boundary);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string_view input(reinterpret_cast<const char*>(data), size);
    const CMade made = makeMultiPart(input, 0);
    const auto buffer = kx::newObj<kx::TBuffer<unsigned char>>();
    made.message->store(*kx::newObj<kx::CBufferStream>(buffer));
    const std::string_view stored(reinterpret_cast<const char*>(buffer->getData()), buffer->getSize());
    require(readEntity(stored) == made.description, "what is read is what was put in");
    return 0;
}
