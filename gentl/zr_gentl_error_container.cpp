#include "zr_gentl_error_container.h"

#include <unistd.h>
#include <utility>

#include <zr_u3v_tl/gentl.h>

namespace {

// Room for the text of any code: a later failure of the same thread allocates nothing.
constexpr size_t kLongestText = 32;

} // namespace

// Behind a pointer each, so that a record stays where it is while the list grows.
struct ZrGenTLErrorContainer::Record
{
    int64_t threadId; // the kernel's id, widened
    int code;
    std::string text;
};

ZrGenTLErrorContainer::ZrGenTLErrorContainer() = default;
ZrGenTLErrorContainer::~ZrGenTLErrorContainer() = default;

void ZrGenTLErrorContainer::SetError(int code, std::string_view text)
{
    const int tid = gettid();
    // Quirk Q14: the kernel gives an ended thread's id out again, and with it its record.
    {
        Locker lock(m_mutex);
        if (Record* const record = _findByThreadId(tid); record != nullptr) {
            record->code = code;
            record->text = text;
            return;
        }
    }
    // Built outside the lock: allocating may be slow, and no other thread makes this one's record.
    auto record = std::make_unique<Record>(Record{tid, code, {}});
    record->text.reserve(kLongestText);
    record->text = text;
    Locker lock(m_mutex);
    m_records.push_back(std::move(record));
}

void ZrGenTLErrorContainer::GetError(int* code, std::string& text)
{
    Locker lock(m_mutex);
    Record* const record = _findByThreadId(gettid());
    if (record == nullptr) {
        *code = GC_ERR_SUCCESS;
        text = "No Error";
        return;
    }
    *code = record->code;
    text = record->text;
}

void ZrGenTLErrorContainer::Clear()
{
    std::vector<std::unique_ptr<Record>> records; // freed without the lock, and with its capacity
    Locker lock(m_mutex);
    records.swap(m_records);
}

ZrGenTLErrorContainer::Record* ZrGenTLErrorContainer::_findByThreadId(int tid)
{
    for (const auto& record : m_records) {
        if (record->threadId == int64_t{tid}) {
            return record.get();
        }
    }
    return nullptr;
}
