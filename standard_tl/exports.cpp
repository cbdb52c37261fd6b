// The exported functions: the only contract of the library with its consumers.

#include <span>
#include <string>
#include <utility>

#include "device.h"
#include "entry.h"
#include "interface.h"
#include "remote_port.h"
#include "system.h"
#include <zr_u3v_tl/gentl.h>

using namespace standard_tl;

namespace {

// First the place for a result, then the operation: nothing is opened for nobody.
template <class T, class Operation>
void Give(T* variable, const char* name, Operation operation)
{
    T& result = Required(variable, name);
    result = operation();
}

// A result that need not be wanted.
void Tell(bool8_t* variable, bool value)
{
    if (variable != nullptr) {
        *variable = value;
    }
}

// Flags that are numbered from 0 on.
void CheckFlag(const char* name, int32_t flag, int32_t last)
{
    if (flag < 0 || flag > last) {
        throw Failure(GC_ERR_INVALID_PARAMETER,
                      std::string(name) + " cannot be " + std::to_string(flag));
    }
}

Bytes Record(const void* buffer, size_t size)
{
    CheckNotNull(buffer, "pInBuffer");
    return {static_cast<const uint8_t*>(buffer), size};
}

// The size tells what was done, also when the rest was not.
void ReadPort(Module& port, uint64_t address, void* buffer, size_t* size)
{
    CheckNotNull(size, "piSize");
    CheckNotNull(buffer, "pBuffer");
    const size_t wanted = std::exchange(*size, 0);
    port.Read(address, {static_cast<uint8_t*>(buffer), wanted}, *size);
}

void WritePort(Module& port, uint64_t address, const void* buffer, size_t* size)
{
    CheckNotNull(size, "piSize");
    CheckNotNull(buffer, "pBuffer");
    const size_t wanted = std::exchange(*size, 0);
    port.Write(address, {static_cast<const uint8_t*>(buffer), wanted}, *size);
}

// One entry after the other; the number tells how many were done.
template <class Access>
void Stacked(PORT_REGISTER_STACK_ENTRY* entries, size_t* count, Access access)
{
    CheckNotNull(count, "piNumEntries");
    CheckNotNull(entries, "pEntries");
    const size_t wanted = std::exchange(*count, 0);
    for (const PORT_REGISTER_STACK_ENTRY& entry : std::span(entries, wanted)) {
        size_t size = entry.Size;
        access(entry, size);
        ++*count;
    }
}

void ReadPorts(Module& port, PORT_REGISTER_STACK_ENTRY* entries, size_t* count)
{
    Stacked(entries, count, [&](const PORT_REGISTER_STACK_ENTRY& entry, size_t& size) {
        ReadPort(port, entry.Address, entry.pBuffer, &size);
    });
}

void WritePorts(Module& port, PORT_REGISTER_STACK_ENTRY* entries, size_t* count)
{
    Stacked(entries, count, [&](const PORT_REGISTER_STACK_ENTRY& entry, size_t& size) {
        WritePort(port, entry.Address, entry.pBuffer, &size);
    });
}

// An error, not a number of 0: that is how consumers recognise that a buffer is no multi-part one.
GC_ERROR RefuseParts()
{
    return Refuse(GC_ERR_NO_DATA, "the buffer is no multi-part buffer");
}

void RefuseParts(std::span<DS_BUFFER_PART_INFO_STACKED> infos)
{
    for (DS_BUFFER_PART_INFO_STACKED& info : infos) {
        info.iResult = RefuseParts();
    }
}

} // namespace

// ---- library

GC_ERROR GC_CALLTYPE GCInitLib()
{
    return Entry(__func__).Always(InitializeLibrary);
}

GC_ERROR GC_CALLTYPE GCCloseLib()
{
    return Entry(__func__).Always(CloseLibrary);
}

GC_ERROR GC_CALLTYPE GCGetInfo(TL_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer,
                               size_t* piSize)
{
    return Entry(__func__).Always([&] {
        return ProducerInfo(iInfoCmd, {piType, pBuffer, piSize});
    });
}

GC_ERROR GC_CALLTYPE GCGetLastError(GC_ERROR* piErrorCode, char* sErrText, size_t* piSize)
{
    return TellLastError(piErrorCode, sErrText, piSize);
}

// ---- ports: every module

