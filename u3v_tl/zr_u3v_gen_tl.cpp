// The exported GenTL functions: the only contract of the library with its consumers. Each is a
// shell around one operation; what an argument may be is checked by the operation that receives it.

#include <zr_u3v_tl/gentl.h>

#include "entry_call.h"
#include "zr_u3v_data_stream.h"
#include "zr_u3v_device.h"
#include "zr_u3v_interface.h"
#include "zr_u3v_system.h"

// ---- library

GC_ERROR GC_CALLTYPE GCInitLib()
{
    GENTL_ENTRY("%s Entry!");
    // Quirk Q39: an allocation failure leaves this one function as an exception.
    return call.onLibraryUnguarded([] { return g_Controller.Init(); });
}

GC_ERROR GC_CALLTYPE GCCloseLib()
{
    GENTL_ENTRY("%s Entry!");
    return call.onLibrary([] { return g_Controller.Close(); });
}

GC_ERROR GC_CALLTYPE GCGetInfo(TL_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer,
                               size_t* piSize)
{
    GENTL_ENTRY("%s Entry! iInfoCmd:%d", iInfoCmd);
    return call.onLibrary([&] { return g_Controller.GetInfo(iInfoCmd, piType, pBuffer, piSize); });
}

GC_ERROR GC_CALLTYPE GCGetLastError(GC_ERROR* piErrorCode, char* sErrText, size_t* piSize)
{
    GENTL_ENTRY("%s Entry!");
    return call.onLibrary([&] { return g_Controller.GetLastError(piErrorCode, sErrText, piSize); },
                          EntryCall::Recording::NotRecorded);
}

// ---- ports: any registered module

GC_ERROR GC_CALLTYPE GCReadPort(PORT_HANDLE hPort, uint64_t iAddress, void* pBuffer, size_t* piSize)
{
    GENTL_ENTRY("%s Entry! hPort:0x%X iAddress:0x%llx", Low32(hPort),
                static_cast<unsigned long long>(iAddress));
    return call.onInitialized(
        [&] { return g_Controller.ReadPort(hPort, iAddress, pBuffer, piSize); });
}

GC_ERROR GC_CALLTYPE GCWritePort(PORT_HANDLE hPort, uint64_t iAddress, const void* pBuffer,
                                 size_t* piSize)
{
    GENTL_ENTRY("%s Entry! hPort:0x%X iAddress:0x%llx", Low32(hPort),
                static_cast<unsigned long long>(iAddress));
    return call.onInitialized(
        [&] { return g_Controller.WritePort(hPort, iAddress, pBuffer, piSize); });
}

GC_ERROR GC_CALLTYPE GCReadPortStacked(PORT_HANDLE hPort, PORT_REGISTER_STACK_ENTRY* pEntries,
                                       size_t* piNumEntries)
{
    GENTL_ENTRY("%s Entry! hPort:0x%X", Low32(hPort));
    return call.onInitialized(
        [&] { return g_Controller.ReadPortStacked(hPort, pEntries, piNumEntries); });
}

GC_ERROR GC_CALLTYPE GCWritePortStacked(PORT_HANDLE hPort, PORT_REGISTER_STACK_ENTRY* pEntries,
                                        size_t* piNumEntries)
{
    GENTL_ENTRY("%s Entry! hPort:0x%X", Low32(hPort));
    return call.onInitialized(
        [&] { return g_Controller.WritePortStacked(hPort, pEntries, piNumEntries); });
}

GC_ERROR GC_CALLTYPE GCGetPortURL(PORT_HANDLE hPort, char* sURL, size_t* piSize)
{
    GENTL_ENTRY("%s Entry! hPort:0x%X", Low32(hPort));
    return call.onInitialized([&] { return g_Controller.GetPortURL(hPort, sURL, piSize); });
}

GC_ERROR GC_CALLTYPE GCGetPortInfo(PORT_HANDLE hPort, PORT_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                                   void* pBuffer, size_t* piSize)
{
    GENTL_ENTRY("%s Entry! hPort:0x%X iInfoCmd:%d", Low32(hPort), iInfoCmd);
    return call.onInitialized(
        [&] { return g_Controller.GetPortInfo(hPort, iInfoCmd, piType, pBuffer, piSize); });
}

GC_ERROR GC_CALLTYPE GCGetNumPortURLs(PORT_HANDLE hPort, uint32_t* piNumURLs)
{
    GENTL_ENTRY("%s Entry! hPort:0x%X", Low32(hPort));
    return call.onInitialized([&] { return g_Controller.GetNumPortURLs(hPort, piNumURLs); });
}

