// A host of the virtual bus for tests: plain libusb calls, and a look at the bus's own books
// afterwards.
#ifndef BUS_HOST_H
#define BUS_HOST_H

#include <gtest/gtest.h>
#include <libusb.h>

#include <chrono>
#include <thread>
#include <vector>

#include "virtual_bus.h"

using Bytes = std::vector<unsigned char>;
using namespace std::chrono_literals;

constexpr unsigned char kControlOut = 0x01;
constexpr unsigned char kControlIn = 0x81;
constexpr unsigned char kStreamIn = 0x83;

// Starts on an empty bus; at the end nothing of the host may be left and no rule may be broken,
// unless the test says so.
class BusTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        vusb_reset();
        ASSERT_EQ(0, libusb_init(nullptr));
    }

    void TearDown() override
    {
        for (libusb_device_handle* handle : m_open) {
            libusb_close(handle);
        }
        libusb_exit(nullptr);
        if (m_expectClean) {
            EXPECT_EQ("", vusb::Violations());
            vusb_live_objects live{};
            vusb_get_live_objects(&live);
            EXPECT_EQ(0U, live.contexts);
            EXPECT_EQ(0U, live.handles);
            EXPECT_EQ(0U, live.transfers);
            EXPECT_EQ(0U, live.device_references);
            EXPECT_EQ(0U, live.config_descriptors);
        }
        vusb_reset();
    }

    // Opens the n-th device of the bus.
    libusb_device_handle* Open(std::size_t index = 0)
    {
        libusb_device** list = nullptr;
        const ssize_t count = libusb_get_device_list(nullptr, &list);
        EXPECT_LT(static_cast<ssize_t>(index), count);
        libusb_device_handle* handle = nullptr;
        if (static_cast<ssize_t>(index) < count) {
            m_openResult = libusb_open(list[index], &handle);
        }
        libusb_free_device_list(list, 1);
        if (handle != nullptr) {
            m_open.push_back(handle);
        }
        return handle;
    }

    void Close(libusb_device_handle* handle)
    {
        libusb_close(handle);
        std::erase(m_open, handle);
    }

    libusb_device_handle* OpenAndClaim(std::size_t index = 0)
    {
        libusb_device_handle* handle = Open(index);
        EXPECT_EQ(0, libusb_claim_interface(handle, 0));
        EXPECT_EQ(0, libusb_claim_interface(handle, 1));
        return handle;
    }

    static void Append(Bytes& bytes, std::uint64_t value, int size)
    {
        for (int i = 0; i < size; ++i) {
            bytes.push_back(static_cast<unsigned char>(value >> (8 * i)));
        }
    }

    static int Send(libusb_device_handle* handle, Bytes command, unsigned timeout = 1000)
    {
        int sent = 0;
        return libusb_bulk_transfer(handle, kControlOut, command.data(),
                                    static_cast<int>(command.size()), &sent, timeout);
    }

    static Bytes WriteCommand(std::uint64_t address, std::uint32_t value)
    {
        Bytes command{0x55, 0x33, 0x56, 0x43, 0x00, 0x40, 0x02, 0x08, 12, 0, 1, 0};
        Append(command, address, 8);
        Append(command, value, 4);
        return command;
    }

    static Bytes ReadCommand(std::uint64_t address, unsigned count)
    {
        Bytes command{0x55, 0x33, 0x56, 0x43, 0x00, 0x40, 0x00, 0x08, 12, 0, 1, 0};
        Append(command, address, 8);
        Append(command, count << 16, 4);
        return command;
    }

    static Bytes ReadMem(libusb_device_handle* handle, std::uint64_t address, unsigned count)
    {
        EXPECT_EQ(0, Send(handle, ReadCommand(address, count)));
        Bytes ack(count + 12);
        int received = 0;
        EXPECT_EQ(0, libusb_bulk_transfer(handle, kControlIn, ack.data(),
                                          static_cast<int>(ack.size()), &received, 1000));
        EXPECT_EQ(static_cast<int>(ack.size()), received);
        return Bytes(ack.begin() + 12, ack.end());
    }

    static void Write32(libusb_device_handle* handle, std::uint64_t address, std::uint32_t value)
    {
        EXPECT_EQ(0, Send(handle, WriteCommand(address, value)));
        unsigned char ack[16] = {};
        int received = 0;
        EXPECT_EQ(0, libusb_bulk_transfer(handle, kControlIn, ack, sizeof ack, &received, 1000));
        EXPECT_EQ(0, ack[4] | ack[5]) << std::hex << address;
    }

    // One final transfer for the whole image.
    static void StartStream(libusb_device_handle* handle, std::uint32_t payload)
    {
        Write32(handle, 0x20018, 52);
        Write32(handle, 0x20024, payload);
        Write32(handle, 0x2002C, 32);
        Write32(handle, 0x20004, 1);
        Write32(handle, 0x50014, 1);
    }

    static int ReadStream(libusb_device_handle* handle, Bytes& buffer, unsigned timeout = 1000)
    {
        int received = 0;
        const int result = libusb_bulk_transfer(
            handle, kStreamIn, buffer.data(), static_cast<int>(buffer.size()), &received, timeout);
        buffer.resize(static_cast<std::size_t>(received));
        return result;
    }

    static int HandleFor(std::chrono::milliseconds time)
    {
        timeval tv{0, time.count() * 1000};
        return libusb_handle_events_timeout(nullptr, &tv);
    }

    std::vector<libusb_device_handle*> m_open;
    int m_openResult = 0;
    bool m_expectClean = true;
};

#endif
