#include <cinttypes>
#include <cstdio>
#include <string_view>

#include "feature.h"

namespace standard_tl {
namespace {

constexpr const char* kNamespace = "http://www.genicam.org/GenApi/Version_1_1";
constexpr const char* kSchema = "http://www.genicam.org/GenApi/GenApiSchema_Version_1_1.xsd";

std::string Escape(std::string_view text)
{
    std::string escaped;
    for (const char c : text) {
        switch (c) {
        case '&': escaped += "&amp;"; break;
        case '<': escaped += "&lt;"; break;
        case '>': escaped += "&gt;"; break;
        default: escaped += c;
        }
    }
    return escaped;
}

std::string Hex(uint64_t number)
{
    char text[24];
    snprintf(text, sizeof(text), "0x%" PRIX64, number);
    return text;
}

// Writes one node: its element, then its children in the order in which they are given.
class Node
{
public:
    Node(std::string& text, const char* kind, const std::string& name, bool isOurs)
        : m_text(text), m_kind(kind)
    {
        m_text += std::string("  <") + kind + " Name=\"" + name + "\" NameSpace=\"" +
                  (isOurs ? "Custom" : "Standard") + "\">\n";
    }
    ~Node() { m_text += std::string("  </") + m_kind + ">\n"; }
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;

    void Child(const char* name, const std::string& text)
    {
        m_text += std::string("    <") + name + ">" + Escape(text) + "</" + name + ">\n";
    }
    void ChildIf(const char* name, const char* text)
    {
        if (text != nullptr) {
            Child(name, text);
        }
    }
    void Children(const char* name, const std::vector<const char*>& texts)
    {
        for (const char* text : texts) {
            Child(name, text);
        }
    }
    void Raw(const std::string& text) { m_text += text; }

private:
    std::string& m_text;
    const char* const m_kind;
};

// Whether the register itself is the feature, or stands behind a node of the feature's kind.
bool IsDirect(const Feature& feature)
{
    return feature.kind == FeatureKind::Text ||
           (feature.kind == FeatureKind::Number && !feature.set);
}

std::string RegisterName(const Feature& feature)
{
    return IsDirect(feature) ? feature.name : std::string(feature.name) + "Reg";
}

const Feature* FindFeature(const std::vector<Register>& registers, std::string_view name)
{
    for (const Register& reg : registers) {
        if (reg.feature.name == name) {
            return &reg.feature;
        }
    }
    return nullptr;
}

bool IsIn(const Register& reg, std::string_view category)
{
    return reg.feature.category != nullptr && reg.feature.category == category;
}

class Document
{
public:
    Document(const DocumentIdentity& identity, const std::vector<Register>& registers)
        : m_identity(identity), m_registers(registers)
    {
    }

    std::string Body()
    {
        _root();
        for (const Register& reg : m_registers) {
            if (!IsDirect(reg.feature)) {
                _feature(reg.feature);
            }
            _register(reg);
        }
        {
            Node port(m_text, "Port", m_identity.port, false);
        }
        return m_text;
    }

private:
    void _root()
    {
        std::vector<const char*> categories;
        for (const Register& reg : m_registers) {
            const char* const category = reg.feature.category;
            if (category != nullptr && (categories.empty() || !IsIn(reg, categories.back()))) {
                categories.push_back(category);
            }
        }
        {
            Node root(m_text, "Category", "Root", false);
            root.Children("pFeature", categories);
        }
        for (const char* category : categories) {
            _category(category);
        }
    }

    void _category(const char* name)
    {
        bool isOurs = false;
        std::vector<const char*> features;
        for (const Register& reg : m_registers) {
            if (IsIn(reg, name)) {
                features.push_back(reg.feature.name);
                isOurs = isOurs || reg.feature.isOurs;
            }
        }
        Node category(m_text, "Category", name, isOurs);
        category.Children("pFeature", features);
    }

    void _head(Node& node, const Feature& feature)
    {
        node.Child("ToolTip", feature.toolTip);
        node.Child("Visibility", feature.category != nullptr ? feature.visibility : "Invisible");
        _reference(node, "pIsAvailable", feature.available);
        _reference(node, "pIsLocked", feature.locked);
    }

    // To the register of a feature, which is a number whatever stands before it.
    void _reference(Node& node, const char* element, const char* name)
    {
        if (name != nullptr) {
            node.Child(element, RegisterName(*FindFeature(m_registers, name)));
        }
    }

