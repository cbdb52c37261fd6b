#pragma once

#include "u3v_device.h"

#include "packets.h"
#include "usb_block.h"
#include "zr_sync.h"

#include <atomic>
#include <cstdint>
#include <span>
#include <vector>

// How long a camera may keep us waiting on the control channel. The defaults are what the product
// uses; tests shorten them.
struct U3V_ControlLimits
{
    uint32_t defaultTimeout = 3000;  // ms, until the camera names its own
    uint32_t maximumTimeout = 60000; // ms, what a camera-supplied response time is cut to
    unsigned pendingRounds = 1000;   // pending acknowledges of one write
    uint32_t closingTimeout = 100;   // ms, at close, for each answer that is outstanding
    uint32_t pendingTime = 60000;    // ms, after which no further pending acknowledge is followed
};

// The commands whose answer may still come because they ended by time-out. Request ids count from 1
// and wrap around past 0.
class U3V_OutstandingAnswers
{
public:
    bool Any() const { return m_oldest != 0; }
    // Whether the answer to this command may still come.
    bool Await(uint16_t id) const
    {
        return Any() &&
               static_cast<uint16_t>(id - m_oldest) <= static_cast<uint16_t>(m_newest - m_oldest);
    }
    void Add(uint16_t id)
    {
        m_oldest = Any() ? m_oldest : id;
        m_newest = id;
    }
    // Cameras answer in the order of the commands: what has not come before this one never will.
    void Arrived(uint16_t id)
    {
        if (Await(id)) {
            m_oldest = id == m_newest ? uint16_t{0} : NextId(id);
        }
    }
    void Clear() { m_oldest = 0; }

    static uint16_t NextId(uint16_t id) { return id == UINT16_MAX ? uint16_t{1} : ++id; }

private:
    uint16_t m_oldest = 0; // 0: there is none
    uint16_t m_newest = 0;
};

// The control channel of one camera: memory reads and writes in command/acknowledge exchanges.
//
// Belongs to the handle that U3V_OpenControl gives out; the device is not owned and must outlive
// it. Any thread may read and write: a mutex keeps one exchange at a time on the bus.
class U3V_Control
{
public:
    explicit U3V_Control(U3V_Device* device, const U3V_ControlLimits& limits = {});
    // Reads away the answers that are outstanding, then releases the stream, event and control
    // interface, each unless its number is 0.
    ~U3V_Control();
    U3V_Control(const U3V_Control&) = delete;
    U3V_Control& operator=(const U3V_Control&) = delete;

    // Claims the interface and reads the bootstrap registers. After a failing register access the
    // channel stays claimed and open.
    uint16_t OpenControl() ZR_EXCLUDES(m_mutex);

    // One exchange. A length that no exchange can carry (read: above 1012, write: above 1024,
    // negative) and a null pointer to a non-zero length are refused before anything is sent. A
    // failing read leaves the destination untouched.
    uint16_t ReadMem(uint64_t address, void* destination, int16_t length) ZR_EXCLUDES(m_mutex);
    uint16_t WriteMem(uint64_t address, const void* source, int16_t length) ZR_EXCLUDES(m_mutex);
    uint16_t WriteMemSized(uint64_t address, const void* source, size_t length)
        ZR_EXCLUDES(m_mutex);

    uint16_t NumberOfStreamChannels(uint32_t* channels) const; // kept
    uint16_t MaximumDeviceResponseTime(uint32_t* milliseconds) const;
    uint64_t SbrmAddress() const { return m_sbrmAddress; }

    // The slot for the camera's description file. Nothing here fills it; UnzipXmlFile replaces a
    // zip archive in it by the archive's first member, or leaves it as it is.
    void StoreXmlFile(std::vector<uint8_t> file) ZR_EXCLUDES(m_mutex); // kept
    std::vector<uint8_t> XmlFile() ZR_EXCLUDES(m_mutex);               // kept
    uint16_t UnzipXmlFile() ZR_EXCLUDES(m_mutex);                      // kept

private:
    // One buffer for every acknowledge, and the data that one exchange carries.
    static constexpr size_t kAckBufferSize = 1024;
    static constexpr size_t kMaximumRead = kAckBufferSize - control_wire::kAckHeaderSize;
    static constexpr size_t kMaximumWrite = 1024;

    friend class U3V_ControlProbe; // tests: sets the request id

    void _readOutstandingAnswers() ZR_EXCLUDES(m_mutex);
    bool _claim() ZR_REQUIRES(m_mutex);
    void _reset() ZR_REQUIRES(m_mutex);
    uint16_t _readBootstrap() ZR_REQUIRES(m_mutex);

    uint16_t _read(uint64_t address, std::span<uint8_t> destination) ZR_REQUIRES(m_mutex);
    uint16_t _write(uint64_t address, std::span<const uint8_t> source) ZR_REQUIRES(m_mutex);
    uint16_t _awaitWriteAck() ZR_REQUIRES(m_mutex);
    template <class T, class Register>
    uint16_t _readRegister(Register reg, T& value) ZR_REQUIRES(m_mutex);

    uint16_t _nextRequestId() ZR_REQUIRES(m_mutex);
    std::span<uint8_t> _beginCommand(uint16_t command, uint64_t address, size_t length,
                                     size_t packetSize) ZR_REQUIRES(m_mutex);
    uint16_t _send(std::span<uint8_t> packet) ZR_REQUIRES(m_mutex);
    uint16_t _receive(size_t size, uint32_t timeout, int& received) ZR_REQUIRES(m_mutex);
    bool _isPending() const ZR_REQUIRES(m_mutex);
    bool _isLateAnswer(int received) ZR_REQUIRES(m_mutex);
    void _noteOutcome(int result) ZR_REQUIRES(m_mutex);
    void _noteForeignAnswer() ZR_REQUIRES(m_mutex);
    int _transfer(uint8_t endpoint, uint8_t* data, size_t size, uint32_t timeout, int& transferred)
        ZR_REQUIRES(m_mutex);
    uint16_t _checkAckTail() ZR_REQUIRES(m_mutex);
    uint32_t _transferTimeout() const;

    U3V_Device* const m_pDevice; // not owned
    const U3V_ControlLimits m_limits;
    mutable Mutex m_mutex; // one exchange at a time
    UsbBlock m_ackBuffer ZR_GUARDED_BY(m_mutex);
    uint8_t m_command[control_wire::kWriteDataOffset + kMaximumWrite] ZR_GUARDED_BY(m_mutex) = {};
    uint16_t m_requestId ZR_GUARDED_BY(m_mutex) = 0; // the last one used
    U3V_OutstandingAnswers m_outstanding ZR_GUARDED_BY(m_mutex);
    bool m_opened ZR_GUARDED_BY(m_mutex) = false;
    std::atomic<uint32_t> m_streamChannels = 0;
    bool m_writtenLength ZR_GUARDED_BY(m_mutex) = false;
    std::atomic<uint32_t> m_timeout; // ms, as the camera names it
    std::vector<uint8_t> m_xmlFile ZR_GUARDED_BY(m_mutex);
    std::atomic<uint64_t> m_sbrmAddress = 0;
};
