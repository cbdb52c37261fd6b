// The objects behind the opaque pointers of the libusb ABI, and what hangs on the ports of the bus.
// All fields are guarded by the bus lock unless they never change.
#ifndef VBUS_BUS_OBJECTS_H
#define VBUS_BUS_OBJECTS_H

#include <condition_variable>
#include <deque>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <thread>
#include <vector>

#include "descriptor_parser.h"
#include "device_file.h"
#include "usb_camera.h"

namespace vbus {

using Clock = std::chrono::steady_clock;

struct TransferState;

// Interfaces that were not released when their handle was closed.
struct KeptInterfaces
{
    DeviceFile file;
    std::set<int> numbers;
};

// One stay of a device on the bus, from plug to unplug.
struct Attachment
{
    int slot = 0;
    std::shared_ptr<vcam::UsbDevice> device;
    std::shared_ptr<vcam::UsbCamera> camera; // the same object when it is a camera
    ParsedConfiguration configuration;
    int configurationError = 0;
    std::uint8_t bus = 0;
    std::vector<std::uint8_t> ports; // from the root port on; never empty
    std::uint8_t address = 0;
    bool plugged = true;
    std::map<int, const libusb_device_handle*> claims; // interface number to owner
    std::vector<KeptInterfaces> kept;                  // by forked children
    std::set<int> driverDetached;
    std::string driver; // holds every interface that is not in driverDetached; empty: none
    // Transfers by endpoint in the order of submission. Only the first one of each gets data.
    std::map<std::uint8_t, std::deque<TransferState*>> pipes;
};

struct HotplugCallback
{
    int id;
    int events;
    int vendorId;
    int productId;
    int deviceClass;
    libusb_hotplug_callback_fn function;
    void* userData;

    bool Wants(int event, const libusb_device_descriptor& descriptor) const;
};

struct HotplugEvent
{
    libusb_hotplug_event event;
    libusb_device* device; // holds a reference
};

} // namespace vbus

struct libusb_context
{
    bool isDefault = false;
    unsigned references = 1;
    // Who handles events at present; depth counts libusb_lock_events() of the same thread.
    std::thread::id eventOwner;
    unsigned eventDepth = 0;
    bool handling = false;    // the owner is within a function that handles events
    bool interrupted = false; // the next one who handles events returns at once
    unsigned closing = 0;     // threads that want to close a device, for which all others step back
    std::uint64_t generation = 0; // counts what may be of interest to the owner
    std::condition_variable handlerWake;
    std::uint64_t completions = 0; // counts what may be of interest to those who wait for the owner
    std::condition_variable waiterWake;
    std::thread::id waitersOwner; // of the lock that those take
    std::uint64_t waitersSeen = 0;

    std::list<vbus::TransferState*> inFlight; // in the order of submission
    std::vector<vbus::HotplugCallback> callbacks;
    std::deque<vbus::HotplugEvent> hotplug;
    std::map<const vbus::Attachment*, libusb_device*> devices;

    bool IsOwnedHere() const { return eventDepth != 0 && eventOwner == std::this_thread::get_id(); }
};

struct libusb_device
{
    libusb_context* context = nullptr;
    std::shared_ptr<vbus::Attachment> attachment;
    unsigned references = 0;   // held by the host
    bool heldByContext = true; // while it is attached
};

struct libusb_device_handle
{
    libusb_device* device = nullptr; // holds a reference
    bool autoDetach = false;
    std::set<int> claimed;
    vbus::DeviceFile file;
    std::size_t inFlight = 0; // transfers
};

#endif
