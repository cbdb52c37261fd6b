#include <algorithm>
#include <fnmatch.h>

#include "tool_camera_control.h"
#include "tool_commands.h"
#include "tool_json.h"
#include "tool_port.h"

namespace {

constexpr std::chrono::milliseconds kPatience{2000}; // for a command to be done

// Opens the module that is meant and hands its features out.
void WithFeatures(const Options& options, DEVICE_ACCESS_FLAGS access,
                  const std::function<void(const NodeMap&)>& use)
{
    WithPort(options, options.port, access,
             [&](const Producer& api, PORT_HANDLE port) { use(NodeMap(api, port)); });
}

const char* AccessText(const Feature& feature)
{
    return feature.isReadable ? (feature.isWritable ? "rw" : "ro")
                              : (feature.isWritable ? "wo" : "na");
}

// ---- as JSON ------------------------------------------------------------------------------------

// Numbers and truth values are such in JSON; everything else is text, nothing is null.
Json ValueJson(FeatureKind kind, const std::string& value)
{
    if (value.empty() && kind != FeatureKind::String) {
        return nullptr;
    }
    switch (kind) {
    case FeatureKind::Integer: return std::stoll(value);
    case FeatureKind::Float: return std::strtod(value.c_str(), nullptr);
    case FeatureKind::Boolean: return value == "true";
    default: return value;
    }
}

Json JsonOf(const Feature& feature, const std::string& category)
{
    Json json{{"name", feature.name},
              {"category", category},
              {"kind", KindName(feature.kind)},
              {"access", AccessText(feature)},
              {"visibility", VisibilityName(feature.visibility)},
              {"value", ValueJson(feature.kind, feature.value)}};
    if (!feature.unit.empty()) {
        json["unit"] = feature.unit;
    }
    const std::pair<const char*, const std::string&> limits[] = {
        {"minimum", feature.minimum}, {"maximum", feature.maximum}, {"step", feature.increment}};
    for (const auto& [name, limit] : limits) {
        if (!limit.empty()) {
            json[name] = ValueJson(feature.kind, limit);
        }
    }
    if (feature.kind == FeatureKind::Enumeration) {
        json["entries"] = feature.entries;
    }
    json["tooltip"] = feature.tooltip;
    return json;
}

// ---- as text ------------------------------------------------------------------------------------

// "8..4096 step 8", "Mono8 Mono10", ...
std::string Choices(const Feature& feature)
{
    std::string text;
    if (!feature.minimum.empty() && !feature.maximum.empty()) {
        text = feature.minimum + ".." + feature.maximum;
    }
    if (!feature.increment.empty()) {
        text += " step " + feature.increment;
    }
    for (const std::string& entry : feature.entries) {
        text += (text.empty() ? "" : " ") + entry;
    }
    return text;
}

std::string LineOf(const Feature& feature, unsigned depth)
{
    const std::string value =
        feature.kind == FeatureKind::Command
            ? "(command)"
            : feature.value + (feature.unit.empty() ? "" : " " + feature.unit);
    const std::string name = std::string(size_t{depth} * 2, ' ') + feature.name;
    std::string line = Format("%-36s %s  %-24s %s", Printable(name).c_str(), AccessText(feature),
                              Printable(value).c_str(), Printable(Choices(feature)).c_str());
    return line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
}

// ---- which --------------------------------------------------------------------------------------

// Anywhere in the name, whatever the case, unless the pattern says more.
bool Fits(const std::string& pattern, const std::string& name)
{
    const bool isPlain = pattern.find_first_of("*?[") == std::string::npos;
    const std::string whole = isPlain ? "*" + pattern + "*" : pattern;
    return fnmatch(whole.c_str(), name.c_str(), FNM_CASEFOLD) == 0;
}

Visibility ParseVisibility(const std::string& name)
{
    Visibility level = Visibility::Beginner;
    while (name != VisibilityName(level) && level != Visibility::Invisible) {
        level = static_cast<Visibility>(static_cast<int>(level) + 1);
    }
    return level;
}

// A feature with the categories above it, outermost first.
struct Shown
{
    std::vector<std::string> categories;
    Feature feature;
};

std::vector<Shown> Select(const NodeMap& features, const Options& options)
{
    const Visibility most = ParseVisibility(options.visibility);
    std::vector<Shown> selected;
    std::vector<std::string> categories;
    for (const TreeItem& item : features.Tree()) {
        categories.resize(item.depth);
        if (item.isCategory) {
            categories.push_back(item.name);
            continue;
        }
        const bool isWanted =
            Fits(options.pattern, item.name) ||
            std::any_of(categories.begin(), categories.end(),
                        [&](const std::string& name) { return Fits(options.pattern, name); });
        if (!isWanted) {
            continue;
        }
        Feature feature = features.Describe(item.name);
        if (feature.visibility <= most) {
            selected.push_back({categories, std::move(feature)});
        }
    }
    return selected;
}

// A category's name stands in front of the first feature of it that is shown.
void PrintTree(Console& console, const std::vector<Shown>& selected)
{
    std::vector<std::string> above;
    for (const Shown& one : selected) {
        const auto& categories = one.categories;
        const auto differ =
            std::mismatch(above.begin(), above.end(), categories.begin(), categories.end()).second;
        for (auto name = differ; name != categories.end(); ++name) {
            const auto depth = static_cast<size_t>(name - categories.begin());
            console.Print(std::string(depth * 2, ' ') + Printable(*name) + "\n");
        }
        above = categories;
        console.Print(LineOf(one.feature, static_cast<unsigned>(categories.size())));
    }
}

void PrintValues(const Options& options, Console& console, const NodeMap& features,
                 const std::vector<std::string>& names)
{
    Json json = Json::array();
    for (const std::string& name : names) {
        const std::string value = features.Get(name);
        if (options.json) {
            json.push_back(
                {{"name", name}, {"value", ValueJson(features.Describe(name).kind, value)}});
        } else {
            console.Print((options.quiet ? "" : Printable(name) + "=") + Printable(value) + "\n");
        }
    }
    if (options.json) {
        PrintJson(console, json);
    }
}

} // namespace

