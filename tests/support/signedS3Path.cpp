#include "tests/support/signedS3Path.h"

#include "tests/support/openSSLError.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <array>
#include <ctime>

namespace support {

namespace {

constexpr std::time_t validity = 3600;

std::string toBase64(const unsigned char* bytes, size_t size)
{
    std::string text((size + 2) / 3 * 4 + 1, '\0');
    EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes, static_cast<int>(size));
    text.pop_back();
    return text;
}

std::string signatureOf(const std::string& text, const std::string& key)
{
    std::array<unsigned char, EVP_MAX_MD_SIZE> mac{};
    unsigned size = 0;
    const auto* const bytes = reinterpret_cast<const unsigned char*>(text.data());
    checkedOpenSSL(
        HMAC(EVP_sha1(), key.data(), static_cast<int>(key.size()), bytes, text.size(), mac.data(), &size), "HMAC");
    return toBase64(mac.data(), size);
}

/// Those characters of Base64 that mean something in a query.
std::string escapeBase64(const std::string& text)
{
    std::string escaped;
    for (const char character : text) {
        switch (character) {
        case '+':
            escaped += "%2B";
            break;
        case '/':
            escaped += "%2F";
            break;
        case '=':
            escaped += "%3D";
            break;
        default:
            escaped += character;
        }
    }
    return escaped;
}

} // namespace

std::string signedS3Path(
    std::string_view method, std::string_view path, const std::string& accessKeyId, const std::string& secretAccessKey)
{
    const size_t query = path.find('?');
    const std::string resource(path.substr(0, query));
    const std::string expires = std::to_string(std::time(nullptr) + validity);
    const std::string signature
        = signatureOf(std::string(method) + "\n\n\n" + expires + "\n" + resource, secretAccessKey);
    return std::string(path) + (query == std::string_view::npos ? "?" : "&") + "AWSAccessKeyId=" + accessKeyId
        + "&Expires=" + expires + "&Signature=" + escapeBase64(signature);
}

} // namespace support
