#pragma once

#include <cstddef>
#include <cstdint>

#include "use_gate.h"
#include "zr_event_handler.h"
#include "zr_gentl_event_data_queue.h"
#include <zr_u3v_tl/gentl.h>

// Producer-specific event types in the custom range.
enum ZR_EVENT_TYPE_LIST
{
    ZR_EVENT_DEVICE_CONNECTION = 4000,
    ZR_EVENT_DS_ACQUISITION = 5000,
};

// The object behind an EVENT_HANDLE: an unbounded queue of data entries and a wait. The entries are
// not owned.
//
// Producers call Signal; any number of consumer threads call GetData. Taking an entry, copying it
// out and clearing the signal is one step under the queue's lock, and so is Signal, so that no
// entry is left without a signal and no entry is used after RemoveEntry returned.
class ZrGenTLEvent
{
public:
    explicit ZrGenTLEvent(int32_t type);
    ZrGenTLEvent(const ZrGenTLEvent&) = delete;
    ZrGenTLEvent& operator=(const ZrGenTLEvent&) = delete;

    // The event object for an id, NULL for an id no event class serves. Freed with Destroy: the
    // classes have no virtual destructor.
    static ZrGenTLEvent* Create(int32_t type);
    // Releases every waiter, waits until the last call has left the event, and frees it. NULL is
    // ignored.
    static void Destroy(ZrGenTLEvent* event);

    void SetEventSizeMax(size_t size);
    void SetEventInfoDataSizeMax(size_t size);
    int32_t GetType() const { return m_type; }

    // Releases every waiter for good and forgets the entries: from now on none is touched, whatever
    // becomes of it. For the time between taking the event out of its module and Destroy.
    void Close();

    // Room for one entry more: the next Signal cannot fail. For a producer that signals alone.
    void Reserve();
    void Signal(void* entry);
    // The two halves of Signal, for a producer with a lock that the consumer takes next.
    void Add(void* entry);
    void Wake();
    GC_ERROR GetData(void* buffer, size_t* size, uint64_t timeout);
    GC_ERROR GetDataInfo(const void* data, size_t dataSize, int32_t cmd, int32_t* type,
                         void* buffer, size_t* size);
    GC_ERROR GetInfo(int32_t cmd, int32_t* type, void* buffer, size_t* size);
    GC_ERROR Flush();
    GC_ERROR Kill();

    // Takes every occurrence of `entry` out of the queue: after it returned no GetData will touch
    // the entry.
    void RemoveEntry(void* entry);
    // Entries waiting for a GetData.
    size_t GetNumInQueue();

    // Entered by every call that reached the event through its handle.
    UseGate& Gate() { return m_gate; }

protected:
    ~ZrGenTLEvent();

    // Slots 1 to 3 in this order.
    virtual void DoEventGetData(void* entry, void* buffer, size_t* size) = 0;
    virtual GC_ERROR DoEventGetDataInfo(const void* data, int32_t cmd, int32_t* type, void* buffer,
                                        size_t* size) = 0;
    virtual void DoFlushEntry(void* entry);

private:
    GC_ERROR _validateEventGetDataParam(const void* buffer, size_t* size) const;
    // Takes the front entry, copies it out and clears the signal of an emptied queue, in one step.
    // False when the event has been closed since the wait.
    bool _takeFront(void* buffer, size_t* size);
    void _resetIfEmpty();

    const int32_t m_type;
    ZrGenTLEventDataQueue m_dataQueue;
    size_t m_eventSizeMax = 0;
    size_t m_eventInfoDataSizeMax = 0;
    ZrEventHandler_U3V m_eventHandler;
    UseGate m_gate;
    bool m_closing ZR_GUARDED_BY(m_dataQueue.GetMutex()) = false;
};
