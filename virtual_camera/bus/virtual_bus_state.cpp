#include "virtual_bus_state.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "plain_usb_device.h"
#include "transfer_engine.h"

namespace vbus {

namespace {

constexpr std::size_t kDeadObjects = 4096;
constexpr std::uint8_t kLastAddress = 127;

template <typename T>
void MoveToDead(std::deque<std::unique_ptr<T>>& dead,
                std::map<const T*, std::unique_ptr<T>>& living, const T* object)
{
    auto found = living.find(object);
    dead.push_back(std::move(found->second));
    living.erase(found);
    if (dead.size() > kDeadObjects) {
        dead.pop_front();
    }
}

void Add(vcam::CameraStats& sum, const vcam::CameraStats& more)
{
    sum.stream.started += more.stream.started;
    sum.stream.sent += more.stream.sent;
    sum.stream.dropped += more.stream.dropped;
    sum.stream.bytes += more.stream.bytes;
    sum.stream.overflows += more.stream.overflows;
    sum.controlTransactions += more.controlTransactions;
    sum.faultsPlayed += more.faultsPlayed;
    sum.protocolErrors += more.protocolErrors;
}

// Removes "count=n" from the options of cameras.
std::string TakeCount(std::string& options, std::uint32_t& count)
{
    vcam::OptionList list;
    std::string error = vcam::SplitOptions(options, list);
    options.clear();
    for (const auto& [key, value] : list) {
        if (key != "count") {
            options.append(key).append("=").append(value).append(",");
            continue;
        }
        char* end = nullptr;
        const unsigned long number = std::strtoul(value.c_str(), &end, 10);
        if (value.empty() || *end != '\0' || number > 60) {
            error = "wrong value for \"count\": \"" + value + "\"";
        }
        count = static_cast<std::uint32_t>(number);
    }
    return error;
}

} // namespace

bool HotplugCallback::Wants(int event, const libusb_device_descriptor& descriptor) const
{
    const auto matches = [](int wanted, int value) { return wanted < 0 || wanted == value; };
    return (events & event) != 0 && matches(vendorId, descriptor.idVendor) &&
           matches(productId, descriptor.idProduct) &&
           matches(deviceClass, descriptor.bDeviceClass);
}

VirtualBus& VirtualBus::Instance()
{
    static auto* bus = new VirtualBus;
    return *bus;
}

void VirtualBus::Kick()
{
    const BusLock lock = Guard();
    KickLocked();
}

void VirtualBus::KickLocked()
{
    for (const auto& [key, context] : m_contexts) {
        WakeHandler(*context);
    }
}

bool VirtualBus::TakeKernelMemory(std::uint64_t bytes)
{
    if (m_kernelMemoryLimit != 0 && m_kernelMemoryUsed + bytes > m_kernelMemoryLimit) {
        return false;
    }
    m_kernelMemoryUsed += bytes;
    return true;
}

std::size_t VirtualBus::KernelBytes(const libusb_transfer& transfer) const
{
    constexpr std::size_t kOfRequest = 256; // what the kernel needs to keep track of one
    const auto length = static_cast<std::size_t>(transfer.length);
    const auto behind = m_memoryBlocks.upper_bound(transfer.buffer);
    if (behind != m_memoryBlocks.begin()) {
        const auto& [start, block] = *std::prev(behind);
        const auto offset = static_cast<std::size_t>(transfer.buffer - start);
        if (block.owner == transfer.dev_handle && offset <= block.size &&
            length <= block.size - offset) {
            return kOfRequest;
        }
    }
    return kOfRequest + length;
}

// As the real one: whole pages, cleared, and theirs until they are given back, whatever becomes of
// the device.
unsigned char* VirtualBus::AllocateDeviceMemory(const libusb_device_handle* handle,
                                                std::size_t size)
{
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    const std::size_t mapped = (size + page - 1) / page * page;
    if (size == 0 || mapped < size || !TakeKernelMemory(mapped)) {
        return nullptr;
    }
    void* block =
        ::mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (block == MAP_FAILED) {
        GiveKernelMemory(mapped);
        return nullptr;
    }
    auto* bytes = static_cast<unsigned char*>(block);
    m_memoryBlocks[bytes] = {size, mapped, handle};
    return bytes;
}

bool VirtualBus::FreeDeviceMemory(unsigned char* block, std::size_t size)
{
    const auto found = m_memoryBlocks.find(block);
    if (found == m_memoryBlocks.end() || found->second.size != size) {
        return false;
    }
    GiveKernelMemory(found->second.mapped);
    ::munmap(block, found->second.mapped);
    m_memoryBlocks.erase(found);
    return true;
}

void VirtualBus::Reset()
{
    {
        const BusLock lock = Guard();
        m_steered = true;
        for (const auto& slot : m_slots) {
            slot->replugAt.reset();
            if (slot->present) {
                Detach(slot->present);
                slot->replugAt.reset();
            }
        }
        m_slots.clear();
        m_kernelMemoryLimit = 0;
        KickLocked();
    }
    CallJournal& journal = CallJournal::Instance();
    journal.ClearScripts();
    journal.Clear();
    journal.ClearViolations();
}

int VirtualBus::_AddSlot(const std::string& plainKind, const vcam::CameraConfig& config)
{
    auto slot = std::make_unique<Slot>();
    slot->plainKind = plainKind;
    slot->config = config;
    m_slots.push_back(std::move(slot));
    const int id = static_cast<int>(m_slots.size()) - 1;
    _Attach(id);
    return id;
}

int VirtualBus::_AddCameras(const std::string& options, std::string& error)
{
    std::string text = options;
    std::uint32_t count = 1;
    error = TakeCount(text, count);
    vcam::CameraConfig config;
    if (error.empty()) {
        error = config.Apply(text);
    }
    if (!error.empty()) {
        return -1;
    }
    const int first = static_cast<int>(m_slots.size());
    for (std::uint32_t i = 0; i < count; ++i) {
        _AddSlot({}, config.Numbered(i));
    }
    return first;
}

int VirtualBus::AddCamera(const std::string& options, std::string& error)
{
    const BusLock lock = Guard();
    m_steered = true;
    return _AddCameras(options, error);
}

int VirtualBus::AddDevice(const std::string& options, std::string& error)
{
    const BusLock lock = Guard();
    m_steered = true;
    const std::string kind = options.starts_with("kind=") ? options.substr(5) : options;
    if (!vcam::MakePlainDevice(kind)) {
        error = "unknown kind of device \"" + kind + "\"";
        return -1;
    }
    return _AddSlot(kind, {});
}

void VirtualBus::LoadEnvironment()
{
    if (m_steered || m_environmentLoaded) {
        return;
    }
    m_environmentLoaded = true;
    const char* megabytes = std::getenv("ZR_VIRTUAL_USBFS_MB");
    m_kernelMemoryLimit = megabytes == nullptr ? 0 : std::strtoull(megabytes, nullptr, 10) << 20;
    const char* text = std::getenv("ZR_VIRTUAL_CAMERAS");
    std::string cameras = text == nullptr ? "count=1" : text;
    while (!cameras.empty()) {
        const std::size_t end = std::min(cameras.find(';'), cameras.size());
        std::string error;
        if (_AddCameras(cameras.substr(0, end), error) < 0) {
            std::fprintf(stderr, "ZR_VIRTUAL_CAMERAS: %s\n", error.c_str());
        }
        cameras.erase(0, end + 1);
    }
}

Slot* VirtualBus::FindSlot(int id)
{
    const auto index = static_cast<std::size_t>(id);
    return id >= 0 && index < m_slots.size() ? m_slots[index].get() : nullptr;
}

bool VirtualBus::Unplug(int id, std::string& error)
{
    const BusLock lock = Guard();
    Slot* slot = FindSlot(id);
    if (slot == nullptr || !slot->present) {
        error = slot == nullptr ? "unknown device" : "not plugged in";
        return false;
    }
    Detach(slot->present);
    slot->replugAt.reset();
    return true;
}

bool VirtualBus::Replug(int id, std::string& error)
{
    const BusLock lock = Guard();
    Slot* slot = FindSlot(id);
    if (slot == nullptr || slot->present) {
        error = slot == nullptr ? "unknown device" : "already plugged in";
        return false;
    }
    _Attach(id);
    return true;
}

void VirtualBus::_Attach(int id)
{
    Slot& slot = *m_slots[static_cast<std::size_t>(id)];
    auto attachment = std::make_shared<Attachment>();
    attachment->slot = id;
    if (slot.plainKind.empty()) {
        attachment->camera = std::make_shared<vcam::UsbCamera>(slot.config);
        attachment->device = attachment->camera;
        attachment->driver = slot.config.driver;
        if (attachment->driver.empty() && attachment->camera->HasFault("kernel-driver")) {
            attachment->driver = "uvcvideo";
        }
    } else {
        attachment->device = vcam::MakePlainDevice(slot.plainKind);
    }
    const vcam::UsbDescriptors& descriptors = attachment->device->Descriptors();
    attachment->configurationError = attachment->configuration.Parse(descriptors.Configuration());
    attachment->bus = slot.config.bus;
    attachment->ports = vcam::ParsePortPath(slot.config.port);
    if (attachment->ports.empty()) {
        attachment->ports = {static_cast<std::uint8_t>(id + 1)};
    }
    m_lastAddress =
        static_cast<std::uint8_t>(m_lastAddress == kLastAddress ? 2 : m_lastAddress + 1);
    attachment->address = m_lastAddress;
    attachment->device->SetListener([] { Bus().Kick(); });
    slot.present = attachment;
    slot.replugAt.reset();
    for (const auto& [key, context] : m_contexts) {
        QueueHotplug(context.get(), _DeviceOf(context.get(), attachment),
                     LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED);
    }
    KickLocked();
}

// Pending transfers notice by themselves. The objects stay as long as the host refers to them.
void VirtualBus::Detach(const std::shared_ptr<Attachment>& attachment)
{
    // The argument may be a slot's own reference, which goes below.
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization)
    const std::shared_ptr<Attachment> keep = attachment;
    if (!keep->plugged) {
        return;
    }
    keep->plugged = false;
    if (Slot* slot = FindSlot(keep->slot); slot != nullptr && slot->present == keep) {
        if (keep->camera) {
            Add(slot->past, keep->camera->Stats());
            for (const auto& [kind, count] : keep->camera->Errors()) {
                slot->pastErrors[kind] += count;
            }
            slot->config.user = keep->camera->Persistent().user;
        }
        const auto away = keep->device->ReturnsAfter();
        if (away.count() >= 0) {
            slot->replugAt = Clock::now() + away;
        }
        slot->present.reset();
    }
    for (const auto& [key, context] : m_contexts) {
        const auto found = context->devices.find(keep.get());
        if (found != context->devices.end()) {
            libusb_device* device = found->second;
            QueueHotplug(context.get(), device, LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT);
            context->devices.erase(found);
            device->heldByContext = false;
            Reference(device);
            Unreference(device); // goes now when nobody else refers to it
        }
    }
    KickLocked();
}

