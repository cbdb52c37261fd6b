// Transfers of the host from submission to completion. They complete only while somebody handles
// events of their context, as with the real library.
#ifndef VBUS_TRANSFER_ENGINE_H
#define VBUS_TRANSFER_ENGINE_H

#include <atomic>
#include <functional>
#include <list>
#include <unordered_map>

#include "virtual_bus_state.h"

namespace vbus {

// One per process; everything under the bus lock, which is given up while data moves and while a
// callback of the host runs.
class TransferEngine
{
public:
    static TransferEngine& Instance();

    libusb_transfer* Allocate(int isoPackets);
    void Free(libusb_transfer* transfer);
    int Submit(libusb_transfer* transfer);
    int Cancel(libusb_transfer* transfer);
    // A bulk or interrupt transfer that blocks; other events are handled meanwhile.
    int Synchronous(libusb_device_handle* handle, unsigned char endpoint, unsigned char type,
                    unsigned char* data, int length, int* transferred, unsigned timeout);

    // Handles events until something has completed, "enough" holds or the time is over.
    int HandleEvents(libusb_context* context, Clock::time_point until,
                     const std::function<bool()>& enough);
    // The same for the owner of the event lock. Bus lock held.
    void HandleEventsOwned(BusLock& lock, libusb_context* context, Clock::time_point until,
                           const std::function<bool()>& enough);

    // Bus lock held.
    bool TryOwnEvents(libusb_context* context);
    void DisownEvents(libusb_context* context);
    bool AnyInFlight(const libusb_context* context) const;
    bool AnyInFlight(const libusb_device_handle* handle) const;
    void CancelAll(const libusb_device_handle* handle);
    Clock::time_point NextTimeout(const libusb_context* context) const;
    void CountLive(vusb_live_objects& live) const;

private:
    struct State
    {
        bool inFlight = false;
        bool busy = false; // a thread moves its data without the bus lock
        bool cancelled = false;
        bool internal = false;
        libusb_context* context = nullptr;
        libusb_device_handle* handle = nullptr;
        std::shared_ptr<Attachment> attachment;
        Clock::time_point deadline;
        std::uint64_t sequence = 0;
        std::size_t filled = 0;
        std::optional<libusb_transfer_status> forced; // by a fault
    };
    using Step = std::optional<libusb_transfer_status>; // nothing: not complete yet

    int _CheckSubmit(const libusb_transfer* transfer) const;
    void _StartState(libusb_transfer* transfer, State& state);
    void _ForceByFault(State& state) const;
    bool _RunPass(BusLock& lock, libusb_context* context, Clock::time_point& next);
    libusb_transfer* _NextCandidate(const libusb_context* context, std::uint64_t before,
                                    std::uint64_t after) const;
    bool _IsHead(const libusb_transfer* transfer) const;
    Step _Progress(BusLock& lock, libusb_transfer* transfer, State& state, Clock::time_point& next);
    vcam::UsbResult _MoveData(libusb_transfer* transfer, State& state);
    vcam::UsbResult _MoveControl(libusb_transfer* transfer, State& state);
    void _Complete(BusLock& lock, libusb_transfer* transfer, libusb_transfer_status status);
    bool _RunHotplug(BusLock& lock, libusb_context* context);

    std::unordered_map<libusb_transfer*, State> m_transfers;
    std::list<libusb_transfer*> m_inFlight; // in the order of submission
    std::uint64_t m_sequence = 0;
};

} // namespace vbus

#endif
