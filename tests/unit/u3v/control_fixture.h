#pragma once

// A control channel on the stand-in for libusb, and answers for it.

#include "u3v_control.h"
#include "u3v_fixture.h"

// Looks at what only the camera's later behaviour would tell.
class U3V_ControlProbe
{
public:
    static void SetRequestId(U3V_Control& control, uint16_t id)
    {
        Locker lock(control.m_mutex);
        control.m_requestId = id;
    }
};

inline Bytes Ack(uint16_t status, uint16_t command, uint16_t request, const Bytes& data = {},
                 uint32_t prefix = 0x43563355)
{
    Bytes bytes = Little(prefix, 4);
    for (const uint64_t word :
         {uint64_t{status}, uint64_t{command}, uint64_t{data.size()}, uint64_t{request}}) {
        const Bytes part = Little(word, 2);
        bytes.insert(bytes.end(), part.begin(), part.end());
    }
    bytes.insert(bytes.end(), data.begin(), data.end());
    return bytes;
}

inline Bytes Pending(uint16_t request, uint16_t milliseconds)
{
    return Ack(0, 0x0805, request,
               {0, 0, static_cast<uint8_t>(milliseconds), static_cast<uint8_t>(milliseconds >> 8)});
}

class ControlTest : public CameraTest
{
protected:
    void Open()
    {
        ASSERT_EQ(control.OpenControl(), 0);
        usb.ClearJournal();
        camera.writes.clear();
    }

    void Reply(const Bytes& bytes) { camera.replies.push_back({0, bytes}); }

    static constexpr uint16_t kFirstId = 8; // seven reads and a write opened the channel

    U3V_Control control{&device};
};
