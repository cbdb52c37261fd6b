#include "zr_trace.h"

#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <syslog.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "syslog_capture.h"

namespace {

struct Traced
{
    unsigned level;
    std::string line;
    std::string message;
};

std::vector<Traced> g_traced;

void Collect(unsigned level, const char* line, const char* message)
{
    g_traced.push_back({level, line, message});
}

class TraceTest : public testing::Test
{
protected:
    TraceTest()
    {
        g_traced.clear();
        TakeSyslogMessages();
        SetTraceHook(&Collect);
    }
    ~TraceTest() override { SetTraceHook(nullptr); }

    static std::string Prefix(const char* tag)
    {
        char text[200];
        snprintf(text, sizeof text, " %s [pid] 0x%08x [tid] 0x%08x ", tag,
                 static_cast<unsigned>(getpid()), static_cast<unsigned>(gettid()));
        return text;
    }
};

struct LevelRow
{
    unsigned level;
    const char* tag;
};

class TraceLevelTest : public TraceTest, public testing::WithParamInterface<LevelRow>
{
};

TEST_P(TraceLevelTest, TraceA_Level_TagsTheLine)
{
    TraceA(GetParam().level, "%s Failed:%d", "TLOpen", -1006);
    ASSERT_EQ(g_traced.size(), 1u);
    EXPECT_EQ(g_traced[0].level, GetParam().level);
    EXPECT_EQ(g_traced[0].line, Prefix(GetParam().tag) + "TLOpen Failed:-1006");
    EXPECT_EQ(g_traced[0].message, "TLOpen Failed:-1006");
}

INSTANTIATE_TEST_SUITE_P(Levels, TraceLevelTest,
                         testing::Values(LevelRow{2, "[ERROR   ]"}, LevelRow{4, "[WARNING ]"},
                                         LevelRow{8, "[INFO    ]"}, LevelRow{32, "[DEBUG   ]"},
                                         LevelRow{0, "[unknow]"}, LevelRow{16, "[unknow]"},
                                         LevelRow{0xFFFFFFFF, "[unknow]"}));

TEST_F(TraceTest, TraceA_OnAnotherThread_CarriesThatThreadsId)
{
    unsigned tid = 0;
    std::thread([&] {
        tid = static_cast<unsigned>(gettid());
        TraceA(ZR_TRACE_INFO, "x");
    }).join();
    char text[32];
    snprintf(text, sizeof text, "[tid] 0x%08x ", tid);
    EXPECT_THAT(g_traced.at(0).line, testing::HasSubstr(text));
}

TEST_F(TraceTest, TraceA_MessageLongerThanTheLine_IsCutAt1023Characters)
{
    TraceA(ZR_TRACE_DEBUG, "%s", std::string(5000, 'x').c_str());
    ASSERT_EQ(g_traced.size(), 1u);
    EXPECT_EQ(g_traced[0].line.size(), 1023u);
    EXPECT_THAT(TakeSyslogMessages(), testing::IsEmpty());
}

TEST_F(TraceTest, TraceA_FormattingFails_TellsTheSystemLogOnce)
{
    const wchar_t invalid[] = {static_cast<wchar_t>(0x7FFFFFFF), 0};
    TraceA(ZR_TRACE_ERROR, "%ls", invalid);
    const auto messages = TakeSyslogMessages();
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].priority, LOG_ERR);
    EXPECT_EQ(messages[0].text, "vsnprintf not successful ");
    EXPECT_TRUE(g_traced.empty());
}

// The one thing that a host hears of must not depend on whether anybody reads the lines.
TEST_F(TraceTest, TraceA_WithoutHook_StillTellsOfAFailure)
{
    SetTraceHook(nullptr);
    const wchar_t invalid[] = {static_cast<wchar_t>(0x7FFFFFFF), 0};
    TraceA(ZR_TRACE_ERROR, "%s %ls", "x", invalid);
    EXPECT_EQ(TakeSyslogMessages().size(), 1u);
}

TEST_F(TraceTest, TraceA_WithoutHook_TakesEveryKindOfArgument)
{
    SetTraceHook(nullptr);
    TraceA(ZR_TRACE_ERROR, "%s %d %u 0x%X %08x %llu %llx %s", "f", -1, 2u, 3u, 4u, 5ull, 6ull,
           "end");
    TraceA(ZR_TRACE_ERROR, "100%%");
    TraceA(ZR_TRACE_ERROR, "%c %5.2f %zu", 'c', 1.5, sizeof(int));
    EXPECT_THAT(TakeSyslogMessages(), testing::IsEmpty());
}

TEST_F(TraceTest, ZrTrace_WithHook_IsTheWholeLine)
{
    ZR_TRACE(ZR_TRACE_ERROR, "%s Failed:%d", __func__, -1006);
    ZR_TRACE(ZR_TRACE_ERROR, "no arguments");
    ASSERT_EQ(g_traced.size(), 2u);
    EXPECT_EQ(g_traced[0].message, "TestBody Failed:-1006");
    EXPECT_EQ(g_traced[1].message, "no arguments");
}

TEST_F(TraceTest, ZrTrace_WithoutHook_IsSilent)
{
    SetTraceHook(nullptr);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    ZR_TRACE(ZR_TRACE_ERROR, "%s", "anything");
    TraceA(ZR_TRACE_ERROR, "%s", "anything");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_TRUE(g_traced.empty());
    EXPECT_THAT(TakeSyslogMessages(), testing::IsEmpty());
}

TEST_F(TraceTest, MayNotBeFormattable_OnlyForATextThatFillsALine)
{
    const char* const none = nullptr;
    const std::string fits(kTraceLineSize - 1, 'x');
    const std::string fills(kTraceLineSize, 'x');
    EXPECT_FALSE(MayNotBeFormattable("text"));
    EXPECT_FALSE(MayNotBeFormattable("%d", 1, 2u, none, "text", fits.c_str()));
    EXPECT_TRUE(MayNotBeFormattable("%d%s", 1, fills.c_str()));
}

// The one thing that a host hears of must not depend on whether anybody reads the lines. That the
// formatting fails is seen here by a second argument: a text that is long enough takes a minute.
TEST_F(TraceTest, ZrTrace_WithoutHook_FormatsWhatMayFailAndNothingElse)
{
    SetTraceHook(nullptr);
    const wchar_t text[] = {static_cast<wchar_t>(0x7FFFFFFF), 0};
    const wchar_t* const invalid = text;
    const std::string fits(kTraceLineSize - 1, 'x');
    const std::string fills(kTraceLineSize, 'x');
    ZR_TRACE(ZR_TRACE_DEBUG, "%s %ls", fits.c_str(), invalid);
    EXPECT_THAT(TakeSyslogMessages(), testing::IsEmpty());
    ZR_TRACE(ZR_TRACE_DEBUG, "%s %ls", fills.c_str(), invalid);
    const auto messages = TakeSyslogMessages();
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].text, "vsnprintf not successful ");
}

} // namespace
