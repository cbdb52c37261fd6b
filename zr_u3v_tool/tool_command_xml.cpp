#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "tool_commands.h"
#include "tool_description.h"
#include "tool_json.h"
#include "tool_port.h"

namespace fs = std::filesystem;

namespace {

struct FileCloser
{
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

// A document of one port, as it is to be saved or told of. No contents where only the URL is
// wanted.
struct Document
{
    std::string port;
    std::string url;
    std::string name;
    std::string contents;
    bool isZipped = false;
};

// Reads a port's document and unpacks it if that is wanted; an unpacked one loses the archive's
// extension.
Document Fetch(const Options& options, const Producer& api, PORT_HANDLE port,
               const std::string& portName)
{
    if (options.onlyUrl) {
        const std::string url = consumer::FirstUrl(api, port);
        return {portName, url, consumer::ParseDescriptionUrl(url).name, "", false};
    }
    Description description = FetchDescription(api, port);
    Document document{portName, description.url, description.name, "", description.isZipped};
    if (options.unzip && description.isZipped) {
        document.contents = Unzip(description.contents);
        document.name = fs::path(document.name).replace_extension(".xml").string();
    } else {
        document.contents = std::move(description.contents);
    }
    return document;
}

std::vector<Document> FetchAll(const Options& options)
{
    std::vector<Document> documents;
    if (options.port == "all") {
        WithEachPort(options, [&](const Producer& api, PORT_HANDLE port, const std::string& name) {
            documents.push_back(Fetch(options, api, port, name));
        });
    } else {
        WithPort(options, options.port, DEVICE_ACCESS_READONLY,
                 [&](const Producer& api, PORT_HANDLE port) {
                     documents.push_back(Fetch(options, api, port, options.port));
                 });
    }
    return documents;
}

// Where a document goes. A folder takes each one under its own name, which nobody but the camera
// has chosen; anything else is the name of the one document.
struct Target
{
    fs::path path;
    bool isNamedByCamera = false;
};

Target TargetFor(const Options& options, const Document& document)
{
    fs::path output(options.output);
    std::error_code ignored;
    const bool isFolder = fs::is_directory(output, ignored) || options.output.ends_with('/');
    if (!isFolder) {
        return {output, false};
    }
    return {output / (document.name.empty() ? document.port + ".xml" : document.name), true};
}

// "x": only where nothing has that name yet, not even a link that leads nowhere.
File Create(const Options& options, const Target& target)
{
    const bool mayReplace = options.overwrite || !target.isNamedByCamera;
    File file(std::fopen(target.path.c_str(), mayReplace ? "wbe" : "wbxe"));
    if (file == nullptr && errno == EEXIST) {
        throw ToolError(ExitCode::Failure,
                        target.path.string() + " exists: add --overwrite to replace it");
    }
    return file;
}

void Save(const Options& options, const Target& target, const std::string& contents)
{
    std::error_code ignored;
    if (target.path.has_parent_path()) {
        fs::create_directories(target.path.parent_path(), ignored);
    }
    File file = Create(options, target);
    // Buffered data may fail as late as when it is closed.
    if (file == nullptr ||
        std::fwrite(contents.data(), 1, contents.size(), file.get()) != contents.size() ||
        std::fclose(file.release()) != 0) {
        throw ToolError(ExitCode::Failure, "cannot write " + target.path.string());
    }
}

// The contents themselves are not repeated in JSON: they are in a file.
Json JsonOf(const Document& document)
{
    Json json{{"port", document.port}, {"url", document.url}, {"name", document.name}};
    if (!document.contents.empty()) {
        json["bytes"] = document.contents.size();
        json["zipped"] = document.isZipped;
    }
    return json;
}

// An archive on a terminal would only do harm there, and so may a document's control characters;
// anywhere else it is wanted byte by byte.
void PrintContents(const Options& options, Console& console, const Document& document)
{
    if (document.isZipped && !options.unzip && console.IsTerminal()) {
        throw ToolError(ExitCode::Usage,
                        "the document is a zip archive: add --unzip, or -o FILE to keep it");
    }
    if (console.IsTerminal()) {
        console.Print(document.contents);
    } else {
        console.PrintBytes(document.contents.data(), document.contents.size());
    }
}

// Before any camera is opened: a slip in the command line costs no time.
void CheckOptions(const Options& options)
{
    const bool toOutput = options.output.empty() && !options.onlyUrl && !options.json;
    if (options.port == "all" && toOutput) {
        throw ToolError(ExitCode::Usage, "\"xml all\" needs a folder: -o FOLDER/");
    }
    std::error_code ignored;
    if (options.port == "all" && !options.output.empty() && !options.output.ends_with('/') &&
        !fs::is_directory(options.output, ignored)) {
        throw ToolError(ExitCode::Usage, options.output + " is no folder (end it with a slash)");
    }
}

} // namespace

ExitCode RunXml(const Options& options, Console& console)
{
    CheckOptions(options);
    const std::vector<Document> documents = FetchAll(options);
    Json json = Json::array();
    for (const Document& document : documents) {
        Json entry = JsonOf(document);
        if (!options.output.empty() && !options.onlyUrl) {
            const Target target = TargetFor(options, document);
            Save(options, target, document.contents);
            entry["file"] = target.path.string();
            if (!options.json && !options.quiet) {
                console.Print(Printable(target.path.string()) + "\n");
            }
        } else if (options.onlyUrl && !options.json) {
            console.Print(Printable(document.url) + "\n");
        } else if (!options.json) {
            PrintContents(options, console, document);
        }
        json.push_back(std::move(entry));
    }
    if (options.json) {
        PrintJson(console, json);
    }
    return ExitCode::Success;
}
