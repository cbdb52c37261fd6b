#include <filesystem>
#include <memory>

#include "tool_camera_control.h"
#include "tool_camera_list.h"
#include "tool_commands.h"
#include "tool_image_writer.h"
#include "tool_json.h"
#include "tool_producer.h"
#include "tool_progress.h"
#include "tool_statistics.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kStandardOutput = "-";

// --format, else the file's extension, else PNG; raw on standard output.
ImageFormat FormatOf(const Options& options)
{
    std::string name = options.format;
    if (name.empty() && options.output == kStandardOutput) {
        name = "raw";
    }
    if (name.empty()) {
        const std::string extension = fs::path(options.output).extension().string();
        name = extension.empty() ? "png" : extension.substr(1);
    }
    const auto format = ParseImageFormat(name);
    if (!format) {
        throw ToolError(ExitCode::Usage,
                        "no image format \"" + name + "\"; there are: " + ImageFormatNames());
    }
    return *format;
}

// The pattern for the files' names; a folder gets "image" with the format's extension.
std::string PatternOf(const Options& options)
{
    const std::string extension = options.format.empty() ? "png" : options.format;
    std::string plain = "image." + extension;
    if (options.output.empty()) {
        return plain;
    }
    std::error_code ignored;
    if (fs::is_directory(options.output, ignored) || options.output.ends_with('/')) {
        fs::create_directories(options.output, ignored);
        return (fs::path(options.output) / plain).string();
    }
    return options.output;
}

// Where images go: to files, to standard output, or nowhere.
class Sink
{
public:
    Sink(const Options& options, Console& console) : m_console(console)
    {
        m_toOutput = options.output == kStandardOutput;
        const ImageOptions imageOptions{FormatOf(options), !options.noDemosaic, options.reduceTo8};
        if (m_toOutput && (imageOptions.format != ImageFormat::Raw || options.json)) {
            throw ToolError(ExitCode::Usage,
                            "standard output takes raw images, and nothing beside them");
        }
        if (!m_toOutput) {
            m_writer =
                std::make_unique<ImageWriter>(PatternOf(options), options.images, imageOptions);
        }
    }

    void Put(const Image& image)
    {
        if (m_toOutput) {
            m_console.PrintBytes(image.bytes.data(), image.bytes.size());
        } else {
            m_writer->Put(image);
        }
    }
    void Finish()
    {
        if (m_writer != nullptr) {
            m_writer->Finish();
        }
    }
    bool UsesOutput() const { return m_toOutput; }

private:
    Console& m_console;
    bool m_toOutput = false;
    std::unique_ptr<ImageWriter> m_writer;
};

// Takes images until there are `wanted`, the camera falls silent or the user interrupts.
template <class Use>
Statistics Collect(Acquisition& acquisition, const CameraControl& control, const Options& options,
                   std::optional<ClockOffset> clock, const Use& use)
{
    Statistics statistics(clock);
    Progress progress(options.images, !options.quiet);
    uint64_t skipped = 0;
    acquisition.Start();
    while (statistics.Images() < options.images && g_isInterrupted == 0) {
        control.Trigger();
        const auto image = NextImage(acquisition, options.timeout_ms);
        if (!image) {
            break;
        }
        if (skipped < options.skip) {
            skipped++;
        } else {
            statistics.Add(*image);
            use(*image);
            progress.Show(statistics.Images(), statistics.Rate());
        }
        acquisition.Queue(image->buffer);
    }
    acquisition.Stop();
    return statistics;
}

// A camera that is there answers the first register of all.
bool IsGone(const Camera& camera)
{
    try {
        camera.Read<uint32_t>(0);
        return false;
    } catch (const GenTLError&) {
        return true;
    }
}

// Fewer images than asked for are a failure even when each one was perfect.
ExitCode Judge(const Options& options, const Camera& camera, const Statistics& statistics)
{
    if (g_isInterrupted != 0) {
        return ExitCode::Interrupted;
    }
    if (statistics.Images() < options.images) {
        const std::string counts = Format("%llu of %llu images arrived, then ",
                                          static_cast<unsigned long long>(statistics.Images()),
                                          static_cast<unsigned long long>(options.images));
        throw ToolError(ExitCode::Images,
                        IsGone(camera)
                            ? counts + "the camera was gone (unplugged?)"
                            : counts + Format("none for %llu ms (zr-u3v doctor tells what this "
                                              "camera needs)",
                                              static_cast<unsigned long long>(options.timeout_ms)));
    }
    if (statistics.Incomplete() != 0 || (options.strict && !statistics.IsPerfect())) {
        throw ToolError(ExitCode::Images,
                        Format("%llu images incomplete, %llu lost, %llu repeated",
                               static_cast<unsigned long long>(statistics.Incomplete()),
                               static_cast<unsigned long long>(statistics.Lost()),
                               static_cast<unsigned long long>(statistics.Repeated())));
    }
    return ExitCode::Success;
}

} // namespace

// The clocks are compared before the stream starts: control and stream share the bus.
ExitCode RunGrab(const Options& options, Console& console)
{
    Sink sink(options, console);
    const Producer producer = LoadProducer(options);
    const Session session(producer, {.update_ms = options.discovery_ms});
    const Camera camera(session, SelectCamera(session, options.camera).id);
    const auto clock = MeasureClockOffset(camera);
    const CameraControl control(camera, WishesOf(options));
    const DataStream stream(camera);
    Acquisition acquisition = Announce(stream, control, options);
    const Statistics statistics =
        Collect(acquisition, control, options, clock, [&](const Image& image) { sink.Put(image); });
    sink.Finish();
    if (options.json) {
        PrintJson(console, statistics.ToJson());
    } else if (sink.UsesOutput()) {
        std::fputs(options.quiet ? "" : statistics.Text().c_str(), stderr);
    } else if (!options.quiet) {
        console.Print(statistics.Text());
    }
    return Judge(options, camera, statistics);
}

// ---- bench ------------------------------------------------------------------------------------

namespace {

constexpr int kControlReads = 500;

// Register reads a second: what a node map's every access costs.
double ControlRate(const Camera& camera)
{
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < kControlReads; i++) {
        camera.Read<uint32_t>(0);
    }
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
    return kControlReads / std::max(taken.count(), 1e-9);
}

// Of all threads of this process: the producer's work is part of it.
double ProcessorSeconds()
{
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

} // namespace

ExitCode RunBench(const Options& options, Console& console)
{
    const Producer producer = LoadProducer(options);
    const Session session(producer, {.update_ms = options.discovery_ms});
    const Camera camera(session, SelectCamera(session, options.camera).id);
    const double control = ControlRate(camera);
    const auto clock = MeasureClockOffset(camera);
    const CameraControl starter(camera, WishesOf(options));
    const DataStream stream(camera);
    Acquisition acquisition = Announce(stream, starter, options);
    const double before = ProcessorSeconds();
    const Statistics statistics =
        Collect(acquisition, starter, options, clock, [](const Image&) {});
    const double processor = (ProcessorSeconds() - before) * 1000 /
                             static_cast<double>(std::max<uint64_t>(statistics.Images(), 1));
    if (options.json) {
        Json json = statistics.ToJson();
        json["processor_ms_per_image"] = processor;
        json["register_reads_per_second"] = control;
        PrintJson(console, json);
    } else {
        console.Print(statistics.Text());
        console.Print(Format("processor    %.2f ms per image\nregisters    %.0f reads/s\n",
                             processor, control));
    }
    return Judge(options, camera, statistics);
}
