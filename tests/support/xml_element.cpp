#include "xml_element.h"

#include <libxml/parser.h>
#include <memory>
#include <stdexcept>

namespace {

std::string Text(const xmlChar* text)
{
    return text == nullptr ? std::string() : std::string(reinterpret_cast<const char*>(text));
}

std::string Content(const xmlNode* node)
{
    const std::unique_ptr<xmlChar, void (*)(void*)> content(xmlNodeGetContent(node), xmlFree);
    return Text(content.get());
}

void CopyAttributes(const xmlNode* node, XmlElement& element)
{
    for (const xmlAttr* attribute = node->properties; attribute != nullptr;
         attribute = attribute->next) {
        std::string name = Text(attribute->name);
        if (attribute->ns != nullptr && attribute->ns->prefix != nullptr) {
            name = Text(attribute->ns->prefix) + ":" + name;
        }
        element.attributes.emplace_back(name, Content(attribute->children));
    }
}

// Whether text other than white space stands directly below a node.
bool HasText(const xmlNode* node)
{
    for (const xmlNode* child = node->children; child != nullptr; child = child->next) {
        if (child->type == XML_TEXT_NODE && xmlIsBlankNode(child) == 0) {
            return true;
        }
    }
    return false;
}

XmlElement Copy(const xmlNode* node)
{
    XmlElement element;
    element.name = Text(node->name);
    element.namespaceUri = node->ns == nullptr ? "" : Text(node->ns->href);
    CopyAttributes(node, element);
    for (const xmlNode* child = node->children; child != nullptr; child = child->next) {
        if (child->type == XML_ELEMENT_NODE) {
            element.children.push_back(Copy(child));
        } else if (child->type == XML_COMMENT_NODE) {
            element.comments.push_back(Content(child));
        }
    }
    if (element.children.empty()) {
        element.text = Content(node);
    } else if (HasText(node)) {
        throw std::runtime_error("text beside the elements of " + element.name);
    }
    return element;
}

} // namespace

std::string XmlElement::Attribute(const std::string& wanted) const
{
    for (const auto& [key, value] : attributes) {
        if (key == wanted) {
            return value;
        }
    }
    return {};
}

std::vector<std::string> XmlElement::All(const std::string& wanted) const
{
    std::vector<std::string> texts;
    for (const XmlElement& child : children) {
        if (child.name == wanted) {
            texts.push_back(child.text);
        }
    }
    return texts;
}

std::string XmlElement::One(const std::string& wanted) const
{
    const auto texts = All(wanted);
    return texts.empty() ? std::string() : texts.front();
}

XmlElement ParseXml(std::string_view text)
{
    const std::unique_ptr<xmlDoc, void (*)(xmlDoc*)> document(
        xmlReadMemory(text.data(), static_cast<int>(text.size()), "document.xml", nullptr,
                      XML_PARSE_PEDANTIC | XML_PARSE_NONET),
        xmlFreeDoc);
    if (document == nullptr) {
        throw std::runtime_error("the document is not well-formed");
    }
    return Copy(xmlDocGetRootElement(document.get()));
}