    void _feature(const Feature& feature)
    {
        switch (feature.kind) {
        case FeatureKind::Flag: {
            Node node(m_text, "Boolean", feature.name, feature.isOurs);
            _head(node, feature);
            node.Child("pValue", RegisterName(feature));
            break;
        }
        case FeatureKind::Choice: _enumeration(feature); break;
        case FeatureKind::Command: {
            Node node(m_text, "Command", feature.name, feature.isOurs);
            _head(node, feature);
            node.Child("pValue", RegisterName(feature));
            node.Child("CommandValue", "1");
            break;
        }
        default: _integer(feature);
        }
    }

    void _integer(const Feature& feature)
    {
        Node node(m_text, "Integer", feature.name, feature.isOurs);
        _head(node, feature);
        node.Child("pValue", RegisterName(feature));
        node.Child("Min", "0");
        _reference(node, "pMax", feature.maximum);
        node.ChildIf("Unit", feature.unit);
        node.Children("pSelected", feature.selects);
    }

    void _enumeration(const Feature& feature)
    {
        Node node(m_text, "Enumeration", feature.name, feature.isOurs);
        _head(node, feature);
        for (const FeatureChoice& choice : feature.choices) {
            node.Raw(std::string("    <EnumEntry Name=\"") + choice.name +
                     "\" NameSpace=\"Standard\">\n      <Value>" + std::to_string(choice.value) +
                     "</Value>\n    </EnumEntry>\n");
        }
        node.Child("pValue", RegisterName(feature));
    }

    void _register(const Register& reg)
    {
        const Feature& feature = reg.feature;
        const bool isText = feature.kind == FeatureKind::Text;
        const bool isDirect = IsDirect(feature);
        Node node(m_text, isText ? "StringReg" : "IntReg", RegisterName(feature),
                  feature.isOurs || !isDirect);
        if (isDirect) {
            _head(node, feature);
        } else {
            node.Child("Visibility", "Invisible");
        }
        node.Child("Address", Hex(reg.address));
        node.Child("Length", std::to_string(feature.length));
        node.Child("AccessMode", feature.set ? "RW" : "RO");
        node.Child("pPort", m_identity.port);
        node.ChildIf("Cachable", feature.changes ? "NoCache" : nullptr);
        if (feature.polling != 0) {
            node.Child("PollingTime", std::to_string(feature.polling));
        }
        node.Children("pInvalidator", feature.invalidators);
        if (!isText) {
            node.Child("Endianess", "LittleEndian");
            node.ChildIf("Unit", isDirect ? feature.unit : nullptr);
        }
    }

    const DocumentIdentity& m_identity;
    const std::vector<Register>& m_registers;
    std::string m_text;
};

// Node maps are kept by whoever has seen this number before, so it follows the contents.
std::string VersionGuid(std::string_view text)
{
    uint64_t low = 0xCBF29CE484222325;
    uint64_t high = 0x9E3779B97F4A7C15;
    for (const char c : text) {
        low = (low ^ static_cast<uint8_t>(c)) * 0x100000001B3;
        high = (high ^ static_cast<uint8_t>(c)) * 0x100000001B3;
    }
    char guid[40];
    snprintf(guid, sizeof(guid), "%08X-%04X-%04X-%04X-%012" PRIX64,
             static_cast<unsigned>(high >> 32), static_cast<unsigned>((high >> 16) & 0xFFFF),
             static_cast<unsigned>(high & 0xFFFF), static_cast<unsigned>(low >> 48),
             low & 0xFFFFFFFFFFFF);
    return guid;
}

} // namespace

std::string MakeDocument(const DocumentIdentity& identity, const std::vector<Register>& registers)
{
    const std::string body = Document(identity, registers).Body();
    std::string text = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<RegisterDescription";
    const auto attribute = [&text](const char* name, const std::string& value) {
        text += std::string("\n    ") + name + "=\"" + value + "\"";
    };
    attribute("ModelName", identity.name);
    attribute("VendorName", "ZRK_ORVANE");
    attribute("ToolTip", identity.toolTip);
    attribute("StandardNameSpace", "None");
    attribute("SchemaMajorVersion", "1");
    attribute("SchemaMinorVersion", "1");
    attribute("SchemaSubMinorVersion", "0");
    attribute("MajorVersion", "1");
    attribute("MinorVersion", "0");
    attribute("SubMinorVersion", "0");
    attribute("ProductGuid", identity.productGuid);
    attribute("VersionGuid", VersionGuid(body));
    attribute("xmlns", kNamespace);
    attribute("xmlns:xsi", "http://www.w3.org/2001/XMLSchema-instance");
    attribute("xsi:schemaLocation", std::string(kNamespace) + " " + kSchema);
    return text + ">\n" + body + "</RegisterDescription>\n";
}

} // namespace standard_tl
