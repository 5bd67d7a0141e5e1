#pragma once

#include "kx/text/String.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace norla {

/// Writes an XML document for a store: elements and text, nothing else.
class CS3XMLWriter {
public:
    /// Begins the document. @param rootName of its root, in the namespace of S3's documents; names are not checked
    explicit CS3XMLWriter(std::string_view rootName);

    /// Begins an element in the innermost one.
    void begin(std::string_view name);

    /// Ends the innermost element that begin() has begun.
    void end();

    /// An element that holds this text and comes back as it is from every parser: also its blanks and line ends.
    /// @throws kx::CError naming the text when canWrite() says no; nothing is written then
    void add(std::string_view name, const kx::String& text);

    /// In bytes, so far.
    size_t getSize() const noexcept { return m_document.size(); }

    /// The document, whose open elements are ended. Nothing can be written afterwards.
    std::string finish();

    /// Whether XML 1.0 has a way to write the text (section 2.2). It has none, and no reference either, for control
    /// characters but tab, CR and LF, for U+FFFE and U+FFFF, and for what has no UTF-8 form.
    static bool canWrite(const kx::String& text) noexcept;

private:
    void addEscaped(std::string_view utf8);

    std::string m_document;
    std::vector<std::string> m_open; // the innermost last
};

} // namespace norla
