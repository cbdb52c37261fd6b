#include "xml_tree.h"

#include "genapi_schema.h"

#include <memory>
#include <stdexcept>

namespace {

XmlDocument* Load(const char* file, const char* port, const char* toolTip, std::string_view bytes)
{
    auto* document = new XmlDocument{file, port, toolTip, bytes, ParseXml(bytes), {}, {}};
    document->nodes = NodesOf(document->root);
    for (const XmlElement* node : document->nodes) {
        document->byName[node->Attribute("Name")] = node;
    }
    return document;
}

} // namespace

const XmlElement& XmlDocument::Node(const std::string& name) const
{
    const auto found = byName.find(name);
    if (found == byName.end()) {
        throw std::runtime_error(file + " has no node " + name);
    }
    return *found->second;
}

// Parsed once per run; the pointers into the tree need an address that stays.
const XmlDocument& SystemDocument()
{
    static const std::unique_ptr<XmlDocument> document(
        Load("ZrGenTLU3V_TL.xml", "TLPort", "TL RegisterMap", kXmlSystem));
    return *document;
}

const XmlDocument& InterfaceDocument()
{
    static const std::unique_ptr<XmlDocument> document(
        Load("ZrGenTLU3V_IF.xml", "InterfacePort", "IF RegisterMap", kXmlInterface));
    return *document;
}

const XmlDocument& DeviceDocument()
{
    static const std::unique_ptr<XmlDocument> document(
        Load("ZrGenTLU3V_DEV.xml", "DevicePort", "Device RegisterMap", kXmlDevice));
    return *document;
}

const XmlDocument& StreamDocument()
{
    static const std::unique_ptr<XmlDocument> document(
        Load("ZrGenTLU3V_DS.xml", "StreamPort", "Data Stream RegisterMap", kXmlDataStream));
    return *document;
}

std::vector<const XmlDocument*> AllDocuments()
{
    return {&SystemDocument(), &InterfaceDocument(), &DeviceDocument(), &StreamDocument()};
}
