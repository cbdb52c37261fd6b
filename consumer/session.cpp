#include "session.h"

#include <thread>

namespace consumer {

Session::Session(const Producer& producer, const Search& search) : m_producer(producer)
{
    // The destructor does not run for an object whose constructor throws.
    try {
        GENTL_CALL(m_producer, TLOpen, &m_system);
        GENTL_CALL(m_producer, TLUpdateInterfaceList, m_system, nullptr, 0);
        _openInterface(search);
    } catch (...) {
        _close();
        throw;
    }
}

Session::~Session()
{
    _close();
}

void Session::_close()
{
    if (m_interface != nullptr) {
        GENTL_CLOSE(m_producer, IFClose, m_interface);
    }
    if (m_system != nullptr) {
        GENTL_CLOSE(m_producer, TLClose, m_system);
    }
}

void Session::_openInterface(const Search& search)
{
    m_interfaceId =
        m_producer.Text("TLGetInterfaceID", [&](INFO_DATATYPE*, void* text, size_t* size) {
            return m_producer.TLGetInterfaceID(m_system, 0, static_cast<char*>(text), size);
        });
    GENTL_CALL(m_producer, TLOpenInterface, m_system, m_interfaceId.c_str(), &m_interface);
    // The list belongs to the interface: devices open only through the one that was updated.
    Update(search);
}

void Session::ReopenInterface(const Search& search)
{
    IF_HANDLE const interface = m_interface;
    m_interface = nullptr; // some producers refuse a variable that looks taken
    GENTL_CALL(m_producer, IFClose, interface);
    _openInterface(search);
}

size_t Session::_listed() const
{
    uint32_t count = 0;
    GENTL_CALL(m_producer, IFGetNumDevices, m_interface, &count);
    return count;
}

// More than one call for two reasons: a pass over a full bus or on a busy machine may outlive the
// time-out, which GC_ERR_TIMEOUT tells and the next call makes up for; and a camera that was
// plugged in just now needs a moment until the system shows it.
bool Session::Update(const Search& search) const
{
    constexpr std::chrono::milliseconds kPause{10}; // not every producer takes the time it is given
    const auto end = std::chrono::steady_clock::now() + search.patience;
    bool anyChanged = false;
    bool anyDone = false;
    for (;;) {
        bool8_t changed = false;
        const GC_ERROR status =
            m_producer.IFUpdateDeviceList(m_interface, &changed, search.update_ms);
        anyChanged = anyChanged || changed;
        const bool isOver = std::chrono::steady_clock::now() >= end;
        anyDone = anyDone || status == GC_ERR_SUCCESS;
        if (status != GC_ERR_TIMEOUT || (isOver && !anyDone)) {
            m_producer.Check(status, "IFUpdateDeviceList");
        }
        if (isOver || (status == GC_ERR_SUCCESS && _listed() >= search.cameras)) {
            return anyChanged;
        }
        std::this_thread::sleep_for(kPause);
    }
}

std::vector<std::string> Session::CameraIds() const
{
    std::vector<std::string> ids;
    const auto count = static_cast<uint32_t>(_listed());
    for (uint32_t i = 0; i < count; i++) {
        ids.push_back(
            m_producer.Text("IFGetDeviceID", [&](INFO_DATATYPE*, void* text, size_t* size) {
                return m_producer.IFGetDeviceID(m_interface, i, static_cast<char*>(text), size);
            }));
    }
    return ids;
}

std::string Session::CameraText(const std::string& id, DEVICE_INFO_CMD command) const
{
    return m_producer.Text("IFGetDeviceInfo", CameraQuery(id, command));
}

Camera::Camera(const Session& session, const std::string& id, DEVICE_ACCESS_FLAGS access)
    : m_session(session)
{
    GENTL_CALL(Api(), IFOpenDevice, session.Interface(), id.c_str(), access, &m_device);
    const GC_ERROR status = Api().DevGetPort(m_device, &m_port);
    if (status != GC_ERR_SUCCESS) {
        Api().DevClose(m_device);
        Api().Check(status, "DevGetPort");
    }
}

Camera::~Camera()
{
    GENTL_CLOSE(Api(), DevClose, m_device);
}

void Camera::Read(uint64_t address, void* data, size_t size) const
{
    GENTL_CALL(Api(), GCReadPort, m_port, address, data, &size);
}

void Camera::Write(uint64_t address, const void* data, size_t size) const
{
    GENTL_CALL(Api(), GCWritePort, m_port, address, data, &size);
}

DataStream::DataStream(const Camera& camera) : m_camera(camera)
{
    const std::string id =
        Api().Text("DevGetDataStreamID", [&](INFO_DATATYPE*, void* text, size_t* size) {
            return Api().DevGetDataStreamID(camera.Device(), 0, static_cast<char*>(text), size);
        });
    GENTL_CALL(Api(), DevOpenDataStream, camera.Device(), id.c_str(), &m_handle);
}

DataStream::~DataStream()
{
    GENTL_CLOSE(Api(), DSClose, m_handle);
}

} // namespace consumer