GC_ERROR GC_CALLTYPE GCReadPort(PORT_HANDLE hPort, uint64_t iAddress, void* pBuffer, size_t* piSize)
{
    return Entry(__func__).On<Module>(
        hPort, [&](Module& port) { ReadPort(port, iAddress, pBuffer, piSize); });
}

GC_ERROR GC_CALLTYPE GCWritePort(PORT_HANDLE hPort, uint64_t iAddress, const void* pBuffer,
                                 size_t* piSize)
{
    return Entry(__func__).On<Module>(
        hPort, [&](Module& port) { WritePort(port, iAddress, pBuffer, piSize); });
}

GC_ERROR GC_CALLTYPE GCReadPortStacked(PORT_HANDLE hPort, PORT_REGISTER_STACK_ENTRY* pEntries,
                                       size_t* piNumEntries)
{
    return Entry(__func__).On<Module>(
        hPort, [&](Module& port) { ReadPorts(port, pEntries, piNumEntries); });
}

GC_ERROR GC_CALLTYPE GCWritePortStacked(PORT_HANDLE hPort, PORT_REGISTER_STACK_ENTRY* pEntries,
                                        size_t* piNumEntries)
{
    return Entry(__func__).On<Module>(
        hPort, [&](Module& port) { WritePorts(port, pEntries, piNumEntries); });
}

GC_ERROR GC_CALLTYPE GCGetPortInfo(PORT_HANDLE hPort, PORT_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                                   void* pBuffer, size_t* piSize)
{
    return Entry(__func__).On<Module>(hPort, [&](Module& port) {
        return port.PortInfo(iInfoCmd, {piType, pBuffer, piSize});
    });
}

GC_ERROR GC_CALLTYPE GCGetPortURL(PORT_HANDLE hPort, char* sURL, size_t* piSize)
{
    return Entry(__func__).On<Module>(hPort, [&](Module& port) {
        return port.Url({nullptr, sURL, piSize});
    });
}

GC_ERROR GC_CALLTYPE GCGetNumPortURLs(PORT_HANDLE hPort, uint32_t* piNumURLs)
{
    return Entry(__func__).On<Module>(hPort, [&](Module& port) {
        Give(piNumURLs, "piNumURLs", [&] { return static_cast<uint32_t>(port.Files().size()); });
    });
}

GC_ERROR GC_CALLTYPE GCGetPortURLInfo(PORT_HANDLE hPort, uint32_t iURLIndex, URL_INFO_CMD iInfoCmd,
                                      INFO_DATATYPE* piType, void* pBuffer, size_t* piSize)
{
    return Entry(__func__).On<Module>(hPort, [&](Module& port) {
        return port.UrlInfo(iURLIndex, iInfoCmd, {piType, pBuffer, piSize});
    });
}

// ---- events

GC_ERROR GC_CALLTYPE GCRegisterEvent(EVENTSRC_HANDLE hEventSrc, EVENT_TYPE iEventID,
                                     EVENT_HANDLE* phEvent)
{
    return Entry(__func__).On<Module>(hEventSrc, [&](Module& source) {
        Give(phEvent, "phEvent", [&] { return source.RegisterEvent(iEventID); });
    });
}

GC_ERROR GC_CALLTYPE GCUnregisterEvent(EVENTSRC_HANDLE hEventSrc, EVENT_TYPE iEventID)
{
    return Entry(__func__).On<Module>(hEventSrc,
                                      [&](Module& source) { source.UnregisterEvent(iEventID); });
}

GC_ERROR GC_CALLTYPE EventGetData(EVENT_HANDLE hEvent, void* pBuffer, size_t* piSize,
                                  uint64_t iTimeout)
{
    return Entry(__func__).On<Event>(hEvent, [&](Event& event) {
        return event.GetData(pBuffer, Required(piSize, "piSize"), DeadlineAfter(iTimeout));
    });
}

GC_ERROR GC_CALLTYPE EventGetDataInfo(EVENT_HANDLE hEvent, const void* pInBuffer, size_t iInSize,
                                      EVENT_DATA_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                                      void* pOutBuffer, size_t* piOutSize)
{
    return Entry(__func__).On<Event>(hEvent, [&](Event& event) {
        return event.GetDataInfo(Record(pInBuffer, iInSize), iInfoCmd,
                                 {piType, pOutBuffer, piOutSize});
    });
}

