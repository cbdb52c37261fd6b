// The bytes of the documents and the attributes of their root element.

#include "xml_tree.h"

#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

namespace {

using Attributes = std::vector<std::pair<std::string, std::string>>;

std::string FileText(const std::string& name)
{
    std::ifstream file(std::string(ZR_XML_DIR) + "/" + name, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

Attributes ExpectedAttributes(const std::string& toolTip)
{
    return {{"ModelName", "ZrGenTLU3V"},
            {"VendorName", "ZRK_ORVANE"},
            {"ToolTip", toolTip},
            {"StandardNameSpace", "USB"},
            {"SchemaMajorVersion", "1"},
            {"SchemaMinorVersion", "1"},
            {"SchemaSubMinorVersion", "0"},
            {"MajorVersion", "1"},
            {"MinorVersion", "0"},
            {"SubMinorVersion", "0"},
            {"ProductGuid", "3F2A7C10-5B4E-4D21-9E8A-6C0D1B2E4F57"},
            {"VersionGuid", "B47D2E19-6A03-4F8C-A215-000000010601"},
            {"xsi:schemaLocation", "http://www.genicam.org/GenApi/Version_1_1 "
                                   "../../GenApi/GenApiSchema_Version_1_1.xsd"}};
}

} // namespace

TEST(XmlBytes, Embedded_EveryDocument_EqualsItsFile)
{
    for (const XmlDocument* document : AllDocuments()) {
        const std::string text = FileText(document->file);
        ASSERT_FALSE(text.empty()) << document->file;
        EXPECT_EQ(std::string(document->bytes), text) << document->file;
    }
}

TEST(XmlBytes, EveryByte_IsPrintableAsciiOrLineFeed)
{
    for (const XmlDocument* document : AllDocuments()) {
        for (const char byte : document->bytes) {
            ASSERT_TRUE(byte == '\n' || (byte >= ' ' && byte <= '~'))
                << document->file << " " << static_cast<int>(byte);
        }
    }
}

TEST(XmlBytes, Declaration_NamesUtf8AndStartsTheFile)
{
    for (const XmlDocument* document : AllDocuments()) {
        EXPECT_TRUE(document->bytes.starts_with("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"))
            << document->file;
        EXPECT_TRUE(document->bytes.ends_with("</RegisterDescription>\n")) << document->file;
    }
}

TEST(XmlHeader, Attributes_EveryDocument_AreExactlyTheCommonOnes)
{
    for (const XmlDocument* document : AllDocuments()) {
        EXPECT_EQ(document->root.name, "RegisterDescription");
        EXPECT_EQ(document->root.attributes, ExpectedAttributes(document->toolTip))
            << document->file;
    }
}

TEST(XmlHeader, Namespace_EveryDocument_IsGenApi11)
{
    for (const XmlDocument* document : AllDocuments()) {
        EXPECT_EQ(document->root.namespaceUri, "http://www.genicam.org/GenApi/Version_1_1");
        for (const XmlElement* node : document->nodes) {
            EXPECT_EQ(node->namespaceUri, document->root.namespaceUri);
        }
    }
}
