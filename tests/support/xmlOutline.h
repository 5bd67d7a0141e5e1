#pragma once

#include <wx/xml/xml.h>

#include <string>

namespace support {

/// The elements below a node and the pieces of text in them, in document order: two trees with the same outline read
/// the same.
inline std::string xmlOutlineOf(const wxXmlNode& parent)
{
    std::string outline;
    for (const wxXmlNode* node = parent.GetChildren(); node; node = node->GetNext()) {
        const std::string content(node->GetContent().utf8_str());
        if (node->GetType() == wxXML_ELEMENT_NODE)
            outline += "<" + std::string(node->GetName().utf8_str()) + ">" + xmlOutlineOf(*node) + "</>";
        else if (node->GetType() == wxXML_TEXT_NODE)
            outline += "[" + content + "]";
        else if (node->GetType() == wxXML_CDATA_SECTION_NODE)
            outline += "{" + content + "}";
    }
    return outline;
}

} // namespace support
