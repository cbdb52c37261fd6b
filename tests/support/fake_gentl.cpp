#include "fake_gentl.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <thread>

#include "wait.h"

namespace {

std::unique_ptr<FakeGenTL> g_fake = std::make_unique<FakeGenTL>();

// Objects whose addresses serve as handles.
char g_handles[16];

std::string Hex(uint64_t value)
{
    char text[32];
    std::snprintf(text, sizeof(text), "0x%llX", static_cast<unsigned long long>(value));
    return text;
}

// Copies as the library does: needed size always, text with its zero, too small left untouched.
GC_ERROR CopyOut(const void* data, size_t length, void* buffer, size_t* size)
{
    const size_t capacity = *size;
    *size = length;
    if (buffer == nullptr) {
        return GC_ERR_SUCCESS;
    }
    if (capacity < length) {
        return GC_ERR_BUFFER_TOO_SMALL;
    }
    std::memcpy(buffer, data, length);
    return GC_ERR_SUCCESS;
}

GC_ERROR CopyText(const std::string& text, void* buffer, size_t* size)
{
    return CopyOut(text.c_str(), text.size() + 1, buffer, size);
}

constexpr size_t kMostInterfaces = 8;

bool IsInterface(IF_HANDLE hIface)
{
    for (size_t i = 0; i < kMostInterfaces; ++i) {
        if (hIface == FakeInterface(i)) {
            return true;
        }
    }
    return false;
}

size_t InterfaceIndex(IF_HANDLE hIface)
{
    Fake().Require(IsInterface(hIface), "interface handle");
    if (!IsInterface(hIface)) {
        return 0;
    }
    return static_cast<size_t>(static_cast<char*>(hIface) - g_handles) - 8;
}

std::string Word32(const void* bytes)
{
    uint32_t value = 0;
    std::memcpy(&value, bytes, sizeof(value));
    return Hex(value);
}

} // namespace

FakeGenTL& Fake()
{
    return *g_fake;
}
void ResetFake()
{
    EXPECT_EQ(g_fake->Misuses(), "");
    g_fake = std::make_unique<FakeGenTL>();
}
TL_HANDLE FakeSystem()
{
    return &g_handles[0];
}
DEV_HANDLE FakeDevice()
{
    return &g_handles[1];
}
PORT_HANDLE FakeRemotePort()
{
    return &g_handles[2];
}
DS_HANDLE FakeStream()
{
    return &g_handles[3];
}
EVENT_HANDLE FakeEvent()
{
    return &g_handles[4];
}
IF_HANDLE FakeInterface(size_t index)
{
    return &g_handles[8 + index];
}

std::vector<std::string> FakeGenTL::Calls() const
{
    const std::lock_guard lock(m_mutex);
    return m_calls;
}

std::vector<std::string> FakeGenTL::MainCalls() const
{
    std::vector<std::string> calls = Calls();
    std::erase_if(calls, [](const std::string& call) {
        return call.starts_with("EventGetData") || call.starts_with("DSGetBufferInfo");
    });
    return calls;
}

size_t FakeGenTL::Count(const std::string& call) const
{
    const std::lock_guard lock(m_mutex);
    return static_cast<size_t>(std::count(m_calls.begin(), m_calls.end(), call));
}

size_t FakeGenTL::Announced() const
{
    const std::lock_guard lock(m_mutex);
    return m_announced.size();
}

bool FakeGenTL::WaitFor(const std::string& call, size_t count)
{
    return zr_test::WaitUntil([&] { return Count(call) >= count; });
}

GC_ERROR FakeGenTL::Enter(const std::string& function, const std::string& detail)
{
    const std::string line = detail.empty() ? function : function + " " + detail;
    std::unique_lock lock(m_mutex);
    m_calls.push_back(line);
    if (const auto hook = hooks.find(line); hook != hooks.end()) {
        lock.unlock();
        hook->second();
        lock.lock();
    }
    for (const std::string& key : {line, function}) {
        const auto found = failures.find(key);
        if (found != failures.end()) {
            return found->second;
        }
    }
    return GC_ERR_SUCCESS;
}

