// What the host has called, what it was told to fail with, and which rules it has broken.
#ifndef VBUS_CALL_JOURNAL_H
#define VBUS_CALL_JOURNAL_H

#include <cstdint>
#include <deque>
#include <initializer_list>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "virtual_bus.h"

namespace vbus {

// One per process. Has a lock of its own, below all others: it calls nothing.
class CallJournal
{
public:
    static CallJournal& Instance();

    std::uint64_t NextSequence();
    void Append(const vusb_call& call);
    std::size_t Size() const;
    bool Get(std::size_t index, vusb_call& call) const;
    void Clear();
    void SetLimit(std::size_t entries);
    std::uint64_t Count(std::string_view function) const;

    void AddScript(std::string_view function, unsigned skip, unsigned count, int result);
    void ClearScripts();
    // The result that a script has for this call, if any.
    std::optional<int> TakeScript(std::string_view function);

    void Violate(const char* kind);
    std::uint64_t Violations(const char* kind) const;
    std::string ViolationText() const;
    void ClearViolations();

private:
    struct Script
    {
        unsigned skip;
        unsigned left; // 0: for ever
        bool forever;
        int result;
    };

    mutable std::mutex m_mutex;
    std::deque<vusb_call> m_calls;
    std::size_t m_limit = 65536;
    std::uint64_t m_sequence = 0;
    std::map<std::string, std::uint64_t, std::less<>> m_counts;
    std::map<std::string, std::deque<Script>, std::less<>> m_scripts;
    std::map<std::string, std::uint64_t, std::less<>> m_violations;
};

inline void Violate(const char* kind)
{
    CallJournal::Instance().Violate(kind);
}

std::uint64_t ThreadNumber();

inline std::uint64_t Argument(const void* pointer)
{
    return reinterpret_cast<std::uintptr_t>(pointer);
}

vusb_call MakeCall(const char* function, const void* object,
                   std::initializer_list<std::uint64_t> arguments);

// The frame of every function of the ABI: notes the call and its result, and lets a script answer
// in its place.
template <typename Body>
auto Recorded(const char* function, const void* object,
              std::initializer_list<std::uint64_t> arguments, Body body) -> decltype(body())
{
    using Result = decltype(body());
    CallJournal& journal = CallJournal::Instance();
    vusb_call call = MakeCall(function, object, arguments);
    const std::optional<int> script = journal.TakeScript(function);
    call.scripted = script ? 1 : 0;
    call.result = script.value_or(0);
    if constexpr (std::is_void_v<Result>) {
        if (!script) {
            body();
        }
        journal.Append(call);
    } else if constexpr (std::is_pointer_v<Result>) {
        Result result = script ? nullptr : body();
        call.result = static_cast<std::int64_t>(Argument(result));
        journal.Append(call);
        return result;
    } else {
        const Result result = script ? static_cast<Result>(*script) : body();
        call.result = static_cast<std::int64_t>(result);
        journal.Append(call);
        return result;
    }
}

} // namespace vbus

#endif
