#include "zr_gentl_module_container.h"

#include <algorithm>
#include <string>

// Finding and taking out are one step: of two threads that close the same handle only one gets it.
template <class Predicate>
ZrGenTLModuleBase* ZrGenTLModuleContainer::_find(bool remove, Predicate matches)
{
    const auto found = std::find_if(m_modules.begin(), m_modules.end(), matches);
    if (found == m_modules.end()) {
        return nullptr;
    }
    ZrGenTLModuleBase* const module = *found;
    if (remove) {
        m_modules.erase(found);
    }
    return module;
}

bool ZrGenTLModuleContainer::Add(ZrGenTLModuleBase* module)
{
    if (module == nullptr) {
        return false;
    }
    Locker lock(m_mutex);
    // Duplicates are not looked for; modules register once, in their Open.
    m_modules.push_back(module);
    return true;
}

uint32_t ZrGenTLModuleContainer::GetCount()
{
    Locker lock(m_mutex);
    return static_cast<uint32_t>(m_modules.size());
}

void ZrGenTLModuleContainer::Clear(bool destroy)
{
    // Emptied first, so that nobody finds a module that is already going.
    std::vector<ZrGenTLModuleBase*> modules;
    {
        Locker lock(m_mutex);
        modules.swap(m_modules);
    }
    if (!destroy) {
        return;
    }
    // Outside the lock, because a module that goes takes locks of its own. A module that was added
    // twice goes once.
    for (size_t i = 0; i < modules.size(); ++i) {
        const auto current = modules.begin() + static_cast<std::ptrdiff_t>(i);
        if (std::find(modules.begin(), current, *current) == current) {
            delete *current;
        }
    }
}

ZrGenTLModuleBase* ZrGenTLModuleContainer::FindById(const char* id, bool remove)
{
    if (id == nullptr) {
        return nullptr;
    }
    Locker lock(m_mutex);
    return _find(remove, [id](ZrGenTLModuleBase* module) { return module->GetId() == id; });
}

ZrGenTLModuleBase* ZrGenTLModuleContainer::FindByIndex(uint32_t index, bool remove)
{
    Locker lock(m_mutex);
    if (index >= m_modules.size()) {
        return nullptr;
    }
    const auto position = m_modules.begin() + static_cast<std::ptrdiff_t>(index);
    ZrGenTLModuleBase* const module = *position;
    if (remove) {
        m_modules.erase(position);
    }
    return module;
}

// Untyped result on purpose: the entry may be half torn down and must not be called.
void* ZrGenTLModuleContainer::FindByHandle(void* handle, bool remove)
{
    Locker lock(m_mutex);
    return _find(remove, [handle](const ZrGenTLModuleBase* module) { return module == handle; });
}

ZrGenTLModuleBase* ZrGenTLModuleContainer::FindByHandleAndName(void* handle, const char* name,
                                                               bool remove)
{
    if (name == nullptr) {
        return nullptr;
    }
    Locker lock(m_mutex);
    return _find(remove, [handle, name](ZrGenTLModuleBase* module) {
        // The address first: only a module that is in the list is asked for its name (container
        // before module, the lock order).
        return module == handle && module->GetName() == name;
    });
}

// The pins enter the gate while the list is locked. An owner takes its module out of the list
// before it shuts the gate, so what is found here is alive. The lock is recursive for the nested
// Find.
Pinned<ZrGenTLModuleBase> ZrGenTLModuleContainer::PinById(const char* id)
{
    Locker lock(m_mutex);
    return Pinned<ZrGenTLModuleBase>::TryPin(FindById(id, false));
}

Pinned<ZrGenTLModuleBase> ZrGenTLModuleContainer::PinByIndex(uint32_t index)
{
    Locker lock(m_mutex);
    return Pinned<ZrGenTLModuleBase>::TryPin(FindByIndex(index, false));
}

Pinned<ZrGenTLModuleBase> ZrGenTLModuleContainer::PinByHandle(void* handle)
{
    Locker lock(m_mutex);
    return Pinned<ZrGenTLModuleBase>::TryPin(
        _find(false, [handle](const ZrGenTLModuleBase* module) { return module == handle; }));
}

Pinned<ZrGenTLModuleBase> ZrGenTLModuleContainer::PinByHandleAndName(void* handle, const char* name)
{
    Locker lock(m_mutex);
    return Pinned<ZrGenTLModuleBase>::TryPin(FindByHandleAndName(handle, name, false));
}

std::vector<void*> ZrGenTLModuleContainer::GetHandles()
{
    Locker lock(m_mutex);
    return {m_modules.begin(), m_modules.end()};
}

size_t ZrGenTLModuleContainer::GetHandles(std::span<void*> handles)
{
    Locker lock(m_mutex);
    std::copy_n(m_modules.begin(), std::min(m_modules.size(), handles.size()), handles.begin());
    return m_modules.size();
}
