#include <algorithm>
#include <array>

#include "tool_acquisition.h"
#include "tool_camera_list.h"
#include "tool_commands.h"
#include "tool_description.h"
#include "tool_json.h"
#include "tool_producer.h"

namespace {

Json JsonOf(const CameraRecord& camera)
{
    return {{"guid", camera.id},
            {"vendor", camera.vendor},
            {"model", camera.model},
            {"serial", camera.serial},
            {"user_name", camera.userName},
            {"version", camera.version},
            {"display_name", camera.displayName},
            {"tl_type", camera.tlType},
            {"access", AccessName(camera.access)}};
}

constexpr size_t kColumns = 6;
using Row = std::array<std::string, kColumns>;

Row RowOf(const CameraRecord& camera)
{
    return {Printable(camera.id),     Printable(camera.vendor),   Printable(camera.model),
            Printable(camera.serial), Printable(camera.userName), AccessName(camera.access)};
}

// Columns as wide as their widest entry.
std::string Table(const std::vector<Row>& rows)
{
    std::array<size_t, kColumns> widths{};
    for (const Row& row : rows) {
        for (size_t i = 0; i < kColumns; i++) {
            widths[i] = std::max(widths[i], row[i].size());
        }
    }
    std::string text;
    for (const Row& row : rows) {
        std::string line;
        for (size_t i = 0; i < kColumns; i++) {
            line += row[i] + std::string(widths[i] - row[i].size() + 2, ' ');
        }
        text += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
    }
    return text;
}

// ---- info -------------------------------------------------------------------------------------

// A value of a GetInfo family and the name that it has in the output.
template <class Command>
struct Item
{
    const char* name;
    Command command;
};

constexpr Item<TL_INFO_CMD> kProducerItems[] = {
    {"id", TL_INFO_ID},          {"vendor", TL_INFO_VENDOR},
    {"model", TL_INFO_MODEL},    {"version", TL_INFO_VERSION},
    {"tl_type", TL_INFO_TLTYPE}, {"name", TL_INFO_NAME},
    {"path", TL_INFO_PATHNAME},  {"display_name", TL_INFO_DISPLAYNAME},
};
constexpr Item<PORT_INFO_CMD> kPortItems[] = {
    {"id", PORT_INFO_ID},
    {"vendor", PORT_INFO_VENDOR},
    {"model", PORT_INFO_MODEL},
    {"tl_type", PORT_INFO_TLTYPE},
    {"module", PORT_INFO_MODULE},
    {"version", PORT_INFO_VERSION},
    {"port_name", PORT_INFO_PORTNAME},
};

// What a module does not answer is an empty text, so that every name is always there.
Json ProducerInfo(const Session& session)
{
    const Producer& api = session.Api();
    Json json{{"file", api.File().string()}};
    for (const auto& item : kProducerItems) {
        const auto text = consumer::FindText([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
            return api.TLGetInfo(session.System(), item.command, type, buffer, size);
        });
        json[item.name] = text.value_or("");
    }
    const auto number = [&](TL_INFO_CMD command) {
        const auto ask = [&](INFO_DATATYPE* type, void* buffer, size_t* size) {
            return api.GCGetInfo(command, type, buffer, size);
        };
        return consumer::FindValue<uint32_t>(ask).value_or(0);
    };
    json["gentl_version"] =
        Format("%u.%u", number(TL_INFO_GENTL_VER_MAJOR), number(TL_INFO_GENTL_VER_MINOR));
    return json;
}

// The URL is the one value that can fail: a camera has to be read for it.
Json PortInfo(const Producer& api, PORT_HANDLE port)
{
    Json json = Json::object();
    for (const auto& item : kPortItems) {
        const auto text = consumer::FindText([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
            return api.GCGetPortInfo(port, item.command, type, buffer, size);
        });
        json[item.name] = text.value_or("");
    }
    try {
        json["url"] = consumer::FirstUrl(api, port);
    } catch (const GenTLError& error) {
        json["url"] = nullptr;
        Warn(error.what());
    }
    return json;
}

// The register has one bit for each speed; the highest counts.
const char* SpeedName(uint32_t speed)
{
    return (speed & 16U) != 0  ? "SuperSpeedPlus"
           : (speed & 8U) != 0 ? "SuperSpeed"
           : (speed & 4U) != 0 ? "high speed"
           : (speed & 2U) != 0 ? "full speed"
           : (speed & 1U) != 0 ? "low speed"
                               : "unknown";
}

Json StreamInfo(const Camera& camera)
{
    const StreamNeeds needs = ReadStreamNeeds(camera);
    return {{"payload_size", needs.payload},
            {"leader_size", needs.leader},
            {"trailer_size", needs.trailer},
            {"alignment_exponent", needs.alignmentExponent},
            {"usb_speed", SpeedName(needs.speed)}};
}

// A section per module, a line per value.
std::string Sections(const Json& json)
{
    std::string text;
    for (const auto& [section, values] : json.items()) {
        text += (text.empty() ? "" : "\n") + section + "\n";
        for (const auto& [name, value] : values.items()) {
            const std::string shown =
                value.is_string() ? Printable(value.get<std::string>()) : value.dump();
            text += Format("  %-20s %s", name.c_str(), shown.c_str());
            text.erase(text.find_last_not_of(' ') + 1);
            text += "\n";
        }
    }
    return text;
}

Json CameraInfo(const Camera& camera, const CameraRecord& record)
{
    Json json = JsonOf(record);
    // Live values of the opened camera instead of those of the list.
    const auto access =
        consumer::FindValue<int32_t>([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
            return camera.Api().DevGetInfo(camera.Device(), DEVICE_INFO_ACCESS_STATUS, type, buffer,
                                           size);
        });
    json["access"] = AccessName(access.value_or(DEVICE_ACCESS_STATUS_UNKNOWN));
    return json;
}

} // namespace

