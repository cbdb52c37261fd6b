#include "tool_image_trial.h"

#include "tool_camera_control.h"
#include "tool_console.h"
#include "tool_error.h"

namespace {

using Level = Finding::Level;

constexpr size_t kBuffers = 4;
constexpr uint64_t kImages = 3; // one may be hit by chance

// For printf, which knows no uint64_t.
unsigned long long Number(uint64_t value)
{
    return value;
}

void LookAt(const Image& image, ImageTrial& trial)
{
    trial.came++;
    if (image.isIncomplete) {
        trial.incomplete++;
        return;
    }
    trial.form = Format("%llux%llu %s", Number(image.width), Number(image.height),
                        PixelFormatName(image.pixelFormat).c_str());
    const size_t needed = ImageBytes(RawOf(image));
    if (needed > image.bytes.size()) {
        trial.failure = Format("wrong sizes: an image of %s takes %zu bytes, and %zu came",
                               trial.form.c_str(), needed, image.bytes.size());
    }
}

void TakeImages(Acquisition& acquisition, uint64_t timeout_ms, ImageTrial& trial)
{
    acquisition.Start();
    while (trial.came < kImages && g_isInterrupted == 0) {
        const auto image = NextImage(acquisition, timeout_ms);
        if (!image) {
            break;
        }
        LookAt(*image, trial);
        acquisition.Queue(image->buffer);
    }
    // Not every producer counts.
    trial.lost = consumer::FindValue<uint64_t>([&](INFO_DATATYPE* type, void* data, size_t* size) {
                     return acquisition.Stream().Api().DSGetInfo(
                         acquisition.Stream().Handle(), STREAM_INFO_NUM_UNDERRUN, type, data, size);
                 }).value_or(0);
    acquisition.Stop();
}

std::string TriggerOf(const NodeMap* features)
{
    const auto get = [&](const char* name) {
        return features != nullptr && features->Has(name) ? features->Get(name) : "";
    };
    try {
        return get("TriggerMode") == "On" ? get("TriggerSource") : "";
    } catch (const ToolError&) {
        return "";
    }
}

// Nothing came at all, and nothing failed.
Finding JudgeSilence(const std::string& camera, const ImageTrial& trial)
{
    const auto problem = [&](const std::string& text, const char* remedy) {
        return Finding{Level::Problem, "image", camera, text, remedy};
    };
    if (!trial.trigger.empty()) {
        return problem("the camera waits for a trigger (TriggerMode is On, TriggerSource " +
                           Printable(trial.trigger) + ")",
                       "zr-u3v set TriggerMode=Off, or zr-u3v grab --trigger software");
    }
    if (trial.lost > 0) {
        return problem(
            Format("the camera sends, but no image arrives: %llu lost", Number(trial.lost)),
            "another cable or port, without a hub; then: zr-u3v doctor");
    }
    const std::string silence =
        Format("the camera sends nothing for %llu ms", Number(trial.waited_ms));
    if (!trial.hasStart) {
        return problem(silence + ", and it has no AcquisitionStart by which it would be started",
                       "ask the camera's vendor how it is started");
    }
    return problem(silence + " after it was started",
                   "zr-u3v features AcquisitionControl (a long exposure, or another mode?)");
}

} // namespace

ImageTrial TryImages(const Camera& camera, const StreamNeeds& needs, uint64_t timeout_ms)
{
    const CameraControl control(camera, {});
    const DataStream stream(camera);
    ImageTrial trial;
    trial.waited_ms = timeout_ms;
    trial.hasStart = control.Features() != nullptr && control.Features()->Has("AcquisitionStart");
    trial.trigger = TriggerOf(control.Features());
    try {
        Acquisition acquisition(stream, BufferSize(needs), kBuffers,
                                consumer::BufferMemory::OfProducer, control.Switch());
        TakeImages(acquisition, timeout_ms, trial);
    } catch (const GenTLError& error) {
        trial.failure = error.what();
        trial.lacksMemory =
            error.Status() == GC_ERR_RESOURCE_EXHAUSTED || error.Status() == GC_ERR_OUT_OF_MEMORY;
    } catch (const ToolError& error) {
        trial.failure = error.what();
    }
    return trial;
}

Finding JudgeImages(const std::string& camera, const ImageTrial& trial)
{
    if (!trial.failure.empty()) {
        return {Level::Problem, "image", camera, trial.failure,
                trial.lacksMemory ? "echo 256 | sudo tee "
                                    "/sys/module/usbcore/parameters/usbfs_memory_mb"
                                  : "fix what is reported above, or plug the camera out and in"};
    }
    if (trial.came == 0) {
        return JudgeSilence(camera, trial);
    }
    if (trial.incomplete > 0) {
        return {trial.incomplete == trial.came ? Level::Problem : Level::Warning, "image", camera,
                Format("%llu of %llu images came damaged", Number(trial.incomplete),
                       Number(trial.came)),
                "another cable or port, without a hub, and a lower rate; then: zr-u3v bench"};
    }
    return {Level::Good, "image", camera, "an image came whole: " + trial.form, ""};
}
