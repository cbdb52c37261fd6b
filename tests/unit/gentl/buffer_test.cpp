#include "zr_gentl_buffer.h"

#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <new>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr int kBase = 0;
constexpr int kSize = 1;
constexpr int kUserPtr = 2;

// What a query gives: status, type and the value's bytes.
struct Answer
{
    GC_ERROR status = 1;
    int32_t type = -1;
    std::string bytes;
    bool operator==(const Answer&) const = default;
};

Answer Ask(ZrGenTLBuffer& buffer, int32_t cmd)
{
    Answer answer;
    char data[64];
    size_t size = sizeof data;
    answer.status = buffer.GetInfo(cmd, &answer.type, data, &size);
    if (answer.status == 0) {
        answer.bytes.assign(data, size);
    }
    return answer;
}

template <class T>
Answer Value(int32_t type, T value)
{
    return {0, type, std::string(reinterpret_cast<const char*>(&value), sizeof value)};
}

void* Pointer(const Answer& answer)
{
    void* pointer = nullptr;
    memcpy(&pointer, answer.bytes.data(), sizeof pointer);
    return pointer;
}

const Answer kNotImplemented{-1003, -1, ""};

class BufferTest : public testing::Test
{
protected:
    uint8_t memory[16] = {};
    int user = 0;
    ZrGenTLBuffer buffer{memory, sizeof memory, false, &user, nullptr};
};

TEST_F(BufferTest, NewRecord_ReportsWhatWasAnnounced)
{
    EXPECT_EQ(Ask(buffer, kBase), Value(10, static_cast<void*>(memory)));
    EXPECT_EQ(Ask(buffer, kSize), Value(12, size_t{16}));
    EXPECT_EQ(Ask(buffer, kUserPtr), Value(10, static_cast<void*>(&user)));
    EXPECT_EQ(buffer.GetBase(), memory);
    EXPECT_EQ(buffer.GetSize(), 16u);
    EXPECT_EQ(static_cast<void*>(buffer.GetMemory().data()), static_cast<void*>(memory));
    EXPECT_EQ(buffer.GetMemory().size(), 16u);
    EXPECT_EQ(buffer.GetUserPtr(), &user);
}

TEST_F(BufferTest, BeforeTheFirstImage_EverythingIsZeroOrUnknown)
{
    EXPECT_EQ(Ask(buffer, 3), Value(8, uint64_t{0}));
    for (const int32_t flag : {4, 5, 6, 7}) {
        EXPECT_EQ(Ask(buffer, flag), Value(11, uint8_t{0})) << flag;
    }
    EXPECT_EQ(Ask(buffer, 8), (Answer{0, 1, std::string("GEV\0", 4)}));
    EXPECT_EQ(Ask(buffer, 9), Value(12, size_t{0}));
    EXPECT_EQ(Ask(buffer, 10), kNotImplemented);
    EXPECT_EQ(Ask(buffer, 11), kNotImplemented);
    EXPECT_EQ(Ask(buffer, 16), Value(8, uint64_t{0}));
    EXPECT_EQ(Ask(buffer, 19), Value(12, size_t{1}));
    EXPECT_EQ(Ask(buffer, 20), kNotImplemented);
}

TEST_F(BufferTest, UpdateData_SixValues_AreReported)
{
    buffer.UpdateData(5, 0x1111111111, 0x2222222222, 640, 480, 0x0108000100000001, nullptr);
    EXPECT_EQ(Ask(buffer, 9), Value(12, size_t{5}));
    EXPECT_EQ(Ask(buffer, 16), Value(8, uint64_t{0x1111111111}));
    EXPECT_EQ(Ask(buffer, 3), Value(8, uint64_t{0x2222222222}));
    EXPECT_EQ(Ask(buffer, 10), Value(12, size_t{640}));
    EXPECT_EQ(Ask(buffer, 11), Value(12, size_t{480}));
    EXPECT_EQ(Ask(buffer, 20), Value(8, uint64_t{0x0108000100000001}));
    EXPECT_EQ(Ask(buffer, 19), Value(12, size_t{1}));
    EXPECT_EQ(Ask(buffer, kBase), Value(10, static_cast<void*>(memory)));
}

