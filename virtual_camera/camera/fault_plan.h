// The scripted misbehaviour of one camera: which fault happens at which opportunity.
#ifndef VCAM_FAULT_PLAN_H
#define VCAM_FAULT_PLAN_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vcam {

// One entry of a fault list: name[%[r|w]address][@first][*count][:value].
struct Fault
{
    std::string name;
    char direction = 0;                   // 'r' or 'w': only such commands; 0: both
    std::optional<std::uint64_t> address; // only commands that touch this address
    std::uint64_t first = 0;              // number of the first opportunity that is hit
    std::uint64_t count = 0;              // how many opportunities in a row; 0: all that follow
    std::optional<std::int64_t> value;    // what the fault's own description says
    std::uint64_t seen = 0;               // opportunities so far, where the plan itself counts

    std::int64_t Value(std::int64_t otherwise) const { return value.value_or(otherwise); }
    bool Hits(std::uint64_t opportunity) const;
};

struct FaultName
{
    const char* name;
    const char* effect;
};

// Every fault there is, with a line of explanation (also the text of the command line's help).
std::span<const FaultName> FaultNames();

// Not thread-safe: its owner, the camera, locks.
class FaultPlan
{
public:
    // Replaces the plan; on a mistake the plan stays as it was and the reason is returned.
    std::string Parse(std::string_view text);

    // An opportunity that the plan counts by itself, from 0 since Parse.
    const Fault* Fire(std::string_view name);
    // An opportunity with a number of its own: the block id of an image.
    const Fault* FireAt(std::string_view name, std::uint64_t number);
    // A command of the control channel; only those that pass the filters count.
    const Fault* FireOnCommand(std::string_view name, char direction, std::uint64_t address,
                               std::uint64_t size);
    // Whether the fault is in the list at all; counts nothing.
    const Fault* Find(std::string_view name) const;

    bool Empty() const { return m_faults.empty(); }
    std::uint64_t Played() const { return m_played; }

private:
    template <typename Applies>
    const Fault* Count(std::string_view name, Applies applies);

    std::vector<Fault> m_faults;
    std::uint64_t m_played = 0;
};

} // namespace vcam

#endif
