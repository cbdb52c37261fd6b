#pragma once

#include <nlohmann/json.hpp>

#include "tool_console.h"

// Members keep the order in which they are added, for readers and for comparing outputs.
using Json = nlohmann::ordered_json;

// Indented, with a line end, in ASCII: no control character of a camera's text is among it. Bytes
// that are no UTF-8 (cameras write what they like) are replaced.
inline void PrintJson(Console& console, const Json& json)
{
    console.Print(json.dump(2, ' ', true, Json::error_handler_t::replace) + "\n");
}