GC_ERROR GC_CALLTYPE EventGetInfo(EVENT_HANDLE hEvent, EVENT_INFO_CMD iInfoCmd,
                                  INFO_DATATYPE* piType, void* pBuffer, size_t* piSize)
{
    return Entry(__func__).On<Event>(hEvent, [&](Event& event) {
        return event.GetInfo(iInfoCmd, {piType, pBuffer, piSize});
    });
}

GC_ERROR GC_CALLTYPE EventFlush(EVENT_HANDLE hEvent)
{
    return Entry(__func__).On<Event>(hEvent, [&](Event& event) { event.Flush(); });
}

GC_ERROR GC_CALLTYPE EventKill(EVENT_HANDLE hEvent)
{
    return Entry(__func__).On<Event>(hEvent, [&](Event& event) { event.Kill(); });
}

// ---- System

GC_ERROR GC_CALLTYPE TLOpen(TL_HANDLE* phTL)
{
    return Entry(__func__).OnLibrary(
        [&](Library& library) { Give(phTL, "phTL", [&] { return library.OpenSystem(); }); });
}

GC_ERROR GC_CALLTYPE TLClose(TL_HANDLE hTL)
{
    return Entry(__func__).Close<System>(hTL);
}

GC_ERROR GC_CALLTYPE TLGetInfo(TL_HANDLE hTL, TL_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                               void* pBuffer, size_t* piSize)
{
    return Entry(__func__).On<System>(hTL, [&](System& /*system*/) {
        return ProducerInfo(iInfoCmd, {piType, pBuffer, piSize});
    });
}

GC_ERROR GC_CALLTYPE TLGetNumInterfaces(TL_HANDLE hTL, uint32_t* piNumIfaces)
{
    return Entry(__func__).On<System>(hTL, [&](System& /*system*/) {
        Give(piNumIfaces, "piNumIfaces", [&] { return System::kNumInterfaces; });
    });
}

GC_ERROR GC_CALLTYPE TLGetInterfaceID(TL_HANDLE hTL, uint32_t iIndex, char* sID, size_t* piSize)
{
    return Entry(__func__).On<System>(hTL, [&](System& system) {
        return system.InterfaceId(iIndex, {nullptr, sID, piSize});
    });
}

GC_ERROR GC_CALLTYPE TLGetInterfaceInfo(TL_HANDLE hTL, const char* sIfaceID,
                                        INTERFACE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                                        void* pBuffer, size_t* piSize)
{
    return Entry(__func__).On<System>(hTL, [&](System& system) {
        return system.InterfaceInfo(sIfaceID, iInfoCmd, {piType, pBuffer, piSize});
    });
}

GC_ERROR GC_CALLTYPE TLOpenInterface(TL_HANDLE hTL, const char* sIfaceID, IF_HANDLE* phIface)
{
    return Entry(__func__).On<System>(hTL, [&](System& system) {
        Give(phIface, "phIface", [&] { return system.OpenInterface(sIfaceID); });
    });
}

GC_ERROR GC_CALLTYPE TLUpdateInterfaceList(TL_HANDLE hTL, bool8_t* pbChanged, uint64_t /*iTimeout*/)
{
    return Entry(__func__).On<System>(hTL, [&](System& /*system*/) { Tell(pbChanged, false); });
}

// ---- interface

GC_ERROR GC_CALLTYPE IFClose(IF_HANDLE hIface)
{
    return Entry(__func__).Close<Interface>(hIface);
}

GC_ERROR GC_CALLTYPE IFGetInfo(IF_HANDLE hIface, INTERFACE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                               void* pBuffer, size_t* piSize)
{
    return Entry(__func__).On<Interface>(hIface, [&](Interface& /*interface*/) {
        return Interface::Info(iInfoCmd, {piType, pBuffer, piSize});
    });
}

GC_ERROR GC_CALLTYPE IFGetParentTL(IF_HANDLE hIface, TL_HANDLE* phSystem)
{
    return Entry(__func__).On<Interface>(hIface, [&](Interface& interface) {
        Give(phSystem, "phSystem", [&] { return interface.Parent()->Handle(); });
    });
}

GC_ERROR GC_CALLTYPE IFUpdateDeviceList(IF_HANDLE hIface, bool8_t* pbChanged, uint64_t iTimeout)
{
    return Entry(__func__).On<Interface>(hIface, [&](Interface& interface) {
        Tell(pbChanged, interface.UpdateDeviceList(iTimeout));
    });
}

