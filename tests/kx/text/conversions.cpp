// What converts to text and to a path by itself. The test compiles this file as it is, and once for each refused line.
#include "kx/files/TPathImpl.h"
#include "kx/text/String.h"

#include <cstdlib>
#include <string>
#include <string_view>

namespace {

using Path = kx::TPathImpl<kx::CUnixPathTraits>;

kx::String taken(const kx::String& text)
{
    return text;
}

} // namespace

int main(int, char** argv)
{
    const char* const pointer = argv[0];
    char buffer[] = "bytes from elsewhere";
    const std::string string = "bytes that say nothing of their encoding";
    static_cast<void>(pointer);
    static_cast<void>(string);
    static_cast<void>(buffer);

    const kx::String literal = "gr\xFCn";
    const kx::String utf8Literal = u8"gr\u00FCn";
    const kx::String wideLiteral = L"gr\u00FCn";
    const kx::String joined = "a" + taken("b") + "c";
    const bool isSame = joined == "abc";
    const kx::String told = isSame ? kx::String::fromUTF8(argv[0]) : kx::String::fromLatin1(pointer);
    const Path path = "a/b";
    const Path pathOfText = told;
    const Path pathOfBytes = path / "c" / Path::fromBytes(argv[0]);

#if defined(REFUSED_ARGUMENT)
    const kx::String text = argv[0];
#elif defined(REFUSED_POINTER)
    const kx::String text = pointer;
#elif defined(REFUSED_EXPLICIT_POINTER)
    const kx::String text(pointer);
#elif defined(REFUSED_POINTER_PARAMETER)
    taken(pointer);
#elif defined(REFUSED_ENVIRONMENT)
    const kx::String text = std::getenv("HOME");
#elif defined(REFUSED_C_STRING)
    const kx::String text = std::string().c_str();
#elif defined(REFUSED_STRING)
    const kx::String text = std::string("a");
#elif defined(REFUSED_STRING_VIEW)
    const kx::String text = std::string_view("a");
#elif defined(REFUSED_CONSTANT_STRING)
    const kx::String text(string);
#elif defined(REFUSED_BUFFER)
    const kx::String text = buffer;
#elif defined(REFUSED_NULL)
    const kx::String text = nullptr;
#elif defined(REFUSED_COMPARISON)
    const bool isText = literal == pointer;
#elif defined(REFUSED_SUM)
    const kx::String text = literal + pointer;
#elif defined(REFUSED_PATH_OF_ARGUMENT)
    const Path other = argv[0];
#elif defined(REFUSED_PATH_OF_EXPLICIT_POINTER)
    const Path other(pointer);
#elif defined(REFUSED_PATH_OF_C_STRING)
    const Path other = std::string().c_str();
#elif defined(REFUSED_PATH_OF_STRING)
    const Path other = std::string("a");
#elif defined(REFUSED_PATH_OF_BUFFER)
    const Path other = buffer;
#elif defined(REFUSED_PATH_OF_NULL)
    const Path other = nullptr;
#endif
    return pathOfText.isEmpty() || pathOfBytes.isEmpty() || utf8Literal != wideLiteral;
}
