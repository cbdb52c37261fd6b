#include "tool_doctor.h"

#include <algorithm>

#include "tool_console.h"
#include "tool_error.h"

namespace {

using Level = Finding::Level;

constexpr unsigned kSuperSpeed = 5000; // Mbit/s
constexpr uint64_t kMebibyte = 1U << 20U;
// The producer keeps one transfer of at most 1 MiB in flight, and begins with one of 64 KiB.
constexpr uint64_t kInFlight = kMebibyte + (64U << 10U);
// The library receives into memory of the kernel's for USB: three images of each camera, if four
// megabytes are left then.
constexpr uint64_t kImagesAtATime = 3;
constexpr uint64_t kLeftToOthers = 4 * kMebibyte;

// Bits of the camera's current speed.
constexpr uint32_t kSuperSpeedAndAbove = 0x18;
constexpr const char* kFasterPort = "plug it into a USB 3 port with a USB 3 cable, then: lsusb -t";
constexpr const char* kLookIntoDescription = "zr-u3v xml -o description.xml";

// Puts the rule where udev looks in any case, wherever this program is installed; and lets it work
// on cameras that are plugged in already.
std::string InstallRule(const std::string& program)
{
    return program + " doctor --udev-rule | sudo tee /etc/udev/rules.d/70-zr-u3v.rules && "
                     "sudo udevadm control --reload && sudo udevadm trigger --subsystem-match=usb";
}

std::string NameOf(const UsbCamera& camera)
{
    return camera.serial.empty() ? camera.name : camera.serial;
}

Finding JudgeRule(const UsbTree& usb, const std::string& program)
{
    const std::string rule = usb.RuleFile();
    if (rule.empty()) {
        return {Level::Warning, "udev-rule", "",
                "no udev rule gives users access to USB3 Vision cameras", InstallRule(program)};
    }
    return {Level::Good, "udev-rule", "", "udev rule " + rule, ""};
}

Finding JudgePermissions(const UsbTree& usb, const UsbCamera& camera, const std::string& program)
{
    const std::string node = camera.node.string();
    if (!usb.Exists(camera.node)) {
        return {Level::Problem, "permissions", NameOf(camera),
                "there is no device node " + node + " (a container without the host's /dev?)",
                "sudo udevadm trigger --subsystem-match=usb; in a container: docker run "
                "--device=/dev/bus/usb"};
    }
    if (!usb.MayOpen(camera.node)) {
        const std::string repair =
            usb.RuleFile().empty()
                ? InstallRule(program)
                : "sudo udevadm trigger --subsystem-match=usb && sudo usermod -aG plugdev "
                  "\"$USER\" (and log in again)";
        return {Level::Problem, "permissions", NameOf(camera), "you may not read and write " + node,
                repair};
    }
    return {Level::Good, "permissions", NameOf(camera), node + " can be read and written", ""};
}

Findings JudgeDrivers(const UsbCamera& camera)
{
    Findings findings;
    for (const UsbCamera::Interface& interface : camera.interfaces) {
        // "usbfs" is what holds an interface that a program has claimed: judged by its holder.
        if (interface.driver.empty() || interface.driver == "usbfs") {
            continue;
        }
        findings.push_back({Level::Problem, "driver", NameOf(camera),
                            "the kernel driver \"" + interface.driver +
                                "\" is bound to interface " + interface.name,
                            "echo " + interface.name + " | sudo tee /sys/bus/usb/drivers/" +
                                interface.driver + "/unbind"});
    }
    if (findings.empty()) {
        findings.push_back(
            {Level::Good, "driver", NameOf(camera), "no kernel driver on its interfaces", ""});
    }
    return findings;
}

Finding JudgeHolders(const UsbTree& usb, const UsbCamera& camera)
{
    const std::vector<Holder> holders = usb.Holders(camera.node);
    if (!holders.empty()) {
        const Holder& first = holders.front();
        return {Level::Problem, "in-use", NameOf(camera),
                Format("process %ld (%s) holds the camera", first.pid,
                       Printable(first.command).c_str()),
                Format("kill %ld", first.pid)};
    }
    const bool isClaimed =
        std::any_of(camera.interfaces.begin(), camera.interfaces.end(),
                    [](const UsbCamera::Interface& one) { return one.driver == "usbfs"; });
    if (isClaimed) {
        return {Level::Problem, "in-use", NameOf(camera),
                "a process of another user has claimed the camera",
                "sudo fuser -k -TERM " + camera.node.string()};
    }
    return {Level::Good, "in-use", NameOf(camera), "no other process holds the camera", ""};
}

Finding JudgeSpeed(const UsbCamera& camera)
{
    if (camera.speed == 0) {
        return {Level::Skipped, "speed", NameOf(camera), "the kernel does not tell the speed", ""};
    }
    if (camera.speed < kSuperSpeed) {
        return {Level::Problem, "speed", NameOf(camera),
                Format("connected at %u Mbit/s instead of %u", camera.speed, kSuperSpeed),
                kFasterPort};
    }
    return {Level::Good, "speed", NameOf(camera), Format("connected at %u Mbit/s", camera.speed),
            ""};
}

std::string MemoryRemedy(unsigned long megabytes)
{
    return Format("echo %lu | sudo tee /sys/module/usbcore/parameters/usbfs_memory_mb (for good: "
                  "usbcore.usbfs_memory_mb=%lu on the kernel's command line)",
                  megabytes, megabytes);
}

} // namespace

