#pragma once

// What the tests of the exported functions share: the trace as a list, the library with the
// stand-in for the protocol layer behind it, and the usual handles.

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <zr_u3v_tl/gentl.h>

#include "fake_u3v.h"
#include "zr_trace.h"

inline constexpr const char* kInterfaceIdText = "ZRK-USB-3-IF ID";

// One line of the trace: its level and the caller's part of it.
struct TracedLine
{
    unsigned level;
    std::string message;

    bool operator==(const TracedLine& other) const = default;
};

// Every traced line of one scope, in order, from all threads.
class TraceCapture
{
public:
    TraceCapture();
    ~TraceCapture();
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;

    std::vector<TracedLine> Lines() const;
    // The messages of the failure level only.
    std::vector<std::string> Errors() const;
    void Clear();
};

inline TracedLine DebugLine(const std::string& message)
{
    return {32, message};
}

inline TracedLine ErrorLine(const std::string& message)
{
    return {2, message};
}

// The low 32 bits of a handle, as "0x%X" prints them.
std::string HandleText(const void* handle);

struct LastError
{
    GC_ERROR code;
    std::string text;

    bool operator==(const LastError& other) const = default;
};

// The calling thread's last error.
LastError ReadLastError();
// Leaves -1009 GC_ERR_INVALID_PARAMETER as the calling thread's last error; needs an open System.
void LeaveParameterError(TL_HANDLE tl);

std::ostream& operator<<(std::ostream& out, const TracedLine& line);
std::ostream& operator<<(std::ostream& out, const LastError& error);

// The library not initialised, the stand-in reset; afterwards not initialised again, whatever the
// test left.
class LibraryTest : public ::testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;
};

// The library with an open System.
class SystemTest : public LibraryTest
{
protected:
    void SetUp() override;

    TL_HANDLE m_tl = nullptr;
};

// One open interface, with the cameras "GUID-A" and "GUID-B" on the bus, not yet listed.
class InterfaceTest : public SystemTest
{
protected:
    void SetUp() override;

    // Updates until the list is that of a pass that began after the call: one update may take the
    // end of earlier passes, or find none done within its 5 ms. `changed`: by any of them.
    GC_ERROR UpdateUntilDone(bool8_t* changed);
    // Takes the bus over into the device list.
    void UpdateDevices();

    IF_HANDLE m_iface = nullptr;
};

// A string answer: status, type, size, text.
struct TextAnswer
{
    GC_ERROR status;
    INFO_DATATYPE type;
    size_t size;
    std::string text;

    bool operator==(const TextAnswer& other) const = default;
};
std::ostream& operator<<(std::ostream& out, const TextAnswer& answer);

// The answer that a present string has.
inline TextAnswer Text(const std::string& text)
{
    return {GC_ERR_SUCCESS, INFO_DATATYPE_STRING, text.size() + 1, text};
}

// Runs `query(type, buffer, size)` with a large buffer and reads a string answer.
template <class Query>
TextAnswer ReadText(Query query)
{
    char buffer[4200] = {};
    TextAnswer answer{GC_ERR_SUCCESS, -1, sizeof(buffer), {}};
    answer.status = query(&answer.type, buffer, &answer.size);
    answer.text = buffer;
    return answer;
}
