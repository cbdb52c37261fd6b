#include "api_world.h"

void ApiWorld::Store(Kind kind, void* handle)
{
    if (handle != nullptr) {
        Handles& handles = m_handles[static_cast<size_t>(kind)];
        handles.slots[handles.stored++ % kKept] = handle;
    }
}

void* ApiWorld::Newest(Kind kind)
{
    Handles& handles = m_handles[static_cast<size_t>(kind)];
    const size_t stored = handles.stored;
    return stored == 0 ? nullptr : handles.slots[(stored - 1) % kKept].load();
}

void* ApiWorld::Pick(FuzzInput& input, Kind kind)
{
    static int neverAHandle = 0;
    const uint8_t choice = input.Byte();
    if (choice < 208) {
        return Newest(kind);
    }
    if (choice < 232) {
        return m_handles[static_cast<size_t>(kind)].slots[choice % kKept];
    }
    if (choice < 248) {
        const size_t any = choice % static_cast<size_t>(Kind::Count);
        return m_handles[any].slots[input.Byte() % kKept];
    }
    switch (choice % 4) {
    case 0: return nullptr;
    case 1: return &neverAHandle;
    case 2: return reinterpret_cast<void*>(uintptr_t{1});
    default: return reinterpret_cast<void*>(input.Take<uintptr_t>());
    }
}

uint8_t* ApiWorld::Memory(size_t size)
{
    auto memory = std::make_unique<uint8_t[]>(size);
    const std::lock_guard lock(m_mutex);
    m_memory.push_back(std::move(memory));
    return m_memory.back().get();
}