void VirtualBus::Tick()
{
    const auto now = Clock::now();
    for (std::size_t i = 0; i < m_slots.size(); ++i) {
        Slot& slot = *m_slots[i];
        if (slot.present && slot.present->device->Gone()) {
            Detach(slot.present);
        }
        if (!slot.present && slot.replugAt && *slot.replugAt <= now) {
            _Attach(static_cast<int>(i));
        }
    }
}

std::optional<Clock::time_point> VirtualBus::NextReplug() const
{
    std::optional<Clock::time_point> next;
    for (const auto& slot : m_slots) {
        if (slot->replugAt && (!next || *slot->replugAt < *next)) {
            next = slot->replugAt;
        }
    }
    return next;
}

libusb_device* VirtualBus::_DeviceOf(libusb_context* context,
                                     const std::shared_ptr<Attachment>& attachment)
{
    const auto found = context->devices.find(attachment.get());
    if (found != context->devices.end()) {
        return found->second;
    }
    auto device = std::make_unique<libusb_device>();
    device->context = context;
    device->attachment = attachment;
    libusb_device* raw = device.get();
    m_devices[raw] = std::move(device);
    context->devices[attachment.get()] = raw;
    return raw;
}

std::vector<libusb_device*> VirtualBus::Devices(libusb_context* context)
{
    std::vector<libusb_device*> devices;
    for (const auto& slot : m_slots) {
        if (slot->present) {
            devices.push_back(_DeviceOf(context, slot->present));
        }
    }
    return devices;
}