const char* LevelName(Level level)
{
    switch (level) {
    case Level::Good: return "ok";
    case Level::Skipped: return "skipped";
    case Level::Warning: return "warning";
    default: return "problem";
    }
}

Findings JudgeUsb(const UsbTree& usb, const std::string& program)
{
    if (!usb.IsThere()) {
        return {{Level::Problem, "usb", "", "this machine shows no USB bus (/sys/bus/usb)",
                 "sudo modprobe usbcore; in a container: mount the host's /sys and /dev/bus/usb"}};
    }
    const std::vector<UsbCamera> cameras = usb.Cameras();
    Findings findings;
    if (cameras.empty()) {
        findings.push_back({Level::Problem, "usb", "", "no USB3 Vision camera on the bus",
                            "check power and cable, then look for it with: lsusb"});
    } else {
        findings.push_back({Level::Good, "usb", "",
                            Format("%zu USB3 Vision camera(s) on the bus", cameras.size()), ""});
    }
    findings.push_back(JudgeRule(usb, program));
    for (const UsbCamera& camera : cameras) {
        findings.push_back(JudgePermissions(usb, camera, program));
        const Findings drivers = JudgeDrivers(camera);
        findings.insert(findings.end(), drivers.begin(), drivers.end());
        findings.push_back(JudgeHolders(usb, camera));
        findings.push_back(JudgeSpeed(camera));
    }
    return findings;
}

Findings JudgeMemory(std::optional<unsigned long> limit_mb, const std::vector<uint64_t>& payloads)
{
    if (!limit_mb) {
        return {
            {Level::Skipped, "usbfs-memory", "", "the kernel does not tell usbfs_memory_mb", ""}};
    }
    uint64_t images = 0;
    for (const uint64_t payload : payloads) {
        images += std::min<uint64_t>(payload, uint64_t{1} << 40U);
    }
    const uint64_t limit = *limit_mb * kMebibyte;
    // What each camera's images go round in, and what is left to transfers of the others.
    const uint64_t wanted = kImagesAtATime * images + kLeftToOthers;
    const auto wantedMb =
        static_cast<unsigned long>(std::max<uint64_t>((wanted + kMebibyte - 1) / kMebibyte, 16));
    if (*limit_mb != 0 && limit < kInFlight * std::max<size_t>(payloads.size(), 1)) {
        return {
            {Level::Problem, "usbfs-memory", "",
             Format("usbfs_memory_mb is %lu: too little for a transfer of each of %zu camera(s)",
                    *limit_mb, payloads.size()),
             MemoryRemedy(wantedMb)}};
    }
    if (*limit_mb != 0 && limit < wanted) {
        return {{Level::Warning, "usbfs-memory", "",
                 Format("usbfs_memory_mb is %lu, less than %lu: images arrive, but not all by the "
                        "fast way, which costs processor time",
                        *limit_mb, wantedMb),
                 MemoryRemedy(wantedMb)}};
    }
    return {{Level::Good, "usbfs-memory", "",
             Format("usbfs_memory_mb is %lu%s", *limit_mb, *limit_mb == 0 ? " (no limit)" : ""),
             ""}};
}

