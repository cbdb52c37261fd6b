#include "remote_port.h"

#include "failure.h"

namespace standard_tl {

// "Device" whatever the camera's file calls its port: consumers connect it by that name.
PortFacts RemotePort::Port()
{
    const u3v_host::CameraInfo info = m_camera.Info();
    const bool isThere = !m_camera.IsGone();
    const bool isWritable = isThere && m_camera.Mode() == u3v_host::OpenMode::ReadWrite;
    return {info.id,  info.vendor, info.model, info.version,
            "Device", "Device",    isThere,    isWritable};
}

void RemotePort::Read(uint64_t address, std::span<uint8_t> destination, size_t& done)
{
    m_camera.Read(address, destination, done);
}

void RemotePort::Write(uint64_t address, Bytes source, size_t& done)
{
    if (m_camera.Mode() == u3v_host::OpenMode::ReadOnly) {
        throw Failure(GC_ERR_ACCESS_DENIED, "the camera is open for reading only");
    }
    m_camera.Write(address, source, done);
}

} // namespace standard_tl
