#include "kx/base/CError.h"
#include "norla/core/plainURL.h"
#include "norla/files/uploadPlace.h"
#include "tests/fuzz/require.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

namespace {

constexpr std::string_view secret = "not-to-be-seen";

bool holdsSecret(std::string_view text)
{
    return text.find(secret) != std::string_view::npos;
}

bool holdsControl(const std::string& text)
{
    return std::any_of(text.begin(), text.end(), [](unsigned char c) { return c < ' ' || c == 127; });
}

/// A login stands between the slashes behind the scheme and the rest, which has none of its own.
void checkLogin(const std::string& rest)
{
    const std::string host = rest.substr(0, rest.find_first_of("/?#"));
    if (holdsSecret(rest) || host.find('@') != std::string::npos)
        return;
    for (const char* const scheme : {"ftp://", "http:/", "sftp:///"}) {
        const std::string url = std::string(scheme) + "user:" + std::string(secret) + "@" + rest;
        require(!holdsSecret(norla::withoutLogin(url)), "a login is left out");
        require(!holdsSecret(norla::withoutSecrets(url, true)), "it is left out with the other secrets");
        require(!holdsSecret(norla::hostOf(url)) && !holdsSecret(norla::pathOf(url)), "it is no part of the others");
    }
    require(!holdsSecret(norla::withoutSecrets("http://user:" + std::string(secret) + "/?#@" + rest, false)),
        "whatever it holds it is left out of what cannot be read");
}

/// @param isShown whether the secret is a part of the path
void checkPlace(const std::string& url, bool isShown)
{
    try {
        const norla::CUploadPlace place = norla::uploadPlaceOf(url, "1");
        require(!holdsControl(place.name) && !holdsControl(place.temporaryName), "a name begins no command");
        require(place.temporaryURL.starts_with(place.folderURL), "the temporary file stands beside the other one");
        require(place.isSFTP || place.temporaryName.size() <= 255, "a server takes the temporary name");
    } catch (const kx::CError& error) {
        require(isShown || !holdsSecret(error.getMessage().toUTF8()), "an error tells no login");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    require(norla::withoutLogin(bytes).size() <= size, "nothing is added");
    require(norla::withoutSecrets(bytes, false).size() <= size, "nothing is added to what cannot be read");
    static_cast<void>(norla::schemeOf(bytes));
    static_cast<void>(norla::readable(bytes));
    checkLogin(bytes);
    checkPlace("ftp://user:" + std::string(secret) + "@host/" + bytes, holdsSecret(bytes));
    checkPlace("sftp://host/" + bytes, holdsSecret(bytes));
    return 0;
}