// An empty list is a failure with a code of its own, so that a script can wait for a camera.
ExitCode RunList(const Options& options, Console& console)
{
    const Producer producer = LoadProducer(options);
    const Session session(producer, {.update_ms = options.discovery_ms});
    const std::vector<CameraRecord> cameras = ListCameras(session);
    if (options.json) {
        Json json = Json::array();
        for (const CameraRecord& camera : cameras) {
            json.push_back(JsonOf(camera));
        }
        PrintJson(console, json);
    } else if (!cameras.empty()) {
        std::vector<Row> rows;
        if (!options.quiet) {
            rows.push_back({"GUID", "VENDOR", "MODEL", "SERIAL", "USER NAME", "ACCESS"});
        }
        for (const CameraRecord& camera : cameras) {
            rows.push_back(RowOf(camera));
        }
        console.Print(Table(rows));
    }
    if (cameras.empty()) {
        throw ToolError(ExitCode::NoCamera, "no camera found (zr-u3v doctor tells why)");
    }
    for (const CameraRecord& camera : cameras) {
        if (camera.id.empty()) {
            Warn("a camera does not tell its GUID, most likely for want of permission: run zr-u3v "
                 "doctor");
        }
    }
    return ExitCode::Success;
}

// A camera without a stream is told of as far as it goes.
ExitCode RunInfo(const Options& options, Console& console)
{
    const Producer producer = LoadProducer(options);
    const Session session(producer, {.update_ms = options.discovery_ms});
    Json json{{"producer", ProducerInfo(session)},
              {"interface", PortInfo(producer, session.Interface())}};
    const CameraRecord record = SelectCamera(session, options.camera);
    const Camera camera(session, record.id, DEVICE_ACCESS_READONLY);
    json["camera"] = CameraInfo(camera, record);
    json["device_port"] = PortInfo(producer, camera.Device());
    json["camera_port"] = PortInfo(producer, camera.Port());
    try {
        json["stream"] = StreamInfo(camera);
    } catch (const std::runtime_error& error) {
        Warn(error.what());
        json["stream"] = Json::object();
    }
    if (options.json) {
        PrintJson(console, json);
    } else {
        console.Print(Sections(json));
    }
    return ExitCode::Success;
}
