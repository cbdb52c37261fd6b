// What holds for every node: the order of its children, what it refers to, where it stands.

#include "xml_tree.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <set>
#include <sstream>
#include <stdexcept>

namespace {

using Names = std::vector<std::string>;

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
        {"Command", "pInvalidator* Value|pValue CommandValue|pCommandValue PollingTime?"},
        {"Enumeration",
         "pInvalidator* Streamable? EnumEntry+ Value|pValue pSelected* PollingTime?"},
        {"EnumEntry", "pInvalidator* Value NumericValue? Symbolic? IsSelfClearing?"},
        {"IntSwissKnife", "pInvalidator* Streamable? pVariable* Constant* Expression* Formula "
                          "Unit? Representation?"},
        {"StringReg", kRegister},
        {"IntReg", std::string(kRegister) + "Sign? Endianess Unit? Representation? pSelected*"},
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

// "" if the children follow the order of their node kind, else what is wrong.
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

// What these documents use of each node kind, beyond which nothing may creep in.
const std::map<std::string, std::set<std::string>>& UsedChildren()
{
    static const std::map<std::string, std::set<std::string>> table{
        {"Category",
         {"ToolTip", "Description", "DisplayName", "Visibility", "ImposedAccessMode", "pFeature"}},
        {"Integer",
         {"ToolTip", "Description", "Visibility", "pIsAvailable", "ImposedAccessMode", "Value",
          "pValue", "Min", "pMax", "pSelected"}},
        {"String",
         {"ToolTip", "Description", "DisplayName", "Visibility", "pIsAvailable", "pValue"}},
        {"Command",
         {"ToolTip", "Description", "Visibility", "ImposedAccessMode", "Value", "pValue",
          "CommandValue"}},
        {"Enumeration",
         {"ToolTip", "Description", "DisplayName", "Visibility", "ImposedAccessMode", "EnumEntry",
          "Value", "pValue"}},
        {"EnumEntry", {"ToolTip", "Value"}},
        {"IntSwissKnife", {"pVariable", "Formula"}},
        {"StringReg", {"Address", "Length", "AccessMode", "pPort"}},
        {"IntReg", {"Address", "Length", "AccessMode", "pPort", "Cachable", "Sign", "Endianess"}},
        {"Port", {"ToolTip", "Description", "Visibility", "ImposedAccessMode"}}};
    return table;
}

Names AttributeNames(const XmlElement& element)
{
    Names names;
    for (const auto& [name, value] : element.attributes) {
        names.push_back(name);
    }
    return names;
}

// A node, or an entry of an enumeration: a name and perhaps a name space, and known children, which
// carry no attributes.
void ExpectPlainNode(const XmlElement& node)
{
    SCOPED_TRACE(node.Attribute("Name"));
    const bool spaced = !node.Attribute("NameSpace").empty();
    EXPECT_EQ(AttributeNames(node), spaced ? Names({"Name", "NameSpace"}) : Names{"Name"});
    for (const XmlElement& child : node.children) {
        EXPECT_TRUE(UsedChildren().at(node.name).contains(child.name)) << child.name;
        if (child.name == "EnumEntry") {
            ExpectPlainNode(child);
        } else {
            EXPECT_EQ(AttributeNames(child), child.name == "pVariable" ? Names{"Name"} : Names{});
            EXPECT_TRUE(child.children.empty()) << child.name;
        }
    }
}

bool IsReference(const std::string& element)
{
    return element.size() > 1 && element[0] == 'p' && element[1] >= 'A' && element[1] <= 'Z';
}

std::set<std::string> Undefined(const XmlDocument& document)
{
    std::set<std::string> missing;
    for (const XmlElement* node : document.nodes) {
        for (const XmlElement& child : node->children) {
            if (IsReference(child.name) && !document.byName.contains(child.text)) {
                missing.insert(child.text);
            }
        }
    }
    return missing;
}

Names GroupComments(const XmlDocument& document)
{
    Names comments;
    for (const XmlElement& child : document.root.children) {
        if (child.name == "Group") {
            comments.push_back(child.Attribute("Comment"));
        }
    }
    return comments;
}

// All comments of a document, with white space squeezed.
std::string Comments(const XmlElement& element)
{
    std::string all;
    for (const std::string& comment : element.comments) {
        std::istringstream words(comment);
        for (std::string word; words >> word;) {
            all += word + " ";
        }
        all += "\n";
    }
    for (const XmlElement& child : element.children) {
        all += Comments(child);
    }
    return all;
}

} // namespace

TEST(XmlOrderCheck, MisplacedMissingOrDoubledChild_IsFound)
{
    const char* const faults[] = {
        "<Port><ImposedAccessMode>RW</ImposedAccessMode><Visibility>Guru</Visibility></Port>",
        "<String><ToolTip>t</ToolTip></String>",
        "<String><Value>1</Value><pValue>a</pValue></String>",
        ("<IntReg><Address>0</Address><Length>4</Length><AccessMode>RO</AccessMode>"
         "<pPort>P</pPort><Endianess>LittleEndian</Endianess><Sign>Unsigned</Sign></IntReg>"),
        "<Integer><pSelected>a</pSelected><Value>1</Value></Integer>",
        "<Register/>"};
    for (const char* fault : faults) {
        EXPECT_NE(OrderFault(ParseXml(fault)), "") << fault;
    }
    EXPECT_EQ(OrderFault(ParseXml("<String><ToolTip>t</ToolTip><pValue>a</pValue></String>")), "");
}