TEST_F(BufferTest, DescribeImage_DescriptionAndFlagsInOneStep)
{
    buffer.SetQueueFlag(true);
    for (const bool incomplete : {true, false}) {
        buffer.SetNewDataFlag(false);
        buffer.DescribeImage({7, 11, 12, 13, 14, 15, incomplete});
        EXPECT_EQ(Ask(buffer, 9), Value(12, size_t{7}));
        EXPECT_EQ(Ask(buffer, 16), Value(8, uint64_t{11}));
        EXPECT_EQ(Ask(buffer, 3), Value(8, uint64_t{12}));
        EXPECT_EQ(Ask(buffer, 10), Value(12, size_t{13}));
        EXPECT_EQ(Ask(buffer, 11), Value(12, size_t{14}));
        EXPECT_EQ(Ask(buffer, 20), Value(8, uint64_t{15}));
        EXPECT_EQ(Ask(buffer, 4), Value(11, true)); // new data
        EXPECT_EQ(Ask(buffer, 5), Value(11, true)); // queued, as it was
        EXPECT_EQ(Ask(buffer, 6), Value(11, false));
        EXPECT_EQ(Ask(buffer, 7), Value(11, incomplete));
    }
}

TEST_F(BufferTest, GetInfo_OtherCommands_AreNotImplemented)
{
    buffer.UpdateData(5, 1, 2, 640, 480, 3, nullptr);
    for (const int32_t cmd : {12, 13, 14, 15, 17, 18, 21, 22, 25, 31, 1000, -1, INT32_MIN}) {
        EXPECT_EQ(Ask(buffer, cmd), kNotImplemented) << cmd;
    }
}

TEST_F(BufferTest, GetInfo_NullTypeOrSize_IsInvalidParameter)
{
    int32_t type = -1;
    char data[8] = {'x'};
    size_t size = 8;
    EXPECT_EQ(buffer.GetInfo(kBase, nullptr, data, &size), -1009);
    EXPECT_EQ(buffer.GetInfo(kBase, &type, data, nullptr), -1009);
    EXPECT_EQ(data[0], 'x');
}

TEST_F(BufferTest, GetInfo_NullBuffer_IsSizeQuery)
{
    int32_t type = -1;
    size_t size = 0;
    EXPECT_EQ(buffer.GetInfo(8, &type, nullptr, &size), 0);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(type, 1);
}

TEST_F(BufferTest, GetInfo_ClearsTheCallersBufferFirst)
{
    int32_t type = -1;
    char data[8];
    memset(data, 'x', sizeof data);
    size_t size = 7;
    EXPECT_EQ(buffer.GetInfo(8, &type, data, &size), 0);
    EXPECT_EQ(std::string(data, 8), std::string("GEV\0\0\0\0x", 8));
    memset(data, 'x', sizeof data);
    size = 3;
    EXPECT_EQ(buffer.GetInfo(8, &type, data, &size), -1016);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(std::string(data, 4), std::string("\0\0\0x", 4));
    size = 2;
    data[0] = 'x';
    EXPECT_EQ(buffer.GetInfo(12, &type, data, &size), -1003);
    EXPECT_EQ(data[0], 0);
}

TEST_F(BufferTest, Flags_AreIndependent)
{
    void (ZrGenTLBuffer::*const setters[])(bool) = {
        &ZrGenTLBuffer::SetNewDataFlag, &ZrGenTLBuffer::SetQueueFlag,
        &ZrGenTLBuffer::SetAcquiringFlag, &ZrGenTLBuffer::SetIncompleteFlag};
    for (int32_t set = 0; set < 4; ++set) {
        (buffer.*setters[set])(true);
        for (int32_t i = 0; i < 4; ++i) {
            EXPECT_EQ(Ask(buffer, 4 + i), Value(11, uint8_t{i == set}));
        }
        EXPECT_EQ(buffer.IsQueued(), set == 1);
        (buffer.*setters[set])(false);
    }
}

TEST_F(BufferTest, TLType_IsTheGivenOne)
{
    ZrGenTLBuffer other(memory, 16, false, nullptr, "U3V");
    EXPECT_EQ(Ask(other, 8), (Answer{0, 1, std::string("U3V\0", 4)}));
}

TEST_F(BufferTest, UpdateData_ConsumersMemory_IsCopiedIntoUpToItsSize)
{
    uint8_t image[32];
    memset(image, 0xAB, sizeof image);
    ZrGenTLBuffer small(memory, 8, false, nullptr, nullptr);
    small.UpdateData(32, 1, 2, 3, 4, 5, image);
    EXPECT_EQ(memory[7], 0xAB);
    EXPECT_EQ(memory[8], 0);
    EXPECT_EQ(Pointer(Ask(small, kBase)), memory);
    EXPECT_EQ(Ask(small, 9), Value(12, size_t{32})); // reported as given

    memset(memory, 0, sizeof memory);
    small.UpdateData(3, 1, 2, 3, 4, 5, image);
    EXPECT_EQ(memory[2], 0xAB);
    EXPECT_EQ(memory[3], 0);
}

