#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "zr_xml_documents.h"

// A parsed document as plain values, so that tests compare tables with tables.
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

// One of the four documents with its name, and its nodes by name.
struct XmlDocument
{
    std::string file;
    std::string port;
    std::string toolTip;
    std::string_view bytes;
    XmlElement root;
    std::vector<const XmlElement*> nodes; // in document order, groups opened
    std::map<std::string, const XmlElement*> byName;

    const XmlElement& Node(const std::string& name) const;
};

const XmlDocument& SystemDocument();
const XmlDocument& InterfaceDocument();
const XmlDocument& DeviceDocument();
const XmlDocument& StreamDocument();
std::vector<const XmlDocument*> AllDocuments();
