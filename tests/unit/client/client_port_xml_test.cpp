#include "client_console.h"
#include "zr_client.h"

#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

namespace {

// Runs in an empty folder two levels below another empty one, so that an escape would be seen.
class ClientPortXml : public ClientTest
{
protected:
    void SetUp() override
    {
        ClientTest::SetUp();
        m_before = fs::current_path();
        char name[] = "/tmp/zr_client_XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        m_top = name;
        fs::create_directories(m_top / "a" / "b");
        fs::current_path(m_top / "a" / "b");
        Fake().memory[0x40000] = "<xml/>";
    }
    void TearDown() override
    {
        fs::current_path(m_before);
        fs::remove_all(m_top);
        ClientTest::TearDown();
    }

    std::string Print()
    {
        return RunConsole("", [&] { m_name = PrintPortXml(FakeRemotePort()); });
    }
    std::vector<std::string> Files() const
    {
        std::vector<std::string> files;
        for (const auto& entry : fs::recursive_directory_iterator(m_top)) {
            if (!entry.is_directory()) {
                files.push_back(fs::relative(entry.path(), m_top).string());
            }
        }
        return files;
    }
    static std::string Content(const std::string& name)
    {
        std::ifstream file(name, std::ios::binary);
        std::ostringstream text;
        text << file.rdbuf();
        return text.str();
    }

    fs::path m_top;
    fs::path m_before;
    std::string m_name;
};

} // namespace

TEST_F(ClientPortXml, LocalUrl_DocumentIsReadAtOnceAndSavedUnderItsName)
{
    Fake().urls = {"local:cam_v1.0.xml;40000;6"};
    EXPECT_EQ(Print(), "NumURLs 1\nURL: local:cam_v1.0.xml;40000;6\n");
    EXPECT_EQ(m_name, "cam_v1.0.xml");
    EXPECT_EQ(Files(), std::vector<std::string>{"a/b/cam_v1.0.xml"});
    EXPECT_EQ(Content("cam_v1.0.xml"), "<xml/>");
    EXPECT_EQ(Fake().Calls(),
              (std::vector<std::string>{"GCGetNumPortURLs", "GCGetPortURLInfo 0 0 1024",
                                        "GCReadPort remote 0x40000 6"}));
}

TEST_F(ClientPortXml, LocalUrl_LongerFileOfThatName_IsReplaced)
{
    std::ofstream("cam.xml") << "an older document";
    Fake().urls = {"local:cam.xml;40000;6"};
    Print();
    EXPECT_EQ(Content("cam.xml"), "<xml/>");
}

TEST_F(ClientPortXml, LocalUrl_ZippedDocument_KeepsNameAndBytes)
{
    Fake().memory[0xABCDEF] = std::string("PK\x03\x04\0\xFF", 6);
    Fake().urls = {"LOCAL:cam.zip;abcdef;6?SchemaVersion=1.1.0"};
    Print();
    EXPECT_EQ(Content("cam.zip"), Fake().memory[0xABCDEF]);
}

TEST_F(ClientPortXml, LocalUrl_LargeDocument_IsOneRead)
{
    Fake().memory[0x40000] = std::string(0x12345, 'x');
    Fake().urls = {"local:cam.xml;40000;12345"};
    Print();
    EXPECT_EQ(Fake().Count("GCReadPort remote 0x40000 74565"), 1U);
    EXPECT_EQ(Content("cam.xml").size(), 0x12345U);
}

TEST_F(ClientPortXml, TwoUrls_BothAreCountedTheFirstIsUsed)
{
    Fake().urls = {"local:one.xml;40000;6", "local:two.xml;40000;6"};
    EXPECT_EQ(Print(), "NumURLs 2\nURL: local:one.xml;40000;6\n");
    EXPECT_EQ(Files(), std::vector<std::string>{"a/b/one.xml"});
}

TEST_F(ClientPortXml, NumPortUrlsFails_IsReported)
{
    Fake().failures["GCGetNumPortURLs"] = GC_ERR_INVALID_HANDLE;
    EXPECT_EQ(Print(), "GCGetNumPortURLs Failed! -1006\n");
}

TEST_F(ClientPortXml, NoUrl_IsReported)
{
    EXPECT_EQ(Print(), "No Url Available\n");
}

