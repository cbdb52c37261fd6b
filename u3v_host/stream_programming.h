#pragma once

#include "stream_plan.h"

namespace u3v_host {

class StreamLink;

// Reads what the camera asks for, switches a stream off that is still on, and programs the plan.
// Returns the plan that holds: where the camera keeps values of its own, those. Throws Error.
StreamPlan ProgramStream(StreamLink& link, uint32_t transferSize);

// Throws Error.
void EnableStream(StreamLink& link, bool enable);

} // namespace u3v_host
