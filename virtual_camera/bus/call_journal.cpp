#include "call_journal.h"

#include <algorithm>
#include <atomic>
#include <cstring>

namespace vbus {

using Lock = std::lock_guard<std::mutex>;

// Never destroyed: threads of the host may outlive the end of main.
CallJournal& CallJournal::Instance()
{
    static auto* journal = new CallJournal;
    return *journal;
}

std::uint64_t ThreadNumber()
{
    static std::atomic<std::uint64_t> last{0};
    thread_local const std::uint64_t number = ++last;
    return number;
}

vusb_call MakeCall(const CallJournal::Function& function, const void* object,
                   std::initializer_list<std::uint64_t> arguments)
{
    vusb_call call{};
    const std::size_t length = std::min(function.name.size(), sizeof call.function - 1);
    std::memcpy(call.function, function.name.data(), length);
    std::copy_n(arguments.begin(), std::min<std::size_t>(arguments.size(), 4), call.arguments);
    call.object = Argument(object);
    call.thread = ThreadNumber();
    call.sequence = CallJournal::Instance().NextSequence();
    return call;
}

CallJournal::Function& CallJournal::Of(std::string_view name)
{
    const Lock lock(m_mutex);
    const auto [entry, isNew] = m_functions.try_emplace(std::string(name));
    if (isNew) {
        entry->second.name = name; // read without the lock from then on
    }
    return entry->second;
}

void CallJournal::Append(Function& function, const vusb_call& call)
{
    const Lock lock(m_mutex);
    ++function.calls;
    if (m_calls.size() < m_limit) {
        m_calls.push_back(call);
    } else if (m_limit != 0) {
        m_calls[m_oldest] = call;
        m_oldest = (m_oldest + 1) % m_limit;
    }
}

std::size_t CallJournal::Size() const
{
    const Lock lock(m_mutex);
    return m_calls.size();
}

bool CallJournal::Get(std::size_t index, vusb_call& call) const
{
    const Lock lock(m_mutex);
    if (index >= m_calls.size()) {
        return false;
    }
    call = m_calls[(m_oldest + index) % m_calls.size()];
    return true;
}

void CallJournal::Clear()
{
    const Lock lock(m_mutex);
    m_calls.clear();
    m_oldest = 0;
    for (auto& [name, function] : m_functions) {
        function.calls = 0;
    }
    m_sequence = 0;
}

void CallJournal::SetLimit(std::size_t entries)
{
    const Lock lock(m_mutex);
    // The oldest one first again, then without those that are too many.
    std::rotate(m_calls.begin(), m_calls.begin() + static_cast<std::ptrdiff_t>(m_oldest),
                m_calls.end());
    m_oldest = 0;
    const std::size_t surplus = m_calls.size() > entries ? m_calls.size() - entries : 0;
    m_calls.erase(m_calls.begin(), m_calls.begin() + static_cast<std::ptrdiff_t>(surplus));
    m_limit = entries;
}

std::uint64_t CallJournal::Count(std::string_view function) const
{
    const Lock lock(m_mutex);
    const auto found = m_functions.find(function);
    return found == m_functions.end() ? 0 : found->second.calls;
}

void CallJournal::AddScript(std::string_view function, unsigned skip, unsigned count, int result)
{
    Function& scripted = Of(function);
    const Lock lock(m_mutex);
    scripted.scripts.push_back({skip, count, count == 0, result});
    ++m_scripts;
}

void CallJournal::ClearScripts()
{
    const Lock lock(m_mutex);
    for (auto& [name, function] : m_functions) {
        function.scripts.clear();
    }
    m_scripts = 0;
}

std::optional<int> CallJournal::TakeScript(Function& function)
{
    if (m_scripts == 0) {
        return std::nullopt;
    }
    const Lock lock(m_mutex);
    if (function.scripts.empty()) {
        return std::nullopt;
    }
    Script& script = function.scripts.front();
    if (script.skip > 0) {
        --script.skip;
        return std::nullopt;
    }
    const int result = script.result;
    if (!script.forever && --script.left == 0) {
        function.scripts.pop_front();
        --m_scripts;
    }
    return result;
}

void CallJournal::Violate(const char* kind)
{
    const Lock lock(m_mutex);
    ++m_violations[kind];
}

std::uint64_t CallJournal::Violations(const char* kind) const
{
    const Lock lock(m_mutex);
    std::uint64_t sum = 0;
    for (const auto& [name, count] : m_violations) {
        sum += kind == nullptr || name == kind ? count : 0;
    }
    return sum;
}

std::string CallJournal::ViolationText() const
{
    const Lock lock(m_mutex);
    std::string text;
    for (const auto& [name, count] : m_violations) {
        text += name + " " + std::to_string(count) + "\n";
    }
    return text;
}

void CallJournal::ClearViolations()
{
    const Lock lock(m_mutex);
    m_violations.clear();
}

} // namespace vbus