GC_ERROR FakeGenTL::Info(const std::string& kind, int32_t command, void* buffer, size_t* size)
{
    const std::string key = kind + " " + std::to_string(command);
    const GC_ERROR status = Enter("Info", key);
    if (status != GC_ERR_SUCCESS) {
        return status;
    }
    const auto number = numbers.find(key);
    if (number != numbers.end()) {
        return CopyOut(&number->second, std::min(*size, sizeof(uint64_t)), buffer, size);
    }
    const auto text = texts.find(key);
    return text == texts.end() ? GC_ERR_NOT_IMPLEMENTED : CopyText(text->second, buffer, size);
}

void FakeGenTL::Require(bool good, const std::string& function)
{
    const std::lock_guard lock(m_mutex);
    if (!good) {
        m_misuses += function + "\n";
    }
}

std::string FakeGenTL::Misuses() const
{
    const std::lock_guard lock(m_mutex);
    return m_misuses;
}

GC_ERROR FakeGenTL::Announce(void* address, size_t size, BUFFER_HANDLE* handle)
{
    const std::lock_guard lock(m_mutex);
    m_buffers.push_back({address, size});
    m_announced.push_back(&m_buffers.back());
    *handle = &m_buffers.back();
    return GC_ERR_SUCCESS;
}

void FakeGenTL::Queue(BUFFER_HANDLE handle)
{
    const std::lock_guard lock(m_mutex);
    const auto found = std::find(m_announced.begin(), m_announced.end(), handle);
    if (found == m_announced.end() ||
        std::find(m_queued.begin(), m_queued.end(), handle) != m_queued.end()) {
        m_misuses += "DSQueueBuffer: not announced, or in the queue already\n";
    } else {
        m_queued.push_back(*found);
    }
}

void FakeGenTL::RequireDelivered(BUFFER_HANDLE handle)
{
    const std::lock_guard lock(m_mutex);
    if (m_lastDelivered != nullptr && handle != m_lastDelivered) {
        m_misuses += "DSGetBufferInfo: not the delivered buffer\n";
    }
}

GC_ERROR FakeGenTL::Revoke(BUFFER_HANDLE handle, void** address)
{
    const std::lock_guard lock(m_mutex);
    const auto found = std::find(m_announced.begin(), m_announced.end(), handle);
    if (found == m_announced.end()) {
        return GC_ERR_INVALID_HANDLE;
    }
    std::memset((*found)->memory, 0xA5, (*found)->size); // must still be the client's memory
    *address = (*found)->memory;
    std::erase(m_queued, *found);
    m_announced.erase(found);
    return GC_ERR_SUCCESS;
}

GC_ERROR FakeGenTL::BufferId(uint32_t index, BUFFER_HANDLE* handle)
{
    const std::lock_guard lock(m_mutex);
    if (index >= m_announced.size()) {
        return GC_ERR_INVALID_INDEX;
    }
    *handle = m_announced[index];
    return GC_ERR_SUCCESS;
}

GC_ERROR FakeGenTL::NextEvent(EVENT_NEW_BUFFER_DATA* data)
{
    std::unique_lock lock(m_mutex);
    if (!m_queued.empty() && (endless || m_delivered < frames)) {
        m_lastDelivered = m_queued.front();
        m_queued.pop_front();
        data->BufferHandle = m_lastDelivered;
        ++m_delivered;
        return GC_ERR_SUCCESS;
    }
    m_changed.wait_for(lock, std::chrono::milliseconds(10)); // stands for the time-out
    return GC_ERR_TIMEOUT;
}

GC_ERROR FakeGenTL::Read(PORT_HANDLE port, uint64_t address, void* buffer, size_t* size)
{
    if (port != FakeRemotePort()) {
        return GC_ERR_NOT_IMPLEMENTED;
    }
    if (address == 0x5000C) {
        std::memcpy(buffer, &payloadSize, sizeof(payloadSize));
        return GC_ERR_SUCCESS;
    }
    const auto found = memory.find(address);
    if (found == memory.end()) {
        return GC_ERR_IO;
    }
    std::memcpy(buffer, found->second.data(), std::min(*size, found->second.size()));
    return GC_ERR_SUCCESS;
}

// ---- the exported functions -------------------------------------------------------------------

GC_ERROR GCInitLib()
{
    return Fake().Enter("GCInitLib");
}
GC_ERROR GCCloseLib()
{
    return Fake().Enter("GCCloseLib");
}

GC_ERROR TLOpen(TL_HANDLE* phTL)
{
    const GC_ERROR status = Fake().Enter("TLOpen", *phTL == nullptr ? "" : "handle not cleared");
    *phTL = status == GC_ERR_SUCCESS ? FakeSystem() : nullptr;
    return status;
}

