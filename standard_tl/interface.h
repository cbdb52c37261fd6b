#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "device_facts.h"
#include "library.h"
#include "module.h"

namespace standard_tl {

// The interface: all cameras of the USB.
class Interface final : public RegisterModule
{
public:
    Interface(Node& system, Library& library);
    ~Interface() override;

    static GC_ERROR Info(int32_t command, const InfoOut& out);

    // Looks at the bus, at most so many ms; GENTL_INFINITE: until it is done.
    bool UpdateDeviceList(uint64_t timeout);
    uint32_t NumDevices() const;
    // Throw Failure: GC_ERR_INVALID_INDEX, GC_ERR_INVALID_ID, GC_ERR_INVALID_PARAMETER;
    // u3v_host::Error.
    GC_ERROR DeviceId(uint32_t index, const InfoOut& out) const;
    GC_ERROR DeviceInfoOf(const char* id, int32_t command, const InfoOut& out);
    void* OpenDevice(const char* id, DEVICE_ACCESS_FLAGS access);

    // Tells who has registered for it that the list of cameras is, or may be, another one. Comes
    // from any thread.
    void TellListChanged();

    PortFacts Port() override;

private:
    std::unique_ptr<Event> _makeEvent(EVENT_TYPE type) override;
    std::vector<Feature> _features();
    std::vector<Feature> _enumeration(std::vector<const char*> selected);
    std::vector<Feature> _selectedDevice();
    std::vector<Feature> _counts();
    DeviceFacts _selected() const;
    uint64_t _lastDevice() const;

    Library& m_library;
    std::atomic<uint64_t> m_selector = 0;
    std::atomic<uint64_t> m_updateTimeout = 1000; // ms, of the command DeviceUpdateList
};

} // namespace standard_tl
