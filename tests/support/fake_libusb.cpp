#include "fake_libusb.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace {

// A configuration descriptor with everything it points to in one piece.
struct OwnedConfiguration
{
    libusb_config_descriptor descriptor = {}; // first: its address is the owner's
    std::vector<libusb_interface> interfaces;
    std::vector<std::vector<libusb_interface_descriptor>> settings;
    std::deque<std::vector<libusb_endpoint_descriptor>> endpoints;
    std::deque<Bytes> extras;
};

libusb_interface_descriptor MakeSetting(OwnedConfiguration& owner, const FakeAlternate& fake)
{
    libusb_interface_descriptor setting = {};
    setting.bInterfaceNumber = fake.number;
    setting.bInterfaceClass = fake.classCode;
    setting.bInterfaceSubClass = fake.subClass;
    setting.bInterfaceProtocol = fake.protocol;
    auto& endpoints = owner.endpoints.emplace_back();
    for (const uint8_t address : fake.endpoints) {
        libusb_endpoint_descriptor endpoint = {};
        endpoint.bEndpointAddress = address;
        endpoints.push_back(endpoint);
    }
    setting.bNumEndpoints = static_cast<uint8_t>(endpoints.size());
    setting.endpoint = endpoints.empty() ? nullptr : endpoints.data();
    // Exactly sized on the heap, so that a sanitizer sees a read beyond the end.
    const auto& extra = owner.extras.emplace_back(fake.extra);
    setting.extra = extra.empty() ? nullptr : extra.data();
    setting.extra_length = static_cast<int>(extra.size());
    return setting;
}

OwnedConfiguration* MakeConfiguration(const FakeConfiguration& fake)
{
    auto* owner = new OwnedConfiguration;
    for (const FakeInterface& group : fake) {
        auto& settings = owner->settings.emplace_back();
        for (const FakeAlternate& alternate : group) {
            settings.push_back(MakeSetting(*owner, alternate));
        }
    }
    for (const auto& settings : owner->settings) {
        owner->interfaces.push_back({settings.data(), static_cast<int>(settings.size())});
    }
    owner->descriptor.bNumInterfaces = static_cast<uint8_t>(owner->interfaces.size());
    owner->descriptor.interface = owner->interfaces.empty() ? nullptr : owner->interfaces.data();
    return owner;
}

uint64_t Little(const uint8_t* bytes, size_t size)
{
    uint64_t value = 0;
    for (size_t i = size; i > 0; --i) {
        value = value << 8U | bytes[i - 1];
    }
    return value;
}

void Append(Bytes& to, uint64_t value, size_t size)
{
    for (size_t i = 0; i < size; ++i) {
        to.push_back(static_cast<uint8_t>(value >> (8 * i)));
    }
}

Bytes AckHeader(uint16_t status, uint16_t command, size_t length, uint16_t request)
{
    Bytes ack;
    Append(ack, 0x43563355, 4);
    Append(ack, status, 2);
    Append(ack, command, 2);
    Append(ack, length, 2);
    Append(ack, request, 2);
    return ack;
}

} // namespace

std::string Hex(const uint8_t* data, size_t size)
{
    std::string text;
    for (size_t i = 0; i < size; ++i) {
        char digits[4];
        std::snprintf(digits, sizeof(digits), "%s%02x", i == 0 ? "" : " ", data[i]);
        text += digits;
    }
    return text;
}

FakeUsb& FakeUsb::Instance()
{
    static FakeUsb usb;
    return usb;
}

void FakeUsb::Reset()
{
    const std::lock_guard lock(m_mutex);
    m_all.clear();
    m_listed.clear();
    m_journal.clear();
    m_completions.clear();
    m_pending = nullptr;
    m_lastSubmitted = {};
    m_stall = false;
    m_interrupted = false;
    blockedInCompletion = false;
    initResult = 0;
    listResult = 0;
    failAllocTransfer = false;
    m_submitResults.clear();
    handleEventsResult = 0;
    transferTimesOutAfter = 0;
    for (auto* count : {&liveTransfers, &openHandles, &liveConfigurations, &liveLists}) {
        *count = 0;
    }
    nullHandleSeen = false;
    deviceMemoryLeft = 0;
    deviceMemory.clear();
    deviceMemoryMisused = false;
    onCall = nullptr;
}

bool FakeUsb::IsDeviceMemory(const uint8_t* data, size_t length)
{
    const std::lock_guard lock(m_mutex);
    const auto after = deviceMemory.upper_bound(data);
    if (after == deviceMemory.begin()) {
        return false;
    }
    const auto& [start, block] = *std::prev(after);
    return data + length <= start + block.size();
}

