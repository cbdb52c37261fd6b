#include "tool_command_line.h"

#include <CLI/CLI.hpp>

#include "tool_image_file.h"
#include "tool_port.h"

namespace {

constexpr uint64_t kMaximumWait_ms = uint64_t{3600} * 1000; // the producer's waits have 31 bits
constexpr uint64_t kMaximumImages = 1'000'000'000;
constexpr uint64_t kMaximumBuffers = 1024;
constexpr uint64_t kMaximumColumns = 1000;

// A whole number between two others; unlike the library's own check it says so in plain words.
CLI::Validator Within(uint64_t least, uint64_t most)
{
    return {[least, most](std::string& text) -> std::string {
                uint64_t value = 0;
                const bool isGood =
                    CLI::detail::lexical_cast(text, value) && value >= least && value <= most;
                return isGood ? ""
                              : text + " is not between " + std::to_string(least) + " and " +
                                    std::to_string(most);
            },
            ""};
}

const char* const kFooter = R"(Examples:
  zr-u3v list
  zr-u3v doctor
  zr-u3v features Exposure
  zr-u3v set ExposureTime=5000 Gain=1.5
  zr-u3v grab -n 10 -o images/
  zr-u3v --virtual view
  zr-u3v --virtual-camera width=320,height=240,format=Mono12p grab -o image.tiff

Exit codes: 0 success, 1 a call or a file failed, 2 wrong command line, 3 no such camera,
4 no producer, 5 images missing or damaged, 6 doctor has found problems, 130 interrupted.)";

// Understood in front of a command and behind it.
void AddGlobalOptions(CLI::App& app, Options& options)
{
    CLI::Option* const producer =
        app.add_option("--producer,--cti", options.producer,
                       "Any GenTL producer (default: the standard one, by GENICAM_GENTL64_PATH, "
                       "else beside this program)")
            ->type_name("FILE");
    app.add_flag("--exact", options.exact, "The exact producer instead of the standard one")
        ->excludes(producer);
    app.add_option(
           "-c,--camera", options.camera,
           "GUID, serial number or user name of the camera, or #1 for the first of the list")
        ->type_name("NAME");
    app.add_option(
           "--discovery-time", options.discovery_ms,
           "How long to look for cameras at most, in ms (5000; with --exact always so long, 500)")
        ->type_name("MS")
        ->check(Within(1, kMaximumWait_ms));
    app.add_flag("--virtual", options.isVirtual, "Work on a virtual camera; needs no hardware");
    app.add_option(
           "--virtual-camera", options.virtualCameras,
           "The same with options of its own: width=320,format=Mono12p,...; may be repeated")
        ->type_name("OPTIONS")
        ->expected(1)
        ->take_all();
    app.add_flag("--json", options.json, "Print JSON instead of text");
    app.add_flag("-q,--quiet", options.quiet, "Print less: no headings, no progress, no hints");
    app.add_flag("-v,--verbose", options.verbose,
                 "Let the producer's own messages through to standard error");
}

// Whose registers are meant; only read and write have it.
void AddPortOption(CLI::App& command, Options& options)
{
    command
        .add_option("-p,--port", options.port,
                    "Whose registers: camera (default), system, interface, device or stream")
        ->type_name("PORT")
        ->check(CLI::IsMember(PortNames()));
}

void AddXml(CLI::App& app, Options& options)
{
    CLI::App* const command =
        app.add_subcommand("xml", "Fetch the description file of the camera or of a module");
    std::vector<std::string> names = PortNames();
    names.emplace_back("all");
    command
        ->add_option("MODULE", options.port,
                     "camera (default), system, interface, device, stream or all")
        ->check(CLI::IsMember(names))
        ->type_name("");
    command->add_option("-o,--output", options.output, "A file, or a folder (ends with a slash)")
        ->type_name("PATH");
    command->add_flag("--overwrite", options.overwrite,
                      "In a folder, replace files that are there");
    command->add_flag("-u,--unzip", options.unzip, "Unpack a zipped document");
    command->add_flag("--url", options.onlyUrl, "Tell where the document is, without reading it");
}

