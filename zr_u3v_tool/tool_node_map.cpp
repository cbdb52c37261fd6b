#include "tool_node_map.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <thread>

#include "tool_console.h"
#include "tool_description.h"
#include "tool_error.h"
#include "tool_port_device.h"

namespace {

[[noreturn]] void Refuse(const std::string& feature, const std::string& why)
{
    throw ToolError(ExitCode::Failure, Printable(feature) + ": " + Printable(why));
}

// A call of libaravis' that may fail: `call` passes the error on.
template <class Call>
auto Ask(const std::string& feature, const Call& call)
{
    GError* error = nullptr;
    const auto answer = call(&error);
    if (error != nullptr) {
        const std::string why = error->message;
        g_error_free(error);
        Refuse(feature, why);
    }
    return answer;
}
// The same of one without an answer.
template <class Call>
void Do(const std::string& feature, const Call& call)
{
    Ask(feature, [&](GError** error) {
        call(error);
        return true;
    });
}

std::string NameOf(ArvGcFeatureNode* node)
{
    const char* const name = arv_gc_feature_node_get_name(node);
    return name == nullptr ? "" : name;
}

// The specific ones first: an enumeration is an integer, too.
FeatureKind KindOf(ArvGcFeatureNode* node)
{
    return ARV_IS_GC_COMMAND(node)       ? FeatureKind::Command
           : ARV_IS_GC_ENUMERATION(node) ? FeatureKind::Enumeration
           : ARV_IS_GC_BOOLEAN(node)     ? FeatureKind::Boolean
           : ARV_IS_GC_STRING(node)      ? FeatureKind::String
           : ARV_IS_GC_INTEGER(node)     ? FeatureKind::Integer
           : ARV_IS_GC_FLOAT(node)       ? FeatureKind::Float
                                         : FeatureKind::Register;
}

// By interface, where libaravis' own macros would warn of their casts.
template <class T>
T* As(ArvGcFeatureNode* node)
{
    return reinterpret_cast<T*>(node);
}

Visibility VisibilityOf(ArvGcFeatureNode* node)
{
    switch (arv_gc_feature_node_get_visibility(node)) {
    case ARV_GC_VISIBILITY_INVISIBLE: return Visibility::Invisible;
    case ARV_GC_VISIBILITY_GURU: return Visibility::Guru;
    case ARV_GC_VISIBILITY_EXPERT: return Visibility::Expert;
    default: return Visibility::Beginner;
    }
}

bool IsThere(ArvGcFeatureNode* node)
{
    const std::string name = NameOf(node);
    const auto ask = [&](auto function) {
        return Ask(name, [&](GError** error) { return function(node, error); }) != FALSE;
    };
    return ask(arv_gc_feature_node_is_implemented) && ask(arv_gc_feature_node_is_available);
}

struct Access
{
    bool isReadable = false;
    bool isWritable = false;
};

// What is not available can be neither; what is locked is not written.
Access AccessOf(ArvGcFeatureNode* node)
{
    if (!IsThere(node)) {
        return {};
    }
    const ArvGcAccessMode mode = arv_gc_feature_node_get_actual_access_mode(node);
    const bool isLocked = Ask(NameOf(node), [&](GError** error) {
                              return arv_gc_feature_node_is_locked(node, error);
                          }) != FALSE;
    return {mode != ARV_GC_ACCESS_MODE_WO && KindOf(node) != FeatureKind::Command,
            mode != ARV_GC_ACCESS_MODE_RO && !isLocked};
}

// ---- values as text -----------------------------------------------------------------------------

// As short as it can be and still the same number.
std::string TextOf(double value)
{
    char text[64];
    const auto end = std::to_chars(std::begin(text), std::end(text), value);
    return {std::begin(text), end.ptr};
}

std::string BytesOf(ArvGcFeatureNode* node)
{
    constexpr guint64 kShown = 64;
    auto* const bytes = As<ArvGcRegister>(node);
    const std::string name = NameOf(node);
    const guint64 length =
        Ask(name, [&](GError** error) { return arv_gc_register_get_length(bytes, error); });
    std::vector<uint8_t> data(std::min(length, kShown));
    Do(name, [&](GError** error) { arv_gc_register_get(bytes, data.data(), data.size(), error); });
    std::string text;
    for (const uint8_t byte : data) {
        text += Format("%02x", byte);
    }
    return text + (length > kShown ? "..." : "");
}

std::string ValueOf(ArvGcFeatureNode* node)
{
    const std::string name = NameOf(node);
    const auto text = [](const char* words) { return std::string(words == nullptr ? "" : words); };
    switch (KindOf(node)) {
    case FeatureKind::Command: return "";
    case FeatureKind::Register: return ARV_IS_GC_REGISTER(node) ? BytesOf(node) : "";
    case FeatureKind::Integer:
        return std::to_string(Ask(name, [&](GError** error) {
            return arv_gc_integer_get_value(As<ArvGcInteger>(node), error);
        }));
    case FeatureKind::Float:
        return TextOf(Ask(name, [&](GError** error) {
            return arv_gc_float_get_value(As<ArvGcFloat>(node), error);
        }));
    case FeatureKind::Boolean:
        return Ask(name,
                   [&](GError** error) {
                       return arv_gc_boolean_get_value(As<ArvGcBoolean>(node), error);
                   }) != FALSE
                   ? "true"
                   : "false";
    case FeatureKind::Enumeration:
        return text(Ask(name, [&](GError** error) {
            return arv_gc_enumeration_get_string_value(As<ArvGcEnumeration>(node), error);
        }));
    case FeatureKind::String:
        return text(Ask(name, [&](GError** error) {
            return arv_gc_string_get_value(As<ArvGcString>(node), error);
        }));
    }
    return "";
}

template <class T>
struct Range
{
    T minimum;
    T maximum;
    T increment;
};

Range<int64_t> IntegerRange(ArvGcFeatureNode* node)
{
    auto* const integer = As<ArvGcInteger>(node);
    const auto ask = [&](auto function) -> int64_t {
        return Ask(NameOf(node), [&](GError** error) { return function(integer, error); });
    };
    return {ask(arv_gc_integer_get_min), ask(arv_gc_integer_get_max), ask(arv_gc_integer_get_inc)};
}

Range<double> FloatRange(ArvGcFeatureNode* node)
{
    auto* const number = As<ArvGcFloat>(node);
    const auto ask = [&](auto function) {
        return Ask(NameOf(node), [&](GError** error) { return function(number, error); });
    };
    return {ask(arv_gc_float_get_min), ask(arv_gc_float_get_max), 0};
}

std::vector<std::string> EntriesOf(ArvGcFeatureNode* node)
{
    guint count = 0;
    const char** const names = Ask(NameOf(node), [&](GError** error) {
        return arv_gc_enumeration_dup_available_string_values(As<ArvGcEnumeration>(node), &count,
                                                              error);
    });
    std::vector<std::string> entries(names, names + count);
    g_free(names);
    return entries;
}

// Limits that the document leaves open are those of the type: nobody wants to read them.
void DescribeInteger(ArvGcFeatureNode* node, Feature& feature)
{
    const Range<int64_t> range = IntegerRange(node);
    if (range.minimum != std::numeric_limits<int64_t>::min()) {
        feature.minimum = std::to_string(range.minimum);
    }
    if (range.maximum != std::numeric_limits<int64_t>::max()) {
        feature.maximum = std::to_string(range.maximum);
    }
    feature.increment = range.increment > 1 ? std::to_string(range.increment) : "";
}

void DescribeFloat(ArvGcFeatureNode* node, Feature& feature)
{
    const Range<double> range = FloatRange(node);
    if (range.minimum > -std::numeric_limits<double>::max()) {
        feature.minimum = TextOf(range.minimum);
    }
    if (range.maximum < std::numeric_limits<double>::max()) {
        feature.maximum = TextOf(range.maximum);
    }
}

void DescribeChoices(ArvGcFeatureNode* node, Feature& feature)
{
    switch (feature.kind) {
    case FeatureKind::Integer: DescribeInteger(node, feature); break;
    case FeatureKind::Float: DescribeFloat(node, feature); break;
    case FeatureKind::Enumeration: feature.entries = EntriesOf(node); break;
    default: break;
    }
}

std::string UnitOf(ArvGcFeatureNode* node, FeatureKind kind)
{
    const char* const unit =
        kind == FeatureKind::Integer ? arv_gc_integer_get_unit(As<ArvGcInteger>(node))
        : kind == FeatureKind::Float ? arv_gc_float_get_unit(As<ArvGcFloat>(node))
                                     : nullptr;
    return unit == nullptr ? "" : unit;
}

// ---- setting ------------------------------------------------------------------------------------

// Decimal, or hexadecimal behind 0x; nothing when it is no whole number.
std::optional<int64_t> ParseInteger(std::string text)
{
    const bool isNegative = text.starts_with('-');
    text.erase(0, isNegative ? 1 : 0);
    const bool isHex = text.starts_with("0x") || text.starts_with("0X");
    uint64_t value = 0;
    const char* const begin = text.data() + (isHex ? 2 : 0);
    const char* const end = text.data() + text.size();
    const auto parsed = std::from_chars(begin, end, value, isHex ? 16 : 10);
    if (parsed.ec != std::errc() || parsed.ptr != end || begin == end) {
        return std::nullopt;
    }
    return static_cast<int64_t>(isNegative ? ~value + 1 : value);
}

void SetInteger(ArvGcFeatureNode* node, const std::string& text)
{
    const std::string name = NameOf(node);
    const auto value = ParseInteger(text);
    if (!value) {
        Refuse(name, "\"" + text + "\" is no whole number");
    }
    const Range<int64_t> range = IntegerRange(node);
    const int64_t step = std::max<int64_t>(range.increment, 1);
    const uint64_t above = static_cast<uint64_t>(*value) - static_cast<uint64_t>(range.minimum);
    if (*value < range.minimum || *value > range.maximum ||
        above % static_cast<uint64_t>(step) != 0) {
        Refuse(name, text + " is not between " + std::to_string(range.minimum) + " and " +
                         std::to_string(range.maximum) +
                         (step > 1 ? " in steps of " + std::to_string(step) : ""));
    }
    Do(name,
       [&](GError** error) { arv_gc_integer_set_value(As<ArvGcInteger>(node), *value, error); });
}

void SetFloat(ArvGcFeatureNode* node, const std::string& text)
{
    const std::string name = NameOf(node);
    double value = 0;
    const char* const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, value);
    if (parsed.ec != std::errc() || parsed.ptr != end || !std::isfinite(value)) {
        Refuse(name, "\"" + text + "\" is no number");
    }
    const Range<double> range = FloatRange(node);
    if (value < range.minimum || value > range.maximum) {
        Refuse(name,
               text + " is not between " + TextOf(range.minimum) + " and " + TextOf(range.maximum));
    }
    Do(name, [&](GError** error) { arv_gc_float_set_value(As<ArvGcFloat>(node), value, error); });
}

