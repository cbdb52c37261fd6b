#include "tool_stream_check.h"

#include <algorithm>

#include "tool_console.h"

namespace {

constexpr uint64_t kTransferSize = 1U << 20U;
constexpr unsigned kMaximumExponent = 30;

constexpr const char* kFirmware = "ask the camera's maker for firmware that announces other sizes: "
                                  "nothing on this side fixes it";

// The sizes that the channel will program and then wait for.
struct Plan
{
    uint64_t alignment;
    uint64_t payload;
    uint64_t leader;
    uint64_t trailer;
    uint64_t rest;   // of the payload behind the whole transfers
    uint64_t final1; // of that, whole alignment units
};

Plan PlanOf(const StreamNeeds& needs)
{
    // The channel takes "no alignment" as two bytes.
    const unsigned exponent = needs.alignmentExponent == 0 ? 1 : needs.alignmentExponent;
    Plan plan{};
    plan.alignment = uint64_t{1} << std::min(exponent, kMaximumExponent);
    plan.payload = needs.payload;
    plan.leader = std::max<uint64_t>(needs.leader, plan.alignment);
    plan.trailer = std::max<uint64_t>(needs.trailer, plan.alignment);
    plan.rest = needs.payload % kTransferSize;
    plan.final1 = plan.rest - plan.rest % plan.alignment;
    return plan;
}

// For printf, which knows no uint64_t.
unsigned long long Number(uint64_t value)
{
    return value;
}

std::string ChangeSize(const Plan& plan)
{
    return Format("choose another image size (the payload a multiple of %llu bytes and none of the "
                  "sizes %llu, %llu): find the addresses of Width and Height with \"zr-u3v xml "
                  "--unzip\", then \"zr-u3v write ADDRESS VALUE\"",
                  Number(plan.alignment), Number(plan.leader), Number(plan.trailer));
}

// Leader and trailer: never rounded away, and never of one length.
void CheckHeads(const StreamNeeds& needs, const Plan& plan, std::vector<StreamProblem>& problems)
{
    if (needs.alignmentExponent > kMaximumExponent) {
        problems.push_back({true,
                            Format("an alignment of 2 to the power of %u is no alignment",
                                   needs.alignmentExponent),
                            kFirmware});
    }
    if (needs.leader < plan.alignment || needs.trailer < plan.alignment) {
        const bool isLeader = needs.leader < plan.alignment;
        problems.push_back(
            {true,
             Format("the %s of %u bytes is shorter than the alignment of %llu, to which its "
                    "transfer is rounded up: it is not recognised when it comes",
                    isLeader ? "leader" : "trailer", isLeader ? needs.leader : needs.trailer,
                    Number(plan.alignment)),
             kFirmware});
    }
    if (plan.leader == plan.trailer) {
        problems.push_back({true,
                            Format("leader and trailer have the same transfer size of %llu bytes "
                                   "and cannot be told apart",
                                   Number(plan.leader)),
                            kFirmware});
    }
}

// A final transfer of one of the other planned sizes is taken for the other packet.
void CheckCoincidence(const Plan& plan, std::vector<StreamProblem>& problems)
{
    if (plan.final1 != 0 && (plan.final1 == plan.leader || plan.final1 == plan.trailer)) {
        const bool isLeader = plan.final1 == plan.leader;
        problems.push_back(
            {!isLeader,
             Format("the last part of an image has %llu bytes, as many as the %s: %s",
                    Number(plan.final1), isLeader ? "leader" : "trailer",
                    isLeader ? "pixels are taken for a leader" : "the trailer is taken for pixels"),
             ChangeSize(plan)});
    }
    if (plan.leader == kTransferSize || plan.trailer == kTransferSize) {
        problems.push_back(
            {true, "leader or trailer are as long as a payload transfer", kFirmware});
    }
}

// The rest behind the last whole alignment unit is what goes wrong.
void CheckPayload(const Plan& plan, std::vector<StreamProblem>& problems)
{
    if (plan.payload == 0) {
        problems.push_back({true, "the camera asks for images of 0 bytes", ChangeSize(plan)});
    } else if (plan.payload < plan.alignment) {
        problems.push_back({true,
                            Format("an image of %llu bytes is smaller than the alignment of %llu",
                                   Number(plan.payload), Number(plan.alignment)),
                            ChangeSize(plan)});
    } else if (plan.rest != plan.final1) {
        problems.push_back(
            {false,
             Format("the payload of %llu bytes is no multiple of the alignment of %llu: its last "
                    "%llu bytes do not arrive, or the trailer lies over the image",
                    Number(plan.payload), Number(plan.alignment), Number(plan.rest - plan.final1)),
             ChangeSize(plan)});
    }
}

} // namespace

std::vector<StreamProblem> CheckStream(const StreamNeeds& needs)
{
    const Plan plan = PlanOf(needs);
    std::vector<StreamProblem> problems;
    CheckHeads(needs, plan, problems);
    CheckPayload(plan, problems);
    CheckCoincidence(plan, problems);
    return problems;
}