void AddRead(CLI::App& app, Options& options)
{
    CLI::App* const command = app.add_subcommand("read", "Read registers");
    command
        ->add_option("REGISTER", options.addresses,
                     "Addresses, or names like ModelName, SerialNumber, Timestamp")
        ->required()
        ->type_name("");
    command
        ->add_option("-t,--type", options.type,
                     "u8, u16, u32 (default), u64, i32, i64, f32, f64, string or hex")
        ->type_name("TYPE");
    command->add_option("-l,--length", options.length, "Bytes to read as string or hex")
        ->type_name("BYTES");
    AddPortOption(*command, options);
}

void AddWrite(CLI::App& app, Options& options)
{
    CLI::App* const command = app.add_subcommand("write", "Write a register");
    command->add_option("REGISTER", options.address, "Its address or name")
        ->required()
        ->type_name("");
    command->add_option("VALUE", options.value, "What to write")->required()->type_name("");
    command
        ->add_option("-t,--type", options.type,
                     "u8, u16, u32 (default), u64, i32, i64, f32, f64, string or hex")
        ->type_name("TYPE");
    AddPortOption(*command, options);
}

// Whose features are meant.
void AddModuleOption(CLI::App& command, Options& options)
{
    command
        .add_option("--module", options.port,
                    "Whose features: camera (default), system, interface, device or stream")
        ->type_name("MODULE")
        ->check(CLI::IsMember(PortNames()));
}

void AddFeatures(CLI::App& app, Options& options)
{
    CLI::App* const command = app.add_subcommand("features", "List the features with their values");
    command
        ->add_option("PATTERN", options.pattern,
                     "Those whose name or category holds it; * and ? as in a shell")
        ->type_name("");
    command
        ->add_option("--visibility", options.visibility,
                     "Up to beginner, expert (default), guru or invisible")
        ->type_name("LEVEL")
        ->check(CLI::IsMember({"beginner", "expert", "guru", "invisible"}));
    AddModuleOption(*command, options);
}

// get, set and exec: a command, what it is for, and what its arguments are.
void AddNames(CLI::App& app, Options& options, const char* name, const char* help, const char* what)
{
    CLI::App* const command = app.add_subcommand(name, help);
    command->add_option("NAME", options.names, what)->required()->type_name("");
    AddModuleOption(*command, options);
}

void AddTimeout(CLI::App& command, Options& options)
{
    command
        .add_option("--timeout", options.timeout_ms, "How long to wait for an image, in ms (5000)")
        ->type_name("MS")
        ->check(Within(1, kMaximumWait_ms));
}

// What every command that takes images has in common.
void AddStreamOptions(CLI::App& command, Options& options)
{
    command
        .add_option("--set", options.settings,
                    "Set a feature before: ExposureTime=5000; may be repeated")
        ->type_name("NAME=VALUE")
        ->expected(1)
        ->take_all();
    command
        .add_option("--trigger", options.trigger,
                    "software: an image for each execution of TriggerSoftware")
        ->type_name("SOURCE")
        ->check(CLI::IsMember({"software"}));
    command.add_option("-b,--buffers", options.buffers, "Buffers to announce (8)")
        ->type_name("N")
        ->check(Within(1, kMaximumBuffers));
    AddTimeout(command, options);
}

void AddGrab(CLI::App& app, Options& options)
{
    CLI::App* const command = app.add_subcommand("grab", "Save images, and tell how they came");
    command->add_option("-n,--images", options.images, "How many (1)")
        ->type_name("N")
        ->check(Within(1, kMaximumImages));
    command
        ->add_option("-o,--output", options.output,
                     "A file name, in which {index}, {frame} and {timestamp} are replaced, or a "
                     "folder (image.png); - is standard output")
        ->type_name("PATH");
    command
        ->add_option("-f,--format", options.format,
                     ImageFormatNames() + " (default: by the file name, else png)")
        ->type_name("FORMAT");
    command->add_flag("--no-demosaic", options.noDemosaic, "Keep Bayer images as grey mosaics");
    command->add_flag("--8bit", options.reduceTo8, "Save the upper 8 bits of deeper images");
    command->add_option("--skip", options.skip, "Images to drop first (0)")->type_name("N");
    command->add_flag("--strict", options.strict, "Lost or repeated images are a failure as well");
    AddStreamOptions(*command, options);
}