TEST_F(BufferTest, UpdateData_ImageInsideTheBuffer_IsMovedDown)
{
    for (uint8_t i = 0; i < 16; ++i) {
        memory[i] = i;
    }
    buffer.UpdateData(12, 1, 2, 3, 4, 5, memory + 4); // ASan sees a copy that forbids overlapping
    for (uint8_t i = 0; i < 12; ++i) {
        EXPECT_EQ(memory[i], i + 4);
    }
}

TEST_F(BufferTest, UpdateData_SizeAbove4GiB_CountsWithItsLow31Bits)
{
    uint8_t image[16];
    memset(image, 0xAB, sizeof image);
    ZrGenTLBuffer huge(memory, (size_t{1} << 32) + 4, false, nullptr, nullptr);
    huge.UpdateData(16, 1, 2, 3, 4, 5, image);
    EXPECT_EQ(memory[3], 0xAB);
    EXPECT_EQ(memory[4], 0);
}

TEST_F(BufferTest, UpdateData_SizeOf2GiB_CopiesWhatWasFilled)
{
    uint8_t image[16];
    memset(image, 0xAB, sizeof image);
    ZrGenTLBuffer huge(memory, size_t{0x80000010}, false, nullptr, nullptr);
    huge.UpdateData(4, 1, 2, 3, 4, 5, image);
    EXPECT_EQ(memory[3], 0xAB);
    EXPECT_EQ(memory[4], 0);
}

TEST(BufferAllocation, NoMemoryGiven_IsAllocatedAndFreedByTheRecord)
{
    ZrGenTLBuffer buffer(nullptr, 100, true, nullptr, nullptr);
    auto* base = static_cast<uint8_t*>(Pointer(Ask(buffer, kBase)));
    ASSERT_NE(base, nullptr);
    memset(base, 1, 100); // ASan: really that large, and matched on release
    EXPECT_EQ(buffer.GetSize(), 100u);
    uint8_t image[4] = {9, 9, 9, 9};
    buffer.UpdateData(4, 1, 2, 3, 4, 5, image); // not taken over
    EXPECT_EQ(Pointer(Ask(buffer, kBase)), base);
    EXPECT_EQ(base[0], 1);
}

TEST(BufferAllocation, SizeZero_HasABase)
{
    ZrGenTLBuffer buffer(nullptr, 0, true, nullptr, nullptr);
    EXPECT_NE(buffer.GetBase(), nullptr);
}

TEST(BufferAllocation, MemoryGivenAndAllocateSet_UsesTheGiven)
{
    uint8_t memory[4] = {};
    ZrGenTLBuffer buffer(memory, 4, true, nullptr, nullptr);
    EXPECT_EQ(buffer.GetBase(), memory);
}

TEST(BufferAllocation, NeitherGivenNorAllocated_AdoptsTheFirstImage)
{
    ZrGenTLBuffer buffer(nullptr, 4, false, nullptr, nullptr);
    EXPECT_EQ(buffer.GetBase(), nullptr);
    uint8_t image[4] = {};
    buffer.UpdateData(4, 1, 2, 3, 4, 5, image);
    EXPECT_EQ(buffer.GetBase(), image);
    buffer.UpdateData(4, 1, 2, 3, 4, 5, nullptr);
    EXPECT_EQ(buffer.GetBase(), image);
}

TEST(BufferAllocation, AbsurdSize_ThrowsBadAlloc)
{
#ifdef ZR_SANITIZED
    GTEST_SKIP() << "the sanitizers' operator new ends the process instead of throwing";
#endif
    EXPECT_THROW(ZrGenTLBuffer(nullptr, std::numeric_limits<size_t>::max(), true, nullptr, nullptr),
                 std::bad_alloc);
    EXPECT_THROW(new ZrGenTLBuffer(nullptr, std::numeric_limits<size_t>::max() / 2, true, nullptr,
                                   "a transport layer name that lives on the heap"),
                 std::bad_alloc);
}

TEST_F(BufferTest, ReadersAndWriterAtOnce_SeeWholeValues)
{
    std::thread writer([&] {
        for (uint64_t i = 1; i < 2000; ++i) {
            buffer.UpdateData(i, i, i, i, i, i, nullptr);
            buffer.SetQueueFlag(i % 2 == 0);
        }
    });
    for (int i = 0; i < 2000; ++i) {
        Ask(buffer, 16);
        Ask(buffer, 20);
        Ask(buffer, 5);
    }
    writer.join();
    EXPECT_EQ(Ask(buffer, 16), Value(8, uint64_t{1999}));
}

} // namespace