GC_ERROR TLClose(TL_HANDLE hTL)
{
    return Fake().Enter("TLClose", hTL == FakeSystem() ? "" : "bad handle");
}

GC_ERROR TLUpdateInterfaceList(TL_HANDLE hTL, bool8_t*, uint64_t iTimeout)
{
    Fake().Require(hTL == FakeSystem(), "TLUpdateInterfaceList");
    return Fake().Enter("TLUpdateInterfaceList", std::to_string(iTimeout));
}

GC_ERROR TLGetNumInterfaces(TL_HANDLE hTL, uint32_t* piNumIfaces)
{
    Fake().Require(hTL == FakeSystem(), "TLGetNumInterfaces");
    *piNumIfaces = static_cast<uint32_t>(Fake().interfaces.size());
    return Fake().Enter("TLGetNumInterfaces");
}

GC_ERROR TLGetInterfaceID(TL_HANDLE hTL, uint32_t iIndex, char* sID, size_t* piSize)
{
    Fake().Require(hTL == FakeSystem(), "TLGetInterfaceID");
    const GC_ERROR status =
        Fake().Enter("TLGetInterfaceID", std::to_string(iIndex) + " " + std::to_string(*piSize));
    return status != GC_ERR_SUCCESS ? status : CopyText("IF" + std::to_string(iIndex), sID, piSize);
}

GC_ERROR TLOpenInterface(TL_HANDLE hTL, const char* sIfaceID, IF_HANDLE* phIface)
{
    Fake().Require(hTL == FakeSystem(), "TLOpenInterface");
    *phIface = FakeInterface(static_cast<size_t>(sIfaceID[2] - '0'));
    return Fake().Enter("TLOpenInterface", sIfaceID);
}

GC_ERROR TLGetInfo(TL_HANDLE hTL, TL_INFO_CMD iInfoCmd, INFO_DATATYPE*, void* pBuffer,
                   size_t* piSize)
{
    Fake().Require(hTL == FakeSystem(), "TLGetInfo");
    return Fake().Info("TL", iInfoCmd, pBuffer, piSize);
}

GC_ERROR IFClose(IF_HANDLE hIface)
{
    return Fake().Enter("IFClose", std::to_string(InterfaceIndex(hIface)));
}

GC_ERROR IFGetInfo(IF_HANDLE hIface, INTERFACE_INFO_CMD iInfoCmd, INFO_DATATYPE*, void* pBuffer,
                   size_t* piSize)
{
    Fake().Require(IsInterface(hIface), "IFGetInfo");
    return Fake().Info("IF", iInfoCmd, pBuffer, piSize);
}

GC_ERROR IFUpdateDeviceList(IF_HANDLE hIface, bool8_t*, uint64_t iTimeout)
{
    Fake().Require(IsInterface(hIface), "IFUpdateDeviceList");
    return Fake().Enter("IFUpdateDeviceList", std::to_string(iTimeout));
}

GC_ERROR IFGetNumDevices(IF_HANDLE hIface, uint32_t* piNumDevices)
{
    *piNumDevices = static_cast<uint32_t>(Fake().interfaces[InterfaceIndex(hIface)].size());
    return Fake().Enter("IFGetNumDevices");
}

GC_ERROR IFGetDeviceID(IF_HANDLE hIface, uint32_t iIndex, char* sIDeviceID, size_t* piSize)
{
    const GC_ERROR status = Fake().Enter("IFGetDeviceID", std::to_string(iIndex));
    return status != GC_ERR_SUCCESS
               ? status
               : CopyText(Fake().interfaces[InterfaceIndex(hIface)][iIndex], sIDeviceID, piSize);
}

GC_ERROR IFGetDeviceInfo(IF_HANDLE hIface, const char* sDeviceID, DEVICE_INFO_CMD iInfoCmd,
                         INFO_DATATYPE*, void* pBuffer, size_t* piSize)
{
    const size_t index = InterfaceIndex(hIface);
    if (index < Fake().interfaces.size()) {
        const auto& ids = Fake().interfaces[index];
        Fake().Require(std::find(ids.begin(), ids.end(), sDeviceID) != ids.end(),
                       "IFGetDeviceInfo");
    }
    return Fake().Info("DEV", iInfoCmd, pBuffer, piSize);
}

