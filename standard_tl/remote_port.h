#pragma once

#include "camera.h"
#include "module.h"

namespace standard_tl {

// The port of the camera itself.
class RemotePort final : public Module
{
public:
    RemotePort(Node& device, u3v_host::Camera& camera) : Module(&device), m_camera(camera) {}

    PortFacts Port() override;
    void Read(uint64_t address, std::span<uint8_t> destination, size_t& done) override;
    void Write(uint64_t address, Bytes source, size_t& done) override;
    std::vector<u3v_host::DescriptionFile> Files() override { return m_camera.DescriptionFiles(); }

private:
    std::unique_ptr<Event> _makeEvent(EVENT_TYPE /*type*/) override { return nullptr; }

    u3v_host::Camera& m_camera; // of the device, which outlives this
};

} // namespace standard_tl
