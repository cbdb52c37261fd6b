#include "module_document.h"

#include <cstdlib>
#include <gtest/gtest.h>

#include "genapi_schema.h"

namespace standard_tl {
namespace {

std::string ReadDocument(PORT_HANDLE port)
{
    char url[256];
    size_t size = sizeof(url);
    EXPECT_EQ(GCGetPortURL(port, url, &size), GC_ERR_SUCCESS);
    const std::string text(url);
    const size_t second = text.rfind(';');
    const size_t first = text.rfind(';', second - 1);
    EXPECT_EQ(text.substr(0, 6), "local:");
    const uint64_t address = strtoull(text.c_str() + first + 1, nullptr, 16);
    std::string document(strtoull(text.c_str() + second + 1, nullptr, 16), '\0');
    size = document.size();
    EXPECT_EQ(GCReadPort(port, address, document.data(), &size), GC_ERR_SUCCESS);
    EXPECT_EQ(size, document.size());
    return document;
}

bool IsRegister(const XmlElement& node)
{
    return node.name == "IntReg" || node.name == "StringReg";
}

ModuleDocument::Reg RegisterIn(const XmlElement& node)
{
    return {node.Attribute("Name"), node.name, strtoull(node.One("Address").c_str(), nullptr, 0),
            strtoull(node.One("Length").c_str(), nullptr, 0), node.One("AccessMode") == "RW"};
}

} // namespace

ModuleDocument::ModuleDocument(PORT_HANDLE port)
    : m_text(ReadDocument(port)), m_root(ParseXml(m_text)), m_nodes(NodesOf(m_root))
{
}

const XmlElement* ModuleDocument::Find(const std::string& name) const
{
    for (const XmlElement* node : m_nodes) {
        if (node->Attribute("Name") == name) {
            return node;
        }
    }
    return nullptr;
}

std::vector<ModuleDocument::Reg> ModuleDocument::Registers() const
{
    std::vector<Reg> registers;
    for (const XmlElement* node : m_nodes) {
        if (IsRegister(*node)) {
            registers.push_back(RegisterIn(*node));
        }
    }
    return registers;
}

ModuleDocument::Reg ModuleDocument::RegisterOf(const std::string& feature) const
{
    const XmlElement* node = Find(feature);
    while (node != nullptr && !IsRegister(*node)) {
        node = Find(node->One("pValue"));
    }
    EXPECT_NE(node, nullptr) << feature;
    return node != nullptr ? RegisterIn(*node) : Reg{};
}

} // namespace standard_tl
