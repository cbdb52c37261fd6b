#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

#include "producer.h"

namespace consumer {

// What is looked for and how long.
struct Search
{
    uint64_t update_ms = 500; // time-out of one IFUpdateDeviceList; a producer may take all of it
    size_t cameras = 0;       // look again until there are so many in the list
    std::chrono::seconds patience{15}; // but no longer than that
};

// The open System and its first interface, with a list of cameras that has been updated once.
class Session
{
public:
    explicit Session(const Producer& producer, const Search& search = {});
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    const Producer& Api() const { return m_producer; }
    TL_HANDLE System() const { return m_system; }
    IF_HANDLE Interface() const { return m_interface; }
    const std::string& InterfaceId() const { return m_interfaceId; }

    // Updates the list; whether it changed. Throws GenTLError when no update succeeds in time; a
    // list with fewer cameras than were looked for is no error.
    bool Update(const Search& search = {}) const;
    // Closes the interface, opens it anew and updates the list.
    void ReopenInterface(const Search& search = {});

    // The list as of the last update.
    std::vector<std::string> CameraIds() const;
    std::string CameraText(const std::string& id, DEVICE_INFO_CMD command) const;
    // The query of one value, for FindText and FindValue. It refers to `id`.
    auto CameraQuery(const std::string& id, DEVICE_INFO_CMD command) const
    {
        return [this, &id, command](INFO_DATATYPE* type, void* buffer, size_t* size) {
            return m_producer.IFGetDeviceInfo(m_interface, id.c_str(), command, type, buffer, size);
        };
    }
    template <class T>
    T CameraValue(const std::string& id, DEVICE_INFO_CMD command) const
    {
        return m_producer.Value<T>("IFGetDeviceInfo", CameraQuery(id, command));
    }

private:
    void _openInterface(const Search& search);
    void _close();
    size_t _listed() const;

    const Producer& m_producer;
    TL_HANDLE m_system = nullptr;
    IF_HANDLE m_interface = nullptr;
    std::string m_interfaceId;
};

// An opened camera with the port of its registers.
class Camera
{
public:
    Camera(const Session& session, const std::string& id,
           DEVICE_ACCESS_FLAGS access = DEVICE_ACCESS_EXCLUSIVE);
    ~Camera();
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    const Session& Parent() const { return m_session; }
    const Producer& Api() const { return m_session.Api(); }
    DEV_HANDLE Device() const { return m_device; }
    PORT_HANDLE Port() const { return m_port; }

    // Registers of the camera, values in the camera's byte order (little-endian). Throw GenTLError.
    void Read(uint64_t address, void* data, size_t size) const;
    void Write(uint64_t address, const void* data, size_t size) const;
    template <class T>
    T Read(uint64_t address) const
    {
        T value{};
        Read(address, &value, sizeof value);
        return value;
    }
    template <class T>
    void Write(uint64_t address, T value) const
    {
        Write(address, &value, sizeof value);
    }

private:
    const Session& m_session;
    DEV_HANDLE m_device = nullptr;
    PORT_HANDLE m_port = nullptr;
};

// An opened data stream of a camera: its first one, as cameras have no other.
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
    template <class T>
    T Info(STREAM_INFO_CMD command) const
    {
        return Api().Value<T>("DSGetInfo", [&](INFO_DATATYPE* type, void* buffer, size_t* size) {
            return Api().DSGetInfo(m_handle, command, type, buffer, size);
        });
    }

private:
    const Camera& m_camera;
    DS_HANDLE m_handle = nullptr;
};

} // namespace consumer
