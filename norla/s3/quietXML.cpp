#include "norla/s3/quietXML.h"

#include <wx/stream.h>
#include <wx/xml/xml.h>

#include <algorithm>
#include <exception>
#include <expat.h>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <utility>

namespace norla {

namespace {

constexpr int maxDepth = 100; // wxWidgets frees a tree recursively
constexpr long long usualBlockSize = 1 << 20;
constexpr long long maxBlockSize = 1 << 29;

struct CFreeParser {
    void operator()(XML_Parser parser) const noexcept { XML_ParserFree(parser); }
};

wxString fromUTF8(const char* text, size_t size)
{
    return wxString(text, wxConvUTF8, size);
}

/// Makes the nodes that expat finds. A document that is refused and an error both stop expat, which may still report an
/// event or two: these are ignored.
class CTreeBuilder {
public:
    CTreeBuilder()
        : m_parser(XML_ParserCreate(nullptr))
    {
        if (!m_parser)
            throw std::bad_alloc();
        XML_SetUserData(m_parser.get(), this);
        XML_SetElementHandler(m_parser.get(), onElementStart, onElementEnd);
        XML_SetCharacterDataHandler(m_parser.get(), onText);
        XML_SetCdataSectionHandler(m_parser.get(), onSectionStart, onSectionEnd);
        XML_SetCommentHandler(m_parser.get(), onComment);
        XML_SetProcessingInstructionHandler(m_parser.get(), onInstruction);
        XML_SetStartDoctypeDeclHandler(m_parser.get(), onDocumentType);
    }

    /// @return the root; null when the document is refused
    std::unique_ptr<wxXmlNode> build(wxInputStream& stream)
    {
        const long long length = stream.GetLength();
        // One byte more than there are, so that the end is seen at once.
        long long left = length < 0 ? 0 : length + 1;
        long long blockSize = usualBlockSize;
        for (bool isLast = false; !isLast;) {
            const auto wanted = static_cast<int>(left > 0 ? std::min(left, blockSize) : blockSize);
            const int size = readBlock(stream, wanted);
            isLast = size < wanted;
            left -= size;
            m_hasEvents = false;
            if (!parseBlock(size, isLast))
                return nullptr;
            // expat scans what it could not finish anew with each block: twice as much at a time keeps that linear.
            blockSize = m_hasEvents ? usualBlockSize : std::min(2 * blockSize, maxBlockSize);
        }
        return std::move(m_root);
    }

private:
    int readBlock(wxInputStream& stream, int size)
    {
        void* const block = XML_GetBuffer(m_parser.get(), size);
        if (!block)
            throw std::bad_alloc();
        return static_cast<int>(stream.Read(block, static_cast<size_t>(size)).LastRead());
    }

    bool parseBlock(int size, bool isLast)
    {
        const XML_Status status = XML_ParseBuffer(m_parser.get(), size, isLast);
        if (m_error)
            std::rethrow_exception(m_error);
        return status == XML_STATUS_OK;
    }

    template <typename TAction>
    static void handle(void* builder, TAction action) noexcept
    {
        auto& self = *static_cast<CTreeBuilder*>(builder);
        self.m_hasEvents = true;
        if (self.m_isStopped)
            return;
        try {
            action(self);
        } catch (...) {
            self.m_error = std::current_exception();
            self.stop();
        }
    }

    static void onElementStart(void* builder, const XML_Char* name, const XML_Char**) noexcept
    {
        handle(builder, [name](CTreeBuilder& self) { self.startElement(name); });
    }

    static void onElementEnd(void* builder, const XML_Char*) noexcept
    {
        handle(builder, [](CTreeBuilder& self) { self.endElement(); });
    }

    static void onText(void* builder, const XML_Char* text, int size) noexcept
    {
        handle(builder, [text, size](CTreeBuilder& self) { self.m_text.append(text, static_cast<size_t>(size)); });
    }

    static void onSectionStart(void* builder) noexcept
    {
        handle(builder, [](CTreeBuilder& self) { self.endText(); });
    }

    static void onSectionEnd(void* builder) noexcept
    {
        handle(builder, [](CTreeBuilder& self) { self.addText(wxXML_CDATA_SECTION_NODE, wxS("cdata")); });
    }

    static void onComment(void* builder, const XML_Char*) noexcept
    {
        handle(builder, [](CTreeBuilder& self) { self.endText(); });
    }

    static void onInstruction(void* builder, const XML_Char*, const XML_Char*) noexcept
    {
        handle(builder, [](CTreeBuilder& self) { self.endText(); });
    }

    static void onDocumentType(void* builder, const XML_Char*, const XML_Char*, const XML_Char*, int) noexcept
    {
        handle(builder, [](CTreeBuilder& self) { self.stop(); });
    }

    void startElement(const char* name)
    {
        endText();
        if (++m_depth > maxDepth) {
            stop();
            return;
        }
        auto element
            = std::make_unique<wxXmlNode>(wxXML_ELEMENT_NODE, fromUTF8(name, std::char_traits<char>::length(name)));
        wxXmlNode* const started = element.get();
        if (m_open)
            append(std::move(element));
        else
            m_root = std::move(element);
        m_open = started;
        m_lastChild = nullptr;
    }

    void endElement()
    {
        endText();
        --m_depth;
        m_lastChild = m_open;
        m_open = m_open->GetParent();
    }

    void endText()
    {
        if (!m_text.empty())
            addText(wxXML_TEXT_NODE, wxS("text"));
    }

    void addText(wxXmlNodeType type, const wxString& name)
    {
        append(std::make_unique<wxXmlNode>(type, name, fromUTF8(m_text.data(), m_text.size())));
        m_text.clear();
    }

    void append(std::unique_ptr<wxXmlNode> node)
    {
        wxXmlNode* const preceding = std::exchange(m_lastChild, node.get());
        m_open->InsertChildAfter(node.release(), preceding);
    }

    void stop() noexcept
    {
        m_isStopped = true;
        XML_StopParser(m_parser.get(), XML_FALSE);
    }

    const std::unique_ptr<std::remove_pointer_t<XML_Parser>, CFreeParser> m_parser;
    std::unique_ptr<wxXmlNode> m_root;
    wxXmlNode* m_open = nullptr;      // the innermost element that has not ended; owned by the root, as the next one
    wxXmlNode* m_lastChild = nullptr; // of m_open
    int m_depth = 0;
    std::string m_text;       // which expat gives in pieces
    bool m_hasEvents = false; // in the current block
    bool m_isStopped = false;
    std::exception_ptr m_error;
};

} // namespace

bool loadQuietly(wxXmlDocument& document, wxInputStream& stream)
{
    std::unique_ptr<wxXmlNode> root = CTreeBuilder().build(stream);
    if (!root)
        return false;
    document.SetRoot(root.get());
    static_cast<void>(root.release()); // the document has it now
    return true;
}

} // namespace norla