void AddView(CLI::App& app, Options& options)
{
    CLI::App* const command = app.add_subcommand(
        "view", "Show live images with rate and histogram; a still where there is no display");
    command->add_option("-o,--output", options.output, "Save what the window would show as PNG")
        ->type_name("FILE");
    command->add_option("-n,--images", options.images, "End after so many (0: never)")
        ->type_name("N");
    command->add_flag("-t,--terminal", options.inTerminal, "A still in the terminal");
    command->add_option("--columns", options.columns, "Width of the still (the terminal's)")
        ->type_name("N")
        ->check(Within(1, kMaximumColumns));
    AddStreamOptions(*command, options);
    command->footer("Keys: q or Escape ends, space pauses, h hides the overlay, s saves.");
}

void AddBench(CLI::App& app, Options& options)
{
    CLI::App* const command =
        app.add_subcommand("bench", "Measure image rate, latency, load and register access");
    command->add_option("-n,--images", options.images, "How many (200)")
        ->type_name("N")
        ->check(Within(1, kMaximumImages));
    command->add_flag("--strict", options.strict, "Lost or repeated images are a failure");
    AddStreamOptions(*command, options);
}

void AddDoctor(CLI::App& app, Options& options)
{
    CLI::App* const command = app.add_subcommand(
        "doctor", "Find out why a camera does not work, and name the command that fixes it");
    command->add_option("--root", options.root, "Where /sys, /proc, /dev and /etc are found (/)")
        ->type_name("FOLDER");
    AddTimeout(*command, options);
    command->add_flag("--udev-rule", options.printRule,
                      "Print the udev rule that gives users access to cameras, and end");
}

// Defaults that depend on the command, and options that include others. 0 images: not said.
void SetDefaults(Options& options)
{
    constexpr uint64_t kBenchImages = 200;
    if (options.images == 0 && options.command != "view") {
        options.images = options.command == "bench" ? kBenchImages : 1;
    }
    // The standard producer returns as soon as it has looked, the exact one takes all of the time,
    // and so may any other.
    constexpr uint64_t kAtMost_ms = 5000;
    constexpr uint64_t kExact_ms = 500;
    if (options.discovery_ms == 0) {
        options.discovery_ms = options.exact || !options.producer.empty() ? kExact_ms : kAtMost_ms;
    }
    options.isVirtual = options.isVirtual || !options.virtualCameras.empty();
}

} // namespace

CommandLine ParseCommandLine(int count, const char* const* arguments)
{
    CLI::App app{"Find, inspect and run USB3 Vision cameras by way of the GenTL producer.",
                 "zr-u3v"};
    Options options;
    app.set_version_flag("--version", "zr-u3v " ZR_TOOL_VERSION);
    AddGlobalOptions(app, options);
    app.fallthrough(); // commands inherit it: options of the program are understood behind them
    app.add_subcommand("list", "List the cameras");
    app.add_subcommand("info", "Tell about producer, modules and camera");
    AddXml(app, options);
    AddRead(app, options);
    AddWrite(app, options);
    AddFeatures(app, options);
    AddNames(app, options, "get", "Read features by name", "Features");
    AddNames(app, options, "set", "Set features by name", "NAME=VALUE, in this order");
    AddNames(app, options, "exec", "Execute commands by name", "Commands");
    AddGrab(app, options);
    AddView(app, options);
    AddBench(app, options);
    AddDoctor(app, options);
    app.require_subcommand(1);
    app.footer(kFooter);
    app.allow_extras(); // so that they can be named below
    try {
        app.parse(count, arguments);
    } catch (const CLI::CallForHelp&) {
        return {std::nullopt, app.help(), ExitCode::Success};
    } catch (const CLI::CallForVersion& version) {
        return {std::nullopt, std::string(version.what()) + "\n", ExitCode::Success};
    } catch (const CLI::ParseError& error) {
        const bool isUnknown = app.get_subcommands().empty() && !app.remaining().empty();
        return {std::nullopt,
                isUnknown ? "there is no command \"" + app.remaining().front() + "\""
                          : std::string(error.what()),
                ExitCode::Usage};
    }
    if (!app.remaining().empty()) {
        return {std::nullopt, "unexpected argument \"" + app.remaining().front() + "\"",
                ExitCode::Usage};
    }
    options.command = app.get_subcommands().front()->get_name();
    SetDefaults(options);
    return {options, "", ExitCode::Success};
}