GC_ERROR GC_CALLTYPE GCGetPortURLInfo(PORT_HANDLE hPort, uint32_t iURLIndex, URL_INFO_CMD iInfoCmd,
                                      INFO_DATATYPE* piType, void* pBuffer, size_t* piSize)
{
    GENTL_ENTRY("%s Entry! hPort:0x%X iURLIndex:%d iInfoCmd:%d", Low32(hPort),
                static_cast<int>(iURLIndex), iInfoCmd);
    return call.onInitialized([&] {
        return g_Controller.GetPortURLInfo(hPort, iURLIndex, iInfoCmd, piType, pBuffer, piSize);
    });
}

// ---- events

GC_ERROR GC_CALLTYPE GCRegisterEvent(EVENTSRC_HANDLE hEventSrc, EVENT_TYPE iEventID,
                                     EVENT_HANDLE* phEvent)
{
    GENTL_ENTRY("%s Entry! hEventSrc:0x%X iEventID:%d", Low32(hEventSrc), iEventID);
    return call.onEventRegistration(
        iEventID, [&] { return g_Controller.RegisterEvent(hEventSrc, iEventID, phEvent); });
}

GC_ERROR GC_CALLTYPE GCUnregisterEvent(EVENTSRC_HANDLE hEventSrc, EVENT_TYPE iEventID)
{
    GENTL_ENTRY("%s Entry! hEventSrc:0x%X iEventID:%d", Low32(hEventSrc), iEventID);
    return call.onInitialized([&] { return g_Controller.UnregisterEvent(hEventSrc, iEventID); });
}

GC_ERROR GC_CALLTYPE EventGetData(EVENT_HANDLE hEvent, void* pBuffer, size_t* piSize,
                                  uint64_t iTimeout)
{
    GENTL_ENTRY("%s Entry! hEvent:0x%X Timeout:%lld", Low32(hEvent),
                static_cast<long long>(iTimeout));
    return call.onEvent(
        hEvent, [&](ZrGenTLEvent& event) { return event.GetData(pBuffer, piSize, iTimeout); });
}

GC_ERROR GC_CALLTYPE EventGetDataInfo(EVENT_HANDLE hEvent, const void* pInBuffer, size_t iInSize,
                                      EVENT_DATA_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                                      void* pOutBuffer, size_t* piOutSize)
{
    GENTL_ENTRY("%s Entry! hEvent:0x%X iInfoCmd:%lld", Low32(hEvent),
                static_cast<long long>(iInfoCmd));
    return call.onEvent(hEvent, [&](ZrGenTLEvent& event) {
        return event.GetDataInfo(pInBuffer, iInSize, iInfoCmd, piType, pOutBuffer, piOutSize);
    });
}

GC_ERROR GC_CALLTYPE EventGetInfo(EVENT_HANDLE hEvent, EVENT_INFO_CMD iInfoCmd,
                                  INFO_DATATYPE* piType, void* pBuffer, size_t* piSize)
{
    GENTL_ENTRY("%s Entry! hEvent:0x%X iInfoCmd:%lld", Low32(hEvent),
                static_cast<long long>(iInfoCmd));
    return call.onEvent(hEvent, [&](ZrGenTLEvent& event) {
        return event.GetInfo(iInfoCmd, piType, pBuffer, piSize);
    });
}

GC_ERROR GC_CALLTYPE EventFlush(EVENT_HANDLE hEvent)
{
    GENTL_ENTRY("%s Entry! hEvent:0x%X", Low32(hEvent));
    return call.onEvent(hEvent, [&](ZrGenTLEvent& event) { return event.Flush(); });
}

GC_ERROR GC_CALLTYPE EventKill(EVENT_HANDLE hEvent)
{
    GENTL_ENTRY("%s Entry! hEvent:0x%X", Low32(hEvent));
    // Quirk Q30: a stale handle is answered but leaves the last error of the thread alone.
    return call.onEvent(
        hEvent, [](ZrGenTLEvent& event) { return event.Kill(); },
        EntryCall::Recording::NotRecorded);
}

// ---- system

GC_ERROR GC_CALLTYPE TLOpen(TL_HANDLE* phTL)
{
    GENTL_ENTRY("%s Entry!");
    return call.onInitialized([&] { return g_Controller.OpenSystemModule(phTL); });
}

