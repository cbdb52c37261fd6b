#include "description_file.h"

#include <cctype>
#include <cstdarg>
#include <cstdio>

#include "camera_layout.h"
#include "pixel_format.h"

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
    bool locked = false; // not to be changed while images are sent
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
}

void Close(Document& xml, const char* node)
{
    xml.Line("  </%s>", node);
}

void Category(Document& xml, const char* name, std::initializer_list<const char*> features)
{
    xml.Line("  <Category Name=\"%s\" NameSpace=\"Standard\">", name);
    for (const char* feature : features) {
        xml.Line("    <pFeature>%s</pFeature>", feature);
    }
    Close(xml, "Category");
}

// What every kind of register node has: place, access, port, caching.
void RegisterPlace(Document& xml, std::uint64_t address, std::size_t length, const char* access)
{
    xml.Line("    <Address>0x%llX</Address>", static_cast<unsigned long long>(address));
    xml.Line("    <Length>%zu</Length>", length);
    xml.Line("    <AccessMode>%s</AccessMode>", access);
    xml.Line("    <pPort>Device</pPort>");
    xml.Line("    <Cachable>NoCache</Cachable>");
}

template <typename T>
void IntReg(Document& xml, const char* name, Register<T> place, const char* access)
{
    xml.Line("  <IntReg Name=\"%s\">", name);
    RegisterPlace(xml, place.address, sizeof(T), access);
    xml.Line("    <Sign>Unsigned</Sign>");
    xml.Line("    <Endianess>LittleEndian</Endianess>");
    Close(xml, "IntReg");
}

void FloatReg(Document& xml, const char* name, Register<std::uint32_t> place)
{
    xml.Line("  <FloatReg Name=\"%s\">", name);
    RegisterPlace(xml, place.address, sizeof(float), "RW");
    xml.Line("    <Endianess>LittleEndian</Endianess>");
    Close(xml, "FloatReg");
}

void StringReg(Document& xml, const Feature& feature, std::uint64_t address, const char* access)
{
    Open(xml, "StringReg", feature);
    RegisterPlace(xml, address, abrm::kStringSize, access);
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
void Enumeration(Document& xml, const Feature& feature, const Entries& entries)
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
    xml.Line("    <pValue>%sReg</pValue>", feature.name);
    Close(xml, "Enumeration");
}

void PutHead(Document& xml, const CameraConfig& config)
{
    xml.Line("<?xml version=\"1.0\" encoding=\"UTF-8\"?>");
    xml.Line("<RegisterDescription ModelName=\"%s\" VendorName=\"%s\"", Plain(config.model).c_str(),
             Plain(config.vendor).c_str());
    xml.Line("  ToolTip=\"Simulated USB3 Vision camera\" StandardNameSpace=\"USB\"");
    xml.Line("  SchemaMajorVersion=\"1\" SchemaMinorVersion=\"1\" SchemaSubMinorVersion=\"0\"");
    xml.Line("  MajorVersion=\"1\" MinorVersion=\"0\" SubMinorVersion=\"0\"");
    xml.Line("  ProductGuid=\"6F2B1C5E-20F4-4B1C-9D55-0C1B0F5E7A10\"");
    xml.Line("  VersionGuid=\"B8A5D0C2-7E36-4F0A-8E21-6A4D93C2F701\"");
    xml.Line("  xmlns=\"http://www.genicam.org/GenApi/Version_1_1\"");
    xml.Line("  xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\"");
    xml.Line("  xsi:schemaLocation=\"http://www.genicam.org/GenApi/Version_1_1 "
             "http://www.genicam.org/GenApi/GenApiSchema_Version_1_1.xsd\">");
}

