#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "xml_element.h"
#include <zr_u3v_tl/gentl.h>

namespace standard_tl {

// A module's document as a consumer gets it: by the URL of its port, through the port.
class ModuleDocument
{
public:
    // A register of the document.
    struct Reg
    {
        std::string node;
        std::string kind; // of the node
        uint64_t address;
        size_t length;
        bool isWritable;
    };

    explicit ModuleDocument(PORT_HANDLE port);

    const std::string& Text() const { return m_text; }
    const XmlElement& Root() const { return m_root; }
    const std::vector<const XmlElement*>& Nodes() const { return m_nodes; } // groups opened
    // NULL when there is none.
    const XmlElement* Find(const std::string& name) const;
    std::vector<Reg> Registers() const;
    // The register behind a feature, through as many nodes as stand before it.
    Reg RegisterOf(const std::string& feature) const;

private:
    std::string m_text;
    XmlElement m_root;
    std::vector<const XmlElement*> m_nodes;
};

} // namespace standard_tl