GC_ERROR GC_CALLTYPE TLClose(TL_HANDLE hTL)
{
    GENTL_ENTRY("%s Entry! hTL:0x%X", Low32(hTL));
    return call.onInitialized([&] { return g_Controller.CloseSystemModule(hTL); });
}

GC_ERROR GC_CALLTYPE TLGetInfo(TL_HANDLE hTL, TL_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                               void* pBuffer, size_t* piSize)
{
    GENTL_ENTRY("%s Entry! hTL:0x%X iInfoCmd:%d", Low32(hTL), iInfoCmd);
    return call.onModule<ZrU3VSystem>(
        hTL, [&](auto& system) { return system.GetInfo(iInfoCmd, piType, pBuffer, piSize); });
}

GC_ERROR GC_CALLTYPE TLGetNumInterfaces(TL_HANDLE hTL, uint32_t* piNumIfaces)
{
    GENTL_ENTRY("%s Entry! hTL:0x%X", Low32(hTL));
    return call.onModule<ZrU3VSystem>(
        hTL, [&](auto& system) { return system.GetNumInterfaces(piNumIfaces); });
}

GC_ERROR GC_CALLTYPE TLGetInterfaceID(TL_HANDLE hTL, uint32_t iIndex, char* sID, size_t* piSize)
{
    GENTL_ENTRY("%s Entry! hTL:0x%X iIndex:%d", Low32(hTL), static_cast<int>(iIndex));
    return call.onModule<ZrU3VSystem>(
        hTL, [&](auto& system) { return system.GetInterfaceID(iIndex, sID, piSize); });
}

GC_ERROR GC_CALLTYPE TLGetInterfaceInfo(TL_HANDLE hTL, const char* sIfaceID,
                                        INTERFACE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                                        void* pBuffer, size_t* piSize)
{
    GENTL_ENTRY("%s Entry! hTL:0x%X sIfaceID:%s iInfoCmd:%d", Low32(hTL), TextOrNull(sIfaceID),
                iInfoCmd);
    return call.onModule<ZrU3VSystem>(hTL, [&](auto& system) {
        return system.GetInterfaceInfo(sIfaceID, iInfoCmd, piType, pBuffer, piSize);
    });
}

GC_ERROR GC_CALLTYPE TLOpenInterface(TL_HANDLE hTL, const char* sIfaceID, IF_HANDLE* phIface)
{
    GENTL_ENTRY("%s Entry! hTL:0x%X sIfaceID:%s", Low32(hTL), TextOrNull(sIfaceID));
    return call.onModule<ZrU3VSystem>(
        hTL, [&](auto& system) { return system.OpenInterface(sIfaceID, phIface); });
}

GC_ERROR GC_CALLTYPE TLUpdateInterfaceList(TL_HANDLE hTL, bool8_t* pbChanged, uint64_t iTimeout)
{
    GENTL_ENTRY("%s Entry! hTL:0x%X iTimeout:%lld", Low32(hTL), static_cast<long long>(iTimeout));
    return call.onModule<ZrU3VSystem>(
        hTL, [&](auto& system) { return system.UpdateInterfaceList(pbChanged, iTimeout); });
}

// ---- interface

GC_ERROR GC_CALLTYPE IFClose(IF_HANDLE hIface)
{
    GENTL_ENTRY("%s Entry! hIface:0x%X", Low32(hIface));
    return call.onParentOf<ZrU3VInterface, ZrU3VSystem>(
        hIface, [](ZrU3VInterface&) {},
        [&](ZrU3VSystem& system) { return system.CloseInterface(hIface); });
}

GC_ERROR GC_CALLTYPE IFGetInfo(IF_HANDLE hIface, INTERFACE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                               void* pBuffer, size_t* piSize)
{
    GENTL_ENTRY("%s Entry! hIface:0x%X iInfoCmd:%d", Low32(hIface), iInfoCmd);
    return call.onModule<ZrU3VInterface>(
        hIface, [&](auto& iface) { return iface.GetInfo(iInfoCmd, piType, pBuffer, piSize); });
}

GC_ERROR GC_CALLTYPE IFGetNumDevices(IF_HANDLE hIface, uint32_t* piNumDevices)
{
    GENTL_ENTRY("%s Entry! hIface:0x%X", Low32(hIface));
    return call.onModule<ZrU3VInterface>(
        hIface, [&](auto& iface) { return iface.GetNumDevices(piNumDevices); });
}

