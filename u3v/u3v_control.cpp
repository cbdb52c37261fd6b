#include "u3v_control.h"

#include "u3v_common.h"

#include "registers.h"
#include "zip_reader.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <zr_u3v_tl/zr_logging.h>

namespace wire = control_wire;

namespace {

// Answers to earlier commands that one exchange reads away before it counts as misanswered.
constexpr unsigned kMaximumLateAnswers = 16;

// Every failing transfer counts as a time-out of the message.
uint16_t StatusOfTransfer(int result)
{
    return result < 0 ? U3V_STATUS_GENCP_MSG_TIMEOUT : U3V_STATUS_SUCCESS;
}

} // namespace

U3V_Control::U3V_Control(U3V_Device* device, const U3V_ControlLimits& limits)
    : m_pDevice(device), m_limits(limits), m_ackBuffer(UsbBlock::AllocateZeroed(kAckBufferSize)),
      m_timeout(limits.defaultTimeout)
{
}

U3V_Control::~U3V_Control()
{
    libusb_device_handle* handle = m_pDevice->Handle();
    if (handle == nullptr) {
        return;
    }
    _readOutstandingAnswers();
    // Quirk Q55: an interface numbered 0 is never released; closing the handle does that.
    for (const uint8_t number :
         {m_pDevice->StreamInterface, m_pDevice->EventInterface, m_pDevice->ControlInterface}) {
        if (number != 0) {
            libusb_release_interface(handle, number);
        }
    }
}

// The next channel on this camera counts its commands from 1 again and would take an answer that we
// leave unread for its own, and be off by one from then on.
void U3V_Control::_readOutstandingAnswers()
{
    Locker lock(m_mutex);
    for (unsigned i = 0; i < kMaximumLateAnswers && m_outstanding.Any(); ++i) {
        std::fill_n(m_ackBuffer.Data(), wire::kLongAckSize, uint8_t{0});
        int received = 0;
        if (libusb_bulk_transfer(m_pDevice->Handle(), m_pDevice->ControlInEndpoint,
                                 m_ackBuffer.Data(), static_cast<int>(m_ackBuffer.Size()),
                                 &received, m_limits.closingTimeout) < 0) {
            return; // nothing there, or no camera any more
        }
        if (!_isPending()) {
            m_outstanding.Arrived(Load(m_ackBuffer.Bytes(), wire::kAckRequestId));
        }
    }
}

uint16_t U3V_Control::OpenControl()
{
    Locker lock(m_mutex);
    const auto address = reinterpret_cast<uintptr_t>(m_pDevice->Handle());
    g_logger.Trace(ZR_LOG_DEBUG, "%s m_pDevice->m_pDeviceHandle: 0x%08x ", "OpenControl",
                   static_cast<unsigned>(address));
    if (!_claim()) {
        g_logger.Trace(ZR_LOG_ERROR, "%s Can't open/claiming control interface.", "OpenControl");
        return U3V_STATUS_CLAIM_FAILED;
    }
    _reset();
    const uint16_t status = _readBootstrap();
    if (status != U3V_STATUS_SUCCESS) {
        _noteForeignAnswer();
        // Quirk Q56: the channel stays claimed and open, so that the caller may still look around.
        g_logger.Trace(ZR_LOG_ERROR, "%s Error open control interface.", "OpenControl");
        return status;
    }
    g_logger.Trace(ZR_LOG_DEBUG, "%s Open control interface successful.", "OpenControl");
    return U3V_STATUS_SUCCESS;
}

bool U3V_Control::_claim()
{
    libusb_device_handle* handle = m_pDevice->Handle();
    if (handle == nullptr) {
        return false; // the device was never opened
    }
    const int number = m_pDevice->ControlInterface;
    if (libusb_kernel_driver_active(handle, number) == 1) {
        libusb_detach_kernel_driver(handle, number); // claiming tells whether it helped
    }
    return libusb_claim_interface(handle, number) >= 0;
}

void U3V_Control::_reset()
{
    m_xmlFile = {};
    m_requestId = 0;
    m_outstanding.Clear();
    m_writtenLength = false;
    m_opened = true;
}

template <class T, class Register>
uint16_t U3V_Control::_readRegister(Register reg, T& value)
{
    uint8_t bytes[sizeof(T)] = {};
    const uint16_t status = _read(reg.address, bytes);
    if (status == U3V_STATUS_SUCCESS) {
        value = Load(std::span<const uint8_t>(bytes), Field<T>{0});
    }
    return status;
}