libusb_device& FakeUsb::AddDevice(const std::string& name)
{
    const std::lock_guard lock(m_mutex);
    m_all.push_back(std::make_unique<libusb_device>());
    m_all.back()->name = name;
    m_listed.push_back(m_all.back().get());
    return *m_all.back();
}

void FakeUsb::Unlist(libusb_device& device)
{
    const std::lock_guard lock(m_mutex);
    std::erase(m_listed, &device);
}

std::vector<std::string> FakeUsb::Journal(const std::string& prefix)
{
    const std::lock_guard lock(m_mutex);
    std::vector<std::string> lines;
    std::copy_if(m_journal.begin(), m_journal.end(), std::back_inserter(lines),
                 [&](const std::string& line) { return line.starts_with(prefix); });
    return lines;
}

void FakeUsb::ClearJournal()
{
    const std::lock_guard lock(m_mutex);
    m_journal.clear();
}

void FakeUsb::Complete(libusb_transfer_status status, Bytes bytes)
{
    const std::lock_guard lock(m_mutex);
    m_completions.push_back({status, std::move(bytes), -1});
    m_changed.notify_all();
}

void FakeUsb::CompleteLying(Bytes bytes, int actualLength)
{
    const std::lock_guard lock(m_mutex);
    m_completions.push_back({LIBUSB_TRANSFER_COMPLETED, std::move(bytes), actualLength});
    m_changed.notify_all();
}

bool FakeUsb::AwaitDrained(int milliseconds)
{
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, std::chrono::milliseconds(milliseconds),
                              [&] { return m_completions.empty() && !m_completing; });
}

bool FakeUsb::AwaitPending(int milliseconds)
{
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, std::chrono::milliseconds(milliseconds),
                              [&] { return m_pending != nullptr; });
}

void FakeUsb::StallForEver(bool stall)
{
    const std::lock_guard lock(m_mutex);
    m_stall = stall;
    m_changed.notify_all();
}

void FakeUsb::FailNextSubmit(int result)
{
    const std::lock_guard lock(m_mutex);
    m_submitResults.push_back(result);
}

libusb_transfer FakeUsb::LastSubmitted()
{
    const std::lock_guard lock(m_mutex);
    return m_lastSubmitted;
}

// The calls share the instance's state under its lock.
struct FakeCalls
{
    FakeUsb& usb = FakeUsb::Instance();
    std::unique_lock<std::mutex> lock{usb.m_mutex};

    void Note(const char* format, ...) __attribute__((format(printf, 2, 3)));

    bool Check(libusb_device_handle* handle)
    {
        if (handle == nullptr) {
            usb.nullHandleSeen = true;
        }
        return handle != nullptr;
    }

    int Bulk(libusb_device_handle* handle, unsigned char endpoint, unsigned char* data, int length,
             int* transferred);
    int Send(libusb_device& device, const uint8_t* data, int length, int* transferred);
    int Receive(libusb_device& device, uint8_t* data, int length, int* transferred);
    void NoteBlocking()
    {
        if (usb.m_completing && usb.m_completer == std::this_thread::get_id()) {
            usb.blockedInCompletion = true;
        }
    }
    int HandleEvents(std::chrono::milliseconds wait);
    void Interrupt()
    {
        usb.m_interrupted = true;
        usb.m_changed.notify_all();
    }
    int Submit(libusb_transfer* transfer);
    void List(libusb_device** list)
    {
        size_t i = 0;
        for (libusb_device* device : usb.m_listed) {
            ++device->references;
            list[i++] = device;
        }
        ++usb.liveLists;
    }
    size_t Listed() const { return usb.m_listed.size(); }
    static std::mutex& EventLock() { return FakeUsb::Instance().m_events; }
};

void FakeCalls::Note(const char* format, ...)
{
    char line[4096];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof(line), format, arguments);
    va_end(arguments);
    usb.m_journal.emplace_back(line);
}