void SetBoolean(ArvGcFeatureNode* node, const std::string& text)
{
    const std::string name = NameOf(node);
    const bool isTrue = text == "true" || text == "1" || text == "on";
    if (!isTrue && text != "false" && text != "0" && text != "off") {
        Refuse(name, "\"" + text + "\" is neither true nor false");
    }
    Do(name, [&](GError** error) {
        arv_gc_boolean_set_value(As<ArvGcBoolean>(node), isTrue ? TRUE : FALSE, error);
    });
}

void SetEnumeration(ArvGcFeatureNode* node, const std::string& text)
{
    const std::string name = NameOf(node);
    const std::vector<std::string> entries = EntriesOf(node);
    if (std::find(entries.begin(), entries.end(), text) == entries.end()) {
        std::string there;
        for (const std::string& entry : entries) {
            there += (there.empty() ? "" : ", ") + entry;
        }
        Refuse(name, "there is no \"" + text + "\" to choose now; there are: " + there);
    }
    Do(name, [&](GError** error) {
        arv_gc_enumeration_set_string_value(As<ArvGcEnumeration>(node), text.c_str(), error);
    });
}

void SetString(ArvGcFeatureNode* node, const std::string& text)
{
    const std::string name = NameOf(node);
    auto* const string = As<ArvGcString>(node);
    const int64_t longest =
        Ask(name, [&](GError** error) { return arv_gc_string_get_max_length(string, error); });
    if (longest > 0 && text.size() > static_cast<uint64_t>(longest)) {
        Refuse(name, "\"" + text + "\" is longer than " + std::to_string(longest) + " characters");
    }
    Do(name, [&](GError** error) { arv_gc_string_set_value(string, text.c_str(), error); });
}

