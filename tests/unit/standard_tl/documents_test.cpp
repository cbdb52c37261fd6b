// The description files of the four modules, as a consumer gets them: valid, complete, and each of
// their registers behind the port.

#include <algorithm>
#include <map>
#include <set>

#include "data_stream.h"
#include "device.h"
#include "genapi_schema.h"
#include "interface.h"
#include "module_document.h"
#include "stream_fixture.h"
#include "system.h"

namespace standard_tl {
namespace {

using Names = std::set<std::string>;

// What a node map has to offer, by category.
using Offer = std::map<std::string, Names>;

class DocumentsTest : public StreamTest
{
protected:
    struct Port
    {
        const char* name; // of the port
        void* handle;
    };
    std::vector<Port> Ports()
    {
        return {{"TLPort", System()},
                {"InterfacePort", Interface()},
                {"DevicePort", Device()},
                {"StreamPort", Stream()}};
    }
    // Reads a number behind a feature.
    uint64_t Number(void* port, const char* feature)
    {
        const auto reg = ModuleDocument(port).RegisterOf(feature);
        uint64_t value = 0;
        size_t size = reg.length;
        EXPECT_EQ(GCReadPort(port, reg.address, &value, &size), GC_ERR_SUCCESS) << feature;
        return value;
    }
    std::string Text(void* port, const char* feature)
    {
        const auto reg = ModuleDocument(port).RegisterOf(feature);
        std::string value(reg.length, '\0');
        size_t size = reg.length;
        EXPECT_EQ(GCReadPort(port, reg.address, value.data(), &size), GC_ERR_SUCCESS) << feature;
        return value.c_str();
    }
    void Write(void* port, const char* feature, uint64_t value)
    {
        const auto reg = ModuleDocument(port).RegisterOf(feature);
        size_t size = reg.length;
        EXPECT_EQ(GCWritePort(port, reg.address, &value, &size), GC_ERR_SUCCESS) << feature;
    }
};

Offer OfferOf(const ModuleDocument& document)
{
    Offer offer;
    for (const std::string& category : document.Find("Root")->All("pFeature")) {
        const auto features = document.Find(category)->All("pFeature");
        offer[category] = Names(features.begin(), features.end());
    }
    return offer;
}

// ---- the documents

TEST_F(DocumentsTest, EveryDocument_IsAsciiAndWellFormedWithTheRootOfSchema11)
{
    for (const Port& port : Ports()) {
        const ModuleDocument document(port.handle);
        EXPECT_TRUE(std::ranges::all_of(document.Text(), [](char c) {
            return c == '\n' || (c >= ' ' && c <= '~');
        })) << port.name;
        const XmlElement& root = document.Root();
        EXPECT_EQ(root.name, "RegisterDescription");
        EXPECT_EQ(root.namespaceUri, "http://www.genicam.org/GenApi/Version_1_1");
        EXPECT_EQ(root.Attribute("SchemaMajorVersion"), "1");
        EXPECT_EQ(root.Attribute("SchemaMinorVersion"), "1");
        EXPECT_EQ(root.Attribute("StandardNameSpace"), "None");
        for (const char* name :
             {"ModelName", "VendorName", "ToolTip", "SchemaSubMinorVersion", "MajorVersion",
              "MinorVersion", "SubMinorVersion", "xsi:schemaLocation"}) {
            EXPECT_FALSE(root.Attribute(name).empty()) << name;
        }
        EXPECT_EQ(root.Attribute("ProductGuid").size(), 36U);
        EXPECT_EQ(root.Attribute("VersionGuid").size(), 36U);
    }
}

TEST_F(DocumentsTest, EveryNode_KeepsTheOrderOfTheSchema)
{
    for (const Port& port : Ports()) {
        const ModuleDocument document(port.handle);
        for (const XmlElement* node : document.Nodes()) {
            EXPECT_EQ(OrderFault(*node), "") << port.name << " " << node->Attribute("Name");
            for (const XmlElement& child : node->children) {
                EXPECT_TRUE(child.name != "EnumEntry" || OrderFault(child).empty());
            }
        }
    }
}

TEST_F(DocumentsTest, EveryName_IsUniqueAndEveryReferenceLeadsToOne)
{
    for (const Port& port : Ports()) {
        const ModuleDocument document(port.handle);
        Names names;
        for (const XmlElement* node : document.Nodes()) {
            EXPECT_TRUE(names.insert(node->Attribute("Name")).second) << node->Attribute("Name");
        }
        EXPECT_EQ(DanglingNames(document.Root()), Names{}) << port.name;
    }
}

TEST_F(DocumentsTest, EveryNode_IsReachedFromTheRoot)
{
    for (const Port& port : Ports()) {
        const ModuleDocument document(port.handle);
        Names reached{"Root"};
        for (size_t before = 0; before != reached.size();) {
            before = reached.size();
            const Names known = reached;
            for (const std::string& name : known) {
                for (const XmlElement& child : document.Find(name)->children) {
                    if (document.Find(child.text) != nullptr) {
                        reached.insert(child.text);
                    }
                }
            }
        }
        EXPECT_EQ(reached.size(), document.Nodes().size()) << port.name;
    }
}

TEST_F(DocumentsTest, EveryRegister_GoesThroughThePortOfThatName)
{
    for (const Port& port : Ports()) {
        const ModuleDocument document(port.handle);
        ASSERT_NE(document.Find(port.name), nullptr);
        EXPECT_EQ(document.Find(port.name)->name, "Port");
        for (const XmlElement* node : document.Nodes()) {
            EXPECT_TRUE(node->All("Address").empty() || node->One("pPort") == port.name);
        }
    }
}

TEST_F(DocumentsTest, Features_AreThoseOfTheStandardNames)
{
    const Names ofCamera{"DeviceID",           "DeviceVendorName", "DeviceModelName",
                         "DeviceSerialNumber", "DeviceUserID",     "DeviceVersion",
                         "DeviceDisplayName",  "DeviceType",       "DeviceAccessStatus"};
    Names listed = ofCamera;
    listed.insert({"DeviceUpdateList", "DeviceUpdateTimeout", "DeviceSelector"});
    Names opened = ofCamera;
    opened.insert("DeviceLinkSpeed");
    EXPECT_EQ(
        OfferOf(ModuleDocument(System())),
        (Offer{{"SystemInformation",
                {"TLID", "TLVendorName", "TLModelName", "TLVersion", "TLFileName", "TLDisplayName",
                 "TLPath", "TLType", "GenTLVersionMajor", "GenTLVersionMinor",
                 "GenTLSFNCVersionMajor", "GenTLSFNCVersionMinor", "GenTLSFNCVersionSubMinor"}},
               {"InterfaceEnumeration",
                {"InterfaceUpdateList", "InterfaceSelector", "InterfaceID", "InterfaceDisplayName",
                 "InterfaceType"}}}));
    EXPECT_EQ(
        OfferOf(ModuleDocument(Interface())),
        (Offer{{"InterfaceInformation", {"InterfaceID", "InterfaceDisplayName", "InterfaceType"}},
               {"DeviceEnumeration", listed}}));
    EXPECT_EQ(OfferOf(ModuleDocument(Device())),
              (Offer{{"DeviceInformation", opened},
                     {"StreamEnumeration", {"StreamSelector", "StreamID"}}}));
    EXPECT_EQ(
        OfferOf(ModuleDocument(Stream())),
        (Offer{{"StreamInformation", {"StreamID", "StreamType"}},
               {"BufferHandlingControl",
                {"StreamBufferHandlingMode", "StreamAnnounceBufferMinimum",
                 "StreamAnnouncedBufferCount", "StreamInputBufferCount", "StreamOutputBufferCount",
                 "StreamStartedFrameCount", "StreamDeliveredFrameCount", "StreamLostFrameCount",
                 "StreamIncompleteFrameCount", "StreamIsGrabbing", "PayloadSize"}},
               {"StreamDiagnostics",
                {"ZrTransferSize", "ZrImagesInFlight", "ZrTransfersInFlight", "ZrDeviceMemoryInUse",
                 "ZrResynchronisationCount", "ZrReducedDepthCount"}}}));
}

TEST_F(DocumentsTest, Features_OurOwn_AreMarkedAsSuch)
{
    const ModuleDocument document(Stream());
    for (const std::string& name : document.Find("StreamDiagnostics")->All("pFeature")) {
        EXPECT_EQ(document.Find(name)->Attribute("NameSpace"), "Custom") << name;
    }
    EXPECT_EQ(document.Find("StreamID")->Attribute("NameSpace"), "Standard");
}

TEST_F(DocumentsTest, Counts_AreReadAgainAfterATime)
{
    const ModuleDocument document(Stream());
    for (const char* name : {"StreamLostFrameCount", "StreamDeliveredFrameCount",
                             "StreamInputBufferCount", "ZrImagesInFlight"}) {
        EXPECT_EQ(document.Find(name)->One("PollingTime"), "1000") << name;
        EXPECT_EQ(document.Find(name)->One("Cachable"), "NoCache") << name;
    }
}

TEST_F(DocumentsTest, SelectedFeatures_FollowTheirSelector)
{
    const ModuleDocument document(Interface());
    for (const std::string& name : document.Find("DeviceSelector")->All("pSelected")) {
        const auto reg = document.RegisterOf(name);
        const auto invalidators = document.Find(reg.node)->All("pInvalidator");
        EXPECT_EQ(invalidators, (std::vector<std::string>{"DeviceSelector", "DeviceUpdateList"}))
            << name;
    }
    EXPECT_EQ(document.Find("DeviceSelector")->All("pSelected").size(), 9U);
}

// ---- document and table

template <class T>
Names InTable(void* handle)
{
    Names names;
    const auto module = Handles().Find<T>(handle);
    for (const Register& reg : module->Registers().Registers()) {
        names.insert(std::to_string(reg.address) + "+" + std::to_string(reg.feature.length) +
                     (reg.feature.set ? " RW" : " RO"));
    }
    return names;
}

Names InDocument(void* handle)
{
    Names names;
    for (const auto& reg : ModuleDocument(handle).Registers()) {
        names.insert(std::to_string(reg.address) + "+" + std::to_string(reg.length) +
                     (reg.isWritable ? " RW" : " RO"));
    }
    return names;
}

TEST_F(DocumentsTest, DocumentAndTable_HaveTheSameRegisters)
{
    EXPECT_EQ(InDocument(System()), InTable<standard_tl::System>(System()));
    EXPECT_EQ(InDocument(Interface()), InTable<standard_tl::Interface>(Interface()));
    EXPECT_EQ(InDocument(Device()), InTable<standard_tl::Device>(Device()));
    EXPECT_EQ(InDocument(Stream()), InTable<DataStream>(Stream()));
}

TEST_F(DocumentsTest, EveryRegister_IsReadAndWhereWritableWritten)
{
    for (const Port& port : Ports()) {
        for (const auto& reg : ModuleDocument(port.handle).Registers()) {
            SCOPED_TRACE(std::string(port.name) + " " + reg.node);
            std::vector<uint8_t> bytes(reg.length, 0xEE);
            size_t size = bytes.size();
            EXPECT_EQ(GCReadPort(port.handle, reg.address, bytes.data(), &size), GC_ERR_SUCCESS);
            EXPECT_EQ(size, reg.length);
            EXPECT_TRUE(reg.kind != "StringReg" || bytes.back() == 0);
            EXPECT_EQ(GCWritePort(port.handle, reg.address, bytes.data(), &size),
                      reg.isWritable ? GC_ERR_SUCCESS : GC_ERR_ACCESS_DENIED);
        }
    }
}

// As one piece of memory: what a consumer reads in one go is what it reads register by register.
TEST_F(DocumentsTest, AllRegistersAtOnce_AreTheRegistersOneByOne)
{
    for (const Port& port : Ports()) {
        const auto registers = ModuleDocument(port.handle).Registers();
        uint64_t first = UINT64_MAX;
        uint64_t end = 0;
        for (const auto& reg : registers) {
            first = std::min(first, reg.address);
            end = std::max(end, reg.address + reg.length);
        }
        std::vector<uint8_t> all(end - first);
        size_t size = all.size();
        ASSERT_EQ(GCReadPort(port.handle, first, all.data(), &size), GC_ERR_SUCCESS) << port.name;
        for (const auto& reg : registers) {
            std::vector<uint8_t> bytes(reg.length);
            size = bytes.size();
            EXPECT_EQ(GCReadPort(port.handle, reg.address, bytes.data(), &size), GC_ERR_SUCCESS);
            EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(),
                                   all.begin() + static_cast<ptrdiff_t>(reg.address - first)))
                << reg.node;
        }
    }
}

