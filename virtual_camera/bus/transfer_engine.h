// Transfers of the host from submission to completion. They complete only while somebody handles
// events of their context, as with the real library.
#ifndef VBUS_TRANSFER_ENGINE_H
#define VBUS_TRANSFER_ENGINE_H

#include <unordered_map>

#include "virtual_bus_state.h"

namespace vbus {

struct TransferState
{
    libusb_transfer* transfer = nullptr;
    bool internal = false; // of a blocking call: neither journal nor scripts know of it
    bool inFlight = false;
    bool busy = false; // a thread moves its data without the bus lock
    bool cancelled = false;
    libusb_context* context = nullptr;
    libusb_device_handle* handle = nullptr;
    std::shared_ptr<Attachment> attachment;
    Clock::time_point deadline;
    std::uint64_t sequence = 0;
    std::size_t filled = 0;
    std::size_t kernelBytes = 0;                  // counted against the limit of usbfs
    std::list<TransferState*>::iterator place;    // among the context's
    std::optional<libusb_transfer_status> forced; // by a fault
    // To a control request, until it is due, or to data sent: the device is asked once.
    std::optional<vcam::UsbResult> answer;
};

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
    // A transfer that blocks; other events are handled meanwhile.
    int Synchronous(libusb_device_handle* handle, unsigned char endpoint, unsigned char type,
                    unsigned char* data, int length, int* transferred, unsigned timeout);

    // Bus lock held. Completes what can be completed of the transfers that are there when it
    // begins; "next" becomes the time of the next one that time alone completes.
    bool RunPass(BusLock& lock, libusb_context* context, Clock::time_point& next);
    void CancelAll(const libusb_device_handle* handle);
    Clock::time_point NextTimeout(const libusb_context* context) const;
    void CountLive(vusb_live_objects& live) const;

private:
    using Step = std::optional<libusb_transfer_status>; // nothing: not complete yet

    TransferState* _Find(const libusb_transfer* transfer) const;
    libusb_transfer* _Allocate(int isoPackets, bool internal);
    int _CheckSubmit(const libusb_transfer* transfer) const;
    void _Start(TransferState& state);
    void _ForceByFault(TransferState& state) const;
    static TransferState* _NextCandidate(const libusb_context* context, std::uint64_t before,
                                         std::uint64_t after);
    static Step _Progress(BusLock& lock, TransferState& state, Clock::time_point& next);
    static vcam::UsbResult _MoveData(TransferState& state);
    static vcam::UsbResult _MoveControl(TransferState& state);
    void _Complete(BusLock& lock, TransferState& state, libusb_transfer_status status);

    std::unordered_map<const libusb_transfer*, std::unique_ptr<TransferState>> m_transfers;
    std::uint64_t m_sequence = 0;
};

} // namespace vbus

#endif
