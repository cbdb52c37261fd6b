#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "camera.h"
#include "device_facts.h"
#include "module.h"

namespace standard_tl {

// An open camera as the producer sees it; the camera itself is behind its RemotePort.
class Device final : public RegisterModule
{
public:
    Device(Node& interface, std::unique_ptr<u3v_host::Camera> camera);

    const std::string& Id() const { return m_id; }
    DeviceFacts Facts() const;

    void* RemotePortHandle() ZR_EXCLUDES(m_openMutex);
    // One at most, whatever the camera says: it has one streaming interface.
    uint32_t NumDataStreams() const { return std::min(m_camera->NumStreams(), 1U); }
    // Throw Failure: GC_ERR_INVALID_INDEX, GC_ERR_INVALID_ID, GC_ERR_RESOURCE_IN_USE,
    // GC_ERR_NOT_AVAILABLE; u3v_host::Error.
    GC_ERROR DataStreamId(uint32_t index, const InfoOut& out) const;
    void* OpenDataStream(const char* id) ZR_EXCLUDES(m_openMutex);

    PortFacts Port() override;

private:
    std::unique_ptr<Event> _makeEvent(EVENT_TYPE type) override;
    void _switchEvent(EVENT_TYPE type, Event& event, bool on) override;
    void _listen(bool on);
    void _tellGone();
    Value _selectedStream() const;
    std::vector<Feature> _features();

    const std::string m_id;
    Mutex m_openMutex;
    std::atomic<uint64_t> m_streamSelector = 0;
    // Last, so that it goes first: its thread uses the rest.
    std::unique_ptr<u3v_host::Camera> m_camera;
};

} // namespace standard_tl
