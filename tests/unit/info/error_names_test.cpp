#include "error_names.h"

#include <gtest/gtest.h>
#include <set>
#include <string>

namespace {

TEST(ErrorNames, EveryCodeOfTheStandard_HasANameOfItsOwn)
{
    std::set<std::string> names;
    names.insert(info::ErrorName(GC_ERR_SUCCESS));
    for (GC_ERROR code = -1001; code >= -1023; --code) {
        names.insert(info::ErrorName(code));
    }
    EXPECT_EQ(names.size(), 24u);
    for (const std::string& name : names) {
        EXPECT_EQ(name.substr(0, 7), "GC_ERR_");
    }
    EXPECT_STREQ(info::ErrorName(-1001), "GC_ERR_ERROR");
    EXPECT_STREQ(info::ErrorName(-1011), "GC_ERR_TIMEOUT");
    EXPECT_STREQ(info::ErrorName(-1023), "GC_ERR_AMBIGUOUS");
}

TEST(ErrorNames, AnyOtherNumber_HasNone)
{
    for (const GC_ERROR code : {1, -1, -1000, -1024, -10000, -10001, INT32_MIN, INT32_MAX}) {
        EXPECT_STREQ(info::ErrorName(code), "") << code;
    }
}

} // namespace
