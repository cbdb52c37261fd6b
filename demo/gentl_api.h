#pragma once

#include <stdexcept>
#include <string>

#include <zr_u3v_tl/gentl.h>

// The functions that this program uses, out of a producer that is loaded at run time: the way every
// GenTL consumer does it, with nothing linked.
#define DEMO_GENTL_FUNCTIONS(X)                                                                    \
    X(GCInitLib)                                                                                   \
    X(GCCloseLib)                                                                                  \
    X(GCGetInfo)                                                                                   \
    X(GCGetLastError)                                                                              \
    X(GCReadPort)                                                                                  \
    X(GCGetPortURLInfo)                                                                            \
    X(GCRegisterEvent)                                                                             \
    X(GCUnregisterEvent)                                                                           \
    X(EventGetData)                                                                                \
    X(TLOpen)                                                                                      \
    X(TLClose)                                                                                     \
    X(TLGetInterfaceID)                                                                            \
    X(TLOpenInterface)                                                                             \
    X(TLUpdateInterfaceList)                                                                       \
    X(IFClose)                                                                                     \
    X(IFGetNumDevices)                                                                             \
    X(IFGetDeviceID)                                                                               \
    X(IFUpdateDeviceList)                                                                          \
    X(IFGetDeviceInfo)                                                                             \
    X(IFOpenDevice)                                                                                \
    X(DevGetPort)                                                                                  \
    X(DevGetDataStreamID)                                                                          \
    X(DevOpenDataStream)                                                                           \
    X(DevClose)                                                                                    \
    X(DSAnnounceBuffer)                                                                            \
    X(DSRevokeBuffer)                                                                              \
    X(DSQueueBuffer)                                                                               \
    X(DSFlushQueue)                                                                                \
    X(DSGetBufferInfo)                                                                             \
    X(DSStartAcquisition)                                                                          \
    X(DSStopAcquisition)                                                                           \
    X(DSClose)

// A loaded producer, initialised; unloaded with the object.
class GenTL
{
public:
    explicit GenTL(const std::string& path);
    ~GenTL();
    GenTL(const GenTL&) = delete;
    GenTL& operator=(const GenTL&) = delete;

    // Throws with the call, the status and the producer's last-error text.
    void Check(GC_ERROR status, const char* call) const;

    // A function of a library that the producer itself stands on; nullptr when there is none.
    template <class Function>
    Function FindBelow(const char* name) const
    {
        return reinterpret_cast<Function>(_find(name));
    }

#define DEMO_MEMBER(name) P##name name = nullptr;
    DEMO_GENTL_FUNCTIONS(DEMO_MEMBER)
#undef DEMO_MEMBER

private:
    void* _find(const char* name) const;
    void* _resolve(const char* name) const;

    void* m_library = nullptr;
};

// Calls a function of the producer and checks its status.
#define DEMO_CALL(api, function, ...) (api).Check((api).function(__VA_ARGS__), #function)
