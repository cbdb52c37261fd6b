#include "zr_gentl_error_container.h"

#include <unistd.h>
#include <utility>

#include <zr_u3v_tl/gentl.h>

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
    auto record = std::make_unique<Record>(Record{tid, code, text});
    Locker lock(m_mutex);
    m_records.push_back(std::move(record));
}

void ZrGenTLErrorContainer::GetError(int* code, std::string& text)
{
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
