// XML as plain values, so that tests compare tables with tables.
#pragma once

#include <string>
#include <string_view>
#include <vector>

struct XmlElement
{
    std::string name;
    std::string namespaceUri;
    std::vector<std::pair<std::string, std::string>> attributes; // prefix written out: "xsi:..."
    std::string text;                                            // of an element without children
    std::vector<XmlElement> children;
    std::vector<std::string> comments; // directly below this element

    std::string Attribute(const std::string& wanted) const;
    // Texts of all children of that name, in document order.
    std::vector<std::string> All(const std::string& wanted) const;
    // Text of the first child of that name, "" without one.
    std::string One(const std::string& wanted) const;
};

// Parses with libxml2 in its strict mode; an error, or text beside elements, ends the test with a
// message.
XmlElement ParseXml(std::string_view text);
