#include "zr_gentl_error_container.h"

#include <unistd.h>
#include <utility>

#include <zr_u3v_tl/gentl.h>

// Behind a pointer each, so that a record stays where it is while the list grows.
struct ZrGenTLErrorContainer::Record
{
    int64_t threadId; // the kernel's id, widened
    int code;
    std::string text;
};

ZrGenTLErrorContainer::ZrGenTLErrorContainer() = default;
ZrGenTLErrorContainer::~ZrGenTLErrorContainer() = default;

void ZrGenTLErrorContainer::SetError(int code, const std::string& text)
{
    const int tid = gettid();
    // Quirk Q14: the kernel gives an ended thread's id out again, and with it its record.
    if (Record* const record = _findByThreadId(tid); record != nullptr) {
        Locker lock(m_mutex);
        record->code = code;
        record->text = text;
        return;
    }
    // Built outside the lock: allocating may be slow, and no other thread makes this one's record.
    auto record = std::make_unique<Record>(Record{tid, code, text});
    Locker lock(m_mutex);
    m_records.push_back(std::move(record));
}

void ZrGenTLErrorContainer::GetError(int* code, std::string& text)
{
    // Two holds of the lock, for the search and for the copy: between them only this very thread
    // could change its record, and records are never removed.
    Record* const record = _findByThreadId(gettid());
    if (record == nullptr) {
        *code = GC_ERR_SUCCESS;
        text = "No Error";
        return;
    }
    Locker lock(m_mutex);
    *code = record->code;
    text = record->text;
}

ZrGenTLErrorContainer::Record* ZrGenTLErrorContainer::_findByThreadId(int tid)
{
    Locker lock(m_mutex);
    for (const auto& record : m_records) {
        if (record->threadId == int64_t{tid}) {
            return record.get();
        }
    }
    return nullptr;
}