void PutCategories(Document& xml)
{
    Category(
        xml, "Root",
        {"DeviceControl", "ImageFormatControl", "AcquisitionControl", "TransportLayerControl"});
    Category(xml, "DeviceControl",
             {"DeviceVendorName", "DeviceModelName", "DeviceFamilyName", "DeviceVersion",
              "DeviceManufacturerInfo", "DeviceSerialNumber", "DeviceUserID", "DeviceReset",
              "TimestampLatch", "TimestampLatchValue"});
    Category(xml, "ImageFormatControl",
             {"SensorWidth", "SensorHeight", "Width", "Height", "OffsetX", "OffsetY", "PixelFormat",
              "TestPattern"});
    Category(xml, "AcquisitionControl",
             {"AcquisitionMode", "AcquisitionStart", "AcquisitionStop", "AcquisitionFrameCount",
              "AcquisitionFrameRate", "ExposureTime", "Gain", "TriggerMode", "TriggerSource",
              "TriggerSoftware"});
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
    Command(xml, {"DeviceReset", "Restarts the device"}, "ResetReg", cam::kResetMagic);
    IntReg(xml, "ResetReg", cam::kReset, "WO");
    Command(xml, {"TimestampLatch", "Latches the time stamp counter"}, "TimestampLatchReg", 1);
    IntReg(xml, "TimestampLatchReg", abrm::kTimestampLatch, "WO");
    Integer(xml, {"TimestampLatchValue", "The latched time stamp in ns"}, {});
    IntReg(xml, "TimestampLatchValueReg", abrm::kTimestamp, "RO");
}

void PutSize(Document& xml)
{
    Integer(xml, {"SensorWidth", "Width of the sensor in pixels"}, {});
    IntReg(xml, "SensorWidthReg", cam::kSensorWidth, "RO");
    Integer(xml, {"SensorHeight", "Height of the sensor in pixels"}, {});
    IntReg(xml, "SensorHeightReg", cam::kSensorHeight, "RO");
    Integer(xml, {"Width", "Width of the image in pixels", true},
            {"<Min>1</Min>", "<pMax>SensorWidth</pMax>", "<Inc>1</Inc>"});
    IntReg(xml, "WidthReg", cam::kWidth, "RW");
    Integer(xml, {"Height", "Height of the image in pixels", true},
            {"<Min>1</Min>", "<pMax>SensorHeight</pMax>", "<Inc>1</Inc>"});
    IntReg(xml, "HeightReg", cam::kHeight, "RW");
    Integer(xml, {"OffsetX", "First column of the image", true},
            {"<Min>0</Min>", "<Max>16384</Max>", "<Inc>1</Inc>"});
    IntReg(xml, "OffsetXReg", cam::kOffsetX, "RW");
    Integer(xml, {"OffsetY", "First row of the image", true},
            {"<Min>0</Min>", "<Max>16384</Max>", "<Inc>1</Inc>"});
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
    FloatReg(xml, "AcquisitionFrameRateReg", cam::kFrameRate);
    Float(xml, {"ExposureTime", "Exposure time"}, 1, 1000000, "us");
    FloatReg(xml, "ExposureTimeReg", cam::kExposureTime);
    Float(xml, {"Gain", "Gain"}, 0, 48, "dB");
    FloatReg(xml, "GainReg", cam::kGain);
}

void PutTrigger(Document& xml)
{
    constexpr Entry kOnOff[] = {{"Off", 0}, {"On", 1}};
    Enumeration(xml, {"TriggerMode", "On: an image for every trigger"}, kOnOff);
    IntReg(xml, "TriggerModeReg", cam::kTriggerMode, "RW");
    constexpr Entry kSources[] = {{"Software", 0}};
    Enumeration(xml, {"TriggerSource", "Where triggers come from"}, kSources);
    IntReg(xml, "TriggerSourceReg", cam::kTriggerSource, "RW");
    Command(xml, {"TriggerSoftware", "Triggers an image"}, "TriggerSoftwareReg", 1);
    IntReg(xml, "TriggerSoftwareReg", cam::kTriggerSoftware, "WO");
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

std::string DescriptionXml(const CameraConfig& config)
{
    Document xml;
    PutHead(xml, config);
    PutCategories(xml);
    PutDeviceControl(xml);
    PutSize(xml);
    PutImageFormat(xml);
    PutAcquisition(xml);
    PutTrigger(xml);
    PutTransport(xml);
    xml.Line("</RegisterDescription>");
    return xml.Take();
}

std::string DescriptionName(const CameraConfig& config)
{
    return Plain(config.model) + "_v" + Plain(config.version) + ".xml";
}

} // namespace vcam