uint16_t U3V_Control::_readBootstrap()
{
    uint64_t wide = 0;
    uint16_t status = _readRegister(abrm::kSbrmAddress, wide);
    if (status != U3V_STATUS_SUCCESS) {
        return status;
    }
    m_sbrmAddress = wide;

    // Quirk Q57: read together with the low half of the manifest address that follows it.
    if ((status = _readRegister(abrm::kMaximumDeviceResponseTime, wide)) != U3V_STATUS_SUCCESS) {
        return status;
    }
    m_timeout = static_cast<uint32_t>(wide); // from the next transfer on

    // The address is the camera's word and not checked: a wrong one only makes it refuse.
    const uint64_t base = m_sbrmAddress;
    // Cameras know this sequence; of the sizes none is needed here.
    uint32_t value = 0;
    for (const auto& reg : {sbrm::kMaximumCommandTransfer, sbrm::kMaximumAcknowledgeTransfer,
                            sbrm::kNumberOfStreamChannels}) {
        if ((status = _readRegister(reg.At(base), value)) != U3V_STATUS_SUCCESS) {
            return status;
        }
    }
    m_streamChannels = value;

    if ((status = _readRegister(abrm::kDeviceCapability, wide)) != U3V_STATUS_SUCCESS) {
        return status;
    }
    m_writtenLength = (wide & abrm::kHasWrittenLength) != 0;
    constexpr uint8_t kNoConfiguration[sizeof(uint64_t)] = {};
    return _write(abrm::kDeviceConfiguration.address, kNoConfiguration);
}

uint16_t U3V_Control::ReadMem(uint64_t address, void* destination, int16_t length)
{
    const auto size = static_cast<size_t>(length); // a negative one is huge and refused as such
    Locker lock(m_mutex);
    if (!m_opened) {
        return U3V_STATUS_NOT_OPEN;
    }
    if (size > kMaximumRead || (destination == nullptr && size > 0)) {
        return U3V_STATUS_GENCP_INVALID_PARAMETER;
    }
    return _read(address, {static_cast<uint8_t*>(destination), size});
}

uint16_t U3V_Control::WriteMem(uint64_t address, const void* source, int16_t length)
{
    return WriteMemSized(address, source, static_cast<size_t>(length));
}

uint16_t U3V_Control::WriteMemSized(uint64_t address, const void* source, size_t length)
{
    Locker lock(m_mutex);
    if (!m_opened) {
        return U3V_STATUS_NOT_OPEN;
    }
    if (length > kMaximumWrite || (source == nullptr && length > 0)) {
        return U3V_STATUS_GENCP_INVALID_PARAMETER;
    }
    return _write(address, {static_cast<const uint8_t*>(source), length});
}

uint16_t U3V_Control::_nextRequestId()
{
    return m_requestId = U3V_OutstandingAnswers::NextId(m_requestId); // 0 is never sent
}

std::span<uint8_t> U3V_Control::_beginCommand(uint16_t command, uint64_t address, size_t length,
                                              size_t packetSize)
{
    const std::span<uint8_t> packet(m_command, packetSize);
    std::fill(packet.begin(), packet.end(), uint8_t{0});
    Store(packet, wire::kCommandPrefix, wire::kPrefix);
    Store(packet, wire::kCommandFlags, wire::kFlagRequestAck);
    Store(packet, wire::kCommandId, command);
    Store(packet, wire::kCommandLength, static_cast<uint16_t>(length));
    Store(packet, wire::kCommandRequestId, _nextRequestId());
    Store(packet, wire::kCommandAddress, address);
    return packet;
}

int U3V_Control::_transfer(uint8_t endpoint, uint8_t* data, size_t size, uint32_t timeout,
                           int& transferred)
{
    transferred = 0;
    const int result = libusb_bulk_transfer(m_pDevice->Handle(), endpoint, data,
                                            static_cast<int>(size), &transferred, timeout);
    if (result < 0) {
        // A stalled endpoint stays so until it is cleared. Not asked for the kind of failure: the
        // clearing does no harm where nothing has stalled, and fails harmlessly without a camera.
        libusb_clear_halt(m_pDevice->Handle(), endpoint);
    }
    return result;
}

uint16_t U3V_Control::_send(std::span<uint8_t> packet)
{
    int sent = 0;
    return StatusOfTransfer(_transfer(m_pDevice->ControlOutEndpoint, packet.data(), packet.size(),
                                      _transferTimeout(), sent));
}