TEST_F(ClientPortXml, UrlQueryFailsOrUrlIsLongerThanTheBuffer_CountsAsNone)
{
    Fake().urls = {"local:" + std::string(2000, 'n') + ";40000;6"};
    EXPECT_EQ(Print(), "No Url Available\n");
    Fake().urls = {"local:a;1;1"};
    Fake().failures["GCGetPortURLInfo"] = GC_ERR_IO;
    EXPECT_EQ(Print(), "No Url Available\n");
}

TEST_F(ClientPortXml, ReadFails_IsReportedAndNothingIsWritten)
{
    Fake().urls = {"local:cam.xml;99999;6"};
    EXPECT_EQ(Print(), "NumURLs 1\nURL: local:cam.xml;99999;6\nGCReadPort Failed! -1010\n");
    EXPECT_TRUE(Files().empty());
}

TEST_F(ClientPortXml, FileCannotBeOpened_IsReported)
{
    fs::create_directory("cam.xml");
    Fake().urls = {"local:cam.xml;40000;6"};
    EXPECT_EQ(Print(), "NumURLs 1\nURL: local:cam.xml;40000;6\nxmlfile open failed!\n");
}

TEST_F(ClientPortXml, NameWithFolders_IsWrittenUnderItsBaseNameOnly)
{
    for (const char* url : {"local:../../cam.xml;40000;6", "local:/etc/../cam.xml;40000;6",
                            "local:..\\..\\cam.xml;40000;6", "local:///cam.xml;40000;6"}) {
        Fake().urls = {url};
        Print();
        EXPECT_EQ(Files(), std::vector<std::string>{"a/b/cam.xml"}) << url;
        fs::remove("cam.xml");
    }
}

TEST_F(ClientPortXml, NameThatWouldHideOrDisturb_IsChanged)
{
    const std::pair<const char*, const char*> names[] = {
        {".bashrc", "a/b/_bashrc"},
        {"../.profile", "a/b/_profile"},
        {"a\n\x1b[2J\x7f.xml", "a/b/a__[2J_.xml"},
    };
    for (const auto& [name, file] : names) {
        Fake().urls = {std::string("local:") + name + ";40000;6"};
        Print();
        EXPECT_EQ(Files(), std::vector<std::string>{file});
        fs::remove(fs::path(file).filename());
    }
}

TEST_F(ClientPortXml, NameThatIsNoFileName_IsRefused)
{
    const std::string longName(300, 'n');
    for (const std::string& name : {std::string(), std::string("."), std::string(".."),
                                    std::string("a/"), std::string("../.."), longName}) {
        Fake().urls = {"local:" + name + ";40000;6"};
        EXPECT_TRUE(Print().ends_with("xmlfile open failed!\n")) << name;
        EXPECT_TRUE(Files().empty()) << name;
    }
}

TEST_F(ClientPortXml, SemicolonInTheName_DoesNotMoveTheNumbers)
{
    Fake().urls = {"local:a;b;c.xml;40000;6"};
    Print();
    EXPECT_EQ(Files(), std::vector<std::string>{"a/b/a;b;c.xml"});
}

TEST_F(ClientPortXml, AbsurdSize_IsRefusedWithoutARead)
{
    Fake().urls = {"local:cam.xml;40000;FFFFFFFFFFFFFFFF"};
    EXPECT_TRUE(Print().ends_with("GCReadPort Failed! -1021\n"));
    Fake().urls = {"local:cam.xml;40000;10000001"};
    EXPECT_TRUE(Print().ends_with("GCReadPort Failed! -1021\n"));
    EXPECT_TRUE(Files().empty());
}

TEST_F(ClientPortXml, MalformedLocalUrl_IsOnlyShown)
{
    for (const char* url : {"local:", "local:a", "local:a;1", "local:;", "local:;;", "local:a;;6",
                            "local:a;4g;6", "local:a;40000;", "local:a;40000;0", "local:a;40000;-1",
                            "local:a;40000;1ffffffffffffffff", "local;40000;6", "localx:a;40000;6",
                            "http://host/a.xml", "file", "1;2;local:"}) {
        Fake().urls = {url};
        EXPECT_EQ(Print(), "NumURLs 1\nURL: " + std::string(url) + "\n");
        EXPECT_EQ(m_name, "");
        EXPECT_TRUE(Files().empty()) << url;
    }
}

TEST_F(ClientPortXml, FileUrl_GivesItsDecodedName)
{
    Fake().urls = {"FILE:///tmp/my%20cam.xml"};
    EXPECT_EQ(Print(), "NumURLs 1\nURL: FILE:///tmp/my%20cam.xml\n");
    EXPECT_EQ(m_name, "my cam.xml");
    EXPECT_TRUE(Files().empty());
}
