#pragma once

#include "norla/s3/CXMLTree.h"

#include <wx/xml/xml.h>

#include <string>

namespace support {

/// The elements of a tree with the first text of each, in document order: two trees with the same outline read the
/// same.
inline std::string xmlOutlineOf(const norla::CXMLElement& element)
{
    std::string outline = "<" + element.getName().toUTF8() + ">[" + element.getText().toUTF8() + "]";
    element.forEachElement([&outline](const norla::CXMLElement& child) { outline += xmlOutlineOf(child); });
    return outline + "</>";
}

/// The same of what wxWidgets has read.
inline std::string xmlOutlineOf(const wxXmlNode& element)
{
    std::string outline = "<" + std::string(element.GetName().utf8_str()) + ">["
        + std::string(element.GetNodeContent().utf8_str()) + "]";
    for (const wxXmlNode* child = element.GetChildren(); child; child = child->GetNext())
        if (child->GetType() == wxXML_ELEMENT_NODE)
            outline += xmlOutlineOf(*child);
    return outline + "</>";
}

} // namespace support
