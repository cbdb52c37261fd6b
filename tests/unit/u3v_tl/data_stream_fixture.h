#pragma once

// An open data stream of one camera, with helpers for its buffers, images and new-buffer event.

#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "device_fixture.h"
#include "wait.h"
#include "zr_gentl_event.h"
#include "zr_u3v_data_stream.h"

inline constexpr size_t kBufferSize = 16;

using zr_test::WaitUntil;

// An image of `size` bytes that all hold the low byte of its id.
inline FakeU3V::Image MakeImage(uint64_t id, size_t size = kBufferSize, uint16_t status = 0)
{
    FakeU3V::Image image{};
    image.header.nBlockId = id;
    image.bytes.assign(size, static_cast<uint8_t>(id));
    image.status = status;
    return image;
}

class StreamTest : public CameraTest
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(m_remote.Open(DEVICE_ACCESS_CONTROL), GC_ERR_SUCCESS);
        m_fake.ClearJournal();
    }

    void Open()
    {
        ASSERT_EQ(m_stream->Open(), GC_ERR_SUCCESS);
        m_fake.ClearJournal();
    }

    // Announces the memory of index `i`, with its address as the user pointer.
    void* Announce(size_t i)
    {
        void* handle = nullptr;
        EXPECT_EQ(
            m_stream->AnnounceBuffer(m_memory.at(i).data(), kBufferSize, &m_memory.at(i), &handle),
            GC_ERR_SUCCESS);
        return handle;
    }
    void* AnnounceAndQueue(size_t i)
    {
        void* const handle = Announce(i);
        EXPECT_EQ(m_stream->QueueBuffer(handle), GC_ERR_SUCCESS);
        return handle;
    }

    ZrGenTLEvent* RegisterEvent()
    {
        void* event = nullptr;
        EXPECT_EQ(m_stream->RegisterEvent(EVENT_NEW_BUFFER, &event), GC_ERR_SUCCESS);
        return static_cast<ZrGenTLEvent*>(event);
    }
    // The next delivered handle; NULL when none comes within `timeout` ms.
    static void* Take(ZrGenTLEvent* event, uint64_t timeout = 0)
    {
        EVENT_NEW_BUFFER_DATA data{};
        size_t size = sizeof(data);
        return event->GetData(&data, &size, timeout) == GC_ERR_SUCCESS ? data.BufferHandle
                                                                       : nullptr;
    }

    template <class T>
    Answer<T> Info(STREAM_INFO_CMD cmd)
    {
        return ReadValue<T>([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
            return m_stream->GetInfo(cmd, type, buffer, size);
        });
    }
    TextAnswer InfoText(STREAM_INFO_CMD cmd)
    {
        return ReadText([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
            return m_stream->GetInfo(cmd, type, buffer, size);
        });
    }
    template <class T>
    T BufferValue(void* handle, BUFFER_INFO_CMD cmd)
    {
        const auto answer = ReadValue<T>([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
            return m_stream->GetBufferInfo(handle, cmd, type, buffer, size);
        });
        EXPECT_EQ(answer.status, GC_ERR_SUCCESS) << cmd;
        return answer.value;
    }
    bool IsQueued(void* handle) { return BufferValue<bool8_t>(handle, BUFFER_INFO_IS_QUEUED) != 0; }
    bool IsNew(void* handle) { return BufferValue<bool8_t>(handle, BUFFER_INFO_NEW_DATA) != 0; }
    uint64_t Delivered() { return Info<uint64_t>(STREAM_INFO_NUM_DELIVERED).value; }
    size_t Queued() { return Info<size_t>(STREAM_INFO_NUM_QUEUED).value; }
    size_t Awaiting() { return Info<size_t>(STREAM_INFO_NUM_AWAIT_DELIVERY).value; }

    using Memory = std::array<uint8_t, kBufferSize>;
    std::array<Memory, 8> m_memory{};
    ZrU3VRemoteDevice m_remote{CameraRecord(), nullptr};
    std::unique_ptr<ZrU3VDataStream> m_stream =
        std::make_unique<ZrU3VDataStream>(&m_remote, 0, nullptr);
};

class OpenStreamTest : public StreamTest
{
protected:
    void SetUp() override
    {
        StreamTest::SetUp();
        Open();
    }
};
