// A host of the camera core for tests: commands as plain bytes, the stream read request by request.
#ifndef CAMERA_HOST_H
#define CAMERA_HOST_H

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "usb_camera.h"

using Bytes = std::vector<std::uint8_t>;

inline vcam::CameraConfig Config(const std::string& options)
{
    vcam::CameraConfig config;
    const std::string error = config.Apply(options);
    EXPECT_EQ("", error);
    return config;
}

inline void Put(Bytes& bytes, std::uint64_t value, int size)
{
    for (int i = 0; i < size; ++i) {
        bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
    }
}

inline std::uint64_t Get(const Bytes& bytes, std::size_t at, std::size_t size)
{
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < size; ++i) {
        value |= std::uint64_t{bytes.at(at + i)} << (8 * i);
    }
    return value;
}

struct Read
{
    vcam::UsbStatus status;
    Bytes data;
};

class CameraHost
{
public:
    explicit CameraHost(const std::string& options = "") : camera(Config(options)) {}

    vcam::UsbStatus Send(const Bytes& command)
    {
        return camera.BulkOut(0x01, command.data(), command.size()).status;
    }

    // One request of so many bytes; waits for what only takes time, but not for what never comes.
    Read Receive(std::uint8_t endpoint, std::size_t capacity)
    {
        Bytes buffer(capacity + 1, 0xEE);
        std::size_t filled = 0;
        vcam::UsbResult result;
        for (;;) {
            result = camera.BulkIn(endpoint, buffer.data(), capacity, filled);
            if (result.status != vcam::UsbStatus::Nak ||
                result.retryAt == vcam::Clock::time_point::max()) {
                break;
            }
            std::this_thread::sleep_until(result.retryAt); // time: the camera's, in its answer
        }
        EXPECT_EQ(0xEE, buffer[capacity]) << "written beyond the request";
        buffer.resize(filled);
        return {result.status, buffer};
    }

    static Bytes ReadCommand(std::uint64_t address, std::size_t count, std::uint16_t id = 1,
                             std::uint16_t length = 12)
    {
        Bytes command{0x55, 0x33, 0x56, 0x43, 0x00, 0x40, 0x00, 0x08};
        Put(command, length, 2);
        Put(command, id, 2);
        Put(command, address, 8);
        Put(command, 0, 2);
        Put(command, count, 2);
        return command;
    }

    static Bytes WriteCommand(std::uint64_t address, const Bytes& data, std::uint16_t id = 1)
    {
        Bytes command{0x55, 0x33, 0x56, 0x43, 0x00, 0x40, 0x02, 0x08};
        Put(command, 8 + data.size(), 2);
        Put(command, id, 2);
        Put(command, address, 8);
        command.insert(command.end(), data.begin(), data.end());
        return command;
    }

    Bytes Exchange(const Bytes& command)
    {
        EXPECT_EQ(vcam::UsbStatus::Done, Send(command));
        return Receive(0x81, 1024).data;
    }

    Bytes ReadMem(std::uint64_t address, std::size_t count)
    {
        const Bytes ack = Exchange(ReadCommand(address, count));
        EXPECT_EQ(count + 12, ack.size()) << std::hex << address;
        return ack.size() < 12 ? Bytes() : Bytes(ack.begin() + 12, ack.end());
    }

    std::uint64_t Read32(std::uint64_t address) { return Get(ReadMem(address, 4), 0, 4); }
    std::uint64_t Read64(std::uint64_t address) { return Get(ReadMem(address, 8), 0, 8); }

    std::uint64_t StatusOfRead(std::uint64_t address, std::size_t count)
    {
        return Get(Exchange(ReadCommand(address, count)), 4, 2);
    }

    std::uint64_t Write(std::uint64_t address, const Bytes& data)
    {
        return Get(Exchange(WriteCommand(address, data)), 4, 2);
    }

    std::uint64_t Write32(std::uint64_t address, std::uint32_t value)
    {
        Bytes data;
        Put(data, value, 4);
        return Write(address, data);
    }

    // Programs a plan and starts: leader and trailer as required, payload in pieces and two finals.
    void Start(std::uint32_t transfer, std::uint32_t count, std::uint32_t final1,
               std::uint32_t final2 = 0)
    {
        EXPECT_EQ(0U, Write32(0x20018, static_cast<std::uint32_t>(Read32(0x20010))));
        EXPECT_EQ(0U, Write32(0x2001C, transfer));
        EXPECT_EQ(0U, Write32(0x20020, count));
        EXPECT_EQ(0U, Write32(0x20024, final1));
        EXPECT_EQ(0U, Write32(0x20028, final2));
        EXPECT_EQ(0U, Write32(0x2002C, static_cast<std::uint32_t>(Read32(0x20014))));
        EXPECT_EQ(0U, Write32(0x20004, 1));
        EXPECT_EQ(0U, Write32(0x50014, 1));
    }

    // All of the payload in one transfer.
    void StartWhole()
    {
        const std::uint32_t alignment = 1U << (Read32(0x20000) >> 24);
        const auto payload = static_cast<std::uint32_t>(Read64(0x20008));
        Start(0, 0, (payload + alignment - 1) / alignment * alignment);
    }

    Read Stream(std::size_t capacity) { return Receive(0x83, capacity); }

    Bytes Expected(std::uint64_t frame)
    {
        vcam::PatternGenerator generator;
        const vcam::ImageGeometry geometry = camera.Geometry();
        generator.Configure(geometry, camera.PresentPattern(), camera.Seed());
        Bytes image(geometry.Payload());
        generator.Fill(frame, 0, image.data(), image.size());
        return image;
    }

    vcam::UsbCamera camera;
};

#endif
