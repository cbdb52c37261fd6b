// Every register, feature and formula of the four documents, row by row.

#include "xml_tree.h"

#include <gtest/gtest.h>
#include <set>

namespace {

using Names = std::vector<std::string>;

// ---- registers --------------------------------------------------------------------------------

struct RegisterRow
{
    const char* name;
    const char* address;
    const char* length;
    const char* kind;
    const char* access;
    const char* cachable = "";
    const char* nameSpace = "";
};

const std::vector<RegisterRow> kSystemRegisters{
    {"TLVendorName_Reg", "0x50000", "256", "StringReg", "RO", "", "Standard"},
    {"TLModelName_Reg", "0x50100", "256", "StringReg", "RO", "", "Standard"},
    {"TLID_Reg", "0x50200", "256", "StringReg", "RO", "", "Standard"},
    {"TLVersion_Reg", "0x50300", "256", "StringReg", "RO", "", "Standard"},
    {"TLPath_Reg", "0x50400", "256", "StringReg", "RO", "", "Standard"},
    {"GenTLVersionMajor_Reg", "0x50504", "4", "IntReg", "RO", "", "Standard"},
    {"GenTLVersionMinor_Reg", "0x50508", "4", "IntReg", "RO", "", "Standard"},
    {"InterfaceUpdateList_Reg", "0x5050C", "4", "IntReg", "RW", "NoCache"},
    {"InterfaceSelector_Reg", "0x50510", "4", "IntReg", "RW", "NoCache"},
    {"InterfaceID_Reg", "0x50514", "256", "StringReg", "RO"},
    {"NrInterfaces_Reg", "0x50614", "4", "IntReg", "RO", "NoCache"},
};
const std::vector<RegisterRow> kInterfaceRegisters{
    {"InterfaceID_Reg", "0x60000", "256", "StringReg", "RO"},
    {"DeviceUpdateList_Reg", "0x60104", "4", "IntReg", "RW", "NoCache"},
    {"DeviceSelector_Reg", "0x60108", "4", "IntReg", "RW", "NoCache"},
    {"DeviceID_Reg", "0x6010C", "256", "StringReg", "RO"},
    {"DeviceVendorName_Reg", "0x6020C", "256", "StringReg", "RO"},
    {"DeviceModelName_Reg", "0x6030C", "256", "StringReg", "RO"},
    {"DeviceAccessStatus_Reg", "0x6040C", "4", "IntReg", "RO"},
    {"NrDevices_Reg", "0x60410", "4", "IntReg", "RO", "NoCache"},
};
const std::vector<RegisterRow> kDeviceRegisters{
    {"DeviceID_Reg", "0x70000", "256", "StringReg", "RO"},
    {"DeviceVendorName_Reg", "0x70100", "256", "StringReg", "RO"},
    {"DeviceModelName_Reg", "0x70200", "256", "StringReg", "RO"},
    {"DeviceAccessStatus_Reg", "0x70300", "4", "IntReg", "RO"},
    {"StreamSelector_Reg", "0x70304", "4", "IntReg", "RW", "NoCache"},
    {"StreamID_Reg", "0x70308", "256", "StringReg", "RO"},
    {"NrStreams_Reg", "0x70408", "4", "IntReg", "RO", "NoCache"},
    {"UpdateXMLFile_Reg", "0x7041C", "512", "StringReg", "RW"},
    {"UpdateXML_Reg", "0x7052C", "4", "IntReg", "RW", "NoCache"},
};
const std::vector<RegisterRow> kStreamRegisters{
    {"StreamID_Reg", "0x80000", "256", "StringReg", "RO"},
    {"StreamAnnouncedBufferCount_Reg", "0x80100", "4", "IntReg", "RO", "NoCache"},
    {"StreamBufferHandlingMode_Reg", "0x80104", "4", "IntReg", "RW"},
    {"StreamAnnounceBufferMinimum_Reg", "0x80108", "4", "IntReg", "RO"},
    {"StreamDeliveredFrameCount_Reg", "0x8010C", "8", "IntReg", "RO", "NoCache"},
};

bool IsRegister(const XmlElement& node)
{
    return node.name == "StringReg" || node.name == "IntReg";
}

void ExpectRegister(const XmlDocument& document, const RegisterRow& row)
{
    SCOPED_TRACE(document.file + " " + row.name);
    const XmlElement& node = document.Node(row.name);
    EXPECT_EQ(node.name, row.kind);
    EXPECT_EQ(node.Attribute("NameSpace"), row.nameSpace);
    EXPECT_EQ(node.All("Address"), Names{row.address});
    EXPECT_EQ(node.One("Length"), row.length);
    EXPECT_EQ(node.One("AccessMode"), row.access);
    EXPECT_EQ(node.One("pPort"), document.port);
    EXPECT_EQ(node.One("Cachable"), row.cachable);
    const bool isInteger = node.name == "IntReg";
    EXPECT_EQ(node.One("Sign"), isInteger ? "Unsigned" : "");
    EXPECT_EQ(node.One("Endianess"), isInteger ? "LittleEndian" : "");
}

void ExpectRegisters(const XmlDocument& document, const std::vector<RegisterRow>& rows)
{
    for (const RegisterRow& row : rows) {
        ExpectRegister(document, row);
    }
    size_t count = 0;
    for (const XmlElement* node : document.nodes) {
        count += IsRegister(*node) ? 1U : 0U;
    }
    EXPECT_EQ(count, rows.size()) << document.file;
}

// ---- categories -------------------------------------------------------------------------------

struct CategoryRow
{
    const char* name;
    const char* visibility;
    const char* imposed;
    Names features;
    const char* displayName = "";
    const char* nameSpace = "Standard";
};

const std::vector<CategoryRow> kSystemCategories{
    {"Root", "Beginner", "RO", {"SystemInformation", "InterfaceEnumeration"}},
    {"SystemInformation",
     "Beginner",
     "",
     {"TLID", "TLVendorName", "TLModelName", "TLVersion", "TLPath", "TLType", "GenTLVersionMajor",
      "GenTLVersionMinor", "GenTLSFNCVersionMajor", "GenTLSFNCVersionMinor"},
     "System Information"},
    {"InterfaceEnumeration",
     "Beginner",
     "",
     {"InterfaceUpdateList", "InterfaceSelector", "InterfaceID"}},
    {"EventControl",
     "Expert",
     "",
     {"EventSelector", "EventNotification", "EventInterfaceListChangedData"}},
};
const std::vector<CategoryRow> kInterfaceCategories{
    {"Root", "Beginner", "RO", {"InterfaceInformation", "DeviceEnumeration"}},
    {"InterfaceInformation",
     "Expert",
     "RO",
     {"InterfaceID", "InterfaceType", "InterfaceTLVersionMajor", "InterfaceTLVersionMinor"}},
    {"DeviceEnumeration",
     "Expert",
     "RO",
     {"DeviceUpdateList", "DeviceSelector", "DeviceID", "DeviceVendorName", "DeviceModelName",
      "DeviceAccessStatus", "DeviceTLVersionMajor", "DeviceTLVersionMinor"}},
};
const std::vector<CategoryRow> kDeviceCategories{
    {"Root", "Beginner", "RO", {"DeviceInformation", "StreamEnumeration", "XMLFileInjection"}},
    {"DeviceInformation",
     "Beginner",
     "RO",
     {"DeviceID", "DeviceVendorName", "DeviceModelName", "DeviceType", "DeviceAccessStatus"}},
    {"StreamEnumeration", "Beginner", "RO", {"StreamSelector", "StreamID"}},
    {"XMLFileInjection", "Beginner", "RO", {"XMLFile", "UpdateXML"}, "", "Custom"},
};
const std::vector<CategoryRow> kStreamCategories{
    {"Root", "Beginner", "RO", {"StreamInformation", "BufferHandlingControl"}},
    {"StreamInformation", "Expert", "", {"StreamID", "StreamType"}},
    {"BufferHandlingControl",
     "Beginner",
     "",
     {"StreamAnnouncedBufferCount", "StreamBufferHandlingMode", "StreamAnnounceBufferMinimum",
      "StreamDeliveredFrameCount"}},
};

void ExpectCategories(const XmlDocument& document, const std::vector<CategoryRow>& rows)
{
    for (const CategoryRow& row : rows) {
        SCOPED_TRACE(document.file + " " + row.name);
        const XmlElement& node = document.Node(row.name);
        EXPECT_EQ(node.name, "Category");
        EXPECT_EQ(node.Attribute("NameSpace"), row.nameSpace);
        EXPECT_EQ(node.One("Visibility"), row.visibility);
        EXPECT_EQ(node.One("ImposedAccessMode"), row.imposed);
        EXPECT_EQ(node.One("DisplayName"), row.displayName);
        EXPECT_EQ(node.All("pFeature"), row.features);
    }
    size_t count = 0;
    for (const XmlElement* node : document.nodes) {
        count += node->name == "Category" ? 1U : 0U;
    }
    EXPECT_EQ(count, rows.size()) << document.file;
}

// ---- features ---------------------------------------------------------------------------------

struct FeatureRow
{
    const char* name;
    const char* kind;
    const char* visibility;
    const char* pValue = "";
    const char* constant = "";
    const char* displayName = "";
    const char* imposed = "";
    const char* available = "";
    const char* least = "";
    const char* pMax = "";
    Names selected = {};
    const char* nameSpace = "Standard";
};

FeatureRow Plain(const char* name, const char* kind, const char* visibility, const char* pValue,
                 const char* displayName = "")
{
    return {name, kind, visibility, pValue, "", displayName};
}

FeatureRow Constant(const char* name, const char* kind, const char* visibility, const char* value,
                    const char* displayName = "")
{
    return {name, kind, visibility, "", value, displayName, "RO"};
}

FeatureRow Available(const char* name, const char* visibility, const char* pValue,
                     const char* formula)
{
    return {name, "String", visibility, pValue, "", "", "", formula};
}

FeatureRow Custom(const char* name, const char* kind, const char* visibility, const char* pValue)
{
    return {name, kind, visibility, pValue, "", "", "", "", "", "", {}, "Custom"};
}

FeatureRow Selector(const char* name, const char* visibility, const char* pValue,
                    const char* available, const char* pMax, Names selected)
{
    return {name, "Integer", visibility,         pValue, "", "", "", available,
            "0",  pMax,      std::move(selected)};
}

const std::vector<FeatureRow>& SystemFeatures()
{
    static const char* const listed = "InterfaceListNonEmpty_Form";
    static const std::vector<FeatureRow> rows{
        Plain("TLID", "String", "Expert", "TLID_Reg"),
        Plain("TLVendorName", "String", "Beginner", "TLVendorName_Reg", "Manufacturer Name"),
        Plain("TLModelName", "String", "Beginner", "TLModelName_Reg"),
        Plain("TLVersion", "String", "Beginner", "TLVersion_Reg", "TL Version"),
        Plain("TLPath", "String", "Expert", "TLPath_Reg", "TL Path"),
        Constant("TLType", "Enumeration", "Expert", "4", "Device Type"),
        Plain("GenTLVersionMajor", "Integer", "Expert", "GenTLVersionMajor_Reg"),
        Plain("GenTLVersionMinor", "Integer", "Expert", "GenTLVersionMinor_Reg"),
        Constant("GenTLSFNCVersionMajor", "Integer", "Expert", "1"),
        Constant("GenTLSFNCVersionMinor", "Integer", "Expert", "1"),
        {"InterfaceUpdateList", "Command", "Beginner", "", "0", "", "RW"},
        Selector("InterfaceSelector", "Beginner", "InterfaceSelector_Reg", listed,
                 "InterfaceSelectorMax_Form", {"InterfaceID"}),
        Available("InterfaceID", "Beginner", "InterfaceID_Reg", listed),
    };
    return rows;
}

const std::vector<FeatureRow>& InterfaceFeatures()
{
    static const char* const listed = "DeviceListNonEmpty_Form";
    static const std::vector<FeatureRow> rows{
        Plain("InterfaceID", "String", "Expert", "InterfaceID_Reg"),
        Constant("InterfaceType", "Enumeration", "Expert", "4"),
        Constant("InterfaceTLVersionMajor", "Integer", "Expert", "1"),
        Constant("InterfaceTLVersionMinor", "Integer", "Expert", "3"),
        Plain("DeviceUpdateList", "Command", "Expert", "DeviceUpdateList_Reg"),
        Selector("DeviceSelector", "Expert", "DeviceSelector_Reg", listed, "DeviceListMax_Form",
                 {"DeviceID", "DeviceVendorName", "DeviceModelName", "DeviceAccessStatus",
                  "DeviceTLVersionMajor", "DeviceTLVersionMinor"}),
        Available("DeviceID", "Expert", "DeviceID_Reg", listed),
        Available("DeviceVendorName", "Expert", "DeviceVendorName_Reg", listed),
        Available("DeviceModelName", "Expert", "DeviceModelName_Reg", listed),
        Plain("DeviceAccessStatus", "Enumeration", "Expert", "DeviceAccessStatus_Reg"),
        Constant("DeviceTLVersionMajor", "Integer", "Expert", "1"),
        Constant("DeviceTLVersionMinor", "Integer", "Expert", "3"),
    };
    return rows;
}

const std::vector<FeatureRow>& DeviceFeatures()
{
    static const std::vector<FeatureRow> rows{
        Plain("DeviceID", "String", "Expert", "DeviceID_Reg"),
        Plain("DeviceVendorName", "String", "Beginner", "DeviceVendorName_Reg"),
        Plain("DeviceModelName", "String", "Beginner", "DeviceModelName_Reg"),
        Constant("DeviceType", "Enumeration", "Expert", "4"),
        Plain("DeviceAccessStatus", "Enumeration", "Expert", "DeviceAccessStatus_Reg"),
        Selector("StreamSelector", "Expert", "StreamSelector_Reg", "StreamListNonEmpty_Form",
                 "StreamListMax_Form", {"StreamID"}),
        Plain("StreamID", "String", "Expert", "StreamID_Reg"),
        Custom("XMLFile", "String", "Guru", "UpdateXMLFile_Reg"),
        Custom("UpdateXML", "Command", "Expert", "UpdateXML_Reg"),
    };
    return rows;
}

const std::vector<FeatureRow>& StreamFeatures()
{
    static const std::vector<FeatureRow> rows{
        Plain("StreamID", "String", "Expert", "StreamID_Reg"),
        Constant("StreamType", "Enumeration", "Expert", "4"),
        Plain("StreamAnnouncedBufferCount", "Integer", "Expert", "StreamAnnouncedBufferCount_Reg"),
        {"StreamBufferHandlingMode", "Enumeration", "Beginner", "StreamBufferHandlingMode_Reg", "",
         "", "RO"},
        Plain("StreamAnnounceBufferMinimum", "Integer", "Expert",
              "StreamAnnounceBufferMinimum_Reg"),
    };
    return rows;
}

void ExpectFeature(const XmlDocument& document, const FeatureRow& row)
{
    SCOPED_TRACE(document.file + " " + row.name);
    const XmlElement& node = document.Node(row.name);
    EXPECT_EQ(node.name, row.kind);
    EXPECT_EQ(node.Attribute("NameSpace"), row.nameSpace);
    EXPECT_EQ(node.One("Visibility"), row.visibility);
    EXPECT_EQ(node.One("pValue"), row.pValue);
    EXPECT_EQ(node.One("Value"), row.constant);
    EXPECT_EQ(node.One("DisplayName"), row.displayName);
    EXPECT_EQ(node.One("ImposedAccessMode"), row.imposed);
    EXPECT_EQ(node.One("pIsAvailable"), row.available);
    EXPECT_EQ(node.One("Min"), row.least);
    EXPECT_EQ(node.One("pMax"), row.pMax);
    EXPECT_EQ(node.All("pSelected"), row.selected);
    EXPECT_EQ(node.One("CommandValue"), node.name == "Command" ? "1" : "");
}

void ExpectFeatures(const XmlDocument& document, const std::vector<FeatureRow>& rows)
{
    const std::set<std::string> kinds{"Integer", "String", "Command", "Enumeration"};
    for (const FeatureRow& row : rows) {
        ExpectFeature(document, row);
    }
    size_t count = 0;
    for (const XmlElement* node : document.nodes) {
        count += kinds.contains(node->name) ? 1U : 0U;
    }
    EXPECT_EQ(count, rows.size()) << document.file;
}

// ---- enumerations and formulas ----------------------------------------------------------------

void ExpectEntries(const XmlDocument& document, const char* name, const Names& entries)
{
    SCOPED_TRACE(document.file + " " + name);
    Names found;
    for (const XmlElement& child : document.Node(name).children) {
        if (child.name == "EnumEntry") {
            EXPECT_EQ(child.One("Value"), std::to_string(found.size()));
            EXPECT_EQ(child.Attribute("NameSpace"), "Standard");
            found.push_back(child.Attribute("Name"));
        }
    }
    EXPECT_EQ(found, entries);
}

const Names kTransportTypes{"GigEVision", "CameraLink", "CameraLinkHS",
                            "CoaXPress",  "USB3Vision", "Custom"};
const Names kAccessStates{"Unknown", "ReadWrite",     "ReadOnly",    "NoAccess",
                          "Busy",    "OpenReadWrite", "OpenReadOnly"};

void ExpectFormula(const XmlDocument& document, const char* name, const char* variable,
                   const char* source, const char* formula)
{
    SCOPED_TRACE(document.file + " " + name);
    const XmlElement& node = document.Node(name);
    EXPECT_EQ(node.name, "IntSwissKnife");
    EXPECT_EQ(node.Attribute("NameSpace"), "");
    EXPECT_EQ(node.All("pVariable"), Names{source});
    EXPECT_EQ(node.children.front().Attribute("Name"), variable);
    EXPECT_EQ(node.One("Formula"), formula);
}

} // namespace

