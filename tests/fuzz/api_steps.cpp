// The exported functions with whatever a consumer can legally pass in C: any handle, any command,
// any size that its buffer really has, NULL for any pointer. Without the project's consumer, on
// purpose: that makes none of the calls that are wanted here.

#include "api_world.h"

#include <iterator>

namespace {

constexpr const char* kInterfaceId = "ZRK-USB-3-IF ID";
constexpr const char* kDeviceId = "120900000001";
constexpr uint64_t kWait = 5; // ms, the longest of a call that may wait

// An output buffer of exactly its size, or none, with its size argument, or none.
class Out
{
public:
    Out(FuzzInput& input, size_t capacity)
        : m_size(capacity), m_bytes(new uint8_t[capacity]()), m_hasBuffer(input.Below(8) != 0),
          m_hasSize(input.Below(24) != 0), m_hasType(input.Below(24) != 0)
    {
    }

    void* Buffer() { return m_hasBuffer ? m_bytes.get() : nullptr; }
    char* Text() { return static_cast<char*>(Buffer()); }
    size_t* Size() { return m_hasSize ? &m_size : nullptr; }
    INFO_DATATYPE* Type() { return m_hasType ? &m_type : nullptr; }

private:
    size_t m_size;
    std::unique_ptr<uint8_t[]> m_bytes;
    bool m_hasBuffer;
    bool m_hasSize;
    bool m_hasType;
    INFO_DATATYPE m_type = 0;
};

Out TakeOut(FuzzInput& input)
{
    constexpr size_t kSizes[] = {0, 1, 4, 8, 13, 16, 64, 256, 1024, 4096};
    return Out(input, kSizes[input.Below(std::size(kSizes))]);
}

int32_t TakeCommand(FuzzInput& input)
{
    const uint8_t byte = input.Byte();
    return byte < 240 ? byte % 36 : input.Take<int32_t>();
}

const char* TakeId(FuzzInput& input, const char* usual)
{
    static const std::string longId(5000, 'x');
    switch (input.Below(12)) {
    case 0: return nullptr;
    case 1: return "";
    case 2: return longId.c_str();
    case 3: return "120900000001 ";
    case 4: return "0";
    default: return usual;
    }
}

uint64_t TakeAddress(FuzzInput& input)
{
    constexpr uint64_t kAddresses[] = {
        0x0,     0x4,     0x1D0,   0x1D8,   0x10000, 0x20004, 0x50000, 0x50004, 0x50014, 0x50018,
        0x501EC, 0x501F4, 0x50614, 0x60000, 0x70000, 0x70410, 0x7041C, 0x7052C, 0x50008, 0x80000};
    return input.Below(6) == 0 ? input.Take<uint64_t>()
                               : kAddresses[input.Below(std::size(kAddresses))];
}

uint64_t TakeTime(FuzzInput& input)
{
    return input.Below(32) == 0 ? GENTL_INFINITE : input.Below(kWait + 1);
}

// ---- the camera comes, goes and misbehaves

void TakeFault(FuzzInput& input, ApiWorld& world)
{
    constexpr const char* kFaults[] = {"",
                                       "reply-missing*2",
                                       "reply-short:5",
                                       "reply-empty",
                                       "reply-long:40",
                                       "reply-late:5",
                                       "reply-doubled",
                                       "reply-stalled",
                                       "reply-wrong-prefix",
                                       "reply-wrong-id",
                                       "reply-wrong-request",
                                       "reply-wrong-length",
                                       "reply-status:32769",
                                       "reply-error:32770",
                                       "pending:3",
                                       "command-stalled",
                                       "unplug-at-command@3",
                                       "leader-lost",
                                       "leader-short:20",
                                       "leader-long:80",
                                       "leader-doubled",
                                       "leader-magic",
                                       "leader-id",
                                       "zero-length-leader",
                                       "stream-stall",
                                       "unplug-at-leader@2",
                                       "payload-lost",
                                       "payload-short:100",
                                       "payload-long:100",
                                       "payload-doubled",
                                       "payload-corrupt:3",
                                       "zero-length-payload",
                                       "unplug-in-payload@1",
                                       "trailer-lost",
                                       "trailer-short:3",
                                       "trailer-long:90",
                                       "trailer-doubled",
                                       "zero-length-trailer",
                                       "unplug-at-trailer@1",
                                       "alloc-fails",
                                       "submit-fails:-4",
                                       "transfer-error",
                                       "transfer-timeout",
                                       "transfer-cancelled",
                                       "transfer-stall",
                                       "transfer-no-device",
                                       "transfer-overflow",
                                       "open-permission",
                                       "open-busy",
                                       "claim-busy",
                                       "claim-fails",
                                       "strings-fail",
                                       "strings-odd",
                                       "info-short:6",
                                       "info-lies:90",
                                       "manifest-entries:3",
                                       "manifest-size-zero",
                                       "no-sirm",
                                       "no-stream-interface",
                                       "config-fails",
                                       "device-descriptor-fails"};
    vusb_set_faults(world.Camera().Id(), kFaults[input.Below(std::size(kFaults))]);
}

void TakeBusFailure(FuzzInput& input)
{
    constexpr const char* kFunctions[] = {"libusb_open",
                                          "libusb_get_device_list",
                                          "libusb_claim_interface",
                                          "libusb_bulk_transfer",
                                          "libusb_submit_transfer",
                                          "libusb_alloc_transfer",
                                          "libusb_get_config_descriptor",
                                          "libusb_get_device_descriptor",
                                          "libusb_get_string_descriptor_ascii",
                                          "libusb_init",
                                          "libusb_handle_events_timeout",
                                          "libusb_clear_halt"};
    const char* const function = kFunctions[input.Below(std::size(kFunctions))];
    vusb_fail_call(function, input.Below(4), 1 + input.Below(4),
                   -1 - static_cast<int>(input.Below(12)));
}

void HappenToCamera(FuzzInput& input, ApiWorld& world)
{
    const int id = world.Camera().Id();
    switch (input.Below(8)) {
    case 0: vusb_unplug(id); break;
    case 1: vusb_replug(id); break;
    case 2: vusb_clear_scripts(); break;
    case 3: TakeBusFailure(input); break;
    case 4: vusb_set_frame_rate(id, input.Flag() ? 0 : 500); break;
    default: TakeFault(input, world);
    }
}

// ---- the functions, by family

void LibraryStep(FuzzInput& input, ApiWorld& world)
{
    Out out = TakeOut(input);
    switch (input.Below(10)) {
    case 0: GCInitLib(); break;
    case 1: GCCloseLib(); break;
    case 2: GCGetInfo(TakeCommand(input), out.Type(), out.Buffer(), out.Size()); break;
    case 3: {
        GC_ERROR code = 0;
        GCGetLastError(input.Below(8) != 0 ? &code : nullptr, out.Text(), out.Size());
        break;
    }
    case 4: {
        void* handle = input.Below(8) != 0 ? nullptr : &world;
        if (TLOpen(input.Below(16) != 0 ? &handle : nullptr) == GC_ERR_SUCCESS) {
            world.Store(Kind::System, handle);
        }
        break;
    }
    case 5: TLClose(world.Pick(input, Kind::System)); break;
    case 6: input.Flag() ? ZrForceIPConfig() : ZrSetIPConfig(); break;
    default: HappenToCamera(input, world);
    }
}

void PortStep(FuzzInput& input, ApiWorld& world)
{
    const auto kind = static_cast<Kind>(input.Below(5));
    void* const port = world.Pick(input, kind);
    Out out = TakeOut(input);
    uint32_t number = 0;
    PORT_REGISTER_STACK_ENTRY entries[2] = {};
    uint8_t values[2][8] = {};
    for (size_t i = 0; i < 2; ++i) {
        entries[i].Address = TakeAddress(input);
        entries[i].pBuffer = values[i];
        entries[i].Size = input.Below(9);
    }
    size_t count = input.Below(3);
    switch (input.Below(9)) {
    case 0: GCReadPort(port, TakeAddress(input), out.Buffer(), out.Size()); break;
    case 1: GCWritePort(port, TakeAddress(input), out.Buffer(), out.Size()); break;
    case 2: GCGetPortURL(port, out.Text(), out.Size()); break;
    case 3: GCGetPortInfo(port, TakeCommand(input), out.Type(), out.Buffer(), out.Size()); break;
    case 4: GCGetNumPortURLs(port, &number); break;
    case 5:
        GCGetPortURLInfo(port, input.Below(3), TakeCommand(input), out.Type(), out.Buffer(),
                         out.Size());
        break;
    case 6: GCReadPortStacked(port, entries, &count); break;
    case 7: GCWritePortStacked(port, entries, &count); break;
    default: {
        uint32_t value = input.Below(3);
        size_t size = sizeof(value);
        GCWritePort(world.Newest(Kind::Port), TakeAddress(input), &value, &size);
    }
    }
}

void EventStep(FuzzInput& input, ApiWorld& world)
{
    void* const event = world.Pick(input, Kind::Event);
    Out out = TakeOut(input);
    switch (input.Below(8)) {
    case 0: {
        const auto source = static_cast<Kind>(input.Below(5));
        void* handle = nullptr;
        if (GCRegisterEvent(world.Pick(input, source), static_cast<EVENT_TYPE>(input.Below(8)),
                            input.Below(16) != 0 ? &handle : nullptr) == GC_ERR_SUCCESS) {
            world.Store(Kind::Event, handle);
        }
        break;
    }
    case 1:
        GCUnregisterEvent(world.Pick(input, static_cast<Kind>(input.Below(5))),
                          static_cast<EVENT_TYPE>(input.Below(8)));
        break;
    case 2: EventGetData(event, out.Buffer(), out.Size(), TakeTime(input)); break;
    case 3: {
        const std::vector<uint8_t> record = input.Bytes(input.Below(40));
        EventGetDataInfo(event, record.empty() ? nullptr : record.data(), record.size(),
                         TakeCommand(input), out.Type(), out.Buffer(), out.Size());
        break;
    }
    case 4: EventGetInfo(event, TakeCommand(input), out.Type(), out.Buffer(), out.Size()); break;
    case 5: EventFlush(event); break;
    case 6: EventKill(event); break;
    default: {
        // What a consumer does with an image: it takes it and queues its buffer again.
        EVENT_NEW_BUFFER_DATA data{};
        size_t size = sizeof(data);
        if (EventGetData(event, &data, &size, kWait) == GC_ERR_SUCCESS) {
            DSQueueBuffer(world.Pick(input, Kind::Stream), data.BufferHandle);
        }
    }
    }
}

void SystemStep(FuzzInput& input, ApiWorld& world)
{
    void* const system = world.Pick(input, Kind::System);
    Out out = TakeOut(input);
    uint32_t number = 0;
    bool8_t changed = false;
    switch (input.Below(6)) {
    case 0: TLGetInfo(system, TakeCommand(input), out.Type(), out.Buffer(), out.Size()); break;
    case 1: TLGetNumInterfaces(system, input.Below(8) != 0 ? &number : nullptr); break;
    case 2: TLGetInterfaceID(system, input.Below(3), out.Text(), out.Size()); break;
    case 3:
        TLGetInterfaceInfo(system, TakeId(input, kInterfaceId), TakeCommand(input), out.Type(),
                           out.Buffer(), out.Size());
        break;
    case 4: {
        void* handle = nullptr;
        if (TLOpenInterface(system, TakeId(input, kInterfaceId), &handle) == GC_ERR_SUCCESS) {
            world.Store(Kind::Interface, handle);
        }
        break;
    }
    default: TLUpdateInterfaceList(system, input.Flag() ? &changed : nullptr, TakeTime(input));
    }
}

void InterfaceStep(FuzzInput& input, ApiWorld& world)
{
    void* const iface = world.Pick(input, Kind::Interface);
    Out out = TakeOut(input);
    uint32_t number = 0;
    bool8_t changed = false;
    void* handle = nullptr;
    switch (input.Below(8)) {
    case 0: IFClose(iface); break;
    case 1: IFGetInfo(iface, TakeCommand(input), out.Type(), out.Buffer(), out.Size()); break;
    case 2: IFGetNumDevices(iface, input.Below(8) != 0 ? &number : nullptr); break;
    case 3: IFGetDeviceID(iface, input.Below(3), out.Text(), out.Size()); break;
    case 4: IFUpdateDeviceList(iface, input.Flag() ? &changed : nullptr, TakeTime(input)); break;
    case 5:
        IFGetDeviceInfo(iface, TakeId(input, kDeviceId), TakeCommand(input), out.Type(),
                        out.Buffer(), out.Size());
        break;
    case 6:
        if (IFOpenDevice(iface, TakeId(input, kDeviceId), static_cast<int32_t>(input.Below(6)),
                         &handle) == GC_ERR_SUCCESS) {
            world.Store(Kind::Device, handle);
        }
        break;
    default: IFGetParentTL(iface, &handle);
    }
}

void DeviceStep(FuzzInput& input, ApiWorld& world)
{
    void* const device = world.Pick(input, Kind::Device);
    Out out = TakeOut(input);
    uint32_t number = 0;
    void* handle = nullptr;
    switch (input.Below(7)) {
    case 0:
        if (DevGetPort(device, input.Below(8) != 0 ? &handle : nullptr) == GC_ERR_SUCCESS) {
            world.Store(Kind::Port, handle);
        }
        break;
    case 1: DevGetNumDataStreams(device, &number); break;
    case 2: DevGetDataStreamID(device, input.Below(3), out.Text(), out.Size()); break;
    case 3:
        if (DevOpenDataStream(device, TakeId(input, "0"), &handle) == GC_ERR_SUCCESS) {
            world.Store(Kind::Stream, handle);
        }
        break;
    case 4: DevGetInfo(device, TakeCommand(input), out.Type(), out.Buffer(), out.Size()); break;
    case 5: DevClose(device); break;
    default: DevGetParentIF(device, &handle);
    }
}

void BufferStep(FuzzInput& input, ApiWorld& world)
{
    void* const stream = world.Pick(input, Kind::Stream);
    void* const buffer = world.Pick(input, Kind::Buffer);
    Out out = TakeOut(input);
    void* base = nullptr;
    void* context = nullptr;
    void* handle = nullptr;
    uint32_t number = 0;
    SINGLE_CHUNK_DATA chunk{};
    size_t chunks = 1;
    switch (input.Below(10)) {
    case 0: {
        const size_t size = input.Take<uint16_t>() % 6000U;
        if (DSAnnounceBuffer(stream, input.Below(16) != 0 ? world.Memory(size) : nullptr, size,
                             &world, &handle) == GC_ERR_SUCCESS) {
            world.Store(Kind::Buffer, handle);
        }
        break;
    }
    case 1:
        if (DSAllocAndAnnounceBuffer(stream, input.Take<uint16_t>(), nullptr, &handle) ==
            GC_ERR_SUCCESS) {
            world.Store(Kind::Buffer, handle);
        }
        break;
    case 2: DSRevokeBuffer(stream, buffer, input.Flag() ? &base : nullptr, &context); break;
    case 3:
    case 4: DSQueueBuffer(stream, buffer); break;
    case 5:
        DSGetBufferInfo(stream, buffer, TakeCommand(input), out.Type(), out.Buffer(), out.Size());
        break;
    case 6:
        if (DSGetBufferID(stream, input.Below(6), &handle) == GC_ERR_SUCCESS) {
            world.Store(Kind::Buffer, handle);
        }
        break;
    case 7: DSGetBufferChunkData(stream, buffer, &chunk, &chunks); break;
    case 8: DSGetNumBufferParts(stream, buffer, &number); break;
    default:
        DSGetBufferPartInfo(stream, buffer, 0, TakeCommand(input), out.Type(), out.Buffer(),
                            out.Size());
    }
}

void StreamStep(FuzzInput& input, ApiWorld& world)
{
    void* const stream = world.Pick(input, Kind::Stream);
    Out out = TakeOut(input);
    void* handle = nullptr;
    switch (input.Below(6)) {
    case 0: DSFlushQueue(stream, static_cast<int32_t>(input.Below(7))); break;
    case 1:
        DSStartAcquisition(stream, static_cast<int32_t>(input.Below(2)),
                           input.Flag() ? GENTL_INFINITE : input.Below(5));
        break;
    case 2: DSStopAcquisition(stream, static_cast<int32_t>(input.Below(3))); break;
    case 3: DSGetInfo(stream, TakeCommand(input), out.Type(), out.Buffer(), out.Size()); break;
    case 4: DSClose(stream); break;
    default: DSGetParentDev(stream, &handle);
    }
}

} // namespace

