#include "fault_plan.h"

#include <algorithm>
#include <charconv>
#include <iterator>

namespace vcam {

namespace {

constexpr FaultName kNames[] = {
    // Opening. Opportunities: the calls of the one function.
    {"open-permission", "opening the device is refused: no permission"},
    {"open-busy", "opening the device is refused: busy"},
    {"open-no-device", "opening the device finds it gone"},
    {"kernel-driver", "a kernel driver holds the interfaces until it is detached"},
    {"detach-fails", "the kernel driver cannot be detached"},
    {"claim-busy", "claiming an interface is refused: busy"},
    {"claimed-elsewhere", "another process has claimed the interfaces"},
    {"claim-fails", "claiming an interface fails with an I/O error"},
    {"alloc-fails", "no memory for a transfer"},
    {"submit-fails", "submitting a transfer fails (value: the error code, default -1)"},
    // Control channel. Opportunities: commands, counted from 0.
    {"reply-short", "the acknowledge is cut to value bytes (default 6)"},
    {"reply-empty", "a zero-length packet instead of the acknowledge"},
    {"reply-long", "value bytes too many (default 4)"},
    {"reply-late", "the acknowledge comes value ms late (default 1000)"},
    {"reply-missing", "no acknowledge"},
    {"reply-doubled", "the acknowledge comes twice"},
    {"reply-stalled", "the IN endpoint halts instead of answering"},
    {"reply-wrong-prefix", "wrong prefix"},
    {"reply-wrong-id", "wrong command id"},
    {"reply-wrong-request", "wrong request id"},
    {"reply-wrong-length", "wrong length field"},
    {"reply-status", "the whole acknowledge, but with status value (default 0x8FFF)"},
    {"reply-error", "an acknowledge of the header alone with status value, nothing done"},
    {"pending", "value pending acknowledges first (default 1)"},
    {"pending-endless", "pending acknowledges for ever, never the answer"},
    {"command-stalled", "the OUT endpoint halts at the command"},
    {"command-not-taken", "the OUT endpoint does not take the command"},
    {"unplug-at-command", "the device goes away at the command"},
    // Stream. Opportunities: images, counted from 0 in every run.
    {"leader-lost", "no leader"},
    {"leader-short", "a leader of value bytes (default 20)"},
    {"leader-long", "a leader of value bytes (default 100)"},
    {"leader-doubled", "the leader comes twice"},
    {"leader-magic", "a leader with a wrong magic"},
    {"leader-id", "a leader with a wrong block id"},
    {"payload-lost", "no payload"},
    {"payload-short", "the first payload transfer is cut by value bytes (default 16)"},
    {"payload-long", "the first payload transfer is value bytes longer (default 16)"},
    {"payload-piece-lost", "payload transfer number value (default 0) is not sent"},
    {"payload-packet-lost", "packet number value (default 0) of the payload is missing, unmarked"},
    {"payload-doubled", "the first payload transfer comes twice"},
    {"payload-corrupt", "the byte at offset value (default 0) of the image is inverted"},
    {"trailer-lost", "no trailer"},
    {"trailer-short", "a trailer of value bytes (default 12)"},
    {"trailer-long", "a trailer of value bytes (default 100)"},
    {"trailer-doubled", "the trailer comes twice"},
    {"trailer-magic", "a trailer with a wrong magic"},
    {"trailer-id", "a trailer with a wrong block id"},
    {"trailer-valid-size", "a trailer with valid payload size value (default 0)"},
    {"image-short", "the image has value rows only (default half of them)"},
    {"image-long", "the last payload transfer is value bytes longer (default 16)"},
    {"chunk-length", "the last chunk's length field is value (default 0xFFFFFFFF)"},
    {"chunk-cut", "the chunks end value bytes early (default 3)"},
    {"block-jump", "value images before this one are lost in the camera (default 1)"},
    {"block-restart", "block ids begin anew with this image"},
    {"trailer-status", "a trailer with status value (default 0xA100)"},
    {"zero-length-leader", "a zero-length packet before the leader"},
    {"zero-length-payload", "a zero-length packet before the payload"},
    {"zero-length-trailer", "a zero-length packet before the trailer"},
    {"stream-stall", "the stream endpoint halts before the leader"},
    {"stream-stall-payload", "the stream endpoint halts before the payload"},
    {"stream-stall-in-payload", "the stream endpoint halts half-way through the payload"},
    {"stream-stall-trailer", "the stream endpoint halts before the trailer"},
    {"stream-late", "the leader comes value ms late (default 1000)"},
    {"stream-late-payload", "the payload comes value ms late (default 1000)"},
    {"stream-late-in-payload", "half of the payload comes value ms late (default 1000)"},
    {"stream-late-trailer", "the trailer comes value ms late (default 1000)"},
    {"stream-silent", "nothing more is sent from this image on"},
    {"suspend", "for value ms (default 200) everything fails with an error"},
    {"unplug-at-leader", "the device goes away before the leader"},
    {"unplug-at-payload", "the device goes away before the payload"},
    {"unplug-in-payload", "the device goes away half-way through the payload"},
    {"unplug-at-trailer", "the device goes away before the trailer"},
    // Events. Opportunities: packets of the event endpoint.
    {"event-lost", "the packet is not sent"},
    {"event-doubled", "the packet comes twice"},
    {"event-late", "the packet comes value ms late (default 1000)"},
    {"event-stalled", "the event endpoint halts instead"},
    {"event-short", "the packet is cut to value bytes (default 10)"},
    {"event-empty", "a zero-length packet instead"},
    {"event-long", "value bytes too many (default 4)"},
    {"event-wrong-prefix", "wrong prefix"},
    {"event-wrong-command", "wrong command id"},
    {"event-wrong-length", "wrong length field"},
    {"event-item-size", "the first item's size field is value (default 0)"},
    // Completions of asynchronous transfers. Opportunities: transfers of the stream endpoint.
    {"transfer-error", "the transfer completes with an error"},
    {"transfer-timeout", "the transfer completes with a time-out"},
    {"transfer-cancelled", "the transfer completes as cancelled"},
    {"transfer-stall", "the transfer completes as stalled"},
    {"transfer-no-device", "the transfer completes as without a device"},
    {"transfer-overflow", "the transfer completes with an overflow"},
    // Fixed when the camera is plugged in.
    {"no-stream-interface", "the configuration has no streaming interface"},
    {"no-control-interface", "the configuration has no control interface"},
    {"no-sirm", "the capability register says that there are no stream registers"},
    {"no-eirm", "the same of the event registers"},
    {"manifest-entries", "the manifest table has value entries (default 0)"},
    {"manifest-size-zero", "the description file has size 0"},
    {"descriptor-cut", "the configuration descriptor ends after value bytes (default 20)"},
    {"descriptor-total", "its wTotalLength is value (default 0xFFFF)"},
    {"descriptor-zero-length", "a descriptor of length 0 in its middle"},
    {"descriptor-endpoints", "the control interface claims value endpoints (default 255)"},
    {"descriptor-interfaces", "the configuration claims value interfaces (default 255)"},
    {"device-descriptor-fails", "the device descriptor cannot be read"},
    {"config-fails", "the configuration descriptor cannot be read"},
    {"info-missing", "no device information descriptor"},
    {"info-short", "a device information descriptor of value bytes (default 5)"},
    {"info-lies", "as info-short, but its length byte says 20"},
    {"info-at-end", "as info-lies, at the very end of the configuration"},
    {"strings-fail", "string descriptors stall"},
    {"strings-hang", "requests for strings are never answered"},
    {"strings-late", "strings take value ms (default 500)"},
    {"strings-odd", "string descriptors of length 3 with a wrong type"},
};

// Reads the number at the front of the text (decimal or 0x...) and removes it.
std::optional<std::int64_t> TakeNumber(std::string_view& text)
{
    const bool negative = text.starts_with('-');
    std::string_view digits = text.substr(negative ? 1 : 0);
    const bool hexadecimal = digits.starts_with("0x");
    digits.remove_prefix(hexadecimal ? 2 : 0);
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number,
                                              hexadecimal ? 16 : 10);
    if (error != std::errc()) {
        return std::nullopt;
    }
    text = digits.substr(static_cast<std::size_t>(end - digits.data()));
    return negative ? -number : number;
}

bool TakeAddress(std::string_view& text, Fault& fault)
{
    if (text.starts_with('r') || text.starts_with('w')) {
        fault.direction = text.front();
        text.remove_prefix(1);
    }
    if (text.empty() || std::string_view("@*:").find(text.front()) != std::string_view::npos) {
        return fault.direction != 0; // a direction alone is a filter too
    }
    const auto number = TakeNumber(text);
    if (!number || *number < 0) {
        return false;
    }
    fault.address = static_cast<std::uint64_t>(*number);
    return true;
}

bool TakeSuffix(std::string_view& text, Fault& fault)
{
    const char mark = text.front();
    text.remove_prefix(1);
    if (mark == '%') {
        return TakeAddress(text, fault);
    }
    const auto number = TakeNumber(text);
    if (!number || (mark != ':' && *number < 0)) {
        return false;
    }
    if (mark == ':') {
        fault.value = *number;
    } else if (mark == '@') {
        fault.first = static_cast<std::uint64_t>(*number);
        fault.count = 1;
    } else {
        fault.count = static_cast<std::uint64_t>(*number);
    }
    return true;
}

std::optional<Fault> ParseOne(std::string_view text)
{
    const std::size_t nameEnd = std::min(text.find_first_of("%@*:"), text.size());
    Fault fault;
    fault.name = text.substr(0, nameEnd);
    const bool known = std::any_of(std::begin(kNames), std::end(kNames),
                                   [&fault](const FaultName& f) { return fault.name == f.name; });
    text.remove_prefix(nameEnd);
    while (known && !text.empty()) {
        if (std::string_view("%@*:").find(text.front()) == std::string_view::npos ||
            !TakeSuffix(text, fault)) {
            return std::nullopt;
        }
    }
    return known ? std::optional<Fault>(fault) : std::nullopt;
}

} // namespace