GC_ERROR GC_CALLTYPE IFGetDeviceID(IF_HANDLE hIface, uint32_t iIndex, char* sIDeviceID,
                                   size_t* piSize)
{
    GENTL_ENTRY("%s Entry! hIface:0x%X iIndex:%d", Low32(hIface), static_cast<int>(iIndex));
    return call.onModule<ZrU3VInterface>(
        hIface, [&](auto& iface) { return iface.GetDeviceID(iIndex, sIDeviceID, piSize); });
}

GC_ERROR GC_CALLTYPE IFUpdateDeviceList(IF_HANDLE hIface, bool8_t* pbChanged, uint64_t iTimeout)
{
    GENTL_ENTRY("%s Entry! hIface:0x%X iTimeout:%lld", Low32(hIface),
                static_cast<long long>(iTimeout));
    return call.onModule<ZrU3VInterface>(
        hIface, [&](auto& iface) { return iface.UpdateDeviceList(pbChanged, iTimeout); });
}

GC_ERROR GC_CALLTYPE IFGetDeviceInfo(IF_HANDLE hIface, const char* sDeviceID,
                                     DEVICE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer,
                                     size_t* piSize)
{
    GENTL_ENTRY("%s Entry! hIface:0x%X sDeviceID:%s iInfoCmd:%d", Low32(hIface),
                TextOrNull(sDeviceID), iInfoCmd);
    return call.onModule<ZrU3VInterface>(hIface, [&](auto& iface) {
        return iface.GetDeviceInfo(sDeviceID, iInfoCmd, piType, pBuffer, piSize);
    });
}

GC_ERROR GC_CALLTYPE IFOpenDevice(IF_HANDLE hIface, const char* sDeviceID,
                                  DEVICE_ACCESS_FLAGS iOpenFlag, DEV_HANDLE* phDevice)
{
    GENTL_ENTRY("%s Entry! hIface:0x%X sDeviceID:%s iOpenFlags:%d", Low32(hIface),
                TextOrNull(sDeviceID), iOpenFlag);
    return call.onModule<ZrU3VInterface>(
        hIface, [&](auto& iface) { return iface.OpenDevice(sDeviceID, iOpenFlag, phDevice); });
}

// ---- device

GC_ERROR GC_CALLTYPE DevGetPort(DEV_HANDLE hDevice, PORT_HANDLE* phRemoteDevice)
{
    GENTL_ENTRY("%s Entry! hDevice:0x%X", Low32(hDevice));
    return call.onModule<ZrU3VDevice>(hDevice,
                                      [&](auto& device) { return device.GetPort(phRemoteDevice); });
}

GC_ERROR GC_CALLTYPE DevGetNumDataStreams(DEV_HANDLE hDevice, uint32_t* piNumDataStreams)
{
    GENTL_ENTRY("%s Entry! hDevice:0x%X", Low32(hDevice));
    return call.onModule<ZrU3VDevice>(
        hDevice, [&](auto& device) { return device.GetNumDataStreams(piNumDataStreams); });
}

GC_ERROR GC_CALLTYPE DevGetDataStreamID(DEV_HANDLE hDevice, uint32_t iIndex, char* sDataStreamID,
                                        size_t* piSize)
{
    GENTL_ENTRY("%s Entry! hDevice:0x%X iIndex:%d", Low32(hDevice), static_cast<int>(iIndex));
    return call.onModule<ZrU3VDevice>(hDevice, [&](auto& device) {
        return device.GetDataStreamID(iIndex, sDataStreamID, piSize);
    });
}

GC_ERROR GC_CALLTYPE DevOpenDataStream(DEV_HANDLE hDevice, const char* sDataStreamID,
                                       DS_HANDLE* phDataStream)
{
    GENTL_ENTRY("%s Entry! hDevice:0x%X sDataStreamID:%s", Low32(hDevice),
                TextOrNull(sDataStreamID));
    return call.onModule<ZrU3VDevice>(
        hDevice, [&](auto& device) { return device.OpenDataStream(sDataStreamID, phDataStream); });
}

GC_ERROR GC_CALLTYPE DevGetInfo(DEV_HANDLE hDevice, DEVICE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                                void* pBuffer, size_t* piSize)
{
    GENTL_ENTRY("%s Entry! hDevice:0x%X iInfoCmd:%d", Low32(hDevice), iInfoCmd);
    return call.onModule<ZrU3VDevice>(
        hDevice, [&](auto& device) { return device.GetInfo(iInfoCmd, piType, pBuffer, piSize); });
}

