#pragma once

#include <cstddef>
#include <optional>
#include <span>

#include "info.h"
#include <zr_u3v_tl/gentl.h>

namespace standard_tl {

// How many chunks a payload is made of; nothing when it cannot be taken apart to its first byte.
// Each chunk ends with its id and its length, so they are read from the end.
std::optional<size_t> CountChunks(Bytes payload);

// Fills `chunks`, which has room for as many as CountChunks said, in the order of the payload.
void ListChunks(Bytes payload, std::span<SINGLE_CHUNK_DATA> chunks);

} // namespace standard_tl