ExitCode RunFeatures(const Options& options, Console& console)
{
    WithFeatures(options, DEVICE_ACCESS_READONLY, [&](const NodeMap& features) {
        const std::vector<Shown> selected = Select(features, options);
        if (selected.empty()) {
            throw ToolError(ExitCode::Failure, "no feature fits \"" + options.pattern + "\"");
        }
        if (!options.json) {
            PrintTree(console, selected);
            return;
        }
        Json json = Json::array();
        for (const Shown& one : selected) {
            json.push_back(
                JsonOf(one.feature, one.categories.empty() ? "" : one.categories.back()));
        }
        PrintJson(console, json);
    });
    return ExitCode::Success;
}

ExitCode RunGet(const Options& options, Console& console)
{
    WithFeatures(options, DEVICE_ACCESS_READONLY, [&](const NodeMap& features) {
        PrintValues(options, console, features, options.names);
    });
    return ExitCode::Success;
}

// Every argument is understood before the first feature is set. What is printed is read back: the
// camera may have rounded it.
ExitCode RunSet(const Options& options, Console& console)
{
    std::vector<std::pair<std::string, std::string>> settings;
    for (const std::string& argument : options.names) {
        settings.push_back(SplitSetting(argument));
    }
    WithFeatures(options, DEVICE_ACCESS_CONTROL, [&](const NodeMap& features) {
        std::vector<std::string> names;
        for (const auto& [name, value] : settings) {
            features.Set(name, value);
            names.push_back(name);
        }
        PrintValues(options, console, features, names);
    });
    return ExitCode::Success;
}

// Some commands begin what goes on until another one ends it: not being done is no failure.
ExitCode RunExec(const Options& options, Console& console)
{
    Json json = Json::array();
    WithFeatures(options, DEVICE_ACCESS_CONTROL, [&](const NodeMap& features) {
        for (const std::string& name : options.names) {
            const bool isDone = features.Execute(name, kPatience);
            json.push_back({{"name", name}, {"done", isDone}});
            if (!options.json && !options.quiet) {
                console.Print(Printable(name) + (isDone ? " is done\n" : " is under way\n"));
            }
        }
    });
    if (options.json) {
        PrintJson(console, json);
    }
    return ExitCode::Success;
}
