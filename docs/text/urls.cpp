#include "norla/http/util.h"

// The address of a file: "https://host/caf%C3%A9/50%25%20off.txt" for "/café/50% off.txt". The slashes stay.
kx::String fileURL(const kx::String& host, const kx::String& path)
{
    return "https://" + host + norla::formURLEncode(path, false);
}

// The address of a question: "https://host/find?name=M%c3%bcller+%26+Co".
kx::String questionURL(const kx::String& host, const kx::String& name)
{
    return "https://" + host + "/find?" + norla::encodeURLParams({{"name", name}});
}
