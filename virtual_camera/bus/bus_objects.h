// The objects behind the opaque pointers of the libusb ABI, and what hangs on the ports of the bus.
// All fields are guarded by the bus lock unless they never change.
#ifndef VBUS_BUS_OBJECTS_H
#define VBUS_BUS_OBJECTS_H

#include <deque>
#include <map>
#include <memory>
#include <set>
#include <thread>
#include <vector>

#include "descriptor_parser.h"
#include "usb_camera.h"

namespace vbus {

using Clock = std::chrono::steady_clock;

// One stay of a device on the bus, from plug to unplug.
struct Attachment
{
    int slot = 0;
    std::shared_ptr<vcam::UsbDevice> device;
    std::shared_ptr<vcam::UsbCamera> camera; // the same object when it is a camera
    ParsedConfiguration configuration;
    int configurationError = 0;
    std::uint8_t port = 0;
    std::uint8_t address = 0;
    bool plugged = true;
    std::map<int, const libusb_device_handle*> claims; // interface number to owner
    std::set<int> driverDetached;
    bool hasDriver = false; // a kernel driver holds every interface that is not in driverDetached
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
    bool interrupted = false;
    std::vector<vbus::HotplugCallback> callbacks;
    std::deque<vbus::HotplugEvent> hotplug;
    std::map<const vbus::Attachment*, libusb_device*> devices;
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
};

#endif