// ---- what the features tell

TEST_F(DocumentsTest, SystemFeatures_TellTheProducer)
{
    EXPECT_EQ(Text(System(), "TLID"), "ZRK-U3V-STANDARD");
    EXPECT_EQ(Text(System(), "TLVersion"), ZR_STANDARD_VERSION);
    EXPECT_FALSE(Text(System(), "TLPath").empty());
    EXPECT_EQ(Number(System(), "GenTLVersionMajor"), 1U);
    EXPECT_EQ(Number(System(), "GenTLVersionMinor"), 6U);
    EXPECT_EQ(Text(System(), "InterfaceID"), "ZRK-USB");
    EXPECT_EQ(Number(System(), "InterfaceSelectorMax"), 0U);
    Write(System(), "InterfaceUpdateList", 1);
    EXPECT_EQ(Number(System(), "InterfaceUpdateList"), 0U) << "done";
}

TEST_F(DocumentsTest, InterfaceFeatures_UpdateAndSelect)
{
    Interface();
    bus.Plug("CAM2").info.model = "Other";
    EXPECT_EQ(Number(Interface(), "DeviceSelectorMax"), 0U);
    Write(Interface(), "DeviceUpdateList", 1);
    EXPECT_EQ(Number(Interface(), "DeviceUpdateList"), 0U) << "done";
    EXPECT_EQ(Number(Interface(), "DeviceSelectorMax"), 1U);
    EXPECT_EQ(Number(Interface(), "DeviceCount"), 2U);
    EXPECT_EQ(Text(Interface(), "DeviceID"), "CAM1");
    Write(Interface(), "DeviceSelector", 1);
    EXPECT_EQ(Text(Interface(), "DeviceID"), "CAM2");
    EXPECT_EQ(Text(Interface(), "DeviceModelName"), "Other");
    EXPECT_EQ(Number(Interface(), "DeviceAccessStatus"), uint64_t{DEVICE_ACCESS_STATUS_READWRITE});
    const auto reg = ModuleDocument(Interface()).RegisterOf("DeviceSelector");
    uint64_t two = 2;
    size_t size = sizeof(two);
    EXPECT_EQ(GCWritePort(Interface(), reg.address, &two, &size), GC_ERR_INVALID_VALUE);
}

