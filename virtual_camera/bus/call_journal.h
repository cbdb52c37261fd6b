// What the host has called, what it was told to fail with, and which rules it has broken.
#ifndef VBUS_CALL_JOURNAL_H
#define VBUS_CALL_JOURNAL_H

#include <atomic>
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
    struct Script
    {
        unsigned skip;
        unsigned left; // 0: for ever
        bool forever;
        int result;
    };

public:
    static CallJournal& Instance();

    // What is kept of one function of the ABI; lives as long as the journal.
    struct Function
    {
        std::string name;
        std::uint64_t calls = 0;
        std::deque<Script> scripts;
    };
    Function& Of(std::string_view name);
    std::uint64_t NextSequence() { return m_sequence++; }
    void Append(Function& function, const vusb_call& call);
    std::size_t Size() const;
    bool Get(std::size_t index, vusb_call& call) const;
    void Clear();
    void SetLimit(std::size_t entries);
    std::uint64_t Count(std::string_view function) const;

    void AddScript(std::string_view function, unsigned skip, unsigned count, int result);
    void ClearScripts();
    // The result that a script has for this call, if any.
    std::optional<int> TakeScript(Function& function);

    void Violate(const char* kind);
    std::uint64_t Violations(const char* kind) const;
    std::string ViolationText() const;
    void ClearViolations();

private:
    mutable std::mutex m_mutex;
    // The latest calls; once there are as many as are kept, the oldest one's place is taken next.
    std::vector<vusb_call> m_calls;
    std::size_t m_oldest = 0;
    std::size_t m_limit = 65536;
    std::atomic<std::uint64_t> m_sequence{0};
    std::atomic<std::size_t> m_scripts{0}; // those that have something to say yet
    std::map<std::string, Function, std::less<>> m_functions;
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

vusb_call MakeCall(const CallJournal::Function& function, const void* object,
                   std::initializer_list<std::uint64_t> arguments);

// The frame of every function of the ABI: notes the call and its result, and lets a script answer
// in its place.
template <typename Body>
auto Recorded(const char* function, const void* object,
              std::initializer_list<std::uint64_t> arguments, Body body) -> decltype(body())
{
    using Result = decltype(body());
    CallJournal& journal = CallJournal::Instance();
    // Every function of the ABI has a body, and so an instance, of its own.
    static CallJournal::Function& record = journal.Of(function);
    vusb_call call = MakeCall(record, object, arguments);
    const std::optional<int> script = journal.TakeScript(record);
    call.scripted = script ? 1 : 0;
    call.result = script.value_or(0);
    if constexpr (std::is_void_v<Result>) {
        if (!script) {
            body();
        }
        journal.Append(record, call);
    } else if constexpr (std::is_pointer_v<Result>) {
        Result result = script ? nullptr : body();
        call.result = static_cast<std::int64_t>(Argument(result));
        journal.Append(record, call);
        return result;
    } else {
        const Result result = script ? static_cast<Result>(*script) : body();
        call.result = static_cast<std::int64_t>(result);
        journal.Append(record, call);
        return result;
    }
}

} // namespace vbus

#endif
