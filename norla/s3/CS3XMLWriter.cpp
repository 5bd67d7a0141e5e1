#include "norla/s3/CS3XMLWriter.h"

#include "kx/base/CError.h"

#include <algorithm>
#include <utility>

namespace norla {

namespace {

bool isXMLCharacter(wchar_t character) noexcept
{
    if (character < L' ')
        return character == L'\t' || character == L'\n' || character == L'\r';
    const bool isSurrogate = character >= 0xd800 && character <= 0xdfff;
    return !isSurrogate && character != 0xfffe && character != 0xffff && character <= 0x10ffff;
}

/// What stands for a byte that parsers would read as something else; empty for the others. Line ends and tabs are
/// written as references, because parsers make LF of each line end (XML 1.0 section 2.11).
std::string_view xmlReferenceFor(char byte) noexcept
{
    switch (byte) {
    case '&':
        return "&amp;";
    case '<':
        return "&lt;";
    case '>':
        return "&gt;";
    case '"':
        return "&quot;";
    case '\t':
        return "&#9;";
    case '\n':
        return "&#10;";
    case '\r':
        return "&#13;";
    default:
        return {};
    }
}

} // namespace

CS3XMLWriter::CS3XMLWriter(std::string_view rootName)
    : m_document("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<")
    , m_open{std::string(rootName)}
{
    m_document += rootName;
    m_document += " xmlns=\"http://s3.amazonaws.com/doc/2006-03-01/\">";
}

void CS3XMLWriter::begin(std::string_view name)
{
    m_open.emplace_back(name);
    m_document += '<';
    m_document += name;
    m_document += '>';
}

void CS3XMLWriter::end()
{
    m_document += "</" + m_open.back() + ">";
    m_open.pop_back();
}

void CS3XMLWriter::add(std::string_view name, const kx::String& text)
{
    if (!canWrite(text))
        throw kx::CError("XML has no way to write the text '" + text + "'.");
    begin(name);
    addEscaped(text.toUTF8());
    end();
}

void CS3XMLWriter::addEscaped(std::string_view utf8)
{
    for (const char byte : utf8) {
        const std::string_view reference = xmlReferenceFor(byte);
        if (reference.empty())
            m_document += byte;
        else
            m_document += reference;
    }
}

std::string CS3XMLWriter::finish()
{
    while (!m_open.empty())
        end();
    return std::move(m_document);
}

bool CS3XMLWriter::canWrite(const kx::String& text) noexcept
{
    return std::all_of(text.begin(), text.end(), isXMLCharacter);
}

} // namespace norla
