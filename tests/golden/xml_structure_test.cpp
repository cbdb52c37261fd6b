// What holds for every node: the order of its children, what it refers to, where it stands.

#include "genapi_schema.h"
#include "xml_tree.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <set>
#include <sstream>
#include <stdexcept>

namespace {

using Names = std::vector<std::string>;

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
    EXPECT_EQ(DanglingNames(SystemDocument().root),
              (std::set<std::string>{"EventSelector", "EventNotification",
                                     "EventInterfaceListChangedData"}));
    EXPECT_EQ(DanglingNames(InterfaceDocument().root), std::set<std::string>{});
    EXPECT_EQ(DanglingNames(DeviceDocument().root), std::set<std::string>{});
    EXPECT_EQ(DanglingNames(StreamDocument().root),
              std::set<std::string>{"StreamDeliveredFrameCount"});
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
