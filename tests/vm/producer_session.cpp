#include "producer_session.h"

#include <dlfcn.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>

#include "camera_layout.h"

namespace vmtest {

namespace {

Functions functions;

// One pass over the emulated machine's sixteen root hubs takes that long, and sometimes longer.
constexpr std::uint64_t kDiscoveryMs = 700;

constexpr std::size_t kAhead = 4; // images asked for ahead; fewer than there are buffers

template <typename Function>
void Resolve(void* library, const char* name, Function& function)
{
    void* const symbol = dlsym(library, name);
    if (symbol == nullptr) {
        throw Failure(std::string("no function ") + name);
    }
    static_assert(sizeof symbol == sizeof function);
    std::memcpy(&function, &symbol, sizeof symbol);
}

} // namespace

const Functions& Load(const std::string& path)
{
    void* const library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        throw Failure(dlerror());
    }
#define ZR_VM_RESOLVE(name) Resolve(library, #name, functions.name);
    ZR_VM_FUNCTIONS(ZR_VM_RESOLVE)
#undef ZR_VM_RESOLVE
    return functions;
}

const Functions& Gentl()
{
    return functions;
}

void Need(GC_ERROR status, const char* what)
{
    if (status != GC_ERR_SUCCESS) {
        throw Failure(std::string(what) + " answers " + std::to_string(status));
    }
}

Bus::Bus()
{
    Need(Gentl().GCInitLib(), "GCInitLib");
    Need(Gentl().TLOpen(&m_system), "TLOpen");
    Need(Gentl().TLUpdateInterfaceList(m_system, nullptr, 0), "TLUpdateInterfaceList");
    char id[256] = "";
    std::size_t size = sizeof id;
    Need(Gentl().TLGetInterfaceID(m_system, 0, id, &size), "TLGetInterfaceID");
    Need(Gentl().TLOpenInterface(m_system, id, &m_interface), "TLOpenInterface");
}

Bus::~Bus()
{
    Gentl().IFClose(m_interface);
    Gentl().TLClose(m_system);
    Gentl().GCCloseLib();
}

std::vector<std::string> Bus::Find(std::size_t wanted, int seconds)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    std::uint32_t count = 0;
    do {
        const GC_ERROR status = Gentl().IFUpdateDeviceList(m_interface, nullptr, kDiscoveryMs);
        if (status == GC_ERR_TIMEOUT) {
            continue; // no pass has come to its end
        }
        Need(status, "IFUpdateDeviceList");
        Need(Gentl().IFGetNumDevices(m_interface, &count), "IFGetNumDevices");
    } while (count < wanted && std::chrono::steady_clock::now() < end);
    std::vector<std::string> ids;
    for (std::uint32_t i = 0; i < count; ++i) {
        char id[256] = "";
        std::size_t size = sizeof id;
        Need(Gentl().IFGetDeviceID(m_interface, i, id, &size), "IFGetDeviceID");
        ids.emplace_back(id);
    }
    std::sort(ids.begin(), ids.end());
    return ids;
}

std::string Bus::Info(const std::string& id, DEVICE_INFO_CMD command) const
{
    char text[256] = "";
    std::size_t size = sizeof text;
    INFO_DATATYPE type = 0;
    Need(Gentl().IFGetDeviceInfo(m_interface, id.c_str(), command, &type, text, &size),
         "IFGetDeviceInfo");
    return text;
}

Camera::Camera(const Bus& bus, const std::string& id, unsigned buffers)
{
    Need(Gentl().IFOpenDevice(bus.Interface(), id.c_str(), DEVICE_ACCESS_EXCLUSIVE, &m_device),
         "IFOpenDevice");
    Need(Gentl().DevGetPort(m_device, &m_remote), "DevGetPort");
    char stream[256] = "";
    std::size_t size = sizeof stream;
    Need(Gentl().DevGetDataStreamID(m_device, 0, stream, &size), "DevGetDataStreamID");
    Need(Gentl().DevOpenDataStream(m_device, stream, &m_stream), "DevOpenDataStream");
    Need(Gentl().GCRegisterEvent(m_stream, EVENT_NEW_BUFFER, &m_event), "GCRegisterEvent");
    m_payload = ReadNumber(vcam::cam::kPayloadSize.address);
    m_expected.resize(m_payload);
    m_buffers.resize(buffers);
    for (BUFFER_HANDLE& buffer : m_buffers) {
        Need(Gentl().DSAllocAndAnnounceBuffer(m_stream, m_payload, nullptr, &buffer),
             "DSAllocAndAnnounceBuffer");
    }
    // A camera's seed counts on with its serial number.
    const std::vector<std::uint8_t> serial = Read(vcam::abrm::kSerialNumber, 64);
    const auto* text = reinterpret_cast<const char*>(serial.data());
    const auto seed = static_cast<std::uint32_t>(std::strtoul(text + 2, nullptr, 10));
    m_pattern.Configure(_Geometry(), vcam::Pattern::Bytes, seed);
}

Camera::~Camera()
{
    if (m_started) {
        Gentl().DSStopAcquisition(m_stream, ACQ_STOP_FLAGS_DEFAULT);
    }
    if (m_event != nullptr) {
        Gentl().DSFlushQueue(m_stream, ACQ_QUEUE_ALL_DISCARD);
        Gentl().GCUnregisterEvent(m_stream, EVENT_NEW_BUFFER);
    }
    for (BUFFER_HANDLE buffer : m_buffers) {
        Gentl().DSRevokeBuffer(m_stream, buffer, nullptr, nullptr);
    }
    Gentl().DSClose(m_stream);
    Gentl().DevClose(m_device);
}