TEST(XmlRegisters, System_EveryRow)
{
    ExpectRegisters(SystemDocument(), kSystemRegisters);
}
TEST(XmlRegisters, Interface_EveryRow)
{
    ExpectRegisters(InterfaceDocument(), kInterfaceRegisters);
}
TEST(XmlRegisters, Device_EveryRow)
{
    ExpectRegisters(DeviceDocument(), kDeviceRegisters);
}
TEST(XmlRegisters, Stream_EveryRow)
{
    ExpectRegisters(StreamDocument(), kStreamRegisters);
}

TEST(XmlCategories, System_EveryRow)
{
    ExpectCategories(SystemDocument(), kSystemCategories);
}
TEST(XmlCategories, Interface_EveryRow)
{
    ExpectCategories(InterfaceDocument(), kInterfaceCategories);
}
TEST(XmlCategories, Device_EveryRow)
{
    ExpectCategories(DeviceDocument(), kDeviceCategories);
}
TEST(XmlCategories, Stream_EveryRow)
{
    ExpectCategories(StreamDocument(), kStreamCategories);
}

TEST(XmlFeatures, System_EveryRow)
{
    ExpectFeatures(SystemDocument(), SystemFeatures());
}
TEST(XmlFeatures, Interface_EveryRow)
{
    ExpectFeatures(InterfaceDocument(), InterfaceFeatures());
}
TEST(XmlFeatures, Device_EveryRow)
{
    ExpectFeatures(DeviceDocument(), DeviceFeatures());
}
TEST(XmlFeatures, Stream_EveryRow)
{
    ExpectFeatures(StreamDocument(), StreamFeatures());
}