GC_ERROR GC_CALLTYPE IFGetNumDevices(IF_HANDLE hIface, uint32_t* piNumDevices)
{
    return Entry(__func__).On<Interface>(hIface, [&](Interface& interface) {
        Give(piNumDevices, "piNumDevices", [&] { return interface.NumDevices(); });
    });
}

GC_ERROR GC_CALLTYPE IFGetDeviceID(IF_HANDLE hIface, uint32_t iIndex, char* sIDeviceID,
                                   size_t* piSize)
{
    return Entry(__func__).On<Interface>(hIface, [&](Interface& interface) {
        return interface.DeviceId(iIndex, {nullptr, sIDeviceID, piSize});
    });
}

GC_ERROR GC_CALLTYPE IFGetDeviceInfo(IF_HANDLE hIface, const char* sDeviceID,
                                     DEVICE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer,
                                     size_t* piSize)
{
    return Entry(__func__).On<Interface>(hIface, [&](Interface& interface) {
        return interface.DeviceInfoOf(sDeviceID, iInfoCmd, {piType, pBuffer, piSize});
    });
}

GC_ERROR GC_CALLTYPE IFOpenDevice(IF_HANDLE hIface, const char* sDeviceID,
                                  DEVICE_ACCESS_FLAGS iOpenFlag, DEV_HANDLE* phDevice)
{
    return Entry(__func__).On<Interface>(hIface, [&](Interface& interface) {
        Give(phDevice, "phDevice", [&] { return interface.OpenDevice(sDeviceID, iOpenFlag); });
    });
}

// ---- device

GC_ERROR GC_CALLTYPE DevClose(DEV_HANDLE hDevice)
{
    return Entry(__func__).Close<Device>(hDevice);
}

GC_ERROR GC_CALLTYPE DevGetInfo(DEV_HANDLE hDevice, DEVICE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                                void* pBuffer, size_t* piSize)
{
    return Entry(__func__).On<Device>(hDevice, [&](Device& device) {
        return DeviceInfo(device.Facts(), iInfoCmd, {piType, pBuffer, piSize});
    });
}

GC_ERROR GC_CALLTYPE DevGetParentIF(DEV_HANDLE hDevice, IF_HANDLE* phIface)
{
    return Entry(__func__).On<Device>(hDevice, [&](Device& device) {
        Give(phIface, "phIface", [&] { return device.Parent()->Handle(); });
    });
}

GC_ERROR GC_CALLTYPE DevGetPort(DEV_HANDLE hDevice, PORT_HANDLE* phRemoteDevice)
{
    return Entry(__func__).On<Device>(hDevice, [&](Device& device) {
        Give(phRemoteDevice, "phRemoteDevice", [&] { return device.RemotePortHandle(); });
    });
}

GC_ERROR GC_CALLTYPE DevGetNumDataStreams(DEV_HANDLE hDevice, uint32_t* piNumDataStreams)
{
    return Entry(__func__).On<Device>(hDevice, [&](Device& device) {
        Give(piNumDataStreams, "piNumDataStreams", [&] { return device.NumDataStreams(); });
    });
}

GC_ERROR GC_CALLTYPE DevGetDataStreamID(DEV_HANDLE hDevice, uint32_t iIndex, char* sDataStreamID,
                                        size_t* piSize)
{
    return Entry(__func__).On<Device>(hDevice, [&](Device& device) {
        return device.DataStreamId(iIndex, {nullptr, sDataStreamID, piSize});
    });
}

GC_ERROR GC_CALLTYPE DevOpenDataStream(DEV_HANDLE hDevice, const char* sDataStreamID,
                                       DS_HANDLE* phDataStream)
{
    return Entry(__func__).On<Device>(hDevice, [&](Device& device) {
        Give(phDataStream, "phDataStream", [&] { return device.OpenDataStream(sDataStreamID); });
    });
}

// ---- data stream

GC_ERROR GC_CALLTYPE DSClose(DS_HANDLE hDataStream)
{
    return Entry(__func__).Close<DataStream>(hDataStream);
}

