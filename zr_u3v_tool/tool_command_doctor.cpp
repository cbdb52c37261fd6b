#include <algorithm>
#include <cstdlib>
#include <memory>

#include "tool_acquisition.h"
#include "tool_camera_list.h"
#include "tool_commands.h"
#include "tool_doctor.h"
#include "tool_image_trial.h"
#include "tool_json.h"
#include "tool_producer.h"
#include "tool_udev_rule.h"

namespace {

using Level = Finding::Level;

void Append(Findings& findings, const Findings& more)
{
    findings.insert(findings.end(), more.begin(), more.end());
}

// An opened camera, looked through. What it says of its stream goes to `payloads` too, for the
// judgement on memory.
Findings ExamineOpen(const Options& options, const Camera& camera, const std::string& name,
                     std::vector<uint64_t>& payloads)
{
    Findings findings;
    try {
        findings.push_back(JudgeDescription(name, FetchDescription(camera.Api(), camera.Port())));
    } catch (const std::runtime_error& error) {
        findings.push_back({Level::Problem, "manifest", name,
                            std::string("the description file cannot be read: ") + error.what(),
                            "zr-u3v xml --url"});
    }
    try {
        const StreamNeeds needs = ReadStreamNeeds(camera);
        payloads.push_back(needs.payload);
        findings.push_back(JudgeCameraSpeed(name, needs));
        Append(findings, JudgeStream(name, needs,
                                     IsExactProducer(camera.Api()) ? CheckStream(needs)
                                                                   : std::vector<StreamProblem>()));
        const bool isHopeless =
            std::any_of(findings.begin(), findings.end(), [](const Finding& one) {
                return one.check == "stream" && one.level == Level::Problem;
            });
        if (isHopeless) {
            const DataStream stream(camera);
            findings.push_back({Level::Skipped, "image", name, "no image was tried", ""});
        } else {
            findings.push_back(JudgeImages(name, TryImages(camera, needs, options.timeout_ms)));
        }
    } catch (const std::runtime_error& error) {
        findings.push_back({Level::Problem, "stream", name, error.what(),
                            "close other applications that stream from it, then: zr-u3v doctor"});
    }
    return findings;
}

Findings Examine(const Options& options, const Session& session, const CameraRecord& record,
                 std::vector<uint64_t>& payloads)
{
    const std::string name = record.serial.empty() ? record.id : record.serial;
    try {
        const Camera camera(session, record.id, DEVICE_ACCESS_CONTROL);
        Findings findings{{Level::Good, "open", name, "the camera opens", ""}};
        Append(findings, ExamineOpen(options, camera, name, payloads));
        return findings;
    } catch (const GenTLError& error) {
        return {{Level::Problem, "open", name, error.what(),
                 IsExactProducer(session.Api())
                     ? "fix what is reported above; else try the standard producer, which serves "
                       "cameras that the exact one does not: zr-u3v doctor"
                     : "fix what is reported above, or plug the camera out and in"}};
    }
}

// Of the exact one an installation beside the standard one tells by a variable of its own.
Finding JudgePlace(const Producer& producer)
{
    const auto judge = [&](const char* variable) {
        return JudgeEnvironment(variable, std::getenv(variable), producer.File());
    };
    const Finding finding = judge("GENICAM_GENTL64_PATH");
    return finding.level != Level::Good && IsExactProducer(producer) ? judge("ZR_U3V_EXACT_PATH")
                                                                     : finding;
}

// Everything that needs the producer. The virtual bus has no /sys to count cameras in.
Findings ExamineProducer(const Options& options, const UsbTree& usb,
                         std::vector<uint64_t>& payloads)
{
    Findings findings;
    try {
        const Producer producer = LoadProducer(options);
        findings.push_back({Level::Good, "producer", "", producer.File().string(), ""});
        findings.push_back(JudgePlace(producer));
        const Session session(producer, {.update_ms = options.discovery_ms});
        const std::vector<CameraRecord> cameras = ListCameras(session);
        const size_t onBus = options.isVirtual ? 0 : usb.Cameras().size();
        Append(findings, JudgeListed(onBus, cameras.size(), IsExactProducer(producer)));
        for (const CameraRecord& record : cameras) {
            Append(findings, Examine(options, session, record, payloads));
        }
    } catch (const ToolError& error) {
        findings.push_back({Level::Problem, "producer", "", error.what(),
                            "zr-u3v --producer /path/to/zr_u3v_standard.cti doctor"});
    } catch (const GenTLError& error) {
        findings.push_back({Level::Problem, "producer", "", error.what(), "zr-u3v --verbose list"});
    }
    return findings;
}

// Scripts find `check` and `level` in every finding; `camera` and `remedy` where there is one.
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

// A line for the finding, and one for what fixes it.
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

// Quietly, only what needs attention is printed; as JSON always everything.
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
    if (options.printRule) {
        console.Print(UdevRule());
        return ExitCode::Success;
    }
    const UsbTree usb(options.root);
    Findings findings;
    if (options.isVirtual) {
        findings.push_back({Level::Skipped, "usb", "",
                            "the virtual bus has no udev rules, permissions, drivers or memory "
                            "limits to look at",
                            ""});
    } else {
        Append(findings, JudgeUsb(usb, ProgramCommand()));
    }
    std::vector<uint64_t> payloads;
    Append(findings, ExamineProducer(options, usb, payloads));
    if (!options.isVirtual) {
        Append(findings, JudgeMemory(usb.UsbfsMemory(), payloads));
    }
    Report(options, console, findings);
    return Count(findings, Level::Problem) == 0 ? ExitCode::Success : ExitCode::Problems;
}
