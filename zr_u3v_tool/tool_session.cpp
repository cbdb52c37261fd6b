#include "tool_session.h"

#include <algorithm>
#include <charconv>
#include <chrono>

#include "tool_console.h"

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

Session::Session(const Producer& producer, uint64_t discovery_ms) : m_producer(producer)
{
    try {
        _open(discovery_ms);
    } catch (...) {
        _close();
        throw;
    }
}

Session::~Session()
{
    _close();
}

void Session::_open(uint64_t discovery_ms)
{
    GENTL_CALL(m_producer, TLOpen, &m_system);
    GENTL_CALL(m_producer, TLUpdateInterfaceList, m_system, nullptr, 0);
    m_interfaceId = QueryId(m_producer, "TLGetInterfaceID", [&](char* id, size_t* size) {
        return m_producer.TLGetInterfaceID(m_system, 0, id, size);
    });
    GENTL_CALL(m_producer, TLOpenInterface, m_system, m_interfaceId.c_str(), &m_interface);
    // The list belongs to the interface: devices open only through the one that was updated.
    _updateDevices(discovery_ms);
    uint32_t count = 0;
    GENTL_CALL(m_producer, IFGetNumDevices, m_interface, &count);
    for (uint32_t i = 0; i < count; i++) {
        m_cameras.push_back(
            _record(QueryId(m_producer, "IFGetDeviceID", [&](char* id, size_t* size) {
                return m_producer.IFGetDeviceID(m_interface, i, id, size);
            })));
    }
}

// A pass over a full bus or on a busy machine may take longer than was meant; then once more, but
// not for ever on a bus that hangs.
void Session::_updateDevices(uint64_t discovery_ms)
{
    constexpr std::chrono::seconds kPatience{15};
    const auto end = std::chrono::steady_clock::now() + kPatience;
    GC_ERROR status = GC_ERR_TIMEOUT;
    do {
        status = m_producer.IFUpdateDeviceList(m_interface, nullptr, discovery_ms);
    } while (status == GC_ERR_TIMEOUT && std::chrono::steady_clock::now() < end);
    m_producer.Check(status, "IFUpdateDeviceList");
}

// Also of a session that could only be opened in part.
void Session::_close()
{
    if (m_interface != nullptr) {
        m_producer.IFClose(m_interface);
    }
    if (m_system != nullptr) {
        m_producer.TLClose(m_system);
    }
}

// A camera that cannot be asked has empty texts: the list shows it all the same.
CameraRecord Session::_record(const std::string& id) const
{
    const auto ask = [&](DEVICE_INFO_CMD command) {
        return [this, &id, command](INFO_DATATYPE* type, void* buffer, size_t* size) {
            return m_producer.IFGetDeviceInfo(m_interface, id.c_str(), command, type, buffer, size);
        };
    };
    CameraRecord record;
    record.id = id;
    record.vendor = QueryText(ask(DEVICE_INFO_VENDOR)).value_or("");
    record.model = QueryText(ask(DEVICE_INFO_MODEL)).value_or("");
    record.serial = QueryText(ask(DEVICE_INFO_SERIAL_NUMBER)).value_or("");
    record.userName = QueryText(ask(DEVICE_INFO_USER_DEFINED_NAME)).value_or("");
    record.displayName = QueryText(ask(DEVICE_INFO_DISPLAYNAME)).value_or("");
    record.version = QueryText(ask(DEVICE_INFO_VERSION)).value_or("");
    record.tlType = QueryText(ask(DEVICE_INFO_TLTYPE)).value_or("");
    record.access = QueryValue<int32_t>(ask(DEVICE_INFO_ACCESS_STATUS)).value_or(0);
    return record;
}

// Never a guess: a wish that fits two cameras is refused like one that fits none.
const CameraRecord& Session::Select(const std::string& wanted) const
{
    if (m_cameras.empty()) {
        throw ToolError(ExitCode::NoCamera, "no camera found (zr-u3v doctor tells why)");
    }
    if (wanted.empty()) {
        if (m_cameras.size() > 1) {
            RefuseSelection("several cameras, choose one with --camera:", m_cameras);
        }
        return m_cameras.front();
    }
    if (const size_t number = Ordinal(wanted); number > 0 && number <= m_cameras.size()) {
        return m_cameras[number - 1];
    }
    const auto fits = [&](const CameraRecord& camera) {
        return camera.id == wanted || camera.serial == wanted || camera.userName == wanted;
    };
    const auto found = std::find_if(m_cameras.begin(), m_cameras.end(), fits);
    if (found == m_cameras.end()) {
        RefuseSelection("no camera \"" + wanted + "\"; there are:", m_cameras);
    }
    if (std::count_if(found, m_cameras.end(), fits) > 1) {
        RefuseSelection("more than one camera is \"" + wanted + "\":", m_cameras);
    }
    return *found;
}

Camera::Camera(const Session& session, const std::string& id, DEVICE_ACCESS_FLAGS access)
    : m_session(session)
{
    const Producer& api = session.Api();
    GENTL_CALL(api, IFOpenDevice, session.Interface(), id.c_str(), access, &m_device);
    // The destructor does not run for an object whose constructor throws.
    const GC_ERROR status = api.DevGetPort(m_device, &m_port);
    if (status != GC_ERR_SUCCESS) {
        api.DevClose(m_device);
        api.Check(status, "DevGetPort");
    }
}

Camera::~Camera()
{
    Api().DevClose(m_device);
}

DataStream::DataStream(const Camera& camera) : m_camera(camera)
{
    const Producer& api = camera.Api();
    const std::string id = QueryId(api, "DevGetDataStreamID", [&](char* text, size_t* size) {
        return api.DevGetDataStreamID(camera.Device(), 0, text, size);
    });
    GENTL_CALL(api, DevOpenDataStream, camera.Device(), id.c_str(), &m_handle);
}

DataStream::~DataStream()
{
    Api().DSClose(m_handle);
}