bool VirtualBus::IsLive(const libusb_device* device) const
{
    return m_devices.count(device) != 0;
}

bool VirtualBus::IsLive(const libusb_device_handle* handle) const
{
    return m_handles.count(handle) != 0;
}

void VirtualBus::Unreference(libusb_device* device)
{
    if (device->references == 0) {
        Violate("unref-below-zero");
        return;
    }
    if (--device->references == 0 && !device->heldByContext) {
        _Destroy(device);
    }
}

void VirtualBus::_Destroy(libusb_device* device)
{
    device->attachment.reset();
    MoveToDead(m_deadDevices, m_devices, static_cast<const libusb_device*>(device));
}

void VirtualBus::QueueHotplug(libusb_context* context, libusb_device* device,
                              libusb_hotplug_event event)
{
    if (!context->callbacks.empty()) {
        Reference(device);
        context->hotplug.push_back({event, device});
    }
}

libusb_context* VirtualBus::OpenContext(bool isDefault)
{
    LoadEnvironment();
    if (isDefault && m_defaultContext != nullptr) {
        ++m_defaultContext->references;
        return m_defaultContext;
    }
    auto context = std::make_unique<libusb_context>();
    context->isDefault = isDefault;
    libusb_context* raw = context.get();
    m_contexts[raw] = std::move(context);
    m_defaultContext = isDefault ? raw : m_defaultContext;
    return raw;
}

