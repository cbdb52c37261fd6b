#include "status.h"

#include <gtest/gtest.h>

namespace {

TEST(GencpStatus, EachCode_HasItsName)
{
    using gencp_status::Name;
    EXPECT_EQ(Name(0x0000), "success");
    EXPECT_EQ(Name(0x8001), "not implemented");
    EXPECT_EQ(Name(0x8002), "invalid parameter");
    EXPECT_EQ(Name(0x8003), "invalid address");
    EXPECT_EQ(Name(0x8004), "write protect");
    EXPECT_EQ(Name(0x8005), "bad alignment");
    EXPECT_EQ(Name(0x8006), "access denied");
    EXPECT_EQ(Name(0x8007), "busy");
    EXPECT_EQ(Name(0x800B), "message time-out");
    EXPECT_EQ(Name(0x800E), "invalid header");
    EXPECT_EQ(Name(0x800F), "wrong configuration");
    EXPECT_EQ(Name(0x8FFF), "error");
    EXPECT_EQ(Name(0xA001), "resend not supported");
    EXPECT_EQ(Name(0xA002), "stream endpoint halted");
    EXPECT_EQ(Name(0xA003), "payload size not aligned");
    EXPECT_EQ(Name(0xA004), "stream registers inconsistent");
    EXPECT_EQ(Name(0xA100), "data discarded");
    EXPECT_EQ(Name(0xA101), "data overrun");
}

TEST(GencpStatus, CodeOfNobody_IsUnknown)
{
    EXPECT_EQ(gencp_status::Name(0x1234), "unknown status");
}

} // namespace
