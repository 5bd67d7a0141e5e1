#pragma once

#include "kx/text/String.h"

#include <wx/xml/xml.h>

#include <string>
#include <string_view>

namespace norla {

/// An element that somebody else has loaded, read as a CXMLElement. It refers to the node.
class CWxElement {
public:
    explicit CWxElement(const wxXmlNode& node) noexcept
        : m_node(&node)
    {
    }

    const wxXmlNode& getNode() const noexcept { return *m_node; }
    bool isNamed(std::string_view name) const
    {
        return m_node->GetName() == wxString::FromUTF8(name.data(), name.size());
    }
    kx::String getName() const { return kx::String(m_node->GetName().ToStdWstring()); }
    kx::String getText() const { return kx::String(m_node->GetNodeContent().ToStdWstring()); }

    template <typename TAction>
    void forEachElement(TAction action) const
    {
        for (const wxXmlNode* child = m_node->GetChildren(); child; child = child->GetNext()) {
            if (child->GetType() == wxXML_ELEMENT_NODE)
                action(CWxElement(*child));
        }
    }

private:
    const wxXmlNode* m_node;
};

} // namespace norla
