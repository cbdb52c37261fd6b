#pragma once

#include <filesystem>
#include <string>

#include <zr_u3v_tl/gentl.h>

#include "tool_error.h"

// The functions that this program uses, out of a producer that is loaded at run time.
#define TOOL_GENTL_FUNCTIONS(X)                                                                    \
    X(GCInitLib)                                                                                   \
    X(GCCloseLib)                                                                                  \
    X(GCGetInfo)                                                                                   \
    X(GCGetLastError)                                                                              \
    X(GCReadPort)                                                                                  \
    X(GCWritePort)                                                                                 \
    X(GCGetNumPortURLs)                                                                            \
    X(GCGetPortURLInfo)                                                                            \
    X(GCGetPortInfo)                                                                               \
    X(GCRegisterEvent)                                                                             \
    X(GCUnregisterEvent)                                                                           \
    X(EventGetData)                                                                                \
    X(TLOpen)                                                                                      \
    X(TLClose)                                                                                     \
    X(TLGetInfo)                                                                                   \
    X(TLGetNumInterfaces)                                                                          \
    X(TLGetInterfaceID)                                                                            \
    X(TLOpenInterface)                                                                             \
    X(TLUpdateInterfaceList)                                                                       \
    X(IFClose)                                                                                     \
    X(IFGetInfo)                                                                                   \
    X(IFGetNumDevices)                                                                             \
    X(IFGetDeviceID)                                                                               \
    X(IFUpdateDeviceList)                                                                          \
    X(IFGetDeviceInfo)                                                                             \
    X(IFOpenDevice)                                                                                \
    X(DevGetPort)                                                                                  \
    X(DevGetInfo)                                                                                  \
    X(DevGetNumDataStreams)                                                                        \
    X(DevGetDataStreamID)                                                                          \
    X(DevOpenDataStream)                                                                           \
    X(DevClose)                                                                                    \
    X(DSAnnounceBuffer)                                                                            \
    X(DSRevokeBuffer)                                                                              \
    X(DSQueueBuffer)                                                                               \
    X(DSFlushQueue)                                                                                \
    X(DSGetInfo)                                                                                   \
    X(DSGetBufferInfo)                                                                             \
    X(DSStartAcquisition)                                                                          \
    X(DSStopAcquisition)                                                                           \
    X(DSClose)

// "GC_ERR_IO" for -1010; "GC_ERR_<number>" for a code without a name.
std::string GenTLErrorName(GC_ERROR status);

// A GenTL call that failed: call, code with its name, and the producer's last-error text.
class GenTLError : public ToolError
{
public:
    GenTLError(const std::string& call, GC_ERROR status, const std::string& lastError);

    GC_ERROR Status() const { return m_status; }

private:
    GC_ERROR m_status;
};

// Where the producer is: `wanted` (a file, or a folder that holds one) if not empty, else the first
// zr_u3v_tl.cti in the folders of GENICAM_GENTL64_PATH, else beside this program (../lib and the
// installed library folder). Throws ToolError (NoProducer) with every place that was looked at.
std::filesystem::path FindProducer(const std::string& wanted);

// The folder of this program.
std::filesystem::path ProgramFolder();
// What a shell calls this program by: its name where the PATH leads to it, else its quoted path.
std::string ProgramCommand();

// A loaded producer, initialised; closed with the object, which must therefore outlive every
// handle. Calls may come from any thread, as GenTL has it.
class Producer
{
public:
    explicit Producer(const std::filesystem::path& path);
    ~Producer();
    Producer(const Producer&) = delete;
    Producer& operator=(const Producer&) = delete;

    // Throws GenTLError unless the status is a success; for the thread that made the call.
    void Check(GC_ERROR status, const char* call) const;
    const std::filesystem::path& Path() const { return m_path; }

#define TOOL_MEMBER(name) P##name name = nullptr;
    TOOL_GENTL_FUNCTIONS(TOOL_MEMBER)
#undef TOOL_MEMBER

private:
    void* _resolve(const char* name) const;

    std::filesystem::path m_path;
    void* m_library = nullptr;
};

// Calls a function of the producer and throws when it fails.
#define GENTL_CALL(producer, function, ...)                                                        \
    (producer).Check((producer).function(__VA_ARGS__), #function)
