// The rules of the GenApi 1.1 schema that tests hold register descriptions to.
#pragma once

#include <set>

#include "xml_element.h"

// "" when the children of a node follow the order of its kind, else what is wrong.
std::string OrderFault(const XmlElement& node);

// The nodes of a description in document order, groups opened.
std::vector<const XmlElement*> NodesOf(const XmlElement& description);

// Names that nodes refer to and that no node has.
std::set<std::string> DanglingNames(const XmlElement& description);
