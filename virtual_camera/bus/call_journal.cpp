#include "call_journal.h"

#include <algorithm>
#include <atomic>
#include <cstdio>

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

vusb_call MakeCall(const char* function, const void* object,
                   std::initializer_list<std::uint64_t> arguments)
{
    vusb_call call{};
    std::snprintf(call.function, sizeof call.function, "%s", function);
    std::copy_n(arguments.begin(), std::min<std::size_t>(arguments.size(), 4), call.arguments);
    call.object = Argument(object);
    call.thread = ThreadNumber();
    call.sequence = CallJournal::Instance().NextSequence();
    return call;
}

std::uint64_t CallJournal::NextSequence()
{
    const Lock lock(m_mutex);
    return m_sequence++;
}

void CallJournal::Append(const vusb_call& call)
{
    const Lock lock(m_mutex);
    const auto count = m_counts.find(std::string_view(call.function));
    if (count == m_counts.end()) {
        m_counts[call.function] = 1;
    } else {
        ++count->second;
    }
    m_calls.push_back(call);
    while (m_calls.size() > m_limit) {
        m_calls.pop_front();
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
    call = m_calls[index];
    return true;
}

void CallJournal::Clear()
{
    const Lock lock(m_mutex);
    m_calls.clear();
    m_counts.clear();
    m_sequence = 0;
}

void CallJournal::SetLimit(std::size_t entries)
{
    const Lock lock(m_mutex);
    m_limit = entries;
    while (m_calls.size() > m_limit) {
        m_calls.pop_front();
    }
}

std::uint64_t CallJournal::Count(std::string_view function) const
{
    const Lock lock(m_mutex);
    const auto count = m_counts.find(function);
    return count == m_counts.end() ? 0 : count->second;
}

void CallJournal::AddScript(std::string_view function, unsigned skip, unsigned count, int result)
{
    const Lock lock(m_mutex);
    m_scripts[std::string(function)].push_back({skip, count, count == 0, result});
}

void CallJournal::ClearScripts()
{
    const Lock lock(m_mutex);
    m_scripts.clear();
}

std::optional<int> CallJournal::TakeScript(std::string_view function)
{
    const Lock lock(m_mutex);
    const auto scripts = m_scripts.find(function);
    if (scripts == m_scripts.end() || scripts->second.empty()) {
        return std::nullopt;
    }
    Script& script = scripts->second.front();
    if (script.skip > 0) {
        --script.skip;
        return std::nullopt;
    }
    const int result = script.result;
    if (!script.forever && --script.left == 0) {
        scripts->second.pop_front();
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