TEST_F(DocumentsTest, InterfaceFeatures_SelectedCameraLeaves_SelectorStaysInTheList)
{
    Interface();
    bus.Plug("CAM2");
    Write(Interface(), "DeviceUpdateList", 1);
    Write(Interface(), "DeviceSelector", 1);
    bus.Unplug("CAM2");
    Write(Interface(), "DeviceUpdateList", 1);
    EXPECT_EQ(Number(Interface(), "DeviceSelector"), 0U);
    EXPECT_EQ(Text(Interface(), "DeviceID"), "CAM1");
    bus.Unplug("CAM1");
    Write(Interface(), "DeviceUpdateList", 1);
    EXPECT_EQ(Number(Interface(), "DeviceCount"), 0U);
    EXPECT_EQ(Text(Interface(), "DeviceID"), "");
}

TEST_F(DocumentsTest, InterfaceFeatures_UpdateTimeout_BoundsTheCommand)
{
    Interface();
    bus.Hold();
    Write(Interface(), "DeviceUpdateTimeout", 1);
    EXPECT_EQ(Number(Interface(), "DeviceUpdateTimeout"), 1U);
    Write(Interface(), "DeviceUpdateList", 1);
    bus.LetGo();
}

TEST_F(DocumentsTest, DeviceFeatures_TellTheCamera)
{
    camera.speed = 1250000000;
    EXPECT_EQ(Text(Device(), "DeviceID"), "CAM1");
    EXPECT_EQ(Text(Device(), "DeviceSerialNumber"), "SCAM1");
    camera.info.userDefinedName = "Left";
    EXPECT_EQ(Text(Device(), "DeviceUserID"), "Left");
    EXPECT_EQ(Number(Device(), "DeviceLinkSpeed"), 1250000000U);
    EXPECT_EQ(Number(Device(), "DeviceAccessStatus"),
              uint64_t{DEVICE_ACCESS_STATUS_OPEN_READWRITE});
    EXPECT_EQ(Text(Device(), "StreamID"), "Stream0");
    Write(Device(), "StreamSelector", 0);
    camera.streams = 0;
    EXPECT_EQ(Number(Device(), "StreamCount"), 0U);
    EXPECT_EQ(Text(Device(), "StreamID"), "");
}