// ---- commands -----------------------------------------------------------------------------------

// The child of a node with one of these names, as the document has it.
ArvGcPropertyNode* Property(ArvGcFeatureNode* node, std::initializer_list<const char*> names)
{
    ArvDomNode* child = arv_dom_node_get_first_child(As<ArvDomNode>(node));
    for (; child != nullptr; child = arv_dom_node_get_next_sibling(child)) {
        const std::string name = arv_dom_node_get_node_name(child);
        if (ARV_IS_GC_PROPERTY_NODE(child) &&
            std::find(names.begin(), names.end(), name) != names.end()) {
            return reinterpret_cast<ArvGcPropertyNode*>(child);
        }
    }
    return nullptr;
}

// A command is done when its register no longer holds what was written; one that cannot be read is
// done at once.
bool IsDone(ArvGcFeatureNode* command)
{
    ArvGcPropertyNode* const target = Property(command, {"pValue"});
    ArvGcPropertyNode* const written = Property(command, {"CommandValue", "pCommandValue"});
    ArvGcNode* const linked =
        target == nullptr ? nullptr : arv_gc_property_node_get_linked_node(target);
    if (linked == nullptr || written == nullptr || !ARV_IS_GC_INTEGER(linked)) {
        return true;
    }
    auto* const node = reinterpret_cast<ArvGcFeatureNode*>(linked);
    if (!AccessOf(node).isReadable) {
        return true;
    }
    const std::string name = NameOf(command);
    const int64_t now = Ask(name, [&](GError** error) {
        return arv_gc_integer_get_value(As<ArvGcInteger>(node), error);
    });
    return now != Ask(name, [&](GError** error) {
               return arv_gc_property_node_get_int64(written, error);
           });
}

} // namespace

