#include "tl_fixture.h"

namespace {

TEST_F(SystemTest, GetNumInterfaces_RightAfterOpen_Zero)
{
    uint32_t count = 99;
    EXPECT_EQ(TLGetNumInterfaces(m_tl, &count), GC_ERR_SUCCESS);
    EXPECT_EQ(count, 0u);
}

} // namespace