// One acknowledge. Answers to earlier commands that ended by time-out are read away: otherwise a
// single late one would put every later exchange off by one for as long as the camera is open.
uint16_t U3V_Control::_receive(size_t size, uint32_t timeout, int& received)
{
    using std::chrono::steady_clock;
    const auto deadline = steady_clock::now() + std::chrono::milliseconds(timeout);
    int result = 0;
    for (unsigned late = 0; late <= kMaximumLateAnswers; ++late) {
        // A short packet must not be completed by what an earlier one left in the buffer.
        std::fill_n(m_ackBuffer.Data(), wire::kLongAckSize, uint8_t{0});
        result =
            _transfer(m_pDevice->ControlInEndpoint, m_ackBuffer.Data(), size, timeout, received);
        if (result < 0 || !_isLateAnswer(received)) {
            break;
        }
        // All of them share one time-out, or a camera could stretch it seventeen-fold. Never 0,
        // which is no time-out to libusb.
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - steady_clock::now());
        timeout = static_cast<uint32_t>(std::max<int64_t>(left.count(), 1));
    }
    _noteOutcome(result);
    return StatusOfTransfer(result);
}

// Announces that the answer is still to come.
bool U3V_Control::_isPending() const
{
    const std::span<const uint8_t> ack = m_ackBuffer.Bytes();
    return Load(ack, wire::kAckPrefix) == wire::kPrefix &&
           Load(ack, wire::kAckCommandId) == wire::kPendingAck;
}

// Each answer can be late once, apart from pending acknowledges. Any id that nobody waits for is a
// wrong one and reported as such.
bool U3V_Control::_isLateAnswer(int received)
{
    const std::span<const uint8_t> ack = m_ackBuffer.Bytes();
    const uint16_t id = Load(ack, wire::kAckRequestId);
    // Without a whole header of ours there is no id to go by.
    if (received < static_cast<int>(wire::kAckHeaderSize) ||
        Load(ack, wire::kAckPrefix) != wire::kPrefix || id == m_requestId ||
        !m_outstanding.Await(id)) {
        return false;
    }
    if (!_isPending()) {
        m_outstanding.Arrived(id);
    }
    return true;
}

// Whatever was taken for the answer is the answer, right or wrong: only a command that got none by
// the time, or a mere announcement of it, may still get one. A halted endpoint gives nothing away
// once it is cleared.
void U3V_Control::_noteOutcome(int result)
{
    if (result == LIBUSB_ERROR_TIMEOUT || (result >= 0 && _isPending())) {
        m_outstanding.Add(m_requestId);
    } else if (result >= 0) {
        m_outstanding.Clear();
    }
}

// An opening that failed because somebody before us left an answer behind: the one to our own
// command is then still to come, and the next opening must not find it.
void U3V_Control::_noteForeignAnswer()
{
    const std::span<const uint8_t> ack = m_ackBuffer.Bytes();
    if (Load(ack, wire::kAckPrefix) == wire::kPrefix &&
        Load(ack, wire::kAckRequestId) != m_requestId) {
        m_outstanding.Add(m_requestId);
    }
}

// What is left to check once prefix and command id are right.
uint16_t U3V_Control::_checkAckTail()
{
    if (Load<uint16_t>(m_ackBuffer.Bytes(), wire::kAckRequestId) != m_requestId) {
        return U3V_STATUS_BAD_REQUEST_ID;
    }
    return Load<uint16_t>(m_ackBuffer.Bytes(), wire::kAckStatus);
}

uint16_t U3V_Control::_read(uint64_t address, std::span<uint8_t> destination)
{
    // Quirk Q58: the length field is the read length plus 12, not the 12 of the command's own part.
    const auto packet =
        _beginCommand(wire::kReadCommand, address, destination.size() + wire::kAckHeaderSize,
                      wire::kReadCommandSize);
    Store(packet, wire::kReadLength, static_cast<uint16_t>(destination.size()));
    uint16_t status = _send(packet);
    if (status != U3V_STATUS_SUCCESS) {
        return status;
    }

    const size_t expected = destination.size() + wire::kAckHeaderSize;
    int received = 0;
    if ((status = _receive(expected, _transferTimeout(), received)) != U3V_STATUS_SUCCESS) {
        return status;
    }
    // Quirk Q59: the length comes first, so a refusing or a pending camera without data is answered
    // with "invalid header".
    const std::span<const uint8_t> ack = m_ackBuffer.Bytes();
    if (received != static_cast<int>(expected)) {
        return U3V_STATUS_GENCP_INVALID_HEADER;
    }
    if (Load(ack, wire::kAckPrefix) != wire::kPrefix) {
        return U3V_STATUS_BAD_PREFIX;
    }
    if (Load(ack, wire::kAckCommandId) != wire::kReadAck) {
        return U3V_STATUS_BAD_ACK_ID;
    }
    if ((status = _checkAckTail()) != U3V_STATUS_SUCCESS) {
        return status;
    }
    std::copy_n(ack.begin() + wire::kAckHeaderSize, destination.size(), destination.begin());
    return U3V_STATUS_SUCCESS;
}

