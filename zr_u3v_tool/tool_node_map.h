#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tool_consumer.h"

// What a feature is to who reads or sets it.
enum class FeatureKind
{
    Integer,
    Float,
    Boolean,
    Enumeration,
    String,
    Command,
    Register, // bytes without a meaning
};

// How far somebody has to be to be shown it, as GenApi has it.
enum class Visibility
{
    Beginner,
    Expert,
    Guru,
    Invisible,
};

// A feature with everything that the document and the port tell of it. Texts are the camera's own
// and not yet fit for a terminal.
struct Feature
{
    std::string name;
    FeatureKind kind = FeatureKind::String;
    Visibility visibility = Visibility::Beginner;
    bool isReadable = false;
    bool isWritable = false;
    std::string tooltip;
    std::string value; // empty when it cannot be read
    std::string unit;
    std::string minimum; // numbers only; empty where there is none
    std::string maximum;
    std::string increment;
    std::vector<std::string> entries; // enumerations only: those that can be chosen now
};

// "integer", "float", ...; "beginner", "expert", ...
const char* KindName(FeatureKind kind);
const char* VisibilityName(Visibility visibility);

// A line of the tree of features: a category, or a feature in it.
struct TreeItem
{
    unsigned depth = 0;
    bool isCategory = false;
    std::string name;
};

// The features of a port by name: its description file, understood by libaravis. Every access goes
// to the port; nothing is cached. The producer must outlive it and the port stay open. Throws
// ToolError (Failure) with a text that names the feature. For one thread at a time.
class NodeMap
{
public:
    // Fetches the file, unpacks it where it is an archive, and parses it.
    NodeMap(const Producer& api, PORT_HANDLE port);
    ~NodeMap();
    NodeMap(const NodeMap&) = delete;
    NodeMap& operator=(const NodeMap&) = delete;

    // From the category Root on, in the document's order; each category once.
    std::vector<TreeItem> Tree() const;
    // Whether there is such a feature, and it is implemented and available now.
    bool Has(const std::string& name) const;
    Feature Describe(const std::string& name) const;

    std::string Get(const std::string& name) const;
    // The value as a person writes it: a number (0x for hexadecimal), true or false, the name of an
    // entry, a text. What does not fit the feature is refused before anything is written.
    void Set(const std::string& name, const std::string& value) const;
    // Waits until the camera has done it, but no longer than that; whether it has. (Some say of
    // what they have begun, an acquisition for one, that it is done when it has ended.)
    bool Execute(const std::string& name, std::chrono::milliseconds patience = {}) const;

private:
    struct Document; // libaravis' part
    std::unique_ptr<Document> m_document;
};
