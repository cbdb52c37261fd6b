#include "description_file.h"

#include <cctype>
#include <cstdarg>
#include <cstdio>

#include "camera_events.h"
#include "camera_layout.h"
#include "payload_form.h"

namespace vcam {

namespace {

// Attribute values and file names: letters, digits, dots and underscores only.
std::string Plain(const std::string& text)
{
    std::string plain;
    for (const char c : text) {
        const bool keep = std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '.';
        plain += keep ? c : '_';
    }
    return plain.empty() ? "_" : plain;
}

// Collects the document; a line is one element, nesting is by hand.
class Document
{
public:
    __attribute__((format(printf, 2, 3))) void Line(const char* format, ...)
    {
        char line[512];
        va_list arguments;
        va_start(arguments, format);
        std::vsnprintf(line, sizeof line, format, arguments);
        va_end(arguments);
        m_text += line;
        m_text += '\n';
    }

    std::string Take() { return std::move(m_text); }

private:
    std::string m_text;
};

struct Feature
{
    const char* name;
    const char* toolTip;
    bool locked = false;   // not to be changed while images are sent
    bool readOnly = false; // a constant, which would be writable otherwise
};

// Opens a node with as much of the common head as the features here use.
void Open(Document& xml, const char* node, const Feature& feature)
{
    xml.Line("  <%s Name=\"%s\" NameSpace=\"Standard\">", node, feature.name);
    xml.Line("    <ToolTip>%s</ToolTip>", feature.toolTip);
    xml.Line("    <Visibility>Beginner</Visibility>");
    if (feature.locked) {
        xml.Line("    <pIsLocked>TLParamsLocked</pIsLocked>");
    }
    if (feature.readOnly) {
        xml.Line("    <ImposedAccessMode>RO</ImposedAccessMode>");
    }
}

void Close(Document& xml, const char* node)
{
    xml.Line("  </%s>", node);
}

using NameList = std::vector<const char*>;

void Category(Document& xml, const char* name, const NameList& features)
{
    xml.Line("  <Category Name=\"%s\" NameSpace=\"Standard\">", name);
    for (const char* feature : features) {
        xml.Line("    <pFeature>%s</pFeature>", feature);
    }
    Close(xml, "Category");
}

struct Place
{
    std::uint64_t address;
    std::size_t length;
    const char* access;
    const char* port = "Device";
    const char* index = nullptr; // a register that counts places of this length
};

// What every kind of register node has: place, access, port, caching.
void RegisterPlace(Document& xml, const Place& place)
{
    xml.Line("    <Address>0x%llX</Address>", static_cast<unsigned long long>(place.address));
    if (place.index != nullptr) {
        xml.Line("    <pIndex Offset=\"%zu\">%s</pIndex>", place.length, place.index);
    }
    xml.Line("    <Length>%zu</Length>", place.length);
    xml.Line("    <AccessMode>%s</AccessMode>", place.access);
    xml.Line("    <pPort>%s</pPort>", place.port);
    xml.Line("    <Cachable>NoCache</Cachable>");
}

void IntRegAt(Document& xml, const char* name, const Place& place)
{
    xml.Line("  <IntReg Name=\"%s\">", name);
    RegisterPlace(xml, place);
    xml.Line("    <Sign>Unsigned</Sign>");
    xml.Line("    <Endianess>LittleEndian</Endianess>");
    Close(xml, "IntReg");
}

template <typename T>
void IntReg(Document& xml, const char* name, Register<T> reg, const char* access)
{
    IntRegAt(xml, name, {reg.address, sizeof(T), access});
}

void FloatReg(Document& xml, const char* name, const Place& place)
{
    xml.Line("  <FloatReg Name=\"%s\">", name);
    RegisterPlace(xml, place);
    xml.Line("    <Endianess>LittleEndian</Endianess>");
    Close(xml, "FloatReg");
}

void StringReg(Document& xml, const Feature& feature, std::uint64_t address, const char* access)
{
    Open(xml, "StringReg", feature);
    RegisterPlace(xml, {address, abrm::kStringSize, access});
    Close(xml, "StringReg");
}

struct Range
{
    const char* minimum = nullptr; // element with the value, or none
    const char* maximum = nullptr;
    const char* increment = nullptr;
};

void Integer(Document& xml, const Feature& feature, const Range& range)
{
    Open(xml, "Integer", feature);
    xml.Line("    <pValue>%sReg</pValue>", feature.name);
    for (const char* element : {range.minimum, range.maximum, range.increment}) {
        if (element != nullptr) {
            xml.Line("    %s", element);
        }
    }
    Close(xml, "Integer");
}

void Float(Document& xml, const Feature& feature, double low, double high, const char* unit)
{
    Open(xml, "Float", feature);
    xml.Line("    <pValue>%sReg</pValue>", feature.name);
    xml.Line("    <Min>%.1f</Min>", low);
    xml.Line("    <Max>%.1f</Max>", high);
    xml.Line("    <Unit>%s</Unit>", unit);
    Close(xml, "Float");
}

void Command(Document& xml, const Feature& feature, const char* reg, std::uint32_t value)
{
    Open(xml, "Command", feature);
    xml.Line("    <pValue>%s</pValue>", reg);
    xml.Line("    <CommandValue>%u</CommandValue>", value);
    Close(xml, "Command");
}

struct Entry
{
    const char* name;
    std::uint32_t value;
};

template <typename Entries>
void Enumeration(Document& xml, const Feature& feature, const Entries& entries,
                 const NameList& selected = {})
{
    Open(xml, "Enumeration", feature);
    for (const Entry& entry : entries) {
        // By the entry's own name: tools that do not read Symbolic find it as well.
        xml.Line("    <EnumEntry Name=\"%s\" NameSpace=\"Standard\">", entry.name);
        xml.Line("      <DisplayName>%s</DisplayName>", entry.name);
        xml.Line("      <Value>%u</Value>", entry.value);
        xml.Line("      <Symbolic>%s</Symbolic>", entry.name);
        xml.Line("    </EnumEntry>");
    }
    if (feature.readOnly) {
        xml.Line("    <Value>%u</Value>", std::begin(entries)->value);
    } else {
        xml.Line("    <pValue>%sReg</pValue>", feature.name);
    }
    for (const char* name : selected) {
        xml.Line("    <pSelected>%s</pSelected>", name);
    }
    Close(xml, "Enumeration");
}

void Boolean(Document& xml, const Feature& feature)
{
    Open(xml, "Boolean", feature);
    xml.Line("    <pValue>%sReg</pValue>", feature.name);
    xml.Line("    <OnValue>1</OnValue>");
    xml.Line("    <OffValue>0</OffValue>");
    Close(xml, "Boolean");
}

void Constant(Document& xml, const char* name, const char* toolTip, unsigned value)
{
    Open(xml, "Integer", {name, toolTip, false, true});
    xml.Line("    <Value>%u</Value>", value);
    Close(xml, "Integer");
}

// How much one feature leaves to another.
void Difference(Document& xml, const char* name, const char* whole, const char* taken)
{
    xml.Line("  <IntSwissKnife Name=\"%s\">", name);
    xml.Line("    <pVariable Name=\"WHOLE\">%s</pVariable>", whole);
    xml.Line("    <pVariable Name=\"TAKEN\">%s</pVariable>", taken);
    xml.Line("    <Formula>WHOLE - TAKEN</Formula>");
    Close(xml, "IntSwissKnife");
}

void PutHead(Document& xml, const CameraConfig& config, const ManifestEntry& entry)
{
    xml.Line("<?xml version=\"1.0\" encoding=\"UTF-8\"?>");
    xml.Line("<RegisterDescription ModelName=\"%s\" VendorName=\"%s\"", Plain(config.model).c_str(),
             Plain(config.vendor).c_str());
    xml.Line("  ToolTip=\"Simulated USB3 Vision camera\" StandardNameSpace=\"USB\"");
    const FileVersion& schema = entry.schema;
    xml.Line("  SchemaMajorVersion=\"%u\" SchemaMinorVersion=\"%u\" SchemaSubMinorVersion=\"%u\"",
             schema.major, schema.minor, schema.subMinor);
    xml.Line("  MajorVersion=\"%u\" MinorVersion=\"%u\" SubMinorVersion=\"%u\"", entry.file.major,
             entry.file.minor, entry.file.subMinor);
    xml.Line("  ProductGuid=\"6F2B1C5E-20F4-4B1C-9D55-0C1B0F5E7A10\"");
    xml.Line("  VersionGuid=\"B8A5D0C2-7E36-4F0A-8E21-6A4D93C2F701\"");
    xml.Line("  xmlns=\"http://www.genicam.org/GenApi/Version_%u_%u\"", schema.major, schema.minor);
    xml.Line("  xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\"");
    xml.Line("  xsi:schemaLocation=\"http://www.genicam.org/GenApi/Version_%u_%u "
             "http://www.genicam.org/GenApi/GenApiSchema_Version_%u_%u.xsd\">",
             schema.major, schema.minor, schema.major, schema.minor);
}

void PutCategories(Document& xml, bool hasEvents)
{
    NameList root{"DeviceControl", "ImageFormatControl", "AcquisitionControl", "AnalogControl",
                  "ChunkDataControl"};
    if (hasEvents) {
        root.push_back("EventControl");
    }
    root.push_back("TransportLayerControl");
    Category(xml, "Root", root);
    Category(xml, "DeviceControl",
             {"DeviceVendorName", "DeviceModelName", "DeviceFamilyName", "DeviceVersion",
              "DeviceManufacturerInfo", "DeviceSerialNumber", "DeviceUserID",
              "DeviceSFNCVersionMajor", "DeviceSFNCVersionMinor", "DeviceSFNCVersionSubMinor",
              "DeviceReset", "TimestampLatch", "TimestampLatchValue"});
    Category(xml, "ImageFormatControl",
             {"SensorWidth", "SensorHeight", "WidthMax", "HeightMax", "Width", "Height", "OffsetX",
              "OffsetY", "PixelFormat", "TestPattern"});
    Category(xml, "AcquisitionControl",
             {"AcquisitionMode", "AcquisitionStart", "AcquisitionStop", "AcquisitionFrameCount",
              "AcquisitionFrameRate", "ExposureTime", "TriggerSelector", "TriggerMode",
              "TriggerSource", "TriggerSoftware"});
    Category(xml, "AnalogControl", {"Gain"});
    Category(xml, "TransportLayerControl", {"PayloadSize", "TLParamsLocked"});
}

void PutDeviceControl(Document& xml)
{
    StringReg(xml, {"DeviceVendorName", "Name of the manufacturer"}, abrm::kManufacturer, "RO");
    StringReg(xml, {"DeviceModelName", "Model of the device"}, abrm::kModel, "RO");
    StringReg(xml, {"DeviceFamilyName", "Product family"}, abrm::kFamily, "RO");
    StringReg(xml, {"DeviceVersion", "Version of the device"}, abrm::kDeviceVersion, "RO");
    StringReg(xml, {"DeviceManufacturerInfo", "What the manufacturer adds"},
              abrm::kManufacturerInfo, "RO");
    StringReg(xml, {"DeviceSerialNumber", "Serial number"}, abrm::kSerialNumber, "RO");
    StringReg(xml, {"DeviceUserID", "Name given by the user"}, abrm::kUserDefinedName, "RW");
    Constant(xml, "DeviceSFNCVersionMajor", "Major version of the feature names", 2);
    Constant(xml, "DeviceSFNCVersionMinor", "Minor version of the feature names", 7);
    Constant(xml, "DeviceSFNCVersionSubMinor", "Sub-minor version of the feature names", 0);
    Command(xml, {"DeviceReset", "Restarts the device"}, "ResetReg", cam::kResetMagic);
    IntReg(xml, "ResetReg", cam::kReset, "WO");
    Command(xml, {"TimestampLatch", "Latches the time stamp counter"}, "TimestampLatchReg", 1);
    IntReg(xml, "TimestampLatchReg", abrm::kTimestampLatch, "WO");
    Integer(xml, {"TimestampLatchValue", "The latched time stamp in ns"}, {});
    IntReg(xml, "TimestampLatchValueReg", abrm::kTimestamp, "RO");
}

// A feature that is a difference of two others' registers.
void PutLimit(Document& xml, const Feature& feature, const char* whole, const char* taken)
{
    const std::string formula = std::string(feature.name) + "Formula";
    Open(xml, "Integer", feature);
    xml.Line("    <pValue>%s</pValue>", formula.c_str());
    Close(xml, "Integer");
    Difference(xml, formula.c_str(), (std::string(whole) + "Reg").c_str(),
               (std::string(taken) + "Reg").c_str());
}

void PutSize(Document& xml)
{
    Integer(xml, {"SensorWidth", "Width of the sensor in pixels"}, {});
    IntReg(xml, "SensorWidthReg", cam::kSensorWidth, "RO");
    Integer(xml, {"SensorHeight", "Height of the sensor in pixels"}, {});
    IntReg(xml, "SensorHeightReg", cam::kSensorHeight, "RO");
    PutLimit(xml, {"WidthMax", "Greatest width at this offset"}, "SensorWidth", "OffsetX");
    PutLimit(xml, {"HeightMax", "Greatest height at this offset"}, "SensorHeight", "OffsetY");
    Difference(xml, "OffsetXMax", "SensorWidthReg", "WidthReg");
    Difference(xml, "OffsetYMax", "SensorHeightReg", "HeightReg");
    Integer(xml, {"Width", "Width of the image in pixels", true},
            {"<Min>1</Min>", "<pMax>WidthMax</pMax>", "<Inc>1</Inc>"});
    IntReg(xml, "WidthReg", cam::kWidth, "RW");
    Integer(xml, {"Height", "Height of the image in pixels", true},
            {"<Min>1</Min>", "<pMax>HeightMax</pMax>", "<Inc>1</Inc>"});
    IntReg(xml, "HeightReg", cam::kHeight, "RW");
    Integer(xml, {"OffsetX", "First column of the image", true},
            {"<Min>0</Min>", "<pMax>OffsetXMax</pMax>", "<Inc>1</Inc>"});
    IntReg(xml, "OffsetXReg", cam::kOffsetX, "RW");
    Integer(xml, {"OffsetY", "First row of the image", true},
            {"<Min>0</Min>", "<pMax>OffsetYMax</pMax>", "<Inc>1</Inc>"});
    IntReg(xml, "OffsetYReg", cam::kOffsetY, "RW");
}

void PutImageFormat(Document& xml)
{
    std::vector<Entry> formats;
    for (const PixelFormat& format : PixelFormats()) {
        formats.push_back({format.name, format.code});
    }
    Enumeration(xml, {"PixelFormat", "Layout of the pixels", true}, formats);
    IntReg(xml, "PixelFormatReg", cam::kPixelFormat, "RW");
    constexpr Entry kPatterns[] = {
        {"Bytes", 0}, {"Ramp", 1}, {"Scene", 2}, {"Still", 3}, {"None", 4}};
    Enumeration(xml, {"TestPattern", "What the images show", true}, kPatterns);
    IntReg(xml, "TestPatternReg", cam::kTestPattern, "RW");
}

void PutAcquisition(Document& xml)
{
    constexpr Entry kModes[] = {{"Continuous", 0}, {"SingleFrame", 1}, {"MultiFrame", 2}};
    Enumeration(xml, {"AcquisitionMode", "How many images a start brings", true}, kModes);
    IntReg(xml, "AcquisitionModeReg", cam::kAcquisitionMode, "RW");
    Command(xml, {"AcquisitionStart", "Starts the sending of images"}, "AcquisitionReg", 1);
    Command(xml, {"AcquisitionStop", "Stops it after the present image"}, "AcquisitionReg", 0);
    IntReg(xml, "AcquisitionReg", cam::kAcquisition, "RW");
    Integer(xml, {"AcquisitionFrameCount", "Images of a start in mode MultiFrame", true},
            {"<Min>1</Min>", "<Max>65535</Max>", "<Inc>1</Inc>"});
    IntReg(xml, "AcquisitionFrameCountReg", cam::kFrameCount, "RW");
    Float(xml, {"AcquisitionFrameRate", "Images per second; 0 is as fast as the host reads"}, 0,
          100000, "Hz");
    FloatReg(xml, "AcquisitionFrameRateReg", {cam::kFrameRate.address, sizeof(float), "RW"});
    Float(xml, {"ExposureTime", "Exposure time"}, 1, 1000000, "us");
    FloatReg(xml, "ExposureTimeReg", {cam::kExposureTime.address, sizeof(float), "RW"});
    Float(xml, {"Gain", "Gain"}, 0, 48, "dB");
    FloatReg(xml, "GainReg", {cam::kGain.address, sizeof(float), "RW"});
}

constexpr Entry kOnOff[] = {{"Off", 0}, {"On", 1}};

void PutTrigger(Document& xml)
{
    constexpr Entry kSelectors[] = {{"FrameStart", 0}};
    Enumeration(xml, {"TriggerSelector", "What is triggered", false, true}, kSelectors,
                {"TriggerMode", "TriggerSource", "TriggerSoftware"});
    Enumeration(xml, {"TriggerMode", "On: an image for every trigger"}, kOnOff);
    IntReg(xml, "TriggerModeReg", cam::kTriggerMode, "RW");
    constexpr Entry kSources[] = {{"Software", 0}};
    Enumeration(xml, {"TriggerSource", "Where triggers come from"}, kSources);
    IntReg(xml, "TriggerSourceReg", cam::kTriggerSource, "RW");
    Command(xml, {"TriggerSoftware", "Triggers an image"}, "TriggerSoftwareReg", 1);
    IntReg(xml, "TriggerSoftwareReg", cam::kTriggerSoftware, "WO");
}

// What the data of a chunk are, on a port of their own.
void PutChunkPort(Document& xml, Chunk chunk)
{
    const ChunkName& name = ChunkNames()[static_cast<std::size_t>(chunk)];
    xml.Line("  <Port Name=\"Chunk%sPort\">", name.name);
    xml.Line("    <ChunkID>%X</ChunkID>", name.id);
    Close(xml, "Port");
}

void PutChunks(Document& xml)
{
    Category(xml, "ChunkDataControl",
             {"ChunkModeActive", "ChunkSelector", "ChunkEnable", "ChunkUserBytesLength",
              "ChunkFrameID", "ChunkTimestamp", "ChunkExposureTime"});
    Boolean(xml, {"ChunkModeActive", "Images carry chunks", true});
    IntReg(xml, "ChunkModeActiveReg", cam::kChunkModeActive, "RW");
    std::vector<Entry> chunks;
    for (const ChunkName& chunk : ChunkNames()) {
        chunks.push_back({chunk.name, static_cast<std::uint32_t>(chunks.size())});
    }
    Enumeration(xml, {"ChunkSelector", "The chunk that is meant"}, chunks, {"ChunkEnable"});
    IntReg(xml, "ChunkSelectorReg", cam::kChunkSelector, "RW");
    Boolean(xml, {"ChunkEnable", "Images carry the selected chunk", true});
    IntRegAt(xml, "ChunkEnableReg",
             {cam::ChunkEnable(0).address, 4, "RW", "Device", "ChunkSelectorReg"});
    Integer(xml, {"ChunkUserBytesLength", "Length of the chunk UserBytes", true},
            {"<Min>0</Min>", "<Max>65536</Max>", nullptr});
    IntReg(xml, "ChunkUserBytesLengthReg", cam::kChunkUserBytes, "RW");
    Integer(xml, {"ChunkFrameID", "Number of the image in its run"}, {});
    IntRegAt(xml, "ChunkFrameIDReg", {0, 8, "RO", "ChunkFrameIDPort"});
    Integer(xml, {"ChunkTimestamp", "Time stamp of the image in ns"}, {});
    IntRegAt(xml, "ChunkTimestampReg", {0, 8, "RO", "ChunkTimestampPort"});
    Float(xml, {"ChunkExposureTime", "Exposure time of the image"}, 0, 1000000, "us");
    FloatReg(xml, "ChunkExposureTimeReg", {0, sizeof(float), "RO", "ChunkExposureTimePort"});
    for (const Chunk chunk : {Chunk::FrameId, Chunk::Timestamp, Chunk::ExposureTime}) {
        PutChunkPort(xml, chunk);
    }
}

// The data of an event as the event port of a host shows them: from the item's first byte on.
void PutEvent(Document& xml, const EventName& event)
{
    const std::string name = std::string("Event") + event.name;
    const std::string port = name + "Port";
    const std::string stamp = name + "Timestamp";
    const std::string frame = name + "FrameID";
    const auto put = [&](const std::string& feature, const char* toolTip, std::uint64_t address) {
        Integer(xml, {feature.c_str(), toolTip}, {});
        IntRegAt(xml, (feature + "Reg").c_str(), {address, 8, "RO", port.c_str()});
    };
    Open(xml, "Integer", {name.c_str(), "Id of the event", false, true});
    xml.Line("    <Value>%u</Value>", event.id);
    Close(xml, "Integer");
    put(stamp, "Time stamp of the event in ns", 4);
    put(frame, "Block id of the image", event::kItemHeaderSize);
    xml.Line("  <Port Name=\"%s\">", port.c_str());
    xml.Line("    <EventID>%X</EventID>", event.id);
    Close(xml, "Port");
}

void PutEvents(Document& xml)
{
    std::vector<std::string> names{"EventSelector", "EventNotification", "TestEventGenerate"};
    std::vector<Entry> events;
    for (const EventName& event : kEvents) {
        events.push_back({event.name, static_cast<std::uint32_t>(events.size())});
        for (const char* suffix : {"", "Timestamp", "FrameID"}) {
            names.push_back(std::string("Event") + event.name + suffix);
        }
    }
    NameList features;
    for (const std::string& name : names) {
        features.push_back(name.c_str());
    }
    Category(xml, "EventControl", features);
    Enumeration(xml, {"EventSelector", "The event that is meant"}, events, {"EventNotification"});
    IntReg(xml, "EventSelectorReg", cam::kEventSelector, "RW");
    Enumeration(xml, {"EventNotification", "The selected event is sent"}, kOnOff);
    IntRegAt(xml, "EventNotificationReg",
             {cam::EventNotification(0).address, 4, "RW", "Device", "EventSelectorReg"});
    Command(xml, {"TestEventGenerate", "Sends a test event"}, "TestEventGenerateReg", 1);
    IntReg(xml, "TestEventGenerateReg", eirm::kTest, "WO");
    for (const EventName& event : kEvents) {
        PutEvent(xml, event);
    }
}

void PutTransport(Document& xml)
{
    Integer(xml, {"PayloadSize", "Bytes of an image on the wire"}, {});
    IntReg(xml, "PayloadSizeReg", cam::kPayloadSize, "RO");
    Open(xml, "Integer", {"TLParamsLocked", "1 while a consumer acquires images"});
    xml.Line("    <Value>0</Value>");
    xml.Line("    <Min>0</Min>");
    xml.Line("    <Max>1</Max>");
    Close(xml, "Integer");
    xml.Line("  <Port Name=\"Device\" NameSpace=\"Standard\"/>");
}

} // namespace

std::string DescriptionXml(const CameraConfig& config, const ManifestEntry& entry)
{
    Document xml;
    PutHead(xml, config, entry);
    PutCategories(xml, config.events);
    PutDeviceControl(xml);
    PutSize(xml);
    PutImageFormat(xml);
    PutAcquisition(xml);
    PutTrigger(xml);
    PutChunks(xml);
    if (config.events) {
        PutEvents(xml);
    }
    PutTransport(xml);
    xml.Line("</RegisterDescription>");
    return xml.Take();
}

std::string DescriptionName(const CameraConfig& config)
{
    return Plain(config.model) + "_v" + Plain(config.version) + ".xml";
}

} // namespace vcam
