#include "opened_camera.h"

#include <algorithm>
#include <array>
#include <utility>

#include "error.h"
#include "event_loop.h"
#include "failure_kind.h"
#include "manifest_files.h"
#include "stream_receiver.h"
#include "text.h"
#include "wakeup.h"

namespace u3v_host {

namespace {

// More files than any camera has.
constexpr uint64_t kManifestEntries = 64;
constexpr uint64_t kUtf16 = 2; // as the capability register codes it

// Where a camera is being opened, whatever it refuses or leaves unanswered comes to the same: it is
// no camera that works.
Error OpeningError(const Error& error)
{
    const bool isOurs = error.Kind() == ErrorKind::ResourceExhausted;
    return {isOurs ? error.Kind() : ErrorKind::Io,
            std::string("opening the camera: ") + error.what()};
}

} // namespace

ClaimedInterfaces::ClaimedInterfaces(UsbHandle handle, const EventLoop& loop)
    : m_handle(std::move(handle)), m_loop(loop)
{
    // Where that is not known there is no driver to detach either.
    libusb_set_auto_detach_kernel_driver(m_handle.get(), 1);
}

ClaimedInterfaces::~ClaimedInterfaces()
{
    if (m_loop.IsForked()) {
        return; // they are the parent's
    }
    for (auto number = m_numbers.rbegin(); number != m_numbers.rend(); ++number) {
        libusb_release_interface(m_handle.get(), *number);
    }
}

void ClaimedInterfaces::Claim(uint8_t number)
{
    m_numbers.reserve(m_numbers.size() + 1);
    const int result = libusb_claim_interface(m_handle.get(), number);
    if (result != LIBUSB_SUCCESS) {
        throw Error(KindOfUsbError(result), "claiming interface " + std::to_string(number) +
                                                " of the camera: " + libusb_error_name(result));
    }
    m_numbers.push_back(number);
}

OpenedCamera::OpenedCamera(const Parts& parts, std::function<void()> onClose)
    : m_loop(parts.loop), m_onClose(std::move(onClose)), m_handle(parts.handle),
      m_descriptors(parts.descriptors), m_mode(parts.mode), m_claimed(parts.handle, parts.loop),
      m_gone(parts.loop),
      m_control(parts.handle, parts.descriptors.control.value(), parts.loop, m_gone, parts.limits),
      m_memory(parts.handle), m_info(parts.info)
{
    _claim();
    try {
        _clearHalts();
        m_control.ReadAwayOldAnswers();
        _bootstrap();
    } catch (const Error& error) {
        throw OpeningError(error);
    }
}

OpenedCamera::~OpenedCamera()
{
    m_onClose();
    m_events.reset();
    m_loop.Forget(static_cast<StreamLink*>(this));
}

void OpenedCamera::_claim()
{
    m_claimed.Claim(m_descriptors.controlInterface);
    for (const auto& endpoint : {m_descriptors.event, m_descriptors.stream}) {
        if (endpoint) {
            m_claimed.Claim(endpoint->interfaceNumber);
        }
    }
}

// A process that was killed may have left any of them halted.
void OpenedCamera::_clearHalts()
{
    libusb_clear_halt(m_handle.get(), m_descriptors.control->out);
    libusb_clear_halt(m_handle.get(), m_descriptors.control->in);
    for (const auto& endpoint : {m_descriptors.event, m_descriptors.stream}) {
        if (endpoint) {
            libusb_clear_halt(m_handle.get(), endpoint->address);
        }
    }
}

void OpenedCamera::_bootstrap()
{
    m_control.SetResponseTime(m_control.Read(abrm::kMaximumDeviceResponseTime));
    const uint64_t sbrm = m_control.Read(abrm::kSbrmAddress);
    const uint32_t maximumCommand = m_control.Read(sbrm::kMaximumCommandTransfer.At(sbrm));
    const uint32_t maximumAcknowledge = m_control.Read(sbrm::kMaximumAcknowledgeTransfer.At(sbrm));
    m_control.SetTransferLimits(maximumCommand, maximumAcknowledge);
    m_capability = m_control.Read(abrm::kDeviceCapability);
    _readInterfaces(sbrm);
    _readTexts();
    _readManifest();
}

void OpenedCamera::_readInterfaces(uint64_t sbrm)
{
    const uint64_t has = m_control.Read(sbrm::kU3VCPCapability.At(sbrm));
    if (m_descriptors.stream && (has & sbrm::kSirmAvailable) != 0) {
        m_sirm = m_control.Read(sbrm::kSirmAddress.At(sbrm));
        _switchOff(sirm::kControl.At(m_sirm), sirm::kStreamEnable);
    }
    if (m_descriptors.event && (has & sbrm::kEirmAvailable) != 0) {
        const uint64_t eirm = m_control.Read(sbrm::kEirmAddress.At(sbrm));
        _switchOff(eirm::kControl.At(eirm), eirm::kEventEnable);
        m_events = std::make_unique<EventChannel>(m_handle, *m_descriptors.event, eirm,
                                                  (m_capability & abrm::kHasMultiEvent) != 0,
                                                  m_control, m_loop, m_gone);
    }
}

void OpenedCamera::_switchOff(Register<uint32_t> control, uint32_t bit)
{
    const uint32_t value = m_control.Read(control);
    if ((value & bit) != 0) {
        m_control.Write(control, value & ~bit);
    }
}

// The camera works without; what cannot be read there is nothing that can be offered.
void OpenedCamera::_readManifest()
{
    std::vector<ManifestEntry> entries;
    try {
        const uint64_t table = m_control.Read(abrm::kManifestTableAddress);
        const uint64_t count =
            m_control.Read(Register<uint64_t>{table + manifest_wire::kEntryCount.offset});
        std::array<uint8_t, manifest_wire::kEntrySize> bytes{};
        for (uint64_t i = 0; table != 0 && i < std::min(count, kManifestEntries); ++i) {
            size_t done = 0;
            m_control.Read(table + manifest_wire::kEntriesOffset + i * bytes.size(), bytes, done);
            entries.push_back(ParseManifestEntry(bytes));
        }
    } catch (const Error&) {
        if (m_gone.IsGone()) {
            throw;
        }
    }
    Locker lock(m_infoMutex);
    m_files = DescriptionFilesOf(entries, m_info.vendor + '_' + m_info.model);
}

void OpenedCamera::_readTexts()
{
    Locker lock(m_infoMutex);
    _readText(abrm::kManufacturerName, m_info.vendor);
    _readText(abrm::kModelName, m_info.model);
    _readText(abrm::kDeviceVersion, m_info.version);
    _readText(abrm::kManufacturerInfo, m_info.manufacturerInfo);
    _readText(abrm::kSerialNumber, m_info.serial);
    if ((m_capability & abrm::kHasFamilyName) != 0) {
        _readText(abrm::kFamilyName, m_info.family);
    }
    if ((m_capability & abrm::kHasUserDefinedName) != 0) {
        _readText(abrm::kUserDefinedName, m_info.userDefinedName);
    }
}

// What the camera refuses to tell stays as it is known from outside.
void OpenedCamera::_readText(TextRegister reg, std::string& text) const
{
    std::array<uint8_t, TextRegister::kSize> bytes{};
    size_t done = 0;
    try {
        m_control.Read(reg.address, bytes, done);
    } catch (const Error& error) {
        if (m_gone.IsGone() || error.Kind() == ErrorKind::Timeout) {
            throw;
        }
        return;
    }
    const bool isUtf16 =
        (m_capability >> abrm::kStringEncodingShift & abrm::kStringEncodingMask) == kUtf16;
    std::string read = isUtf16 ? CleanUtf16(bytes) : CleanUtf8(bytes);
    if (!read.empty() || reg.address == abrm::kUserDefinedName.address) {
        text = std::move(read);
    }
}

std::string OpenedCamera::_lastName() const
{
    Locker lock(m_infoMutex);
    return m_info.userDefinedName;
}

CameraInfo OpenedCamera::Info() const
{
    if (m_written.exchange(false) && (m_capability & abrm::kHasUserDefinedName) != 0) {
        try {
            std::string name = _lastName(); // which it keeps when the camera refuses
            _readText(abrm::kUserDefinedName, name);
            Locker lock(m_infoMutex);
            m_info.userDefinedName = std::move(name);
        } catch (const Error&) { // then, too
        }
    }
    Locker lock(m_infoMutex);
    return m_info;
}

LinkSpeed OpenedCamera::Speed() const
{
    switch (libusb_get_device_speed(libusb_get_device(m_handle.get()))) {
    case LIBUSB_SPEED_HIGH: return 60'000'000;
    case LIBUSB_SPEED_SUPER: return 625'000'000;
    case LIBUSB_SPEED_SUPER_PLUS: return 1'250'000'000;
    default: return 0;
    }
}

void OpenedCamera::Read(uint64_t address, std::span<uint8_t> destination, size_t& done)
{
    m_control.Read(address, destination, done);
}

void OpenedCamera::Write(uint64_t address, std::span<const uint8_t> source, size_t& done)
{
    done = 0;
    if (m_mode == OpenMode::ReadOnly) {
        throw Error(ErrorKind::AccessDenied, "writing " + std::to_string(source.size()) +
                                                 " bytes at " + HexText(address) +
                                                 " failed: the camera is open for reading only");
    }
    m_written = true;
    m_control.Write(address, source, done);
    m_written = true; // once more: it may have been read in between
}

void OpenedCamera::_requireStream() const
{
    if (m_sirm == 0) {
        throw Error(ErrorKind::NotAvailable, "this camera has no stream");
    }
}

uint64_t OpenedCamera::PayloadSize()
{
    _requireStream();
    return m_control.Read(sirm::kRequiredPayloadSize.At(m_sirm));
}

std::unique_ptr<BufferMemory> OpenedCamera::AllocateBuffer(size_t size)
{
    return m_memory.Allocate(size);
}

std::unique_ptr<StreamReceiver> OpenedCamera::OpenStream(ImageSink& sink)
{
    _requireStream();
    return MakeStreamReceiver(*this, sink);
}

std::unique_ptr<Wakeup> OpenedCamera::MakeWakeup()
{
    return m_loop.MakeWakeup();
}

void OpenedCamera::OnEvent(std::function<void(const CameraEvent&)> listener)
{
    if (m_events != nullptr) {
        m_events->Listen(std::move(listener));
    } else if (listener) {
        throw Error(ErrorKind::NotAvailable, "this camera has no event interface");
    }
}

void OpenedCamera::ReadRegisters(uint64_t address, std::span<uint8_t> bytes)
{
    size_t done = 0;
    m_control.Read(address, bytes, done);
}

void OpenedCamera::WriteRegisters(uint64_t address, std::span<const uint8_t> bytes)
{
    size_t done = 0;
    m_control.Write(address, bytes, done);
}

void OpenedCamera::Defer(std::chrono::milliseconds delay, std::function<void()> job)
{
    m_loop.Post(static_cast<StreamLink*>(this), std::move(job), delay);
}

} // namespace u3v_host