GC_ERROR GC_CALLTYPE DevClose(DEV_HANDLE hDevice)
{
    GENTL_ENTRY("%s Entry! hDevice:0x%X", Low32(hDevice));
    return call.onParentOf<ZrU3VDevice, ZrU3VInterface>(
        hDevice,
        [](ZrU3VDevice& device) {
            // The port is asked for before the close; its answer is of no use here.
            void* port = nullptr;
            static_cast<void>(device.GetPort(&port));
        },
        [&](ZrU3VInterface& iface) { return iface.CloseDevice(hDevice); });
}

// ---- data stream

GC_ERROR GC_CALLTYPE DSAnnounceBuffer(DS_HANDLE hDataStream, void* pBuffer, size_t iSize,
                                      void* pPrivate, BUFFER_HANDLE* phBuffer)
{
    GENTL_ENTRY("%s Entry! hDataStream:0x%X pBuffer:%p iSize:%d pPrivate:%p ", Low32(hDataStream),
                pBuffer, static_cast<int>(iSize), pPrivate);
    return call.onModule<ZrU3VDataStream>(hDataStream, [&](auto& stream) {
        return stream.AnnounceBuffer(pBuffer, iSize, pPrivate, phBuffer);
    });
}

GC_ERROR GC_CALLTYPE DSAllocAndAnnounceBuffer(DS_HANDLE hDataStream, size_t iSize, void* pPrivate,
                                              BUFFER_HANDLE* phBuffer)
{
    GENTL_ENTRY("%s Entry! hDataStream:0x%X iSize:%d pPrivate:%p ", Low32(hDataStream),
                static_cast<int>(iSize), pPrivate);
    return call.onModule<ZrU3VDataStream>(hDataStream, [&](auto& stream) {
        return stream.AllocAndAnnounceBuffer(iSize, pPrivate, phBuffer);
    });
}

GC_ERROR GC_CALLTYPE DSFlushQueue(DS_HANDLE hDataStream, ACQ_QUEUE_TYPE iOperation)
{
    GENTL_ENTRY("%s Entry! hDataStream:0x%X iOperation:%d", Low32(hDataStream), iOperation);
    return call.onModule<ZrU3VDataStream>(
        hDataStream, [&](auto& stream) { return stream.FlushQueue(iOperation); });
}

GC_ERROR GC_CALLTYPE DSStartAcquisition(DS_HANDLE hDataStream, ACQ_START_FLAGS iStartFlags,
                                        uint64_t iNumToAcquire)
{
    GENTL_ENTRY("%s Entry! hDataStream:0x%X iStartFlags:%d iNumToAcquire:%lld", Low32(hDataStream),
                iStartFlags, static_cast<long long>(iNumToAcquire));
    return call.onModule<ZrU3VDataStream>(hDataStream, [&](auto& stream) {
        return stream.StartAcquisition(iStartFlags, iNumToAcquire);
    });
}

GC_ERROR GC_CALLTYPE DSStopAcquisition(DS_HANDLE hDataStream, ACQ_STOP_FLAGS iStopFlags)
{
    GENTL_ENTRY("%s Entry! hDataStream:0x%X iStopFlags:%d", Low32(hDataStream), iStopFlags);
    return call.onModule<ZrU3VDataStream>(
        hDataStream, [&](auto& stream) { return stream.StopAcquisition(iStopFlags); });
}

GC_ERROR GC_CALLTYPE DSGetInfo(DS_HANDLE hDataStream, STREAM_INFO_CMD iInfoCmd,
                               INFO_DATATYPE* piType, void* pBuffer, size_t* piSize)
{
    GENTL_ENTRY("%s Entry! hDataStream:0x%X iInfoCmd:%d", Low32(hDataStream), iInfoCmd);
    return call.onModule<ZrU3VDataStream>(hDataStream, [&](auto& stream) {
        return stream.GetInfo(iInfoCmd, piType, pBuffer, piSize);
    });
}

GC_ERROR GC_CALLTYPE DSGetBufferID(DS_HANDLE hDataStream, uint32_t iIndex, BUFFER_HANDLE* phBuffer)
{
    GENTL_ENTRY("%s Entry! hDataStream:0x%X iIndex:%d", Low32(hDataStream),
                static_cast<int>(iIndex));
    return call.onModule<ZrU3VDataStream>(
        hDataStream, [&](auto& stream) { return stream.GetBufferID(iIndex, phBuffer); });
}

