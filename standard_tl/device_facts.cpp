#include "device_facts.h"

#include "producer_facts.h"

namespace standard_tl {
namespace {

constexpr uint64_t kTimestampFrequency = 1000000000; // cameras count nanoseconds

Value Access(const DeviceFacts& facts)
{
    return static_cast<int32_t>(facts.access);
}

constexpr InfoTable<DeviceFacts, 10> kInfo{
    "device",
    {
        {DEVICE_INFO_ID, INFO_DATATYPE_STRING, [](DeviceFacts& d) -> Value { return d.info.id; }},
        {DEVICE_INFO_VENDOR, INFO_DATATYPE_STRING,
         [](DeviceFacts& d) -> Value { return d.info.vendor; }},
        {DEVICE_INFO_MODEL, INFO_DATATYPE_STRING,
         [](DeviceFacts& d) -> Value { return d.info.model; }},
        {DEVICE_INFO_TLTYPE, INFO_DATATYPE_STRING,
         [](DeviceFacts&) -> Value { return producer::kTlType; }},
        {DEVICE_INFO_DISPLAYNAME, INFO_DATATYPE_STRING,
         [](DeviceFacts& d) -> Value { return d.info.DisplayName(); }},
        {DEVICE_INFO_ACCESS_STATUS, INFO_DATATYPE_INT32, [](DeviceFacts& d) { return Access(d); }},
        {DEVICE_INFO_USER_DEFINED_NAME, INFO_DATATYPE_STRING,
         [](DeviceFacts& d) -> Value { return d.info.userDefinedName; }},
        {DEVICE_INFO_SERIAL_NUMBER, INFO_DATATYPE_STRING,
         [](DeviceFacts& d) -> Value { return d.info.serial; }},
        {DEVICE_INFO_VERSION, INFO_DATATYPE_STRING,
         [](DeviceFacts& d) -> Value { return d.info.version; }},
        {DEVICE_INFO_TIMESTAMP_FREQUENCY, INFO_DATATYPE_UINT64,
         [](DeviceFacts&) -> Value { return kTimestampFrequency; }},
    }};

struct TextRow
{
    const char* name;
    const char* toolTip;
    Value (*get)(const DeviceFacts& facts);
};

constexpr TextRow kTexts[] = {
    {"DeviceID", "Id of the camera", [](const DeviceFacts& d) -> Value { return d.info.id; }},
    {"DeviceVendorName", "Maker of the camera",
     [](const DeviceFacts& d) -> Value { return d.info.vendor; }},
    {"DeviceModelName", "Model of the camera",
     [](const DeviceFacts& d) -> Value { return d.info.model; }},
    {"DeviceSerialNumber", "Serial number of the camera",
     [](const DeviceFacts& d) -> Value { return d.info.serial; }},
    {"DeviceUserID", "Name that the user has given the camera",
     [](const DeviceFacts& d) -> Value { return d.info.userDefinedName; }},
    {"DeviceVersion", "Version of the camera",
     [](const DeviceFacts& d) -> Value { return d.info.version; }},
    {"DeviceDisplayName", "Name of the camera to show",
     [](const DeviceFacts& d) -> Value { return d.info.DisplayName(); }},
};

Feature AccessFeature(const char* category, std::function<DeviceFacts()> facts)
{
    return {.category = category,
            .name = "DeviceAccessStatus",
            .kind = FeatureKind::Choice,
            .toolTip = "Whether the camera can be opened, or how it is open",
            .get = [facts = std::move(facts)] { return Access(facts()); },
            .changes = true,
            .choices = {{"Unknown", DEVICE_ACCESS_STATUS_UNKNOWN},
                        {"ReadWrite", DEVICE_ACCESS_STATUS_READWRITE},
                        {"ReadOnly", DEVICE_ACCESS_STATUS_READONLY},
                        {"NoAccess", DEVICE_ACCESS_STATUS_NOACCESS},
                        {"Busy", DEVICE_ACCESS_STATUS_BUSY},
                        {"OpenReadWrite", DEVICE_ACCESS_STATUS_OPEN_READWRITE},
                        {"OpenReadOnly", DEVICE_ACCESS_STATUS_OPEN_READONLY}}};
}

} // namespace

GC_ERROR DeviceInfo(DeviceFacts facts, int32_t command, const InfoOut& out)
{
    return kInfo.Answer(facts, command, out);
}

std::vector<Feature> DeviceFeatures(const char* category, std::function<DeviceFacts()> facts)
{
    std::vector<Feature> features;
    for (const TextRow& row : kTexts) {
        features.push_back(TextFeature(
            category, row.name, row.toolTip, [facts, get = row.get] { return get(facts()); }, 256));
        features.back().changes = true; // the user may give it another name
    }
    features.push_back(TypeFeature(category, "DeviceType", "Technology of the camera"));
    features.push_back(AccessFeature(category, std::move(facts)));
    return features;
}

} // namespace standard_tl
