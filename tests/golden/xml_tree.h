#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "xml_element.h"
#include "zr_xml_documents.h"

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
