#include "zr_gentl_error_container.h"

#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {

struct Error
{
    int code = 1;
    std::string text = "untouched";
    bool operator==(const Error&) const = default;
};

Error Get(ZrGenTLErrorContainer& errors)
{
    Error error;
    errors.GetError(&error.code, error.text);
    return error;
}

TEST(ErrorContainer, GetError_ThreadNeverFailed_IsNoError)
{
    ZrGenTLErrorContainer errors;
    EXPECT_EQ(Get(errors), (Error{0, "No Error"}));
}

TEST(ErrorContainer, SetError_Twice_OverwritesTheRecord)
{
    ZrGenTLErrorContainer errors;
    errors.SetError(-1004, "GC_ERR_RESOURCE_IN_USE");
    EXPECT_EQ(Get(errors), (Error{-1004, "GC_ERR_RESOURCE_IN_USE"}));
    errors.SetError(-10001, "");
    EXPECT_EQ(Get(errors), (Error{-10001, ""}));
}

TEST(ErrorContainer, Clear_ForgetsAndTakesErrorsAgain)
{
    ZrGenTLErrorContainer errors;
    errors.SetError(-1004, "GC_ERR_RESOURCE_IN_USE");
    errors.Clear();
    EXPECT_EQ(Get(errors), (Error{0, "No Error"}));
    errors.SetError(-1010, "GC_ERR_IO");
    EXPECT_EQ(Get(errors), (Error{-1010, "GC_ERR_IO"}));
}

TEST(ErrorContainer, SetError_OnAnotherThread_IsThatThreadsOwn)
{
    ZrGenTLErrorContainer errors;
    errors.SetError(-1004, "here");
    std::thread([&] {
        EXPECT_EQ(Get(errors), (Error{0, "No Error"}));
        errors.SetError(-1010, "there");
        EXPECT_EQ(Get(errors), (Error{-1010, "there"}));
    }).join();
    EXPECT_EQ(Get(errors), (Error{-1004, "here"}));
}

TEST(ErrorContainer, ManyThreadsAtOnce_EachReadsItsOwn)
{
    ZrGenTLErrorContainer errors;
    std::vector<std::thread> threads;
    for (int i = 0; i < 6; ++i) {
        threads.emplace_back([&errors, i] {
            for (int k = 0; k < 500; ++k) {
                const Error mine{-i * 1000 - k, "text of " + std::to_string(i)};
                errors.SetError(mine.code, mine.text);
                EXPECT_EQ(Get(errors), mine);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
}

} // namespace
