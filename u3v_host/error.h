#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace u3v_host {

// What kind of failure it was, for whoever has to answer with a code of its own.
enum class ErrorKind : uint8_t
{
    Io,                // the camera is gone, or the transfer failed
    Timeout,           // the camera stays silent
    AccessDenied,      // no permission, or the camera refuses the access
    InUse,             // claimed by another process, or open already
    InvalidId,         // no camera of the bus has this id
    NotImplemented,    // the camera does not know the command
    InvalidParameter,  // the camera does not take the value
    InvalidAddress,    // no register there, or not so aligned
    Busy,              // the camera is busy
    NotAvailable,      // the camera has no such thing
    ResourceExhausted, // the system has no more of something
};

// A failed operation. The text says in words what failed and why, for a person: operation, address,
// length, the camera's status in hexadecimal with its name, or libusb's name.
class Error : public std::runtime_error
{
public:
    Error(ErrorKind kind, const std::string& text) : std::runtime_error(text), m_kind(kind) {}
    ErrorKind Kind() const { return m_kind; }

private:
    ErrorKind m_kind;
};

} // namespace u3v_host
