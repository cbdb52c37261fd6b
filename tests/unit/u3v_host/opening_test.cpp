#include "bus_camera.h"

namespace u3v_host {
namespace {

class Opening : public BusTest
{
};

TEST_F(Opening, Open_ListedCamera_ReadsItsRegisters)
{
    const vusb::Camera camera("strict=1");
    const auto opened = OpenOnly();
    std::array<uint8_t, 4> bytes{};
    size_t done = 0;
    opened->Read(0x50000, bytes, done);
    EXPECT_EQ(done, 4U);
    EXPECT_EQ(bytes[0] | bytes[1] << 8, 640);
    EXPECT_EQ(opened->NumStreams(), 1U);
    EXPECT_EQ(opened->PayloadSize(), camera.PayloadSize());
    EXPECT_EQ(opened->Speed(), 625'000'000U);
    ASSERT_EQ(opened->DescriptionFiles().size(), 1U);
}

} // namespace
} // namespace u3v_host
