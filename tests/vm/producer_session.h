// The built producer as a consumer holds it: loaded with dlopen, everything by exported functions.
#ifndef ZR_TESTS_VM_PRODUCER_SESSION_H
#define ZR_TESTS_VM_PRODUCER_SESSION_H

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include <zr_u3v_tl/gentl.h>

#include "pattern_generator.h"

namespace vmtest {

// A call that had to succeed has not.
class Failure : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

#define ZR_VM_FUNCTIONS(X)                                                                         \
    X(GCInitLib)                                                                                   \
    X(GCCloseLib)                                                                                  \
    X(GCReadPort)                                                                                  \
    X(GCWritePort)                                                                                 \
    X(GCGetPortURLInfo)                                                                            \
    X(GCRegisterEvent)                                                                             \
    X(GCUnregisterEvent)                                                                           \
    X(EventGetData)                                                                                \
    X(TLOpen)                                                                                      \
    X(TLClose)                                                                                     \
    X(TLUpdateInterfaceList)                                                                       \
    X(TLGetInterfaceID)                                                                            \
    X(TLOpenInterface)                                                                             \
    X(IFClose)                                                                                     \
    X(IFUpdateDeviceList)                                                                          \
    X(IFGetNumDevices)                                                                             \
    X(IFGetDeviceID)                                                                               \
    X(IFGetDeviceInfo)                                                                             \
    X(IFOpenDevice)                                                                                \
    X(DevClose)                                                                                    \
    X(DevGetPort)                                                                                  \
    X(DevGetDataStreamID)                                                                          \
    X(DevOpenDataStream)                                                                           \
    X(DSClose)                                                                                     \
    X(DSAllocAndAnnounceBuffer)                                                                    \
    X(DSRevokeBuffer)                                                                              \
    X(DSQueueBuffer)                                                                               \
    X(DSFlushQueue)                                                                                \
    X(DSStartAcquisition)                                                                          \
    X(DSStopAcquisition)                                                                           \
    X(DSGetBufferInfo)

struct Functions
{
#define ZR_VM_MEMBER(name) P##name name = nullptr;
    ZR_VM_FUNCTIONS(ZR_VM_MEMBER)
#undef ZR_VM_MEMBER
};

// The functions of the file; loaded once, for good.
const Functions& Load(const std::string& path);
const Functions& Gentl();

// Throws Failure unless the status is success.
void Need(GC_ERROR status, const char* what);

// The library, one system and its only interface; closed in the reverse order.
class Bus
{
public:
    Bus();
    ~Bus();
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    // Looks for devices until there are so many, or for so long.
    std::vector<std::string> Find(std::size_t wanted, int seconds);
    std::string Info(const std::string& id, DEVICE_INFO_CMD command) const;
    IF_HANDLE Interface() const { return m_interface; }

private:
    TL_HANDLE m_system = nullptr;
    IF_HANDLE m_interface = nullptr;
};

// What became of a number of images.
struct Tally
{
    unsigned images = 0;
    unsigned wrong = 0;   // not the bytes of the frame it says it is, or incomplete
    unsigned skipped = 0; // numbers that never came
    unsigned disorder = 0;
    std::string first; // what was wrong with the first wrong one
};

// One camera with its stream and queued buffers.
class Camera
{
public:
    Camera(const Bus& bus, const std::string& id, unsigned buffers);
    ~Camera();
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    std::vector<std::uint8_t> Read(std::uint64_t address, std::size_t size) const;
    std::uint32_t ReadNumber(std::uint64_t address) const;
    GC_ERROR Write(std::uint64_t address, const void* data, std::size_t size) const;
    std::vector<std::uint8_t> DescriptionFile() const;

    // On demand: an image for each one that is taken, with some ahead, so that none is lost however
    // slow the machine is. Else at the camera's own rate.
    void Start(std::uint64_t images, bool onDemand = false);
    // 0, or the status with which no image came. The image is compared, its buffer queued again.
    GC_ERROR Next(Tally& tally, std::uint64_t timeoutMs);
    void Stop();
    std::size_t Payload() const { return m_payload; }

private:
    std::uint64_t _Number(BUFFER_HANDLE buffer, BUFFER_INFO_CMD command) const;
    void _Set(std::uint64_t address, std::uint32_t value) const;
    void _Compare(BUFFER_HANDLE buffer, Tally& tally);
    vcam::ImageGeometry _Geometry() const;

    DEV_HANDLE m_device = nullptr;
    PORT_HANDLE m_remote = nullptr;
    DS_HANDLE m_stream = nullptr;
    EVENT_HANDLE m_event = nullptr;
    std::vector<BUFFER_HANDLE> m_buffers;
    std::size_t m_payload = 0;
    vcam::PatternGenerator m_pattern;
    std::vector<std::uint8_t> m_expected;
    bool m_started = false;
    bool m_onDemand = false;
    bool m_hasLast = false;
    std::uint64_t m_last = 0; // number of the latest image since the start
};

} // namespace vmtest

#endif
