#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "camera_list.h"
#include "info.h"
#include "node.h"
#include "zr_sync.h"

namespace standard_tl {

class Interface;

using CameraInfoPtr = std::shared_ptr<const u3v_host::CameraInfo>;

// The root of what is open, from GCInitLib to GCCloseLib: the cameras of the bus, and the list of
// them that the consumer has seen, which both survive System and Interface.
class Library final : public Node
{
public:
    // Throws u3v_host::Error.
    Library();

    u3v_host::CameraList& Cameras() { return m_cameras; }

    // Opens the System. Throws Failure: GC_ERR_RESOURCE_IN_USE.
    void* OpenSystem() ZR_EXCLUDES(m_openMutex);

    // Looks at the bus until the deadline and shows the consumer what is known. True when that is
    // not what it has seen before.
    bool Update(u3v_host::Deadline deadline) ZR_EXCLUDES(m_listMutex);
    // What the consumer has seen last.
    std::vector<CameraInfoPtr> Seen() const ZR_EXCLUDES(m_listMutex);
    // A camera of the bus, looked for once when it is not listed. Throws Failure:
    // GC_ERR_INVALID_ID.
    CameraInfoPtr Find(const char* id);

    // The interface that hears of cameras that come and go; NULL: none.
    void Tell(Interface* listener) ZR_EXCLUDES(m_listenerMutex);

private:
    void _changed() ZR_EXCLUDES(m_listenerMutex);

    mutable Mutex m_listMutex;
    std::vector<CameraInfoPtr> m_seen ZR_GUARDED_BY(m_listMutex);
    Mutex m_listenerMutex;
    Interface* m_listener ZR_GUARDED_BY(m_listenerMutex) = nullptr;
    Mutex m_openMutex;
    // Last, so that it goes first: its thread uses the rest.
    u3v_host::CameraList m_cameras;
};

// GCGetInfo, TLGetInfo.
GC_ERROR ProducerInfo(int32_t command, const InfoOut& out);

// The library in this process: at most one at a time. A forked child has none, whatever its parent
// has, and may make its own.
bool IsInitialized();
// Throw Failure (GC_ERR_RESOURCE_IN_USE, GC_ERR_NOT_INITIALIZED), u3v_host::Error.
void InitializeLibrary();
void CloseLibrary();
// Empty when there is none, or it is being closed.
Pin<Library> TheLibrary();

} // namespace standard_tl
