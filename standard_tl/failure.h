#pragma once

#include <stdexcept>
#include <string>

#include <zr_u3v_tl/gentl.h>

namespace standard_tl {

// A refused call: the code that it answers, and a text for GCGetLastError that names what was
// wrong. Calls that run with every image answer through Refuse (last_error.h) instead.
class Failure : public std::runtime_error
{
public:
    Failure(GC_ERROR code, const std::string& text) : std::runtime_error(text), m_code(code) {}
    GC_ERROR Code() const { return m_code; }

private:
    GC_ERROR m_code;
};

// A pointer of the consumer's must not be NULL.
inline void CheckNotNull(const void* pointer, const char* name)
{
    if (pointer == nullptr) {
        throw Failure(GC_ERR_INVALID_PARAMETER, std::string(name) + " is NULL");
    }
}

// What such a pointer points to.
template <class T>
T& Required(T* pointer, const char* name)
{
    CheckNotNull(pointer, name);
    return *pointer;
}

} // namespace standard_tl