const char* KindName(FeatureKind kind)
{
    static constexpr const char* kNames[] = {"integer", "float",   "boolean", "enumeration",
                                             "string",  "command", "register"};
    return kNames[static_cast<size_t>(kind)];
}

const char* VisibilityName(Visibility visibility)
{
    static constexpr const char* kNames[] = {"beginner", "expert", "guru", "invisible"};
    return kNames[static_cast<size_t>(visibility)];
}

struct NodeMap::Document
{
    ArvGcFeatureNode* Find(const std::string& name) const
    {
        ArvGcNode* const node = arv_gc_get_node(map.get(), name.c_str());
        return node != nullptr && ARV_IS_GC_FEATURE_NODE(node)
                   ? reinterpret_cast<ArvGcFeatureNode*>(node)
                   : nullptr;
    }
    // No category either.
    ArvGcFeatureNode* Demand(const std::string& name) const
    {
        ArvGcFeatureNode* const node = Find(name);
        if (node == nullptr || ARV_IS_GC_CATEGORY(node)) {
            throw ToolError(ExitCode::Failure, "there is no feature \"" + Printable(name) +
                                                   "\" (zr-u3v features lists them)");
        }
        return node;
    }
    void AddCategory(const std::string& name, unsigned depth, std::vector<TreeItem>& tree) const;

    struct Unref
    {
        void operator()(void* object) const { g_object_unref(object); }
    };
    std::string text;
    std::unique_ptr<ArvDevice, Unref> device;
    std::unique_ptr<ArvGc, Unref> map;
};

// A document may name a category twice, or within itself.
void NodeMap::Document::AddCategory(const std::string& name, unsigned depth,
                                    std::vector<TreeItem>& tree) const
{
    ArvGcFeatureNode* const node = Find(name);
    if (node == nullptr || !ARV_IS_GC_CATEGORY(node)) {
        return;
    }
    const auto* feature = arv_gc_category_get_features(As<ArvGcCategory>(node));
    for (; feature != nullptr; feature = feature->next) {
        const std::string child = static_cast<const char*>(feature->data);
        ArvGcFeatureNode* const one = Find(child);
        const bool isKnown = std::any_of(tree.begin(), tree.end(), [&](const TreeItem& item) {
            return item.isCategory && item.name == child;
        });
        if (one != nullptr && !isKnown) {
            tree.push_back({depth, ARV_IS_GC_CATEGORY(one) != FALSE, child});
            AddCategory(child, depth + 1, tree);
        }
    }
}