GC_ERROR IFOpenDevice(IF_HANDLE hIface, const char* sDeviceID, DEVICE_ACCESS_FLAGS iOpenFlag,
                      DEV_HANDLE* phDevice)
{
    *phDevice = FakeDevice();
    return Fake().Enter("IFOpenDevice", std::to_string(InterfaceIndex(hIface)) + " " + sDeviceID +
                                            " " + std::to_string(iOpenFlag));
}

GC_ERROR DevGetPort(DEV_HANDLE hDevice, PORT_HANDLE* phRemoteDevice)
{
    Fake().Require(hDevice == FakeDevice(), "DevGetPort");
    *phRemoteDevice = FakeRemotePort();
    return Fake().Enter("DevGetPort");
}

GC_ERROR DevGetDataStreamID(DEV_HANDLE hDevice, uint32_t iIndex, char* sDataStreamID,
                            size_t* piSize)
{
    Fake().Require(hDevice == FakeDevice(), "DevGetDataStreamID");
    const GC_ERROR status = Fake().Enter("DevGetDataStreamID", std::to_string(iIndex));
    return status != GC_ERR_SUCCESS ? status : CopyText("0", sDataStreamID, piSize);
}

GC_ERROR DevOpenDataStream(DEV_HANDLE hDevice, const char* sDataStreamID, DS_HANDLE* phDataStream)
{
    Fake().Require(hDevice == FakeDevice(), "DevOpenDataStream");
    *phDataStream = FakeStream();
    return Fake().Enter("DevOpenDataStream", sDataStreamID);
}

GC_ERROR DevClose(DEV_HANDLE hDevice)
{
    Fake().Require(hDevice == FakeDevice(), "DevClose");
    return Fake().Enter("DevClose");
}

GC_ERROR DSClose(DS_HANDLE hDataStream)
{
    Fake().Require(hDataStream == FakeStream(), "DSClose");
    return Fake().Enter("DSClose");
}

GC_ERROR DSAnnounceBuffer(DS_HANDLE hDataStream, void* pBuffer, size_t iSize, void*,
                          BUFFER_HANDLE* phBuffer)
{
    Fake().Require(hDataStream == FakeStream(), "DSAnnounceBuffer");
    const GC_ERROR status = Fake().Enter("DSAnnounceBuffer", std::to_string(iSize));
    return status != GC_ERR_SUCCESS ? status : Fake().Announce(pBuffer, iSize, phBuffer);
}

GC_ERROR DSQueueBuffer(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer)
{
    Fake().Require(hDataStream == FakeStream(), "DSQueueBuffer");
    Fake().Queue(hBuffer);
    return Fake().Enter("DSQueueBuffer");
}

GC_ERROR DSFlushQueue(DS_HANDLE hDataStream, ACQ_QUEUE_TYPE iOperation)
{
    Fake().Require(hDataStream == FakeStream(), "DSFlushQueue");
    return Fake().Enter("DSFlushQueue", std::to_string(iOperation));
}

GC_ERROR DSStartAcquisition(DS_HANDLE hDataStream, ACQ_START_FLAGS iStartFlags,
                            uint64_t iNumToAcquire)
{
    Fake().Require(hDataStream == FakeStream(), "DSStartAcquisition");
    return Fake().Enter("DSStartAcquisition",
                        std::to_string(iStartFlags) + " " + Hex(iNumToAcquire));
}

GC_ERROR DSStopAcquisition(DS_HANDLE hDataStream, ACQ_STOP_FLAGS iStopFlags)
{
    Fake().Require(hDataStream == FakeStream(), "DSStopAcquisition");
    return Fake().Enter("DSStopAcquisition", std::to_string(iStopFlags));
}

GC_ERROR DSGetBufferID(DS_HANDLE hDataStream, uint32_t iIndex, BUFFER_HANDLE* phBuffer)
{
    Fake().Require(hDataStream == FakeStream(), "DSGetBufferID");
    const GC_ERROR status = Fake().Enter("DSGetBufferID", std::to_string(iIndex));
    return status != GC_ERR_SUCCESS ? status : Fake().BufferId(iIndex, phBuffer);
}

GC_ERROR DSRevokeBuffer(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, void** pBuffer, void**)
{
    Fake().Require(hDataStream == FakeStream(), "DSRevokeBuffer");
    const GC_ERROR status = Fake().Enter("DSRevokeBuffer");
    return status != GC_ERR_SUCCESS ? status : Fake().Revoke(hBuffer, pBuffer);
}

