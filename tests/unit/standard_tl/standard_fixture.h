#pragma once

#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "fake_u3v_host.h"
#include <zr_u3v_tl/gentl.h>

namespace standard_tl {

// What an information query answered.
struct Answer
{
    GC_ERROR code = GC_ERR_ERROR;
    INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
    std::vector<uint8_t> bytes;

    std::string Text() const;
    template <class T>
    T As() const
    {
        T value{};
        EXPECT_EQ(bytes.size(), sizeof(T));
        memcpy(&value, bytes.data(), std::min(sizeof(T), bytes.size()));
        return value;
    }
};

// Asks for the size, then for the value. `query(type, buffer, size)` is the call.
template <class Query>
Answer Ask(Query query)
{
    Answer answer;
    size_t size = 0;
    answer.code = query(nullptr, nullptr, &size);
    if (answer.code != GC_ERR_SUCCESS) {
        return answer;
    }
    answer.bytes.resize(size);
    answer.code = query(&answer.type, answer.bytes.data(), &size);
    EXPECT_EQ(answer.bytes.size(), size);
    return answer;
}

// The last failure of this thread, with its text.
struct LastError
{
    GC_ERROR code = GC_ERR_SUCCESS;
    std::string text;
};
LastError TheLastError();

// A bus with one camera, "CAM1", and everything down to its data stream opened on demand. Whatever
// a test leaves open is closed.
class StandardTest : public testing::Test
{
protected:
    StandardTest();
    ~StandardTest() override;

    TL_HANDLE System();
    IF_HANDLE Interface();
    DEV_HANDLE Device(); // with DEVICE_ACCESS_EXCLUSIVE
    PORT_HANDLE Remote();
    DS_HANDLE Stream();
    EVENT_HANDLE Register(void* source, EVENT_TYPE type);

    Answer DeviceInfo(DEVICE_INFO_CMD command);
    Answer StreamInfo(STREAM_INFO_CMD command);
    Answer BufferInfo(BUFFER_HANDLE buffer, BUFFER_INFO_CMD command);
    Answer PortInfo(PORT_HANDLE port, PORT_INFO_CMD command);
    Answer UrlInfo(PORT_HANDLE port, uint32_t index, URL_INFO_CMD command);

    fake_host::Bus& bus;
    fake_host::Camera& camera;

private:
    TL_HANDLE m_system = nullptr;
    IF_HANDLE m_interface = nullptr;
    DEV_HANDLE m_device = nullptr;
    DS_HANDLE m_stream = nullptr;
};

} // namespace standard_tl
