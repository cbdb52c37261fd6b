#include <cstddef>
#include <gtest/gtest.h>
#include <zr_u3v_tl/gentl.h>

// Consumers are compiled against the standard's own header: every byte of the records lies where it
// does there.

namespace {

TEST(GenTLRecords, EventAndStackAndChunk_ArePacked)
{
    EXPECT_EQ(sizeof(EVENT_NEW_BUFFER_DATA), 16U);
    EXPECT_EQ(offsetof(EVENT_NEW_BUFFER_DATA, pUserPointer), 8U);
    EXPECT_EQ(sizeof(PORT_REGISTER_STACK_ENTRY), 24U);
    EXPECT_EQ(offsetof(PORT_REGISTER_STACK_ENTRY, pBuffer), 8U);
    EXPECT_EQ(offsetof(PORT_REGISTER_STACK_ENTRY, Size), 16U);
    EXPECT_EQ(sizeof(SINGLE_CHUNK_DATA), 24U);
    EXPECT_EQ(offsetof(SINGLE_CHUNK_DATA, ChunkOffset), 8U);
    EXPECT_EQ(offsetof(SINGLE_CHUNK_DATA, ChunkLength), 16U);
}

TEST(GenTLRecords, StackedBufferInfo_IsPacked)
{
    EXPECT_EQ(sizeof(DS_BUFFER_INFO_STACKED), 28U);
    EXPECT_EQ(offsetof(DS_BUFFER_INFO_STACKED, iInfoCmd), 0U);
    EXPECT_EQ(offsetof(DS_BUFFER_INFO_STACKED, iType), 4U);
    EXPECT_EQ(offsetof(DS_BUFFER_INFO_STACKED, pBuffer), 8U);
    EXPECT_EQ(offsetof(DS_BUFFER_INFO_STACKED, iSize), 16U);
    EXPECT_EQ(offsetof(DS_BUFFER_INFO_STACKED, iResult), 24U);
}

TEST(GenTLRecords, StackedPartInfo_IsPacked)
{
    EXPECT_EQ(sizeof(DS_BUFFER_PART_INFO_STACKED), 32U);
    EXPECT_EQ(offsetof(DS_BUFFER_PART_INFO_STACKED, iPartIndex), 0U);
    EXPECT_EQ(offsetof(DS_BUFFER_PART_INFO_STACKED, iInfoCmd), 4U);
    EXPECT_EQ(offsetof(DS_BUFFER_PART_INFO_STACKED, iResult), 8U);
    EXPECT_EQ(offsetof(DS_BUFFER_PART_INFO_STACKED, iType), 12U);
    EXPECT_EQ(offsetof(DS_BUFFER_PART_INFO_STACKED, pBuffer), 16U);
    EXPECT_EQ(offsetof(DS_BUFFER_PART_INFO_STACKED, iSize), 24U);
}

TEST(GenTLConstants, FlowsAndSegments_HaveTheStandardsNumbers)
{
    EXPECT_EQ(FLOW_INFO_SIZE, 0);
    EXPECT_EQ(SEGMENT_INFO_BASE, 0);
    EXPECT_EQ(SEGMENT_INFO_SIZE, 1);
    EXPECT_EQ(SEGMENT_INFO_IS_INCOMPLETE, 2);
    EXPECT_EQ(SEGMENT_INFO_SIZE_FILLED, 3);
    EXPECT_EQ(SEGMENT_INFO_DATA_SIZE, 4);
}

} // namespace
