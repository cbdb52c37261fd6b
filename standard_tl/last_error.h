#pragma once

#include <cstddef>
#include <string_view>

#include "error.h"
#include <zr_u3v_tl/gentl.h>

namespace standard_tl {

// The last failure of each thread. A success does not clear it. Nothing here allocates.

// Notes a failure of this thread and returns its code. A long text is cut.
GC_ERROR Refuse(GC_ERROR code, std::string_view text) noexcept;

// Notes which exported function this thread's failure came from; the name lives for ever.
void NoteFunction(const char* name) noexcept;

// To be called in a handler: what is being thrown becomes this thread's failure. A thread that is
// being cancelled is left to go on with that.
GC_ERROR RefuseException();

// GCGetLastError.
GC_ERROR TellLastError(GC_ERROR* code, char* text, size_t* size);

// The code that stands for a failure of the camera's side.
GC_ERROR CodeOf(u3v_host::ErrorKind kind);

} // namespace standard_tl
