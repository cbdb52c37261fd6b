#include "zr_gentl_buffer_queue.h"

#include <algorithm>

ZrGenTLBufferQueue::~ZrGenTLBufferQueue()
{
    // The two lists that only refer go first; a buffer is freed through the announced list.
    Clear(ZR_BUFFER_LIST_INPUT, false);
    Clear(ZR_BUFFER_LIST_OUTPUT, false);
    Clear(ZR_BUFFER_LIST_ANNOUNCED, true);
}

// No default label: the compiler then warns of a list that is added and forgotten here.
ZrGenTLBufferQueue::List* ZrGenTLBufferQueue::_getBufferQueue(ZR_BUFFER_TYPE_LIST list)
{
    switch (list) {
    case ZR_BUFFER_LIST_INPUT: return &m_input;
    case ZR_BUFFER_LIST_OUTPUT: return &m_output;
    case ZR_BUFFER_LIST_ANNOUNCED: return &m_announced;
    }
    return nullptr;
}

bool ZrGenTLBufferQueue::Add(ZR_BUFFER_TYPE_LIST list, ZrGenTLBuffer* buffer)
{
    if (buffer == nullptr || !_isValid(list)) {
        return false;
    }
    Locker lock(m_mutex);
    // The same buffer may stand in several lists, and twice in one; the data stream sees to its
    // rules.
    _getBufferQueue(list)->push_back(buffer);
    return true;
}

ZrGenTLBuffer* ZrGenTLBufferQueue::GetFront(ZR_BUFFER_TYPE_LIST list, bool pop)
{
    return FindByIndex(list, 0, pop);
}

void ZrGenTLBufferQueue::MoveTo(ZR_BUFFER_TYPE_LIST dest, ZR_BUFFER_TYPE_LIST src, bool pop)
{
    if (!_isValid(dest) || !_isValid(src)) {
        return;
    }
    Locker lock(m_mutex);
    List* const source = _getBufferQueue(src);
    if (source->empty()) {
        return;
    }
    ZrGenTLBuffer* const buffer = (*source)[0];
    _getBufferQueue(dest)->push_back(buffer);
    if (pop) {
        source->pop_front(); // of a list moved to itself too: its front goes to its back
    }
}

void ZrGenTLBufferQueue::FlushTo(ZR_BUFFER_TYPE_LIST dest, ZR_BUFFER_TYPE_LIST src, bool clear)
{
    if (!_isValid(dest) || !_isValid(src)) {
        return;
    }
    Locker lock(m_mutex);
    // A copy, because `dest` may be `src`.
    const List entries = *_getBufferQueue(src);
    List* const destination = _getBufferQueue(dest);
    for (size_t i = 0; i < entries.size(); ++i) {
        destination->push_back(entries[i]);
    }
    if (clear) {
        _getBufferQueue(src)->clear();
    }
}

template <class Predicate>
ZrGenTLBuffer* ZrGenTLBufferQueue::_find(ZR_BUFFER_TYPE_LIST list, bool remove, Predicate matches)
{
    List* const entries = _getBufferQueue(list);
    for (size_t i = 0; i < entries->size(); ++i) {
        ZrGenTLBuffer* const buffer = (*entries)[i];
        if (!matches(buffer)) {
            continue;
        }
        if (remove) {
            entries->erase(i);
        }
        return buffer;
    }
    return nullptr;
}

ZrGenTLBuffer* ZrGenTLBufferQueue::FindByBuffer(ZR_BUFFER_TYPE_LIST list, const void* base,
                                                bool remove)
{
    if (base == nullptr || !_isValid(list)) {
        return nullptr;
    }
    Locker lock(m_mutex);
    // The buffer's lock is taken inside the queue's, never the other way round.
    return _find(list, remove, [base](ZrGenTLBuffer* entry) { return entry->GetBase() == base; });
}

void* ZrGenTLBufferQueue::FindByHandle(ZR_BUFFER_TYPE_LIST list, void* handle, bool remove)
{
    if (handle == nullptr || !_isValid(list)) {
        return nullptr;
    }
    Locker lock(m_mutex);
    // Addresses only: the handle may be that of a buffer revoked long ago.
    return _find(list, remove, [handle](const ZrGenTLBuffer* entry) { return entry == handle; });
}

