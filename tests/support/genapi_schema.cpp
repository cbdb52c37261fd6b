#include "genapi_schema.h"

#include <cstdint>
#include <map>
#include <sstream>

namespace {

// GenApi 1.1: children of each node kind, in the order that the schema fixes. "a|b" are
// alternatives for one place, "?" at most once, "*" any number, "+" at least once, none exactly
// once.
const char* const kHead =
    "Extension? ToolTip? Description? DisplayName? Visibility? DocuURL? IsDeprecated? EventID? "
    "pIsImplemented? pIsAvailable? pIsLocked? pBlockPolling? ImposedAccessMode? pError* pAlias? "
    "pCastAlias? ";
const char* const kRegister =
    "Streamable? Address|IntSwissKnife|pAddress|pIndex+ Length|pLength AccessMode pPort Cachable? "
    "PollingTime? pInvalidator* ";

const std::map<std::string, std::string>& OrderTable()
{
    static const std::map<std::string, std::string> table{
        {"Category", "pInvalidator* pFeature*"},
        {"Integer", "pInvalidator* Streamable? Value|pValue Min|pMin? Max|pMax? Inc|pInc? Unit? "
                    "Representation? ValidValueSet? pSelected*"},
        {"String", "pInvalidator* Streamable? Value|pValue"},
        {"Boolean", "pInvalidator* Streamable? Value|pValue OnValue? OffValue? pSelected*"},
        {"Float", "pInvalidator* Streamable? Value|pValue Min|pMin? Max|pMax? Inc|pInc? Unit? "
                  "Representation? DisplayNotation? DisplayPrecision?"},
        {"Command", "pInvalidator* Value|pValue CommandValue|pCommandValue PollingTime?"},
        {"Enumeration",
         "pInvalidator* Streamable? EnumEntry+ Value|pValue pSelected* PollingTime?"},
        {"EnumEntry", "pInvalidator* Value NumericValue? Symbolic? IsSelfClearing?"},
        {"IntSwissKnife", "pInvalidator* Streamable? pVariable* Constant* Expression* Formula "
                          "Unit? Representation?"},
        {"SwissKnife", "pInvalidator* Streamable? pVariable* Constant* Expression* Formula Unit? "
                       "Representation?"},
        {"Register", kRegister},
        {"StringReg", kRegister},
        {"IntReg", std::string(kRegister) + "Sign? Endianess Unit? Representation? pSelected*"},
        {"MaskedIntReg", std::string(kRegister) + "Bit? LSB? MSB? Sign? Endianess Unit? "
                                                  "Representation? pSelected*"},
        {"FloatReg", std::string(kRegister) + "Endianess Unit? Representation? DisplayNotation? "
                                              "DisplayPrecision?"},
        {"Port", "pInvalidator* ChunkID|pChunkID? SwapEndianess? CacheChunkData?"}};
    return table;
}

struct Place
{
    std::set<std::string> names;
    size_t least = 1;
    size_t most = 1;
};

Place ParsePlace(std::string word)
{
    Place place;
    const char last = word.back();
    if (last == '?' || last == '*' || last == '+') {
        word.pop_back();
        place.least = last == '+' ? 1 : 0;
        place.most = last == '?' ? 1 : SIZE_MAX;
    }
    std::istringstream alternatives(word);
    for (std::string name; std::getline(alternatives, name, '|');) {
        place.names.insert(name);
    }
    return place;
}

bool IsReference(const std::string& element)
{
    return element.size() > 1 && element[0] == 'p' && element[1] >= 'A' && element[1] <= 'Z';
}

} // namespace

std::string OrderFault(const XmlElement& node)
{
    const auto row = OrderTable().find(node.name);
    if (row == OrderTable().end()) {
        return "unknown node kind " + node.name;
    }
    size_t next = 0;
    std::istringstream places(kHead + row->second);
    for (std::string word; places >> word;) {
        const Place place = ParsePlace(word);
        size_t count = 0;
        while (next < node.children.size() && place.names.contains(node.children[next].name)) {
            ++next;
            ++count;
        }
        if (count < place.least || count > place.most) {
            return word + " stands " + std::to_string(count) + " times";
        }
    }
    return next == node.children.size() ? "" : node.children[next].name + " is out of place";
}

std::vector<const XmlElement*> NodesOf(const XmlElement& description)
{
    std::vector<const XmlElement*> nodes;
    for (const XmlElement& child : description.children) {
        if (child.name != "Group") {
            nodes.push_back(&child);
            continue;
        }
        for (const XmlElement* inner : NodesOf(child)) {
            nodes.push_back(inner);
        }
    }
    return nodes;
}

std::set<std::string> DanglingNames(const XmlElement& description)
{
    std::set<std::string> names;
    std::set<std::string> wanted;
    for (const XmlElement* node : NodesOf(description)) {
        names.insert(node->Attribute("Name"));
        for (const XmlElement& child : node->children) {
            if (IsReference(child.name)) {
                wanted.insert(child.text);
            }
        }
    }
    for (const std::string& name : names) {
        wanted.erase(name);
    }
    return wanted;
}