GC_ERROR GC_CALLTYPE DSGetInfo(DS_HANDLE hDataStream, STREAM_INFO_CMD iInfoCmd,
                               INFO_DATATYPE* piType, void* pBuffer, size_t* piSize)
{
    return Entry(__func__).On<DataStream>(hDataStream, [&](DataStream& stream) {
        return stream.Info(iInfoCmd, {piType, pBuffer, piSize});
    });
}

GC_ERROR GC_CALLTYPE DSGetParentDev(DS_HANDLE hDataStream, DEV_HANDLE* phDevice)
{
    return Entry(__func__).On<DataStream>(hDataStream, [&](DataStream& stream) {
        Give(phDevice, "phDevice", [&] { return stream.Parent()->Handle(); });
    });
}

GC_ERROR GC_CALLTYPE DSStartAcquisition(DS_HANDLE hDataStream, ACQ_START_FLAGS iStartFlags,
                                        uint64_t iNumToAcquire)
{
    return Entry(__func__).On<DataStream>(hDataStream, [&](DataStream& stream) {
        CheckFlag("iStartFlags", iStartFlags, ACQ_START_FLAGS_DEFAULT);
        stream.Start(iNumToAcquire);
    });
}

GC_ERROR GC_CALLTYPE DSStopAcquisition(DS_HANDLE hDataStream, ACQ_STOP_FLAGS iStopFlags)
{
    return Entry(__func__).On<DataStream>(hDataStream, [&](DataStream& stream) {
        CheckFlag("iStopFlags", iStopFlags, ACQ_STOP_FLAGS_KILL);
        stream.Stop(iStopFlags == ACQ_STOP_FLAGS_KILL);
    });
}

GC_ERROR GC_CALLTYPE DSFlushQueue(DS_HANDLE hDataStream, ACQ_QUEUE_TYPE iOperation)
{
    return Entry(__func__).On<DataStream>(hDataStream,
                                          [&](DataStream& stream) { stream.Flush(iOperation); });
}

GC_ERROR GC_CALLTYPE DSGetNumFlows(DS_HANDLE hDataStream, uint32_t* piNumFlows)
{
    return Entry(__func__).On<DataStream>(hDataStream, [&](DataStream& /*stream*/) {
        Give(piNumFlows, "piNumFlows", [&] { return uint32_t{0}; });
    });
}

GC_ERROR GC_CALLTYPE DSGetFlowInfo(DS_HANDLE hDataStream, uint32_t /*iFlowIndex*/,
                                   FLOW_INFO_CMD /*iInfoCmd*/, INFO_DATATYPE* /*piType*/,
                                   void* /*pBuffer*/, size_t* /*piSize*/)
{
    return Entry(__func__).On<DataStream>(hDataStream, [&](DataStream& /*stream*/) {
        return Refuse(GC_ERR_INVALID_INDEX, "the data stream has no flows");
    });
}

// ---- buffers

GC_ERROR GC_CALLTYPE DSAnnounceBuffer(DS_HANDLE hDataStream, void* pBuffer, size_t iSize,
                                      void* pPrivate, BUFFER_HANDLE* phBuffer)
{
    return Entry(__func__).On<DataStream>(hDataStream, [&](DataStream& stream) {
        Give(phBuffer, "phBuffer", [&] { return stream.Announce(pBuffer, iSize, pPrivate); });
    });
}

GC_ERROR GC_CALLTYPE DSAllocAndAnnounceBuffer(DS_HANDLE hDataStream, size_t iSize, void* pPrivate,
                                              BUFFER_HANDLE* phBuffer)
{
    return Entry(__func__).On<DataStream>(hDataStream, [&](DataStream& stream) {
        Give(phBuffer, "phBuffer", [&] { return stream.AllocateAndAnnounce(iSize, pPrivate); });
    });
}

GC_ERROR GC_CALLTYPE DSAnnounceCompositeBuffer(DS_HANDLE hDataStream, size_t /*iNumSegments*/,
                                               void** /*ppSegments*/, size_t* /*piSizes*/,
                                               void* /*pPrivate*/, BUFFER_HANDLE* /*phBuffer*/)
{
    return Entry(__func__).On<DataStream>(hDataStream, [&](DataStream& /*stream*/) {
        return Refuse(GC_ERR_NOT_IMPLEMENTED, "buffers of several pieces are not served");
    });
}

GC_ERROR GC_CALLTYPE DSRevokeBuffer(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, void** pBuffer,
                                    void** pPrivate)
{
    return Entry(__func__).On<DataStream>(
        hDataStream, [&](DataStream& stream) { stream.Revoke(hBuffer, pBuffer, pPrivate); });
}

