#include "norla/s3/harmlessXML.h"

#include <algorithm>
#include <expat.h>
#include <memory>
#include <new>
#include <type_traits>

namespace norla {

namespace {

constexpr int maxDepth = 100;
constexpr size_t maxAttributes = 64;
constexpr int maxTextBytes = 64 << 10;
constexpr int maxTextParts = 2048;
constexpr size_t blockSize = 1 << 20;

/// What the parser's callbacks count; a limit that is passed stops the parser.
class CLimits {
public:
    explicit CLimits(XML_Parser parser)
        : m_parser(parser)
    {
        XML_SetUserData(parser, this);
        XML_SetElementHandler(parser, onElementStart, onElementEnd);
        XML_SetCharacterDataHandler(parser, onText);
        XML_SetStartDoctypeDeclHandler(parser, onDocumentType);
    }

private:
    static CLimits& of(void* data) { return *static_cast<CLimits*>(data); }

    static void onElementStart(void* data, const XML_Char*, const XML_Char** attributes)
    {
        CLimits& self = of(data);
        self.startText();
        size_t count = 0;
        while (count <= maxAttributes && attributes[2 * count])
            ++count;
        self.require(++self.m_depth <= maxDepth && count <= maxAttributes);
    }

    static void onElementEnd(void* data, const XML_Char*)
    {
        --of(data).m_depth;
        of(data).startText();
    }

    static void onText(void* data, const XML_Char*, int size)
    {
        CLimits& self = of(data);
        self.m_textBytes += std::min(size, maxTextBytes + 1);
        self.require(++self.m_textParts <= maxTextParts && self.m_textBytes <= maxTextBytes);
    }

    static void onDocumentType(void* data, const XML_Char*, const XML_Char*, const XML_Char*, int)
    {
        of(data).require(false);
    }

    void startText()
    {
        m_textBytes = 0;
        m_textParts = 0;
    }

    void require(bool isWithinLimits)
    {
        if (!isWithinLimits)
            XML_StopParser(m_parser, XML_FALSE);
    }

    const XML_Parser m_parser;
    int m_depth = 0;
    int m_textBytes = 0;
    int m_textParts = 0;
};

struct CFree {
    void operator()(XML_Parser parser) const noexcept { XML_ParserFree(parser); }
};

} // namespace

bool isHarmlessXML(const char* data, size_t size)
{
    const std::unique_ptr<std::remove_pointer_t<XML_Parser>, CFree> parser(XML_ParserCreate(nullptr));
    if (!parser)
        throw std::bad_alloc();
    const CLimits limits(parser.get());
    while (size > blockSize) {
        if (XML_Parse(parser.get(), data, blockSize, XML_FALSE) != XML_STATUS_OK)
            return false;
        data += blockSize;
        size -= blockSize;
    }
    return XML_Parse(parser.get(), data, static_cast<int>(size), XML_TRUE) == XML_STATUS_OK;
}

} // namespace norla
