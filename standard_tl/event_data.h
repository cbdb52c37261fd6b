#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "info.h"
#include <zr_u3v_tl/gentl.h>

namespace standard_tl {

// What the records of events hold, byte by byte:
//   EVENT_NEW_BUFFER           an EVENT_NEW_BUFFER_DATA
//   EVENT_ERROR                the code as an INT32, then a text with its zero
//   EVENT_FEATURE_INVALIDATE   the feature's name with its zero
//   EVENT_REMOTE_DEVICE        the event as the camera sent it, from the reserved (or size) field
//   on

// The most bytes that a record of this type can have.
size_t LargestRecord(EVENT_TYPE type);

std::vector<uint8_t> ErrorRecord(GC_ERROR code, std::string_view text);
std::vector<uint8_t> FeatureRecord(std::string_view name);

// EventGetDataInfo: what `record`, given by an event of this type, says.
GC_ERROR AnswerEventData(EVENT_TYPE type, Bytes record, int32_t command, const InfoOut& out);

} // namespace standard_tl
