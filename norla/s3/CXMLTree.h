#pragma once

#include "kx/text/String.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace norla {

class CXMLElement;

/// The elements of an XML document and the first text in each, which is what the readers of a store's documents ask
/// for. Attributes, comments and processing instructions are passed over; white space is kept.
class CXMLTree {
public:
    CXMLTree() = default; ///< without a root

    static constexpr size_t unlimited = static_cast<size_t>(-1);

    /// Time and memory grow with the size of the bytes, whatever is in them, and with the number of elements: one of
    /// four bytes ("<a/>") takes 48. The document's declaration says how it is encoded: UTF-8 (also without a
    /// declaration), UTF-16, ISO-8859-1 or US-ASCII.
    /// @return nothing when it is not well-formed, has a document type (the only way to entities of its own) or nests
    /// more than 100 elements
    /// @throws kx::CError "more than ... elements" when there are
    static std::optional<CXMLTree> parse(std::string_view bytes, size_t mostElements = unlimited);

    /// So has every tree that was parsed.
    bool hasRoot() const noexcept { return !m_nodes.empty(); }

    /// Where there is one; valid as long as the tree stays where it is.
    CXMLElement getRoot() const noexcept;

private:
    friend class CXMLElement;
    friend class CXMLTreeBuilder;

    static constexpr size_t none = static_cast<size_t>(-1);

    struct CPart { // of m_texts
        size_t start = 0;
        size_t size = 0;
    };
    struct CNode {
        CPart name;
        CPart text;
        size_t firstChild = none;
        size_t next = none;
    };

    std::string_view textOf(const CPart& part) const { return std::string_view(m_texts).substr(part.start, part.size); }

    std::vector<CNode> m_nodes; // the root first
    std::string m_texts;        // UTF-8
};

/// An element of a tree, which outlives it.
class CXMLElement {
public:
    bool isNamed(std::string_view name) const { return m_tree->textOf(node().name) == name; }
    kx::String getName() const { return kx::String::fromUTF8(m_tree->textOf(node().name)); }

    /// The first piece of text in the element: up to a child, a comment, an instruction or a section of character data;
    /// or the first such section. Empty when there is none.
    kx::String getText() const { return kx::String::fromUTF8(m_tree->textOf(node().text)); }

    /// Calls action(element) for every element among the children, in document order.
    template <typename TAction>
    void forEachElement(TAction action) const
    {
        for (size_t child = node().firstChild; child != CXMLTree::none; child = m_tree->m_nodes[child].next)
            action(CXMLElement(*m_tree, child));
    }

private:
    friend class CXMLTree;

    CXMLElement(const CXMLTree& tree, size_t index) noexcept
        : m_tree(&tree)
        , m_index(index)
    {
    }

    const CXMLTree::CNode& node() const noexcept { return m_tree->m_nodes[m_index]; }

    const CXMLTree* m_tree;
    size_t m_index;
};

inline CXMLElement CXMLTree::getRoot() const noexcept
{
    return {*this, 0};
}

} // namespace norla
