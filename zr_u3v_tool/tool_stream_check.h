#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tool_acquisition.h"

// One thing about a camera's streaming interface that this producer's stream channel cannot serve.
// The channel tells transfers apart by their exact lengths alone, which are planned as follows: a
// leader and a trailer of the required sizes, at least one alignment unit each; transfers of 1 MiB;
// one of the rest, cut to whole alignment units; one alignment unit for what then remains.
struct StreamProblem
{
    bool isFatal = false; // no image arrives at all; else images are damaged
    std::string text;
    std::string remedy;
};

// Pure: what the camera asks for against what the channel does with it.
std::vector<StreamProblem> CheckStream(const StreamNeeds& needs);