vcam::ImageGeometry Camera::_Geometry() const
{
    vcam::ImageGeometry geometry;
    geometry.width = ReadNumber(vcam::cam::kWidth.address);
    geometry.height = ReadNumber(vcam::cam::kHeight.address);
    geometry.format = vcam::FindPixelFormat(ReadNumber(vcam::cam::kPixelFormat.address));
    if (geometry.format == nullptr || geometry.Payload() != m_payload) {
        throw Failure("the camera's registers do not fit its payload size");
    }
    return geometry;
}

std::vector<std::uint8_t> Camera::Read(std::uint64_t address, std::size_t size) const
{
    std::vector<std::uint8_t> data(size);
    Need(Gentl().GCReadPort(m_remote, address, data.data(), &size), "GCReadPort");
    data.resize(size);
    return data;
}

std::uint32_t Camera::ReadNumber(std::uint64_t address) const
{
    return vcam::LoadLe<std::uint32_t>(Read(address, 4).data());
}

GC_ERROR Camera::Write(std::uint64_t address, const void* data, std::size_t size) const
{
    return Gentl().GCWritePort(m_remote, address, data, &size);
}

// "local:NAME;ADDRESS;LENGTH", both hexadecimal.
std::vector<std::uint8_t> Camera::DescriptionFile() const
{
    char url[1024] = "";
    std::size_t size = sizeof url;
    INFO_DATATYPE type = 0;
    Need(Gentl().GCGetPortURLInfo(m_remote, 0, URL_INFO_URL, &type, url, &size), "URL");
    const char* const numbers = std::strchr(url, ';');
    if (std::strncmp(url, "local:", 6) != 0 || numbers == nullptr) {
        throw Failure(std::string("strange URL ") + url);
    }
    char* rest = nullptr;
    const std::uint64_t address = std::strtoull(numbers + 1, &rest, 16);
    const std::uint64_t length = std::strtoull(rest + 1, nullptr, 16);
    return Read(address, length);
}

void Camera::_Set(std::uint64_t address, std::uint32_t value) const
{
    Need(Write(address, &value, sizeof value), "GCWritePort");
}

void Camera::Start(std::uint64_t images, bool onDemand)
{
    m_onDemand = onDemand;
    _Set(vcam::cam::kTriggerMode.address, onDemand ? 1 : 0);
    for (BUFFER_HANDLE buffer : m_buffers) {
        Need(Gentl().DSQueueBuffer(m_stream, buffer), "DSQueueBuffer");
    }
    m_hasLast = false;
    Need(Gentl().DSStartAcquisition(m_stream, ACQ_START_FLAGS_DEFAULT, images),
         "DSStartAcquisition");
    m_started = true;
    for (std::size_t i = 0; onDemand && i < kAhead; ++i) {
        _Set(vcam::cam::kTriggerSoftware.address, 1);
    }
}

void Camera::Stop()
{
    m_started = false;
    if (m_onDemand) {
        // Nothing may be left of it when the next one wants the camera's own rate.
        _Set(vcam::cam::kTriggerMode.address, 0);
    }
    Need(Gentl().DSStopAcquisition(m_stream, ACQ_STOP_FLAGS_DEFAULT), "DSStopAcquisition");
    Need(Gentl().DSFlushQueue(m_stream, ACQ_QUEUE_ALL_DISCARD), "DSFlushQueue");
}

GC_ERROR Camera::Next(Tally& tally, std::uint64_t timeoutMs)
{
    EVENT_NEW_BUFFER_DATA data{};
    std::size_t size = sizeof data;
    const GC_ERROR status = Gentl().EventGetData(m_event, &data, &size, timeoutMs);
    if (status != GC_ERR_SUCCESS) {
        return status;
    }
    if (m_onDemand) {
        _Set(vcam::cam::kTriggerSoftware.address, 1);
    }
    _Compare(data.BufferHandle, tally);
    // After a limited acquisition nobody takes it any more; that is no mistake.
    return Gentl().DSQueueBuffer(m_stream, data.BufferHandle);
}

std::uint64_t Camera::_Number(BUFFER_HANDLE buffer, BUFFER_INFO_CMD command) const
{
    std::uint64_t value = 0;
    std::size_t size = sizeof value;
    INFO_DATATYPE type = 0;
    Need(Gentl().DSGetBufferInfo(m_stream, buffer, command, &type, &value, &size),
         "DSGetBufferInfo");
    return value;
}

// An image has to be, byte for byte, the frame whose number it carries.
void Camera::_Compare(BUFFER_HANDLE buffer, Tally& tally)
{
    const std::uint64_t number = _Number(buffer, BUFFER_INFO_FRAMEID);
    const std::uint64_t filled = _Number(buffer, BUFFER_INFO_SIZE_FILLED);
    const std::uint64_t incomplete = _Number(buffer, BUFFER_INFO_IS_INCOMPLETE);
    const auto* const bytes =
        reinterpret_cast<const std::uint8_t*>(_Number(buffer, BUFFER_INFO_BASE));
    ++tally.images;
    if (m_hasLast && number <= m_last) {
        ++tally.disorder;
    } else {
        tally.skipped += static_cast<unsigned>(number - (m_hasLast ? m_last + 1 : number));
    }
    m_hasLast = true;
    m_last = number;
    m_pattern.Fill(number, 0, m_expected.data(), m_expected.size());
    if (filled == m_payload && incomplete == 0 &&
        std::memcmp(bytes, m_expected.data(), m_payload) == 0) {
        return;
    }
    if (tally.wrong++ == 0) {
        const auto differs = std::mismatch(bytes, bytes + m_payload, m_expected.begin()).first;
        tally.first = "frame " + std::to_string(number) + ", filled " + std::to_string(filled) +
                      ", incomplete " + std::to_string(incomplete) + ", first difference at " +
                      std::to_string(differs - bytes);
    }
}

} // namespace vmtest