TEST_F(DocumentsTest, StreamFeatures_TellTheCounts)
{
    camera.payloadSize = 4711;
    camera.deviceMemory = 4096;
    Prepare(4);
    EXPECT_EQ(Number(Stream(), "StreamIsGrabbing"), 0U);
    Start();
    Send(1);
    Send(2);
    u3v_host::Image incomplete = fake_host::Receiver::SomeImage();
    incomplete.complete = false;
    Send(incomplete);
    Next();
    Receiver().Lose(6);
    const std::pair<const char*, uint64_t> rows[] = {
        {"StreamIsGrabbing", 1},           {"StreamAnnounceBufferMinimum", 1},
        {"StreamAnnouncedBufferCount", 4}, {"StreamInputBufferCount", 1},
        {"StreamOutputBufferCount", 2},    {"StreamStartedFrameCount", 3},
        {"StreamDeliveredFrameCount", 1},  {"StreamLostFrameCount", 6},
        {"StreamIncompleteFrameCount", 1}, {"PayloadSize", 4711},
        {"ZrTransferSize", 1048576},       {"ZrImagesInFlight", 1},
        {"ZrTransfersInFlight", 3},        {"ZrDeviceMemoryInUse", 4096},
        {"ZrResynchronisationCount", 5},   {"ZrReducedDepthCount", 7}};
    for (const auto& [name, value] : rows) {
        EXPECT_EQ(Number(Stream(), name), value) << name;
    }
}

TEST_F(DocumentsTest, Urls_ModulesInfo_IsThatOfTheDocument)
{
    for (const Port& port : Ports()) {
        uint32_t count = 0;
        EXPECT_EQ(GCGetNumPortURLs(port.handle, &count), GC_ERR_SUCCESS);
        EXPECT_EQ(count, 1U);
        const std::string name = UrlInfo(port.handle, 0, URL_INFO_FILENAME).Text();
        EXPECT_EQ(name.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789_."),
                  std::string::npos);
        EXPECT_EQ(UrlInfo(port.handle, 0, URL_INFO_SCHEMA_VER_MAJOR).As<int32_t>(), 1);
        EXPECT_EQ(UrlInfo(port.handle, 0, URL_INFO_SCHEMA_VER_MINOR).As<int32_t>(), 1);
        EXPECT_EQ(UrlInfo(port.handle, 0, URL_INFO_FILE_SIZE).As<uint64_t>(),
                  ModuleDocument(port.handle).Text().size());
        EXPECT_EQ(UrlInfo(port.handle, 0, URL_INFO_FILE_SHA1_HASH).code, GC_ERR_NOT_AVAILABLE);
    }
}

} // namespace
} // namespace standard_tl