NodeMap::NodeMap(const Producer& api, PORT_HANDLE port) : m_document(std::make_unique<Document>())
{
    const Description description = FetchDescription(api, port);
    Document& document = *m_document;
    document.text = description.isZipped ? Unzip(description.contents) : description.contents;
    document.device.reset(MakePortDevice(api, port));
    document.map.reset(
        arv_gc_new(document.device.get(), document.text.data(), document.text.size()));
    if (document.map == nullptr) {
        throw ToolError(ExitCode::Failure, "the description file " + Printable(description.name) +
                                               " cannot be understood");
    }
}

NodeMap::~NodeMap() = default;

std::vector<TreeItem> NodeMap::Tree() const
{
    std::vector<TreeItem> tree;
    m_document->AddCategory("Root", 0, tree);
    return tree;
}

bool NodeMap::Has(const std::string& name) const
{
    ArvGcFeatureNode* const node = m_document->Find(name);
    return node != nullptr && !ARV_IS_GC_CATEGORY(node) && IsThere(node);
}

// A value or a limit that cannot be read now leaves its text empty: the others are still of use.
Feature NodeMap::Describe(const std::string& name) const
{
    ArvGcFeatureNode* const node = m_document->Demand(name);
    Feature feature;
    feature.name = name;
    feature.kind = KindOf(node);
    feature.visibility = VisibilityOf(node);
    feature.unit = UnitOf(node, feature.kind);
    const char* const tooltip = arv_gc_feature_node_get_tooltip(node);
    feature.tooltip = tooltip == nullptr ? "" : tooltip;
    try {
        const Access access = AccessOf(node);
        feature.value = access.isReadable ? ValueOf(node) : "";
        feature.isReadable = access.isReadable;
        feature.isWritable = access.isWritable;
        DescribeChoices(node, feature);
    } catch (const ToolError&) {
    }
    return feature;
}

std::string NodeMap::Get(const std::string& name) const
{
    ArvGcFeatureNode* const node = m_document->Demand(name);
    if (!AccessOf(node).isReadable) {
        Refuse(name, IsThere(node) ? "cannot be read" : "not available now");
    }
    return ValueOf(node);
}

void NodeMap::Set(const std::string& name, const std::string& value) const
{
    ArvGcFeatureNode* const node = m_document->Demand(name);
    const FeatureKind kind = KindOf(node);
    if (kind == FeatureKind::Command || kind == FeatureKind::Register) {
        Refuse(name, kind == FeatureKind::Command ? "a command is executed (zr-u3v exec)"
                                                  : "bytes are written by zr-u3v write");
    }
    if (!AccessOf(node).isWritable) {
        Refuse(name, IsThere(node) ? "cannot be written now" : "not available now");
    }
    switch (kind) {
    case FeatureKind::Integer: SetInteger(node, value); break;
    case FeatureKind::Float: SetFloat(node, value); break;
    case FeatureKind::Boolean: SetBoolean(node, value); break;
    case FeatureKind::Enumeration: SetEnumeration(node, value); break;
    default: SetString(node, value); break;
    }
}

bool NodeMap::Execute(const std::string& name, std::chrono::milliseconds patience) const
{
    constexpr std::chrono::milliseconds kPause{5};
    ArvGcFeatureNode* const node = m_document->Demand(name);
    if (KindOf(node) != FeatureKind::Command) {
        Refuse(name, "is no command");
    }
    if (!AccessOf(node).isWritable) {
        Refuse(name, "cannot be executed now");
    }
    Do(name, [&](GError** error) { arv_gc_command_execute(As<ArvGcCommand>(node), error); });
    const auto end = std::chrono::steady_clock::now() + patience;
    while (patience.count() > 0) {
        if (IsDone(node)) {
            return true;
        }
        if (std::chrono::steady_clock::now() >= end) {
            break;
        }
        std::this_thread::sleep_for(kPause);
    }
    return false;
}