int FakeCalls::Send(libusb_device& device, const uint8_t* data, int length, int* transferred)
{
    if (!device.sendResults.empty()) {
        const int result = device.sendResults.front();
        device.sendResults.pop_front();
        if (result < 0) {
            return result;
        }
    }
    *transferred = length;
    const auto command = static_cast<uint16_t>(Little(data + 6, 2));
    const auto request = static_cast<uint16_t>(Little(data + 10, 2));
    const uint64_t address = Little(data + 12, 8);
    const auto refused = device.refusal.find(address);
    const uint16_t status = refused != device.refusal.end() ? refused->second : uint16_t{0};
    if (command == 0x0800) {
        const size_t count = Little(data + 22, 2);
        Bytes content = device.memory.contains(address) ? device.memory[address] : Bytes{};
        content.resize(count);
        Bytes ack = AckHeader(status, 0x0801, count, request);
        ack.insert(ack.end(), content.begin(), content.end());
        device.answers.push_back({0, ack});
    } else {
        if (status == 0) {
            device.writes.emplace_back(address, Bytes(data + 20, data + length));
            device.memory[address] = device.writes.back().second;
        }
        Bytes ack = AckHeader(status, 0x0803, 4, request);
        Append(ack, static_cast<uint64_t>(length - 20) << 16U, 4);
        device.answers.push_back({0, ack});
    }
    return 0;
}

int FakeCalls::Receive(libusb_device& device, uint8_t* data, int length, int* transferred)
{
    FakeReply reply{LIBUSB_ERROR_TIMEOUT, {}};
    auto& source = device.replies.empty() ? device.answers : device.replies;
    if (!source.empty()) {
        reply = source.front();
        source.pop_front();
        if (&source == &device.replies) {
            device.answers.clear();
        }
    }
    const size_t size = std::min(reply.bytes.size(), static_cast<size_t>(length));
    std::copy_n(reply.bytes.begin(), size, data);
    *transferred = reply.received >= 0 ? reply.received : static_cast<int>(size);
    return reply.result;
}

int FakeCalls::Bulk(libusb_device_handle* handle, unsigned char endpoint, unsigned char* data,
                    int length, int* transferred)
{
    return (endpoint & 0x80U) != 0 ? Receive(*handle->device, data, length, transferred)
                                   : Send(*handle->device, data, length, transferred);
}

int FakeCalls::Submit(libusb_transfer* transfer)
{
    Note("submit_transfer ep=0x%02x length=%d timeout=%u", transfer->endpoint, transfer->length,
         transfer->timeout);
    int result = 0;
    if (!usb.m_submitResults.empty()) {
        result = usb.m_submitResults.front();
        usb.m_submitResults.pop_front();
    }
    if (result == 0) {
        usb.m_pending = transfer;
        usb.m_pendingSince = std::chrono::steady_clock::now();
        std::memcpy(static_cast<void*>(&usb.m_lastSubmitted), transfer, sizeof(libusb_transfer));
        usb.m_changed.notify_all();
    }
    return result;
}

int FakeCalls::HandleEvents(std::chrono::milliseconds wait)
{
    using Clock = std::chrono::steady_clock;
    if (usb.handleEventsResult < 0) {
        return usb.handleEventsResult;
    }
    const auto end = Clock::now() + wait;
    while (Clock::now() < end && !std::exchange(usb.m_interrupted, false)) {
        const bool late = usb.m_pending != nullptr && usb.transferTimesOutAfter > 0 &&
                          Clock::now() - usb.m_pendingSince >=
                              std::chrono::milliseconds(usb.transferTimesOutAfter);
        if (usb.m_pending != nullptr && (late || usb.m_stall || !usb.m_completions.empty())) {
            FakeUsb::Completion completion{
                usb.m_stall ? LIBUSB_TRANSFER_STALL : LIBUSB_TRANSFER_TIMED_OUT, {}, -1};
            if (!usb.m_completions.empty()) {
                completion = usb.m_completions.front();
                usb.m_completions.pop_front();
            }
            libusb_transfer* transfer = std::exchange(usb.m_pending, nullptr);
            const size_t size =
                std::min(completion.bytes.size(), static_cast<size_t>(transfer->length));
            std::copy_n(completion.bytes.begin(), size, transfer->buffer);
            transfer->status = completion.status;
            transfer->actual_length =
                completion.actual >= 0 ? completion.actual : static_cast<int>(size);
            usb.m_completing = true;
            usb.m_completer = std::this_thread::get_id();
            lock.unlock();
            transfer->callback(transfer);
            lock.lock();
            usb.m_completing = false;
            usb.m_changed.notify_all();
            return 0;
        }
        usb.m_changed.wait_for(lock, std::chrono::milliseconds(2));
    }
    return 0;
}

