#pragma once

#include <zr_u3v_tl/gentl.h>

// The functions of a producer, by name, for whatever has to be written once for each of them: those
// that every producer of GenTL 1.5 has, and those that came with 1.6.
#define CONSUMER_FUNCTIONS(X)                                                                      \
    X(GCInitLib)                                                                                   \
    X(GCCloseLib)                                                                                  \
    X(GCGetInfo)                                                                                   \
    X(GCGetLastError)                                                                              \
    X(GCReadPort)                                                                                  \
    X(GCWritePort)                                                                                 \
    X(GCReadPortStacked)                                                                           \
    X(GCWritePortStacked)                                                                          \
    X(GCGetPortURL)                                                                                \
    X(GCGetNumPortURLs)                                                                            \
    X(GCGetPortURLInfo)                                                                            \
    X(GCGetPortInfo)                                                                               \
    X(GCRegisterEvent)                                                                             \
    X(GCUnregisterEvent)                                                                           \
    X(EventGetData)                                                                                \
    X(EventGetDataInfo)                                                                            \
    X(EventGetInfo)                                                                                \
    X(EventFlush)                                                                                  \
    X(EventKill)                                                                                   \
    X(TLOpen)                                                                                      \
    X(TLClose)                                                                                     \
    X(TLGetInfo)                                                                                   \
    X(TLGetNumInterfaces)                                                                          \
    X(TLGetInterfaceID)                                                                            \
    X(TLGetInterfaceInfo)                                                                          \
    X(TLOpenInterface)                                                                             \
    X(TLUpdateInterfaceList)                                                                       \
    X(IFClose)                                                                                     \
    X(IFGetInfo)                                                                                   \
    X(IFGetNumDevices)                                                                             \
    X(IFGetDeviceID)                                                                               \
    X(IFUpdateDeviceList)                                                                          \
    X(IFGetDeviceInfo)                                                                             \
    X(IFOpenDevice)                                                                                \
    X(IFGetParentTL)                                                                               \
    X(DevGetPort)                                                                                  \
    X(DevGetInfo)                                                                                  \
    X(DevGetNumDataStreams)                                                                        \
    X(DevGetDataStreamID)                                                                          \
    X(DevOpenDataStream)                                                                           \
    X(DevGetParentIF)                                                                              \
    X(DevClose)                                                                                    \
    X(DSAnnounceBuffer)                                                                            \
    X(DSAllocAndAnnounceBuffer)                                                                    \
    X(DSRevokeBuffer)                                                                              \
    X(DSQueueBuffer)                                                                               \
    X(DSFlushQueue)                                                                                \
    X(DSStartAcquisition)                                                                          \
    X(DSStopAcquisition)                                                                           \
    X(DSGetInfo)                                                                                   \
    X(DSGetBufferID)                                                                               \
    X(DSGetBufferInfo)                                                                             \
    X(DSGetBufferChunkData)                                                                        \
    X(DSGetNumBufferParts)                                                                         \
    X(DSGetBufferPartInfo)                                                                         \
    X(DSGetParentDev)                                                                              \
    X(DSClose)

#define CONSUMER_FUNCTIONS_1_6(X)                                                                  \
    X(DSAnnounceCompositeBuffer)                                                                   \
    X(DSGetBufferInfoStacked)                                                                      \
    X(DSGetBufferPartInfoStacked)                                                                  \
    X(DSGetNumFlows)                                                                               \
    X(DSGetFlowInfo)                                                                               \
    X(DSGetNumBufferSegments)                                                                      \
    X(DSGetBufferSegmentInfo)
