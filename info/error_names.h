#pragma once

#include <zr_u3v_tl/gentl.h>

namespace info {

// "GC_ERR_TIMEOUT" and the like, of the codes that GenTL itself defines; empty for any other
// number.
const char* ErrorName(GC_ERROR code);

} // namespace info