bool Fault::Hits(std::uint64_t opportunity) const
{
    return opportunity >= first && (count == 0 || opportunity - first < count);
}

std::span<const FaultName> FaultNames()
{
    return kNames;
}

std::string FaultPlan::Parse(std::string_view text)
{
    std::vector<Fault> faults;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find_first_of(",+"), text.size());
        const std::string_view one = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (one.empty()) {
            continue;
        }
        const std::optional<Fault> fault = ParseOne(one);
        if (!fault) {
            return "unknown fault or wrong form: \"" + std::string(one) + "\"";
        }
        faults.push_back(*fault);
    }
    m_faults = std::move(faults);
    return {};
}

template <typename Applies>
const Fault* FaultPlan::Count(std::string_view name, Applies applies)
{
    const Fault* hit = nullptr;
    for (Fault& fault : m_faults) {
        if (fault.name == name && applies(fault) && fault.Hits(fault.seen++)) {
            hit = &fault;
        }
    }
    m_played += hit != nullptr ? 1 : 0;
    return hit;
}

const Fault* FaultPlan::Fire(std::string_view name)
{
    return Count(name, [](const Fault&) { return true; });
}

const Fault* FaultPlan::FireOnCommand(std::string_view name, char direction, std::uint64_t address,
                                      std::uint64_t size)
{
    return Count(name, [=](const Fault& fault) {
        const bool wanted = fault.direction == 0 || fault.direction == direction;
        return wanted &&
               (!fault.address || (*fault.address >= address && *fault.address - address < size));
    });
}

const Fault* FaultPlan::FireAt(std::string_view name, std::uint64_t number)
{
    const auto hit = std::find_if(m_faults.begin(), m_faults.end(), [=](const Fault& fault) {
        return fault.name == name && fault.Hits(number);
    });
    if (hit == m_faults.end()) {
        return nullptr;
    }
    ++m_played;
    return &*hit;
}

const Fault* FaultPlan::Find(std::string_view name) const
{
    const auto hit = std::find_if(m_faults.begin(), m_faults.end(),
                                  [name](const Fault& fault) { return fault.name == name; });
    return hit == m_faults.end() ? nullptr : &*hit;
}

} // namespace vcam