GC_ERROR GC_CALLTYPE DSGetBufferID(DS_HANDLE hDataStream, uint32_t iIndex, BUFFER_HANDLE* phBuffer)
{
    return Entry(__func__).On<DataStream>(hDataStream, [&](DataStream& stream) {
        Give(phBuffer, "phBuffer", [&] { return stream.BufferAt(iIndex); });
    });
}

GC_ERROR GC_CALLTYPE DSQueueBuffer(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer)
{
    return Entry(__func__).OnBuffer(
        hDataStream, hBuffer, [&](DataStream& stream, Buffer& buffer) { stream.Queue(buffer); });
}

GC_ERROR GC_CALLTYPE DSGetBufferInfo(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer,
                                     BUFFER_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer,
                                     size_t* piSize)
{
    return Entry(__func__).OnBuffer(hDataStream, hBuffer, [&](DataStream& stream, Buffer& buffer) {
        return stream.InfoOf(buffer, iInfoCmd, {piType, pBuffer, piSize});
    });
}

GC_ERROR GC_CALLTYPE DSGetBufferInfoStacked(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer,
                                            DS_BUFFER_INFO_STACKED* pInfoStacked, size_t iNumInfos)
{
    return Entry(__func__).OnBuffer(hDataStream, hBuffer, [&](DataStream& stream, Buffer& buffer) {
        stream.InfosOf(buffer, {&Required(pInfoStacked, "pInfoStacked"), iNumInfos});
    });
}

GC_ERROR GC_CALLTYPE DSGetBufferChunkData(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer,
                                          SINGLE_CHUNK_DATA* pChunkData, size_t* piNumChunks)
{
    return Entry(__func__).OnBuffer(hDataStream, hBuffer, [&](DataStream& stream, Buffer& buffer) {
        return stream.Chunks(buffer, pChunkData, Required(piNumChunks, "piNumChunks"));
    });
}

GC_ERROR GC_CALLTYPE DSGetNumBufferParts(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer,
                                         uint32_t* /*piNumParts*/)
{
    return Entry(__func__).OnBuffer(
        hDataStream, hBuffer,
        [&](DataStream& /*stream*/, Buffer& /*buffer*/) { return RefuseParts(); });
}

GC_ERROR GC_CALLTYPE DSGetBufferPartInfo(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer,
                                         uint32_t /*iPartIndex*/, BUFFER_PART_INFO_CMD /*iInfoCmd*/,
                                         INFO_DATATYPE* /*piType*/, void* /*pBuffer*/,
                                         size_t* /*piSize*/)
{
    return Entry(__func__).OnBuffer(
        hDataStream, hBuffer,
        [&](DataStream& /*stream*/, Buffer& /*buffer*/) { return RefuseParts(); });
}

GC_ERROR GC_CALLTYPE DSGetBufferPartInfoStacked(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer,
                                                DS_BUFFER_PART_INFO_STACKED* pInfoStacked,
                                                size_t iNumInfos)
{
    return Entry(__func__).OnBuffer(
        hDataStream, hBuffer, [&](DataStream& /*stream*/, Buffer& /*buffer*/) {
            RefuseParts({&Required(pInfoStacked, "pInfoStacked"), iNumInfos});
        });
}

GC_ERROR GC_CALLTYPE DSGetNumBufferSegments(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer,
                                            uint32_t* piNumSegments)
{
    return Entry(__func__).OnBuffer(
        hDataStream, hBuffer, [&](DataStream& /*stream*/, Buffer& /*buffer*/) {
            Give(piNumSegments, "piNumSegments", [] { return uint32_t{0}; });
        });
}

GC_ERROR GC_CALLTYPE DSGetBufferSegmentInfo(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer,
                                            uint32_t /*iSegmentIndex*/,
                                            SEGMENT_INFO_CMD /*iInfoCmd*/,
                                            INFO_DATATYPE* /*piType*/, void* /*pBuffer*/,
                                            size_t* /*piSize*/)
{
    return Entry(__func__).OnBuffer(
        hDataStream, hBuffer, [&](DataStream& /*stream*/, Buffer& /*buffer*/) {
            return Refuse(GC_ERR_INVALID_INDEX, "the buffer has no segments");
        });
}
