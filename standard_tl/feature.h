#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "info.h"

namespace standard_tl {

enum class FeatureKind : uint8_t
{
    Text,    // a string, padded with zeros
    Number,  // unsigned
    Flag,    // 0 or 1
    Choice,  // one of `choices`
    Command, // 1 executes it; done when the write returns
};

struct FeatureChoice
{
    const char* name;
    uint64_t value;
};

// One feature of a module: a register of its port, and the nodes that describe it. Features without
// a category are there for others to refer to.
struct Feature
{
    const char* category;
    const char* name;
    FeatureKind kind;
    const char* toolTip;
    std::function<Value()> get;
    std::function<void(uint64_t)> set = nullptr; // without it the feature is read only

    size_t length = 8;    // bytes of the register; of numbers always 8
    bool changes = false; // by itself, so that nobody may remember it
    unsigned polling = 0; // ms after which it is worth reading again; 0: no need
    const char* unit = nullptr;
    const char* visibility = "Beginner";
    const char* maximum = nullptr;   // the feature that has the largest value
    const char* available = nullptr; // the feature that is 0 while this one has no meaning
    const char* locked = nullptr;    // the feature that is not 0 while this one cannot be written
    std::vector<FeatureChoice> choices = {};
    std::vector<const char*> selects = {};
    std::vector<const char*> invalidators = {};
    bool isOurs = false; // in no standard list of names
};

// What most features are: a text, a number, or the technology, which is always the same.
Feature TextFeature(const char* category, const char* name, const char* toolTip,
                    std::function<Value()> get, size_t length = 64);
Feature NumberFeature(const char* category, const char* name, const char* toolTip,
                      std::function<Value()> get);
Feature TypeFeature(const char* category, const char* name, const char* toolTip);

// A feature with its place.
struct Register
{
    Feature feature;
    uint64_t address;

    uint64_t End() const { return address + feature.length; }
};

// What a document says about its module.
struct DocumentIdentity
{
    const char* name; // letters, digits and '_'; also of the file
    const char* toolTip;
    const char* port;
    const char* productGuid;
};

// The register description of a module for node maps: schema version 1.1, ASCII.
std::string MakeDocument(const DocumentIdentity& identity, const std::vector<Register>& registers);

} // namespace standard_tl
