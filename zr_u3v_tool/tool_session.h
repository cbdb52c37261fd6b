#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tool_producer.h"

// One camera as the producer lists it. Strings are the camera's own and not yet fit for a terminal.
struct CameraRecord
{
    std::string id; // the GUID; empty for a camera that could not be opened to ask it
    std::string vendor;
    std::string model;
    std::string serial;
    std::string userName;
    std::string displayName;
    std::string version;
    std::string tlType;
    DEVICE_ACCESS_STATUS access = DEVICE_ACCESS_STATUS_UNKNOWN;
};

// "read/write", "no access", ...
const char* AccessName(DEVICE_ACCESS_STATUS access);

// The open System and its interface, with the list of cameras as of the last update. Closed in the
// order the producer wants by the destructor.
class Session
{
public:
    // `discovery_ms` is how long the bus is watched: the producer takes all of it.
    Session(const Producer& producer, uint64_t discovery_ms);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    const Producer& Api() const { return m_producer; }
    TL_HANDLE System() const { return m_system; }
    IF_HANDLE Interface() const { return m_interface; }
    const std::string& InterfaceId() const { return m_interfaceId; }
    const std::vector<CameraRecord>& Cameras() const { return m_cameras; }

    // The camera whose GUID, serial number or user name is `wanted`, or "#n" for the n-th of the
    // list; without a wish the only one. Throws ToolError (NoCamera).
    const CameraRecord& Select(const std::string& wanted) const;

private:
    void _open(uint64_t discovery_ms);
    void _updateDevices(uint64_t discovery_ms);
    void _close();
    CameraRecord _record(const std::string& id) const;

    const Producer& m_producer;
    TL_HANDLE m_system = nullptr;
    IF_HANDLE m_interface = nullptr;
    std::string m_interfaceId;
    std::vector<CameraRecord> m_cameras;
};

// An opened camera with its own register port.
class Camera
{
public:
    Camera(const Session& session, const std::string& id, DEVICE_ACCESS_FLAGS access);
    ~Camera();
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    const Session& Parent() const { return m_session; }
    const Producer& Api() const { return m_session.Api(); }
    DEV_HANDLE Device() const { return m_device; }
    PORT_HANDLE Port() const { return m_port; }

    template <class T>
    T Read(uint64_t address) const
    {
        T value{};
        size_t size = sizeof value;
        GENTL_CALL(Api(), GCReadPort, m_port, address, &value, &size);
        return value;
    }
    template <class T>
    void Write(uint64_t address, T value) const
    {
        size_t size = sizeof value;
        GENTL_CALL(Api(), GCWritePort, m_port, address, &value, &size);
    }

private:
    const Session& m_session;
    DEV_HANDLE m_device = nullptr;
    PORT_HANDLE m_port = nullptr;
};

// The opened data stream of a camera (claims its streaming interface).
class DataStream
{
public:
    explicit DataStream(const Camera& camera);
    ~DataStream();
    DataStream(const DataStream&) = delete;
    DataStream& operator=(const DataStream&) = delete;

    const Camera& Owner() const { return m_camera; }
    const Producer& Api() const { return m_camera.Api(); }
    DS_HANDLE Handle() const { return m_handle; }

private:
    const Camera& m_camera;
    DS_HANDLE m_handle = nullptr;
};

// One answer of a GetInfo family, as text; nothing when the module does not answer the command.
template <class Query>
std::optional<std::string> QueryText(const Query& query)
{
    INFO_DATATYPE type = 0;
    size_t size = 0;
    if (query(&type, nullptr, &size) != GC_ERR_SUCCESS || size == 0) {
        return std::nullopt;
    }
    std::string text(size, '\0');
    if (query(&type, text.data(), &size) != GC_ERR_SUCCESS) {
        return std::nullopt;
    }
    return std::string(text.c_str());
}

template <class T, class Query>
std::optional<T> QueryValue(const Query& query)
{
    T value{};
    INFO_DATATYPE type = 0;
    size_t size = sizeof value;
    if (query(&type, &value, &size) != GC_ERR_SUCCESS) {
        return std::nullopt;
    }
    return value;
}

// Text of an identifying call (index in, id out).
template <class Call>
std::string QueryId(const Producer& api, const char* name, const Call& call)
{
    size_t size = 0;
    api.Check(call(nullptr, &size), name);
    std::string id(size, '\0');
    api.Check(call(id.data(), &size), name);
    id.resize(std::min(id.size(), id.find('\0')));
    return id;
}