Finding JudgeEnvironment(const char* variable, const char* list,
                         const std::filesystem::path& producer)
{
    const std::string name = variable;
    const std::string places = ":" + std::string(list == nullptr ? "" : list) + ":";
    const std::string folder = producer.parent_path().string();
    // Folders, with or without a slash at the end; and some put the file itself there.
    for (const std::string& place : {folder, folder + "/", producer.string()}) {
        if (places.find(":" + place + ":") != std::string::npos) {
            return {Level::Good, "environment", "", name + " names " + folder, ""};
        }
    }
    return {Level::Warning, "environment", "",
            name + " does not name " + folder + ": other applications do not find the producer",
            "export " + name + "=\"${" + name + ":+$" + name + ":}" + folder + "\""};
}

Finding JudgeDescription(const std::string& camera, const Description& description)
{
    try {
        const std::string text =
            description.isZipped ? Unzip(description.contents) : description.contents;
        if (text.find("RegisterDescription") == std::string::npos) {
            return {Level::Problem, "manifest", camera,
                    "the description file is no GenICam document", kLookIntoDescription};
        }
    } catch (const ToolError& error) {
        return {Level::Problem, "manifest", camera,
                std::string("the description file cannot be unpacked: ") + error.what(),
                kLookIntoDescription};
    }
    return {Level::Good, "manifest", camera,
            Format("description file %s, %zu bytes%s", Printable(description.name).c_str(),
                   description.contents.size(), description.isZipped ? ", zipped" : ""),
            ""};
}

Finding JudgeCameraSpeed(const std::string& camera, const StreamNeeds& needs)
{
    if ((needs.speed & kSuperSpeedAndAbove) == 0) {
        return {Level::Problem, "speed", camera, "the camera works below SuperSpeed", kFasterPort};
    }
    return {Level::Good, "speed", camera, "the camera works at SuperSpeed", ""};
}

Findings JudgeStream(const std::string& camera, const StreamNeeds& needs,
                     const std::vector<StreamProblem>& problems)
{
    Findings findings;
    for (const StreamProblem& problem : problems) {
        findings.push_back(
            {Level::Problem, "stream", camera,
             (problem.isFatal ? "no image will arrive: " : "images will be damaged: ") +
                 problem.text,
             problem.remedy});
    }
    if (findings.empty()) {
        findings.push_back(
            {Level::Good, "stream", camera,
             Format("payload %llu, leader %u, trailer %u bytes and alignment 2^%u are served",
                    static_cast<unsigned long long>(needs.payload), needs.leader, needs.trailer,
                    needs.alignmentExponent),
             ""});
    }
    return findings;
}

Findings JudgeListed(size_t onBus, size_t listed, bool isExact)
{
    if (listed < onBus) {
        const std::string counts = Format("%zu camera(s) on the bus, %zu listed", onBus, listed);
        return {{Level::Problem, "listed", "",
                 isExact ? counts + ": behind the first one the exact producer lists only cameras "
                                    "of the vendor \"ZRK-ORVANE GmbH\" with a GUID of their own"
                         : counts,
                 isExact ? "zr-u3v list (the standard producer lists all)"
                         : "plug the camera out and in, then: zr-u3v list"}};
    }
    if (listed == 0) {
        return {{Level::Problem, "listed", "", "the producer lists no camera",
                 "check power and cable, then: zr-u3v list"}};
    }
    return {
        {Level::Good, "listed", "", Format("%zu camera(s) listed by the producer", listed), ""}};
}