TEST(XmlStructure, Children_EveryNode_FollowTheSchemaOrder)
{
    for (const XmlDocument* document : AllDocuments()) {
        for (const XmlElement* node : document->nodes) {
            EXPECT_EQ(OrderFault(*node), "") << document->file << " " << node->Attribute("Name");
            for (const XmlElement& child : node->children) {
                if (child.name == "EnumEntry") {
                    EXPECT_EQ(OrderFault(child), "") << document->file << child.Attribute("Name");
                }
            }
        }
    }
}

TEST(XmlStructure, NodesAndGroups_EveryDocument_CarryNothingUnknown)
{
    for (const XmlDocument* document : AllDocuments()) {
        SCOPED_TRACE(document->file);
        for (const XmlElement* node : document->nodes) {
            ExpectPlainNode(*node);
        }
        for (const XmlElement& child : document->root.children) {
            if (child.name == "Group") {
                EXPECT_EQ(AttributeNames(child), Names{"Comment"});
            }
        }
    }
}

TEST(XmlStructure, TextBesideElements_IsRefusedByTheReader)
{
    EXPECT_THROW(ParseXml("<Group>stray<Port/></Group>"), std::runtime_error);
    EXPECT_NO_THROW(ParseXml("<Group> <!-- note -->\n<Port/></Group>"));
}

TEST(XmlStructure, References_EveryDocument_AreDefinedButTheKnownOnes)
{
    EXPECT_EQ(Undefined(SystemDocument()),
              (std::set<std::string>{"EventSelector", "EventNotification",
                                     "EventInterfaceListChangedData"}));
    EXPECT_EQ(Undefined(InterfaceDocument()), std::set<std::string>{});
    EXPECT_EQ(Undefined(DeviceDocument()), std::set<std::string>{});
    EXPECT_EQ(Undefined(StreamDocument()), std::set<std::string>{"StreamDeliveredFrameCount"});
}

TEST(XmlStructure, Names_EveryDocument_AreUnique)
{
    for (const XmlDocument* document : AllDocuments()) {
        EXPECT_EQ(document->byName.size(), document->nodes.size()) << document->file;
    }
}

TEST(XmlStructure, Port_EveryDocument_IsTheLastNode)
{
    for (const XmlDocument* document : AllDocuments()) {
        const XmlElement& port = document->root.children.back();
        EXPECT_EQ(port.name, "Port");
        EXPECT_EQ(port.Attribute("Name"), document->port);
        EXPECT_EQ(port.Attribute("NameSpace"), "Standard");
        EXPECT_EQ(port.One("Visibility"), "Invisible");
        EXPECT_EQ(port.One("ImposedAccessMode"), "RW");
        EXPECT_EQ(port.All("ChunkID").size(), 0U);
    }
}

TEST(XmlStructure, Groups_EveryDocument_CarryTheirComments)
{
    EXPECT_EQ(GroupComments(SystemDocument()),
              (Names{"RootCategory", "SubCategories", "SystemInformation",
                     "SystemInformation Registers", "InterfaceEnumeration",
                     "InterfaceEnumeration Registers", "InterfaceEnumeration Formulas"}));
    EXPECT_EQ(GroupComments(InterfaceDocument()),
              (Names{"RootCategory", "SubCategories", "InterfaceInformation",
                     "InterfaceInformation Registers", "DeviceEnumeration",
                     "DeviceEnumeration Registers", "DeviceEnumeration Formulas"}));
    EXPECT_EQ(
        GroupComments(DeviceDocument()),
        (Names{"RootCategory", "SubCategories", "DeviceInformation", "DeviceInformation Registers",
               "StreamEnumeration", "StreamEnumeration Registers", "StreamEnumeration Formulas",
               "XMLFileInjection", "XMLFileInjection Registers"}));
    EXPECT_EQ(
        GroupComments(StreamDocument()),
        (Names{"RootCategory", "SubCategories", "StreamInformation", "StreamInformation Registers",
               "BufferHandlingControl", "BufferHandlingControl Registers"}));
}

TEST(XmlStructure, CommentedEntries_StandAsCommentsAndNotAsNodes)
{
    struct Row
    {
        const XmlDocument& document;
        const char* comment;
        const char* absent;
    };
    const Row rows[] = {
        {SystemDocument(), "<pFeature>EventControl</pFeature>", ""},
        {SystemDocument(), "<Integer Name=\"InterfaceUpdateTimeout\"", "InterfaceUpdateTimeout"},
        {SystemDocument(), "<Unit>ms</Unit>", ""},
        {InterfaceDocument(), "<String Name=\"InterfaceDisplayName\"", "InterfaceDisplayName"},
        {DeviceDocument(), "<String Name=\"UpdateXMLStatus\"", "UpdateXMLStatus"},
        {StreamDocument(), "<Integer Name=\"StreamDeliveredFrameCount\"",
         "StreamDeliveredFrameCount"},
    };
    for (const Row& row : rows) {
        EXPECT_NE(Comments(row.document.root).find(row.comment), std::string::npos) << row.comment;
        EXPECT_FALSE(row.document.byName.contains(row.absent)) << row.absent;
    }
}

TEST(XmlStructure, CommentedEventControl_StandsInTheRootCategory)
{
    const auto& comments = SystemDocument().Node("Root").comments;
    EXPECT_EQ(comments, Names{" <pFeature>EventControl</pFeature> "});
}

TEST(XmlStructure, Head_EveryFeature_HasToolTipAndDescription)
{
    const std::set<std::string> features{"Category", "Integer", "String", "Command", "Enumeration"};
    for (const XmlDocument* document : AllDocuments()) {
        for (const XmlElement* node : document->nodes) {
            if (features.contains(node->name)) {
                EXPECT_FALSE(node->One("ToolTip").empty()) << node->Attribute("Name");
                EXPECT_FALSE(node->One("Description").empty()) << node->Attribute("Name");
            }
        }
    }
}