uint16_t U3V_Control::_write(uint64_t address, std::span<const uint8_t> source)
{
    const auto packet = _beginCommand(wire::kWriteCommand, address, source.size() + sizeof(address),
                                      wire::kWriteDataOffset + source.size());
    std::copy(source.begin(), source.end(), packet.begin() + wire::kWriteDataOffset);
    const uint16_t status = _send(packet);
    return status != U3V_STATUS_SUCCESS ? status : _awaitWriteAck();
}

// A write may take the camera long (flash memory): it then answers with pending acknowledges, each
// naming how long to wait for the next one.
uint16_t U3V_Control::_awaitWriteAck()
{
    using std::chrono::steady_clock;
    const auto deadline = steady_clock::now() + std::chrono::milliseconds(m_limits.pendingTime);
    // Quirk Q60: without the written-length field only the bare header is asked for, although a
    // pending acknowledge is longer.
    const size_t size = m_writtenLength ? wire::kLongAckSize : wire::kAckHeaderSize;
    uint32_t timeout = _transferTimeout();
    for (unsigned round = 0; round < m_limits.pendingRounds; ++round) {
        int received = 0;
        const uint16_t status = _receive(size, timeout, received);
        if (status != U3V_STATUS_SUCCESS) {
            return status;
        }
        const std::span<const uint8_t> ack = m_ackBuffer.Bytes();
        if (Load(ack, wire::kAckPrefix) != wire::kPrefix) {
            return U3V_STATUS_BAD_PREFIX;
        }
        const uint16_t command = Load(ack, wire::kAckCommandId);
        if (command == wire::kWriteAck) {
            return _checkAckTail();
        }
        if (command != wire::kPendingAck) {
            return U3V_STATUS_BAD_ACK_ID;
        }
        if (steady_clock::now() >= deadline) {
            break;
        }
        // 0 would be no time-out at all to libusb: the wait before holds on.
        const uint16_t named = Load(ack, wire::kPendingTimeout);
        timeout = named != 0 ? named : timeout;
    }
    // Quirk Q61: pending acknowledges are followed 1000 times and for 60 s, then the camera counts
    // as silent; a camera that goes on for ever would hold every other access.
    return U3V_STATUS_GENCP_MSG_TIMEOUT;
}

uint32_t U3V_Control::_transferTimeout() const
{
    // Quirk Q62: 0 would wait without end and hours are as bad, so the transfers use neither; what
    // is reported is the camera's own value all the same.
    const uint32_t named = m_timeout;
    return named == 0 ? m_limits.defaultTimeout : std::min(named, m_limits.maximumTimeout);
}

uint16_t U3V_Control::NumberOfStreamChannels(uint32_t* channels) const
{
    *channels = m_streamChannels;
    return U3V_STATUS_SUCCESS;
}

uint16_t U3V_Control::MaximumDeviceResponseTime(uint32_t* milliseconds) const
{
    *milliseconds = m_timeout;
    return U3V_STATUS_SUCCESS;
}

void U3V_Control::StoreXmlFile(std::vector<uint8_t> file)
{
    Locker lock(m_mutex);
    m_xmlFile = std::move(file);
}

std::vector<uint8_t> U3V_Control::XmlFile()
{
    Locker lock(m_mutex);
    return m_xmlFile;
}

namespace {

uint16_t UnzipFailed(const char* text)
{
    std::puts(text);
    return U3V_STATUS_UNZIP_FAILED;
}

} // namespace

uint16_t U3V_Control::UnzipXmlFile()
{
    Locker lock(m_mutex);
    // Quirk Q63: the texts name other calls than the ones that fail; logs are searched for them.
    std::vector<uint8_t> content;
    switch (ExtractFirstMember(m_xmlFile, content)) {
    case ZipResult::NoArchive: return UnzipFailed("mz_zip_reader_init_file() failed!");
    case ZipResult::NoMember: return UnzipFailed("mz_zip_reader_file_stat() failed!");
    case ZipResult::Damaged: return UnzipFailed("mz_zip_reader_extract_file_to_heap() failed!");
    case ZipResult::Extracted: break;
    }
    m_xmlFile = std::move(content);
    return U3V_STATUS_SUCCESS;
}