void VirtualBus::CloseContext(libusb_context* context)
{
    if (--context->references != 0) {
        return;
    }
    for (const HotplugEvent& event : context->hotplug) {
        Unreference(event.device);
    }
    for (const auto& [handle, owner] : m_handles) {
        if (owner->device->context == context) {
            Violate("exit-with-handles");
        }
    }
    if (!context->inFlight.empty()) {
        Violate("exit-with-transfers");
    }
    const auto devices = context->devices;
    for (const auto& [attachment, device] : devices) {
        device->heldByContext = false;
        Reference(device);
        Unreference(device);
    }
    if (context == m_defaultContext) {
        m_defaultContext = nullptr;
    }
    MoveToDead(m_deadContexts, m_contexts, static_cast<const libusb_context*>(context));
}

libusb_context* VirtualBus::Resolve(libusb_context* context)
{
    if (context != nullptr && m_contexts.count(context) == 0) {
        Violate("stale-context");
        return nullptr;
    }
    if (context == nullptr && m_defaultContext == nullptr) {
        Violate("no-context");
    }
    return context == nullptr ? m_defaultContext : context;
}

libusb_device_handle* VirtualBus::OpenHandle(libusb_device* device)
{
    auto handle = std::make_unique<libusb_device_handle>();
    handle->device = device;
    Reference(device);
    libusb_device_handle* raw = handle.get();
    m_handles[raw] = std::move(handle);
    return raw;
}

void VirtualBus::CloseHandle(libusb_device_handle* handle)
{
    Attachment& attachment = *handle->device->attachment;
    for (const int number : handle->claimed) {
        attachment.claims.erase(number);
    }
    DeviceFile file = std::move(handle->file);
    file.Close();
    if (!handle->claimed.empty() && file.IsHeld()) {
        attachment.kept.push_back({std::move(file), handle->claimed});
    }
    libusb_device* device = handle->device;
    MoveToDead(m_deadHandles, m_handles, static_cast<const libusb_device_handle*>(handle));
    Unreference(device);
}

vusb_live_objects VirtualBus::Live() const
{
    vusb_live_objects live{};
    for (const auto& [context, owner] : m_contexts) {
        live.contexts += owner->references;
    }
    live.handles = m_handles.size();
    for (const auto& [device, owner] : m_devices) {
        live.device_references += owner->references;
    }
    live.config_descriptors = configurations.size();
    live.dev_mem_blocks = m_memoryBlocks.size();
    TransferEngine::Instance().CountLive(live);
    return live;
}

} // namespace vbus
