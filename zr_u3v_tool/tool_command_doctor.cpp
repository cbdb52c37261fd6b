#include <cstdlib>
#include <filesystem>
#include <memory>

#include "tool_commands.h"
#include "tool_description.h"
#include "tool_doctor.h"
#include "tool_json.h"
#include "tool_session.h"

namespace fs = std::filesystem;

namespace {

using Level = Finding::Level;
using Findings = std::vector<Finding>;

void Append(Findings& findings, const Findings& more)
{
    findings.insert(findings.end(), more.begin(), more.end());
}

// Whether applications, which know of GENICAM_GENTL64_PATH only, find the producer too.
Finding JudgeEnvironment(const fs::path& producer)
{
    const char* const value = std::getenv("GENICAM_GENTL64_PATH");
    const std::string list = ":" + std::string(value == nullptr ? "" : value) + ":";
    const std::string folder = producer.parent_path().string();
    const bool isNamed = list.find(":" + folder + ":") != std::string::npos ||
                         list.find(":" + folder + "/:") != std::string::npos ||
                         list.find(":" + producer.string() + ":") != std::string::npos;
    if (isNamed) {
        return {Level::Good, "environment", "", "GENICAM_GENTL64_PATH names " + folder, ""};
    }
    return {Level::Warning, "environment", "",
            "GENICAM_GENTL64_PATH does not name " + folder +
                ": other applications do not find the producer",
            "export GENICAM_GENTL64_PATH=\"${GENICAM_GENTL64_PATH:+$GENICAM_GENTL64_PATH:}" +
                folder + "\""};
}

// The camera's own description file: there, readable, and what it says it is.
Finding JudgeDescription(const Camera& camera, const std::string& name)
{
    try {
        const Description description = FetchDescription(camera.Api(), camera.Port());
        const std::string text =
            description.isZipped ? Unzip(description.contents) : description.contents;
        if (text.find("RegisterDescription") == std::string::npos) {
            return {Level::Problem, "manifest", name, "the description file is no GenICam document",
                    "zr-u3v xml -o description.xml"};
        }
        return {Level::Good, "manifest", name,
                Format("description file %s, %zu bytes%s", Printable(description.name).c_str(),
                       description.contents.size(), description.isZipped ? ", zipped" : ""),
                ""};
    } catch (const ToolError& error) {
        return {Level::Problem, "manifest", name,
                std::string("the description file cannot be used: ") + error.what(),
                "zr-u3v xml -o description.xml"};
    }
}

Finding JudgeCameraSpeed(const StreamNeeds& needs, const std::string& name)
{
    constexpr uint32_t kSuperSpeedAndAbove = 0x18;
    if ((needs.speed & kSuperSpeedAndAbove) == 0) {
        return {Level::Problem, "speed", name, "the camera works below SuperSpeed",
                "plug it into a USB 3 port with a USB 3 cable, then: lsusb -t"};
    }
    return {Level::Good, "speed", name, "the camera works at SuperSpeed", ""};
}

Findings Examine(const Session& session, const CameraRecord& record,
                 std::vector<uint64_t>& payloads)
{
    const std::string name = record.serial.empty() ? record.id : record.serial;
    std::unique_ptr<Camera> camera;
    try {
        camera = std::make_unique<Camera>(session, record.id, DEVICE_ACCESS_CONTROL);
    } catch (const GenTLError& error) {
        return {{Level::Problem, "open", name, error.what(),
                 "mend what is reported above; else: the camera must have exactly one manifest "
                 "entry, accept read commands of any length field, and not answer reads with "
                 "pending acknowledges"}};
    }
    Findings findings{{Level::Good, "open", name, "the camera opens", ""}};
    findings.push_back(JudgeDescription(*camera, name));
    try {
        const StreamNeeds needs = ReadStreamNeeds(*camera);
        payloads.push_back(needs.payload);
        findings.push_back(JudgeCameraSpeed(needs, name));
        Append(findings, JudgeStream(name, needs));
        const DataStream stream(*camera);
    } catch (const ToolError& error) {
        findings.push_back({Level::Problem, "stream", name, error.what(),
                            "close other applications that stream from it, then: zr-u3v doctor"});
    }
    return findings;
}

// Everything that needs the producer.
Findings ExamineProducer(const Options& options, const UsbTree& usb,
                         std::vector<uint64_t>& payloads)
{
    Findings findings;
    try {
        const Producer producer(FindProducer(options.producer));
        findings.push_back({Level::Good, "producer", "", producer.Path().string(), ""});
        findings.push_back(JudgeEnvironment(producer.Path()));
        const Session session(producer, options.discovery_ms);
        const size_t onBus = options.isVirtual ? 0 : usb.Cameras().size();
        Append(findings, JudgeListed(onBus, session.Cameras().size()));
        for (const CameraRecord& record : session.Cameras()) {
            Append(findings, Examine(session, record, payloads));
        }
    } catch (const ToolError& error) {
        const bool isMissing = error.Code() == ExitCode::NoProducer;
        findings.push_back(
            {Level::Problem, "producer", "", error.what(),
             isMissing ? "zr-u3v --cti /path/to/zr_u3v_tl.cti doctor" : "zr-u3v --verbose list"});
    }
    return findings;
}

Json JsonOf(const Finding& finding)
{
    Json json{{"check", finding.check}, {"level", LevelName(finding.level)}};
    if (!finding.camera.empty()) {
        json["camera"] = finding.camera;
    }
    json["text"] = finding.text;
    if (!finding.remedy.empty()) {
        json["remedy"] = finding.remedy;
    }
    return json;
}

std::string TextOf(const Finding& finding)
{
    std::string text = Format("%-8s %s: ", LevelName(finding.level), finding.check.c_str());
    if (!finding.camera.empty()) {
        text += Printable(finding.camera) + ": ";
    }
    text += finding.text + "\n";
    if (!finding.remedy.empty()) {
        text += "         -> " + finding.remedy + "\n";
    }
    return text;
}

size_t Count(const Findings& findings, Level level)
{
    size_t count = 0;
    for (const Finding& finding : findings) {
        count += finding.level == level ? 1 : 0;
    }
    return count;
}

void Report(const Options& options, Console& console, const Findings& findings)
{
    const size_t problems = Count(findings, Level::Problem);
    if (options.json) {
        Json json{{"problems", problems}, {"findings", Json::array()}};
        for (const Finding& finding : findings) {
            json["findings"].push_back(JsonOf(finding));
        }
        PrintJson(console, json);
        return;
    }
    for (const Finding& finding : findings) {
        const bool isGood = finding.level == Level::Good || finding.level == Level::Skipped;
        if (!options.quiet || !isGood) {
            console.Print(TextOf(finding));
        }
    }
    if (!options.quiet) {
        console.Print(
            Format("%zu problem(s), %zu warning(s)\n", problems, Count(findings, Level::Warning)));
    }
}

} // namespace

ExitCode RunDoctor(const Options& options, Console& console)
{
    const UsbTree usb(options.root);
    Findings findings;
    if (options.isVirtual) {
        findings.push_back({Level::Skipped, "usb", "",
                            "the virtual bus has no udev rules, permissions, drivers or memory "
                            "limits to look at",
                            ""});
    } else {
        Append(findings, JudgeUsb(usb));
    }
    std::vector<uint64_t> payloads;
    Append(findings, ExamineProducer(options, usb, payloads));
    if (!options.isVirtual) {
        Append(findings, JudgeMemory(usb.UsbfsMemory(), payloads));
    }
    Report(options, console, findings);
    return Count(findings, Level::Problem) == 0 ? ExitCode::Success : ExitCode::Problems;
}