TEST(XmlEnumerations, TransportTypes_AllFourDocuments_HaveTheSameEntries)
{
    ExpectEntries(SystemDocument(), "TLType", kTransportTypes);
    ExpectEntries(InterfaceDocument(), "InterfaceType", kTransportTypes);
    ExpectEntries(DeviceDocument(), "DeviceType", kTransportTypes);
    ExpectEntries(StreamDocument(), "StreamType", kTransportTypes);
}

TEST(XmlEnumerations, AccessStates_InterfaceAndDevice_HaveTheSameEntries)
{
    ExpectEntries(InterfaceDocument(), "DeviceAccessStatus", kAccessStates);
    ExpectEntries(DeviceDocument(), "DeviceAccessStatus", kAccessStates);
}

TEST(XmlEnumerations, BufferHandlingMode_HasThreeModes)
{
    ExpectEntries(StreamDocument(), "StreamBufferHandlingMode",
                  {"OldestFirst", "OldestFirstOverwrite", "NewestOnly"});
}

TEST(XmlFormulas, EveryRow)
{
    ExpectFormula(SystemDocument(), "InterfaceListNonEmpty_Form", "NRINTS", "NrInterfaces_Reg",
                  "NRINTS > 0");
    ExpectFormula(SystemDocument(), "InterfaceSelectorMax_Form", "NRINTS", "NrInterfaces_Reg",
                  "NRINTS - 1");
    ExpectFormula(InterfaceDocument(), "DeviceListNonEmpty_Form", "NRDEVS", "NrDevices_Reg",
                  "NRDEVS > 0");
    ExpectFormula(InterfaceDocument(), "DeviceListMax_Form", "NRDEVS", "NrDevices_Reg",
                  "NRDEVS - 1");
    ExpectFormula(DeviceDocument(), "StreamListNonEmpty_Form", "NRSTRMS", "NrStreams_Reg",
                  "NRSTRMS > 0");
    ExpectFormula(DeviceDocument(), "StreamListMax_Form", "NRSTRMS", "NrStreams_Reg",
                  "NRSTRMS - 1");
}
