/* The producer as a consumer sees it: one table of function pointers out of the loaded file.
 * Written for these programs alone, on purpose: what they find is in C and owes nothing to the
 * project's C++ consumer. */
#ifndef ZR_TESTS_CONTRACT_PRODUCER_H
#define ZR_TESTS_CONTRACT_PRODUCER_H

#include <stddef.h>
#include <stdint.h>

#include <zr_u3v_tl/gentl.h>

#define ZR_GENTL_FUNCTIONS(X)                                                                      \
    X(DSAllocAndAnnounceBuffer)                                                                    \
    X(DSAnnounceBuffer)                                                                            \
    X(DSClose)                                                                                     \
    X(DSFlushQueue)                                                                                \
    X(DSGetBufferChunkData)                                                                        \
    X(DSGetBufferID)                                                                               \
    X(DSGetBufferInfo)                                                                             \
    X(DSGetBufferPartInfo)                                                                         \
    X(DSGetInfo)                                                                                   \
    X(DSGetNumBufferParts)                                                                         \
    X(DSGetParentDev)                                                                              \
    X(DSQueueBuffer)                                                                               \
    X(DSRevokeBuffer)                                                                              \
    X(DSStartAcquisition)                                                                          \
    X(DSStopAcquisition)                                                                           \
    X(DevClose)                                                                                    \
    X(DevGetDataStreamID)                                                                          \
    X(DevGetInfo)                                                                                  \
    X(DevGetNumDataStreams)                                                                        \
    X(DevGetParentIF)                                                                              \
    X(DevGetPort)                                                                                  \
    X(DevOpenDataStream)                                                                           \
    X(EventFlush)                                                                                  \
    X(EventGetData)                                                                                \
    X(EventGetDataInfo)                                                                            \
    X(EventGetInfo)                                                                                \
    X(EventKill)                                                                                   \
    X(GCCloseLib)                                                                                  \
    X(GCGetInfo)                                                                                   \
    X(GCGetLastError)                                                                              \
    X(GCGetNumPortURLs)                                                                            \
    X(GCGetPortInfo)                                                                               \
    X(GCGetPortURL)                                                                                \
    X(GCGetPortURLInfo)                                                                            \
    X(GCInitLib)                                                                                   \
    X(GCReadPort)                                                                                  \
    X(GCReadPortStacked)                                                                           \
    X(GCRegisterEvent)                                                                             \
    X(GCUnregisterEvent)                                                                           \
    X(GCWritePort)                                                                                 \
    X(GCWritePortStacked)                                                                          \
    X(IFClose)                                                                                     \
    X(IFGetDeviceID)                                                                               \
    X(IFGetDeviceInfo)                                                                             \
    X(IFGetInfo)                                                                                   \
    X(IFGetNumDevices)                                                                             \
    X(IFGetParentTL)                                                                               \
    X(IFOpenDevice)                                                                                \
    X(IFUpdateDeviceList)                                                                          \
    X(TLClose)                                                                                     \
    X(TLGetInfo)                                                                                   \
    X(TLGetInterfaceID)                                                                            \
    X(TLGetInterfaceInfo)                                                                          \
    X(TLGetNumInterfaces)                                                                          \
    X(TLOpen)                                                                                      \
    X(TLOpenInterface)                                                                             \
    X(TLUpdateInterfaceList)

/* Of the exact producer alone. */
#define ZR_OWN_FUNCTIONS(X)                                                                        \
    X(ZrForceIPConfig)                                                                             \
    X(ZrSetIPConfig)

struct gentl_functions
{
#define ZR_MEMBER(name) P##name name;
    ZR_GENTL_FUNCTIONS(ZR_MEMBER)
    ZR_OWN_FUNCTIONS(ZR_MEMBER)
#undef ZR_MEMBER
};

extern struct gentl_functions gentl;

/* Loads a producer with these flags of dlopen and resolves every function of GenTL 1.5; ends the
 * program when one is missing. Returns the loader's handle. */
void* producer_load_any(const char* path, int flags);
/* The same for the exact producer, with its own functions. */
void* producer_load(const char* path);
void producer_unload(void* library);

/* The simulated bus in front of the producer. Its functions are found through the producer's own
 * dependencies, so that this program knows nothing but the GenTL header. */
struct virtual_bus
{
    void (*reset)(void);
    int (*add_camera)(const char* options);
    int (*unplug)(int camera);
    int64_t (*compare_image)(int camera, uint64_t frame, const void* image, size_t size);
    size_t (*payload_size)(int camera);
    size_t (*description_file)(int camera, void* data, size_t size);
    uint64_t (*violations)(const char* kind);
};

extern struct virtual_bus bus;

/* Ends the program when the producer runs on anything but the virtual bus. */
void virtual_bus_find(void* library);

/* The name of a status, "No Error" for 0 and the empty text for an unknown one. */
const char* status_text(GC_ERROR status);

#endif