GC_ERROR DSGetBufferInfo(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, BUFFER_INFO_CMD iInfoCmd,
                         INFO_DATATYPE*, void* pBuffer, size_t* piSize)
{
    Fake().Require(hDataStream == FakeStream(), "DSGetBufferInfo");
    Fake().RequireDelivered(hBuffer);
    const GC_ERROR status = Fake().Enter("DSGetBufferInfo", std::to_string(iInfoCmd));
    return status != GC_ERR_SUCCESS ? status : Fake().Info("BUF", iInfoCmd, pBuffer, piSize);
}

GC_ERROR GCRegisterEvent(EVENTSRC_HANDLE hEventSrc, EVENT_TYPE iEventID, EVENT_HANDLE* phEvent)
{
    const std::string source = hEventSrc == FakeStream() ? "stream " : "other ";
    const GC_ERROR status = Fake().Enter("GCRegisterEvent", source + std::to_string(iEventID));
    *phEvent = status == GC_ERR_SUCCESS ? FakeEvent() : nullptr;
    return status;
}

GC_ERROR GCUnregisterEvent(EVENTSRC_HANDLE hEventSrc, EVENT_TYPE iEventID)
{
    Fake().Require(hEventSrc == FakeStream(), "GCUnregisterEvent");
    return Fake().Enter("GCUnregisterEvent", std::to_string(iEventID));
}

GC_ERROR EventGetData(EVENT_HANDLE hEvent, void* pBuffer, size_t*, uint64_t iTimeout)
{
    Fake().Require(hEvent == FakeEvent(), "EventGetData");
    const GC_ERROR status = Fake().Enter("EventGetData", std::to_string(iTimeout));
    return status != GC_ERR_SUCCESS
               ? status
               : Fake().NextEvent(static_cast<EVENT_NEW_BUFFER_DATA*>(pBuffer));
}

GC_ERROR EventKill(EVENT_HANDLE hEvent)
{
    const GC_ERROR status = Fake().Enter("EventKill");
    return hEvent == nullptr ? static_cast<GC_ERROR>(GC_ERR_INVALID_HANDLE) : status;
}

GC_ERROR GCReadPort(PORT_HANDLE hPort, uint64_t iAddress, void* pBuffer, size_t* piSize)
{
    const std::string port = hPort == FakeRemotePort() ? "remote " : "stream ";
    const GC_ERROR status =
        Fake().Enter("GCReadPort", port + Hex(iAddress) + " " + std::to_string(*piSize));
    return status != GC_ERR_SUCCESS ? status : Fake().Read(hPort, iAddress, pBuffer, piSize);
}

GC_ERROR GCWritePort(PORT_HANDLE hPort, uint64_t iAddress, const void* pBuffer, size_t* piSize)
{
    const std::string port = hPort == FakeRemotePort() ? "remote " : "other ";
    return Fake().Enter("GCWritePort", port + Hex(iAddress) + " " + std::to_string(*piSize) + " " +
                                           Word32(pBuffer));
}

GC_ERROR GCGetPortInfo(PORT_HANDLE hPort, PORT_INFO_CMD iInfoCmd, INFO_DATATYPE*, void* pBuffer,
                       size_t* piSize)
{
    Fake().Require(hPort == FakeRemotePort(), "GCGetPortInfo");
    return Fake().Info("PORT", iInfoCmd, pBuffer, piSize);
}

GC_ERROR GCGetNumPortURLs(PORT_HANDLE hPort, uint32_t* piNumURLs)
{
    Fake().Require(hPort == FakeRemotePort(), "GCGetNumPortURLs");
    *piNumURLs = static_cast<uint32_t>(Fake().urls.size());
    return Fake().Enter("GCGetNumPortURLs");
}

GC_ERROR GCGetPortURLInfo(PORT_HANDLE hPort, uint32_t iURLIndex, URL_INFO_CMD iInfoCmd,
                          INFO_DATATYPE*, void* pBuffer, size_t* piSize)
{
    Fake().Require(hPort == FakeRemotePort(), "GCGetPortURLInfo");
    const GC_ERROR status = Fake().Enter("GCGetPortURLInfo", std::to_string(iURLIndex) + " " +
                                                                 std::to_string(iInfoCmd) + " " +
                                                                 std::to_string(*piSize));
    return status != GC_ERR_SUCCESS ? status : CopyText(Fake().urls[iURLIndex], pBuffer, piSize);
}
