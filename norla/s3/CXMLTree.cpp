#include "norla/s3/CXMLTree.h"

#include "kx/base/CError.h"
#include "kx/text/numbers.h"

#include <algorithm>
#include <exception>
#include <expat.h>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace norla {

namespace {

constexpr size_t maxDepth = 100;

} // namespace

/// Makes a tree of what expat finds. A document that is refused and an error both stop expat, which may still report an
/// event or two: these are ignored.
class CXMLTreeBuilder {
public:
    explicit CXMLTreeBuilder(size_t mostElements)
        : m_parser(XML_ParserCreate(nullptr))
        , m_mostElements(mostElements)
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

    std::optional<CXMLTree> build(std::string_view bytes)
    {
        constexpr size_t maxBlockSize = 1 << 30; // expat counts in int
        do {
            const std::string_view block = bytes.substr(0, maxBlockSize);
            bytes.remove_prefix(block.size());
            const XML_Status status
                = XML_Parse(m_parser.get(), block.data(), static_cast<int>(block.size()), bytes.empty());
            if (m_error)
                std::rethrow_exception(m_error);
            if (status != XML_STATUS_OK)
                return std::nullopt;
        } while (!bytes.empty());
        return std::move(m_tree);
    }

private:
    struct CFreeParser {
        void operator()(XML_Parser parser) const noexcept { XML_ParserFree(parser); }
    };

    struct COpen {
        size_t node;
        size_t lastChild = CXMLTree::none;
        bool hasText = false;
    };

    template <typename TAction>
    static void handle(void* builder, TAction action) noexcept
    {
        auto& self = *static_cast<CXMLTreeBuilder*>(builder);
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
        handle(builder, [name](CXMLTreeBuilder& self) { self.startElement(name); });
    }

    static void onElementEnd(void* builder, const XML_Char*) noexcept
    {
        handle(builder, [](CXMLTreeBuilder& self) {
            self.endText();
            self.m_open.pop_back();
        });
    }

    static void onText(void* builder, const XML_Char* text, int size) noexcept
    {
        handle(builder, [text, size](CXMLTreeBuilder& self) { self.addText({text, static_cast<size_t>(size)}); });
    }

    static void onSectionStart(void* builder) noexcept
    {
        handle(builder, [](CXMLTreeBuilder& self) {
            self.endText();
            self.m_isText = true; // be it empty
        });
    }

    static void onSectionEnd(void* builder) noexcept
    {
        handle(builder, [](CXMLTreeBuilder& self) { self.endText(); });
    }

    static void onComment(void* builder, const XML_Char*) noexcept
    {
        handle(builder, [](CXMLTreeBuilder& self) { self.endText(); });
    }

    static void onInstruction(void* builder, const XML_Char*, const XML_Char*) noexcept
    {
        handle(builder, [](CXMLTreeBuilder& self) { self.endText(); });
    }

    static void onDocumentType(void* builder, const XML_Char*, const XML_Char*, const XML_Char*, int) noexcept
    {
        handle(builder, [](CXMLTreeBuilder& self) { self.stop(); });
    }

    void startElement(std::string_view name)
    {
        endText();
        if (m_open.size() == maxDepth) {
            stop();
            return;
        }
        const size_t node = m_tree.m_nodes.size();
        if (node == m_mostElements)
            throw kx::CError("more than " + kx::toString(static_cast<long long>(node)) + " elements");
        m_tree.m_nodes.push_back({.name = {.start = m_tree.m_texts.size(), .size = name.size()}, .text = {}});
        m_tree.m_texts += name;
        if (!m_open.empty()) {
            const size_t preceding = std::exchange(m_open.back().lastChild, node);
            (preceding == CXMLTree::none ? m_tree.m_nodes[m_open.back().node].firstChild
                                         : m_tree.m_nodes[preceding].next)
                = node;
        }
        m_open.push_back({.node = node});
    }

    void addText(std::string_view text)
    {
        m_isText = true;
        if (m_open.back().hasText)
            return;
        CXMLTree::CPart& part = m_tree.m_nodes[m_open.back().node].text;
        if (part.size == 0)
            part.start = m_tree.m_texts.size();
        m_tree.m_texts += text;
        part.size += text.size();
    }

    void endText()
    {
        if (m_isText)
            m_open.back().hasText = true;
        m_isText = false;
    }

    void stop() noexcept
    {
        m_isStopped = true;
        XML_StopParser(m_parser.get(), XML_FALSE);
    }

    const std::unique_ptr<std::remove_pointer_t<XML_Parser>, CFreeParser> m_parser;
    const size_t m_mostElements;
    CXMLTree m_tree;
    std::vector<COpen> m_open; // the elements that have not ended, the innermost last
    bool m_isText = false;     // whether a piece of text has begun, which expat gives in parts
    bool m_isStopped = false;
    std::exception_ptr m_error;
};

std::optional<CXMLTree> CXMLTree::parse(std::string_view bytes, size_t mostElements)
{
    return CXMLTreeBuilder(mostElements).build(bytes);
}

} // namespace norla
