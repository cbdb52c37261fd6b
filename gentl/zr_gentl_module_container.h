#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "zr_gentl_module_base.h"
#include "zr_sync.h"

// The locked list of module pointers: the controller's registry and every parent's list of
// children. It does not own the modules unless Clear(true) says so. Lock order: a container's lock
// before a module's, never the reverse.
//
// `remove` in a Find takes the found entry out in the same locked step; a Find never destroys.
class ZrGenTLModuleContainer
{
public:
    ZrGenTLModuleContainer() = default;
    ZrGenTLModuleContainer(const ZrGenTLModuleContainer&) = delete;
    ZrGenTLModuleContainer& operator=(const ZrGenTLModuleContainer&) = delete;

    bool Add(ZrGenTLModuleBase* module);
    uint32_t GetCount();
    // `destroy` deletes each module once; its destructor sees to the calls that are inside it.
    void Clear(bool destroy);

    // First entry whose id equals `id` (same length, same bytes); a NULL `id` matches nothing.
    ZrGenTLModuleBase* FindById(const char* id, bool remove);
    ZrGenTLModuleBase* FindByIndex(uint32_t index, bool remove);
    // Compares addresses only and never calls into a module.
    void* FindByHandle(void* handle, bool remove);
    ZrGenTLModuleBase* FindByHandleAndName(void* handle, const char* name, bool remove);

    // The same look-ups, entering the module's gate under the container's lock: the module lives at
    // least as long as the result. Empty when there is no such entry or it is being closed.
    Pinned<ZrGenTLModuleBase> PinById(const char* id);
    Pinned<ZrGenTLModuleBase> PinByIndex(uint32_t index);
    Pinned<ZrGenTLModuleBase> PinByHandle(void* handle);
    Pinned<ZrGenTLModuleBase> PinByHandleAndName(void* handle, const char* name);

    // The addresses of all entries, in order: for a walk that asks each one through PinByHandle and
    // so misses none when others leave meanwhile.
    std::vector<void*> GetHandles();
    // The same into `handles`, as many as fit; returns how many there are.
    size_t GetHandles(std::span<void*> handles);

private:
    // The first entry that `matches`, taken out when `remove` is true; NULL when there is none.
    template <class Predicate>
    ZrGenTLModuleBase* _find(bool remove, Predicate matches) ZR_REQUIRES(m_mutex);

    RecursiveMutex m_mutex;
    std::vector<ZrGenTLModuleBase*> m_modules ZR_GUARDED_BY(m_mutex);
};