GC_ERROR GC_CALLTYPE DSClose(DS_HANDLE hDataStream)
{
    GENTL_ENTRY("%s Entry! hDataStream:0x%X", Low32(hDataStream));
    return call.onModule<ZrU3VDataStream>(hDataStream,
                                          [&](auto& stream) { return stream.Close(); });
}

GC_ERROR GC_CALLTYPE DSRevokeBuffer(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, void** pBuffer,
                                    void** pPrivate)
{
    GENTL_ENTRY("%s Entry! hDataStream:0x%X hBuffer:0x%X", Low32(hDataStream), Low32(hBuffer));
    return call.onModule<ZrU3VDataStream>(
        hDataStream, [&](auto& stream) { return stream.RevokeBuffer(hBuffer, pBuffer, pPrivate); });
}

GC_ERROR GC_CALLTYPE DSQueueBuffer(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer)
{
    GENTL_ENTRY("%s Entry! hDataStream:0x%X hBuffer:0x%X", Low32(hDataStream), Low32(hBuffer));
    return call.onModule<ZrU3VDataStream>(
        hDataStream, [&](auto& stream) { return stream.QueueBuffer(hBuffer); });
}

GC_ERROR GC_CALLTYPE DSGetBufferInfo(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer,
                                     BUFFER_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer,
                                     size_t* piSize)
{
    GENTL_ENTRY("%s Entry! hDataStream:0x%X hBuffer:0x%X iInfoCmd:%d", Low32(hDataStream),
                Low32(hBuffer), iInfoCmd);
    return call.onModule<ZrU3VDataStream>(hDataStream, [&](auto& stream) {
        return stream.GetBufferInfo(hBuffer, iInfoCmd, piType, pBuffer, piSize);
    });
}

// ---- not implemented

GC_ERROR GC_CALLTYPE DSGetBufferChunkData(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer,
                                          SINGLE_CHUNK_DATA* /*pChunkData*/,
                                          size_t* /*piNumChunks*/)
{
    GENTL_ENTRY("%s Entry! hDataStream:0x%X hBuffer:0x%X", Low32(hDataStream), Low32(hBuffer));
    return call.notImplemented();
}

GC_ERROR GC_CALLTYPE DSGetNumBufferParts(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer,
                                         uint32_t* /*piNumParts*/)
{
    GENTL_ENTRY("%s Entry! hDataStream:0x%X hBuffer:0x%X", Low32(hDataStream), Low32(hBuffer));
    return call.notImplemented();
}

GC_ERROR GC_CALLTYPE DSGetBufferPartInfo(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer,
                                         uint32_t iPartIndex, BUFFER_PART_INFO_CMD iInfoCmd,
                                         INFO_DATATYPE* /*piType*/, void* /*pBuffer*/,
                                         size_t* /*piSize*/)
{
    GENTL_ENTRY("%s Entry! hDataStream:0x%X hBuffer:0x%X iPartIndex:%d iInfoCmd:%d",
                Low32(hDataStream), Low32(hBuffer), static_cast<int>(iPartIndex), iInfoCmd);
    return call.notImplemented();
}

GC_ERROR GC_CALLTYPE IFGetParentTL(IF_HANDLE hIface, TL_HANDLE* /*phSystem*/)
{
    GENTL_ENTRY("%s Entry! hIface:0x%X", Low32(hIface));
    return call.notImplemented();
}

GC_ERROR GC_CALLTYPE DevGetParentIF(DEV_HANDLE hDevice, IF_HANDLE* /*phIface*/)
{
    GENTL_ENTRY("%s Entry! hDevice:0x%X", Low32(hDevice));
    return call.notImplemented();
}

GC_ERROR GC_CALLTYPE DSGetParentDev(DS_HANDLE hDataStream, DEV_HANDLE* /*phDevice*/)
{
    GENTL_ENTRY("%s Entry! hDataStream:0x%X", Low32(hDataStream));
    return call.notImplemented();
}

GC_ERROR GC_CALLTYPE ZrForceIPConfig()
{
    GENTL_ENTRY("%s Entry");
    return call.notImplemented();
}

GC_ERROR GC_CALLTYPE ZrSetIPConfig()
{
    GENTL_ENTRY("%s Entry");
    return call.notImplemented();
}
