#include "tool_camera_list.h"

#include <algorithm>
#include <charconv>

#include "tool_console.h"
#include "tool_error.h"

namespace {

// "#2" is 2; 0 for anything else.
size_t Ordinal(const std::string& wanted)
{
    size_t number = 0;
    if (wanted.size() < 2 || wanted.front() != '#') {
        return 0;
    }
    const char* const end = wanted.data() + wanted.size();
    const auto result = std::from_chars(wanted.data() + 1, end, number);
    return result.ec == std::errc() && result.ptr == end ? number : 0;
}

// One line of a list to choose from. What a camera lacks is left out.
std::string Describe(const CameraRecord& camera)
{
    return Format("\n  %s  %s %s, serial %s%s%s", camera.id.empty() ? "?" : camera.id.c_str(),
                  camera.vendor.c_str(), camera.model.c_str(), camera.serial.c_str(),
                  camera.userName.empty() ? "" : ", ", camera.userName.c_str());
}

// The list stands below the reason, so that the next command can be typed from it.
[[noreturn]] void RefuseSelection(const std::string& reason, const std::vector<CameraRecord>& list)
{
    std::string text = reason;
    for (const CameraRecord& camera : list) {
        text += Printable(Describe(camera).substr(1)).insert(0, "\n");
    }
    throw ToolError(ExitCode::NoCamera, text);
}

// A camera that cannot be asked has empty texts: the list shows it all the same.
CameraRecord RecordOf(const Session& session, const std::string& id)
{
    const auto text = [&](DEVICE_INFO_CMD command) {
        return consumer::FindText(session.CameraQuery(id, command)).value_or("");
    };
    CameraRecord record;
    record.id = id;
    record.vendor = text(DEVICE_INFO_VENDOR);
    record.model = text(DEVICE_INFO_MODEL);
    record.serial = text(DEVICE_INFO_SERIAL_NUMBER);
    record.userName = text(DEVICE_INFO_USER_DEFINED_NAME);
    record.displayName = text(DEVICE_INFO_DISPLAYNAME);
    record.version = text(DEVICE_INFO_VERSION);
    record.tlType = text(DEVICE_INFO_TLTYPE);
    record.access = consumer::FindValue<int32_t>(session.CameraQuery(id, DEVICE_INFO_ACCESS_STATUS))
                        .value_or(DEVICE_ACCESS_STATUS_UNKNOWN);
    return record;
}

} // namespace

const char* AccessName(DEVICE_ACCESS_STATUS access)
{
    switch (access) {
    case DEVICE_ACCESS_STATUS_READWRITE: return "read/write";
    case DEVICE_ACCESS_STATUS_READONLY: return "read only";
    case DEVICE_ACCESS_STATUS_NOACCESS: return "no access";
    case DEVICE_ACCESS_STATUS_BUSY: return "busy";
    case DEVICE_ACCESS_STATUS_OPEN_READWRITE: return "open read/write";
    case DEVICE_ACCESS_STATUS_OPEN_READONLY: return "open read only";
    default: return "unknown";
    }
}

std::vector<CameraRecord> ListCameras(const Session& session)
{
    std::vector<CameraRecord> cameras;
    for (const std::string& id : session.CameraIds()) {
        cameras.push_back(RecordOf(session, id));
    }
    return cameras;
}

// Never a guess: a wish that fits two cameras is refused like one that fits none.
CameraRecord SelectCamera(const Session& session, const std::string& wanted)
{
    const std::vector<CameraRecord> cameras = ListCameras(session);
    if (cameras.empty()) {
        throw ToolError(ExitCode::NoCamera, "no camera found (zr-u3v doctor tells why)");
    }
    if (wanted.empty()) {
        if (cameras.size() > 1) {
            RefuseSelection("several cameras, choose one with --camera:", cameras);
        }
        return cameras.front();
    }
    if (const size_t number = Ordinal(wanted); number > 0 && number <= cameras.size()) {
        return cameras[number - 1];
    }
    const auto fits = [&](const CameraRecord& camera) {
        return camera.id == wanted || camera.serial == wanted || camera.userName == wanted;
    };
    const auto found = std::find_if(cameras.begin(), cameras.end(), fits);
    if (found == cameras.end()) {
        RefuseSelection("no camera \"" + wanted + "\"; there are:", cameras);
    }
    if (std::count_if(found, cameras.end(), fits) > 1) {
        RefuseSelection("more than one camera is \"" + wanted + "\":", cameras);
    }
    return *found;
}