extern "C" {

int libusb_init(libusb_context** context)
{
    FakeCalls calls;
    calls.Note("init context=%s", context == nullptr ? "null" : "set");
    return calls.usb.initResult;
}

void libusb_exit(libusb_context* context)
{
    FakeCalls().Note("exit context=%s", context == nullptr ? "null" : "set");
}

const char* libusb_strerror(int code)
{
    switch (code) {
    case LIBUSB_ERROR_ACCESS: return "text of access";
    case LIBUSB_ERROR_NO_DEVICE: return "text of no device";
    case LIBUSB_ERROR_PIPE: return "text of pipe";
    case LIBUSB_ERROR_NO_MEM: return "text of no mem";
    default: return "text of other";
    }
}

ssize_t libusb_get_device_list(libusb_context* context, libusb_device*** list)
{
    FakeCalls calls;
    calls.Note("get_device_list context=%s", context == nullptr ? "null" : "set");
    if (calls.usb.listResult < 0) {
        return calls.usb.listResult;
    }
    *list = static_cast<libusb_device**>(std::calloc(calls.Listed() + 1, sizeof(void*)));
    calls.List(*list);
    return static_cast<ssize_t>(calls.Listed());
}

void libusb_free_device_list(libusb_device** list, int unref)
{
    FakeCalls calls;
    calls.Note("free_device_list unref=%d", unref);
    if (list == nullptr) {
        return;
    }
    for (libusb_device** device = list; *device != nullptr && unref != 0; ++device) {
        --(*device)->references;
    }
    std::free(list);
    --calls.usb.liveLists;
}

libusb_device* libusb_ref_device(libusb_device* device)
{
    FakeCalls calls;
    calls.Note("ref_device %s", device->name.c_str());
    ++device->references;
    return device;
}

void libusb_unref_device(libusb_device* device)
{
    FakeCalls calls;
    calls.Note("unref_device %s", device->name.c_str());
    --device->references;
}

int libusb_get_device_descriptor(libusb_device* device, libusb_device_descriptor* descriptor)
{
    FakeCalls calls;
    calls.Note("get_device_descriptor %s", device->name.c_str());
    if (device->descriptorResult == 0 || device->descriptorFilledAllTheSame) {
        *descriptor = device->descriptor;
    }
    return device->descriptorResult;
}

int libusb_get_config_descriptor(libusb_device* device, uint8_t index,
                                 libusb_config_descriptor** config)
{
    FakeCalls calls;
    calls.Note("get_config_descriptor %s index=%d", device->name.c_str(), index);
    if (device->configurationResult < 0) {
        return device->configurationResult;
    }
    if (index >= device->configurations.size()) {
        return LIBUSB_ERROR_NOT_FOUND;
    }
    ++calls.usb.liveConfigurations;
    *config = &MakeConfiguration(device->configurations[index])->descriptor;
    return 0;
}

void libusb_free_config_descriptor(libusb_config_descriptor* config)
{
    FakeCalls calls;
    calls.Note("free_config_descriptor");
    if (config != nullptr) {
        --calls.usb.liveConfigurations;
        delete reinterpret_cast<OwnedConfiguration*>(config);
    }
}

int libusb_open(libusb_device* device, libusb_device_handle** handle)
{
    FakeCalls calls;
    calls.Note("open %s", device->name.c_str());
    if (device->openGivesHandle) {
        *handle = new libusb_device_handle{device};
        ++calls.usb.openHandles;
    }
    return device->openResult;
}

unsigned char* libusb_dev_mem_alloc(libusb_device_handle* handle, size_t length)
{
    FakeCalls calls;
    if (!calls.Check(handle) || length == 0 || length > calls.usb.deviceMemoryLeft) {
        return nullptr;
    }
    calls.usb.deviceMemoryLeft -= length;
    Bytes block(length);
    uint8_t* const data = block.data();
    calls.usb.deviceMemory.emplace(data, std::move(block));
    return data;
}

int libusb_dev_mem_free(libusb_device_handle* handle, unsigned char* buffer, size_t length)
{
    FakeCalls calls;
    const auto found = calls.usb.deviceMemory.find(buffer);
    if (!calls.Check(handle) || found == calls.usb.deviceMemory.end() ||
        found->second.size() != length) {
        calls.usb.deviceMemoryMisused = true;
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    calls.usb.deviceMemoryLeft += length;
    calls.usb.deviceMemory.erase(found);
    return 0;
}

void libusb_close(libusb_device_handle* handle)
{
    FakeCalls calls;
    if (calls.Check(handle)) {
        calls.Note("close %s", handle->device->name.c_str());
        if (--calls.usb.openHandles == 0 && !calls.usb.deviceMemory.empty()) {
            calls.usb.deviceMemoryMisused = true;
        }
        delete handle;
    }
}

int libusb_get_string_descriptor_ascii(libusb_device_handle* handle, uint8_t index,
                                       unsigned char* data, int length)
{
    FakeCalls calls;
    if (!calls.Check(handle)) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    calls.Note("get_string %s index=%d length=%d", handle->device->name.c_str(), index, length);
    const auto found = handle->device->strings.find(index);
    if (found == handle->device->strings.end()) {
        return LIBUSB_ERROR_PIPE;
    }
    if (handle->device->unterminatedStrings) {
        std::memset(data, 'x', static_cast<size_t>(length));
        return length;
    }
    const size_t size = std::min(found->second.size(), static_cast<size_t>(length - 1));
    std::memcpy(data, found->second.data(), size);
    data[size] = 0;
    return static_cast<int>(size);
}

int libusb_kernel_driver_active(libusb_device_handle* handle, int number)
{
    FakeCalls calls;
    if (!calls.Check(handle)) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    calls.Note("kernel_driver_active %d", number);
    return handle->device->kernelDriver;
}

int libusb_detach_kernel_driver(libusb_device_handle* handle, int number)
{
    FakeCalls calls;
    calls.Check(handle);
    calls.Note("detach_kernel_driver %d", number);
    return 0;
}

int libusb_claim_interface(libusb_device_handle* handle, int number)
{
    FakeCalls calls;
    if (!calls.Check(handle)) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    calls.Note("claim_interface %d", number);
    const auto& results = handle->device->claimResults;
    const auto found = results.find(number);
    return found != results.end() ? found->second : 0;
}

int libusb_release_interface(libusb_device_handle* handle, int number)
{
    FakeCalls calls;
    calls.Check(handle);
    calls.Note("release_interface %d", number);
    return 0;
}

int libusb_bulk_transfer(libusb_device_handle* handle, unsigned char endpoint, unsigned char* data,
                         int length, int* transferred, unsigned int timeout)
{
    const auto hook = FakeUsb::Instance().onCall;
    if (hook) {
        hook();
    }
    FakeCalls calls;
    if (!calls.Check(handle)) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if ((endpoint & 0x80U) != 0) {
        calls.Note("bulk ep=0x%02x length=%d timeout=%u", endpoint, length, timeout);
    } else {
        calls.Note("bulk ep=0x%02x length=%d timeout=%u data=%s", endpoint, length, timeout,
                   Hex(data, static_cast<size_t>(length)).c_str());
    }
    return calls.Bulk(handle, endpoint, data, length, transferred);
}

int libusb_clear_halt(libusb_device_handle* handle, unsigned char endpoint)
{
    FakeCalls calls;
    calls.Check(handle);
    calls.Note("clear_halt ep=0x%02x", endpoint);
    calls.NoteBlocking();
    return 0;
}

libusb_transfer* libusb_alloc_transfer(int packets)
{
    FakeCalls calls;
    calls.Note("alloc_transfer packets=%d", packets);
    if (calls.usb.failAllocTransfer) {
        return nullptr;
    }
    ++calls.usb.liveTransfers;
    return static_cast<libusb_transfer*>(std::calloc(1, sizeof(libusb_transfer)));
}

void libusb_free_transfer(libusb_transfer* transfer)
{
    FakeCalls calls;
    calls.Note("free_transfer");
    if (transfer != nullptr) {
        --calls.usb.liveTransfers;
        std::free(transfer);
    }
}

int libusb_submit_transfer(libusb_transfer* transfer)
{
    FakeCalls calls;
    calls.Check(transfer->dev_handle);
    return calls.Submit(transfer);
}

void libusb_interrupt_event_handler(libusb_context* context)
{
    FakeCalls calls;
    calls.Note("interrupt_event_handler context=%s", context == nullptr ? "null" : "set");
    calls.Interrupt();
}

int libusb_handle_events_timeout(libusb_context* context, timeval* wait)
{
    {
        FakeCalls calls;
        calls.Note("handle_events context=%s seconds=%ld.%06ld",
                   context == nullptr ? "null" : "set", wait->tv_sec, wait->tv_usec);
    }
    const std::lock_guard events(FakeCalls::EventLock());
    FakeCalls calls;
    return calls.HandleEvents(
        std::chrono::milliseconds(wait->tv_sec * 1000 + wait->tv_usec / 1000));
}

} // extern "C"
