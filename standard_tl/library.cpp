#include "library.h"

#include <new>
#include <pthread.h>
#include <string>

#include "failure.h"
#include "interface.h"
#include "producer_facts.h"
#include "system.h"
#include "zr_no_destroy.h"

namespace standard_tl {
namespace {

// What is there once in a process. Not destroyed when the process ends: other threads may still be
// in it then.
struct Process
{
    HandleTable handles;
    Mutex lifeCycle; // one start or end at a time
    std::unique_ptr<Library> library ZR_GUARDED_BY(lifeCycle);
    std::atomic<void*> libraryHandle = nullptr; // NULL: not initialised
};

Process& TheProcess()
{
    static ZrNoDestroy<Process> process;
    return process.Get();
}

// The parent's locks may be held by threads that the child does not have, and its cameras are the
// parent's: the child leaves all of it alone and starts with nothing.
void StartAnewInChild()
{
    new (&TheProcess()) Process;
}

void WatchForks()
{
    static const int watching = pthread_atfork(nullptr, nullptr, StartAnewInChild);
    if (watching != 0) {
        throw std::bad_alloc();
    }
}

struct Nobody
{
};

constexpr InfoTable<Nobody, 11> kProducerInfo{
    "producer",
    {
        {TL_INFO_ID, INFO_DATATYPE_STRING, [](Nobody&) -> Value { return producer::kId; }},
        {TL_INFO_VENDOR, INFO_DATATYPE_STRING, [](Nobody&) -> Value { return producer::kVendor; }},
        {TL_INFO_MODEL, INFO_DATATYPE_STRING, [](Nobody&) -> Value { return producer::kModel; }},
        {TL_INFO_VERSION, INFO_DATATYPE_STRING,
         [](Nobody&) -> Value { return producer::kVersion; }},
        {TL_INFO_TLTYPE, INFO_DATATYPE_STRING, [](Nobody&) -> Value { return producer::kTlType; }},
        {TL_INFO_NAME, INFO_DATATYPE_STRING, [](Nobody&) -> Value { return producer::FileName(); }},
        {TL_INFO_PATHNAME, INFO_DATATYPE_STRING,
         [](Nobody&) -> Value { return producer::FilePath(); }},
        {TL_INFO_DISPLAYNAME, INFO_DATATYPE_STRING,
         [](Nobody&) -> Value { return producer::kDisplayName; }},
        {TL_INFO_CHAR_ENCODING, INFO_DATATYPE_INT32,
         [](Nobody&) -> Value { return TL_CHAR_ENCODING_UTF8; }},
        {TL_INFO_GENTL_VER_MAJOR, INFO_DATATYPE_UINT32,
         [](Nobody&) -> Value { return producer::kGenTlMajor; }},
        {TL_INFO_GENTL_VER_MINOR, INFO_DATATYPE_UINT32,
         [](Nobody&) -> Value { return producer::kGenTlMinor; }},
    }};

bool AreEqual(const std::vector<CameraInfoPtr>& left, const std::vector<CameraInfoPtr>& right)
{
    return std::ranges::equal(left, right, [](const CameraInfoPtr& a, const CameraInfoPtr& b) {
        return a == b || *a == *b;
    });
}

} // namespace

HandleTable& Handles()
{
    return TheProcess().handles;
}

// ---- the root

Library::Library() : Node(nullptr)
{
    m_cameras.OnChange([this] { _changed(); });
}

void* Library::OpenSystem()
{
    Locker lock(m_openMutex);
    if (_findChild<System>([](const System&) { return true; }) != nullptr) {
        throw Failure(GC_ERR_RESOURCE_IN_USE, "the System is open already");
    }
    return _adopt(std::make_unique<System>(*this));
}

bool Library::Update(u3v_host::Deadline deadline)
{
    m_cameras.Update(deadline);
    auto known = m_cameras.Cameras();
    Locker lock(m_listMutex);
    const bool changed = !AreEqual(known, m_seen);
    m_seen = std::move(known);
    return changed;
}

std::vector<CameraInfoPtr> Library::Seen() const
{
    Locker lock(m_listMutex);
    return m_seen;
}

CameraInfoPtr Library::Find(const char* id)
{
    CameraInfoPtr found = m_cameras.Find(id);
    if (found == nullptr) {
        m_cameras.Update(u3v_host::Deadline::max());
        found = m_cameras.Find(id);
    }
    if (found == nullptr) {
        throw Failure(GC_ERR_INVALID_ID,
                      "no camera of the bus has the id \"" + std::string(id) + "\"");
    }
    return found;
}

void Library::Tell(Interface* listener)
{
    Locker lock(m_listenerMutex);
    m_listener = listener;
}

// On the thread that serves the bus.
void Library::_changed()
{
    Locker lock(m_listenerMutex);
    if (m_listener != nullptr) {
        m_listener->TellListChanged();
    }
}

GC_ERROR ProducerInfo(int32_t command, const InfoOut& out)
{
    Nobody nobody;
    return kProducerInfo.Answer(nobody, command, out);
}

// ---- the process

bool IsInitialized()
{
    return TheProcess().libraryHandle.load() != nullptr;
}

void InitializeLibrary()
{
    WatchForks();
    Process& process = TheProcess();
    Locker lock(process.lifeCycle);
    if (process.library != nullptr) {
        throw Failure(GC_ERR_RESOURCE_IN_USE, "the library is initialised already");
    }
    auto library = std::make_unique<Library>();
    process.handles.Add(*library);
    process.library = std::move(library);
    process.libraryHandle = process.library->Handle();
}

void CloseLibrary()
{
    Process& process = TheProcess();
    Locker lock(process.lifeCycle);
    if (process.library == nullptr) {
        throw Failure(GC_ERR_NOT_INITIALIZED, "GCInitLib comes first");
    }
    process.handles.Remove(process.libraryHandle.exchange(nullptr));
    process.library->CloseBelow();
    process.library.reset();
}

Pin<Library> TheLibrary()
{
    return Handles().Find<Library>(TheProcess().libraryHandle);
}

} // namespace standard_tl