ZrGenTLBuffer* ZrGenTLBufferQueue::FindByIndex(ZR_BUFFER_TYPE_LIST list, uint32_t index,
                                               bool remove)
{
    if (!_isValid(list)) {
        return nullptr;
    }
    Locker lock(m_mutex);
    List* const entries = _getBufferQueue(list);
    if (index >= entries->size()) {
        return nullptr;
    }
    ZrGenTLBuffer* const buffer = (*entries)[index];
    if (remove && index == 0) {
        entries->pop_front(); // the way of every image
    } else if (remove) {
        entries->erase(index);
    }
    return buffer;
}

uint32_t ZrGenTLBufferQueue::GetCount(ZR_BUFFER_TYPE_LIST list)
{
    if (!_isValid(list)) {
        return 0;
    }
    Locker lock(m_mutex);
    return static_cast<uint32_t>(_getBufferQueue(list)->size());
}

uint32_t ZrGenTLBufferQueue::GetBiggestSize(ZR_BUFFER_TYPE_LIST list)
{
    if (!_isValid(list)) {
        return 0;
    }
    Locker lock(m_mutex);
    uint32_t biggest = 0;
    const List& entries = *_getBufferQueue(list);
    for (size_t i = 0; i < entries.size(); ++i) {
        // Quirk Q20: each size counts with its low 32 bits.
        biggest = std::max(biggest, static_cast<uint32_t>(entries[i]->GetSize()));
    }
    return biggest;
}

void ZrGenTLBufferQueue::Clear(ZR_BUFFER_TYPE_LIST list, bool deleteBuffers)
{
    if (!_isValid(list)) {
        return;
    }
    // One by one, since freeing must not need memory; without the lock, since whoever is still
    // inside a buffer may need the queue to get out.
    while (ZrGenTLBuffer* const buffer = deleteBuffers ? _takeOut(list) : nullptr) {
        buffer->Gate().ShutAndWait();
        delete buffer;
    }
    Locker lock(m_mutex);
    _getBufferQueue(list)->clear();
}

// The front of the list, gone from all three: none keeps the address of a freed buffer. NULL when
// the list is empty.
ZrGenTLBuffer* ZrGenTLBufferQueue::_takeOut(ZR_BUFFER_TYPE_LIST list)
{
    Locker lock(m_mutex);
    const List& entries = *_getBufferQueue(list);
    if (entries.empty()) {
        return nullptr;
    }
    ZrGenTLBuffer* const buffer = entries[0];
    for (List* const each : {&m_input, &m_output, &m_announced}) {
        each->erase_if([buffer](const ZrGenTLBuffer* entry) { return entry == buffer; });
    }
    return buffer;
}

Pinned<ZrGenTLBuffer> ZrGenTLBufferQueue::PinByHandle(ZR_BUFFER_TYPE_LIST list, void* handle)
{
    if (handle == nullptr || !_isValid(list)) {
        return {};
    }
    Locker lock(m_mutex);
    return Pinned<ZrGenTLBuffer>::TryPin(
        _find(list, false, [handle](const ZrGenTLBuffer* entry) { return entry == handle; }));
}

Pinned<ZrGenTLBuffer> ZrGenTLBufferQueue::PinFront(ZR_BUFFER_TYPE_LIST list)
{
    if (!_isValid(list)) {
        return {};
    }
    Locker lock(m_mutex);
    return Pinned<ZrGenTLBuffer>::TryPin(
        _find(list, false, [](const ZrGenTLBuffer* /*front*/) { return true; }));
}

std::deque<ZrGenTLBuffer*> ZrGenTLBufferQueue::Copy(ZR_BUFFER_TYPE_LIST list)
{
    if (!_isValid(list)) {
        return {};
    }
    Locker lock(m_mutex);
    return _getBufferQueue(list)->Copy<std::deque<ZrGenTLBuffer*>>();
}