void ApiStep(FuzzInput& input, ApiWorld& world)
{
    constexpr void (*kFamilies[])(FuzzInput&, ApiWorld&) = {LibraryStep, PortStep,      EventStep,
                                                            SystemStep,  InterfaceStep, DeviceStep,
                                                            BufferStep,  StreamStep};
    kFamilies[input.Below(std::size(kFamilies))](input, world);
}

void ApiPrelude(ApiWorld& world, unsigned depth)
{
    void* handles[5] = {};
    if (depth < 1 || GCInitLib() != GC_ERR_SUCCESS || TLOpen(&handles[0]) != GC_ERR_SUCCESS) {
        return;
    }
    world.Store(Kind::System, handles[0]);
    TLUpdateInterfaceList(handles[0], nullptr, 0);
    if (depth < 2 || TLOpenInterface(handles[0], kInterfaceId, &handles[1]) != GC_ERR_SUCCESS) {
        return;
    }
    world.Store(Kind::Interface, handles[1]);
    uint32_t devices = 0;
    for (unsigned attempt = 0; attempt < 50 && devices == 0; ++attempt) {
        IFUpdateDeviceList(handles[1], nullptr, kWait); // may be too short on a busy machine
        IFGetNumDevices(handles[1], &devices);
    }
    if (depth < 3 ||
        IFOpenDevice(handles[1], kDeviceId, DEVICE_ACCESS_CONTROL, &handles[2]) != GC_ERR_SUCCESS) {
        return;
    }
    world.Store(Kind::Device, handles[2]);
    if (DevGetPort(handles[2], &handles[3]) == GC_ERR_SUCCESS) {
        world.Store(Kind::Port, handles[3]);
    }
    if (depth < 4 || DevOpenDataStream(handles[2], "0", &handles[3]) != GC_ERR_SUCCESS) {
        return;
    }
    world.Store(Kind::Stream, handles[3]);
    for (unsigned buffers = 0; depth >= 5 && buffers < 3; ++buffers) {
        void* buffer = nullptr;
        const size_t size = world.Camera().PayloadSize();
        if (DSAnnounceBuffer(handles[3], world.Memory(size), size, nullptr, &buffer) ==
            GC_ERR_SUCCESS) {
            world.Store(Kind::Buffer, buffer);
            DSQueueBuffer(handles[3], buffer);
        }
    }
    if (depth >= 6 &&
        GCRegisterEvent(handles[3], EVENT_NEW_BUFFER, &handles[4]) == GC_ERR_SUCCESS) {
        world.Store(Kind::Event, handles[4]);
    }
    if (depth >= 7) {
        DSStartAcquisition(handles[3], ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE);
    }
}
