#include <zr_u3v_tl/zr_logging.h>

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <regex>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

// Runs while the other static objects of the program are still to be made.
struct EarlyUser
{
    EarlyUser()
    {
        g_logger.Trace(ZR_LOG_ERROR, "early");
        initialised = g_logger.Init(true, nullptr, ZR_LOG_ERROR);
    }
    bool initialised;
};
__attribute__((init_priority(102))) EarlyUser g_earlyUser;

bool g_traceAtTheEnd = false;

// Runs after the destructors of all static objects.
__attribute__((destructor)) void TraceAfterEverything()
{
    if (g_traceAtTheEnd) {
        g_logger.Trace(ZR_LOG_ERROR, "late");
        const char text[] = "survived";
        [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text, sizeof text - 1);
    }
}

class LoggerTest : public testing::Test
{
protected:
    LoggerTest() : m_before(std::filesystem::current_path())
    {
        std::string name = (std::filesystem::temp_directory_path() / "zr_logger_XXXXXX").string();
        m_directory = mkdtemp(name.data());
        std::filesystem::current_path(m_directory);
        m_path = (m_directory / "lines.txt").string();
    }
    ~LoggerTest() override
    {
        std::filesystem::current_path(m_before);
        std::filesystem::remove_all(m_directory);
    }

    char* Path() { return m_path.data(); }
    std::vector<std::string> Lines() const { return LinesOf(m_path); }
    static std::vector<std::string> LinesOf(const std::string& path)
    {
        std::vector<std::string> lines;
        std::ifstream file(path);
        for (std::string line; std::getline(file, line);) {
            lines.push_back(line);
        }
        return lines;
    }

    static constexpr auto kAll = static_cast<ZrLogLevel>(0xFFFFFFFF);
    ZrLogger m_logger;

private:
    std::filesystem::path m_before;
    std::filesystem::path m_directory;
    std::string m_path;
};

std::string LinePattern(const std::string& tag, const std::string& message)
{
    return "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} " + tag + message;
}

TEST_F(LoggerTest, Trace_InitNeverCalled_WritesNothingAndCreatesNoFile)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    for (const auto level : {ZR_LOG_CRITICAL, ZR_LOG_ERROR, ZR_LOG_DEBUG, kAll}) {
        m_logger.Trace(level, "x");
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_TRUE(std::filesystem::is_empty(std::filesystem::current_path()));
}

TEST_F(LoggerTest, Init_Disabled_ReturnsTrueAndLaterInitStillWorks)
{
    EXPECT_TRUE(m_logger.Init(false, Path(), kAll));
    EXPECT_FALSE(std::filesystem::exists(Path()));
    char empty[] = "";
    EXPECT_TRUE(m_logger.Init(true, empty, kAll));
    EXPECT_TRUE(std::filesystem::exists("log.txt"));
    m_logger.Trace(ZR_LOG_INFO, "x");
    EXPECT_EQ(LinesOf("log.txt").size(), 1u);
}

TEST_F(LoggerTest, Init_Twice_ReturnsFalseAndKeepsTheFirstFileAndMask)
{
    EXPECT_TRUE(m_logger.Init(true, Path(), ZR_LOG_ERROR));
    char other[] = "other.txt";
    EXPECT_FALSE(m_logger.Init(true, other, kAll));
    EXPECT_FALSE(m_logger.Init(false, other, kAll));
    EXPECT_FALSE(std::filesystem::exists(other));
    m_logger.Trace(ZR_LOG_INFO, "not in the mask");
    m_logger.Trace(ZR_LOG_ERROR, "in the mask");
    EXPECT_EQ(Lines().size(), 1u);
}

TEST_F(LoggerTest, Init_FileExists_IsTruncated)
{
    std::ofstream(Path()) << "old\n";
    EXPECT_TRUE(m_logger.Init(true, Path(), kAll));
    EXPECT_TRUE(Lines().empty());
}

// The descriptor that this process has open on the file, -1 if none.
int DescriptorOf(const std::string& path)
{
    struct stat wanted
    {
    };
    if (stat(path.c_str(), &wanted) != 0) {
        return -1;
    }
    for (int descriptor = 0; descriptor < 256; ++descriptor) {
        struct stat open
        {
        };
        if (fstat(descriptor, &open) == 0 && open.st_dev == wanted.st_dev &&
            open.st_ino == wanted.st_ino) {
            return descriptor;
        }
    }
    return -1;
}

TEST_F(LoggerTest, Init_File_IsOpenForUpdateUntilTheLoggerGoes)
{
    {
        ZrLogger logger;
        EXPECT_TRUE(logger.Init(true, Path(), kAll));
        const int descriptor = DescriptorOf(Path());
        ASSERT_GE(descriptor, 0);
        EXPECT_EQ(fcntl(descriptor, F_GETFL) & O_ACCMODE, O_RDWR);
        EXPECT_NE(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0); // not for the host's children
    }
    EXPECT_EQ(DescriptorOf(Path()), -1);
}

TEST_F(LoggerTest, Init_FileCannotBeOpened_IsOnAndWritesNothing)
{
    char path[] = "no/such/directory/log.txt";
    EXPECT_TRUE(m_logger.Init(true, path, kAll));
    m_logger.Trace(ZR_LOG_ERROR, "x");
    EXPECT_FALSE(m_logger.Init(true, Path(), kAll));
    EXPECT_TRUE(std::filesystem::is_empty(std::filesystem::current_path()));
}

TEST_F(LoggerTest, Init_NullPath_IsOnWithoutFile)
{
    EXPECT_TRUE(m_logger.Init(true, nullptr, kAll));
    m_logger.Trace(ZR_LOG_ERROR, "x");
    EXPECT_TRUE(std::filesystem::is_empty(std::filesystem::current_path()));
    EXPECT_FALSE(m_logger.Init(true, Path(), kAll));
}

struct PrefixRow
{
    uint32_t level;
    const char* tag; // as a regular expression
};

class LoggerPrefixTest : public LoggerTest, public testing::WithParamInterface<PrefixRow>
{
};

TEST_P(LoggerPrefixTest, Trace_Level_WritesStampTagAndMessage)
{
    m_logger.Init(true, Path(), kAll);
    m_logger.Trace(static_cast<ZrLogLevel>(GetParam().level), "status 0x%04x of %s", 0xC006,
                   "claim");
    ASSERT_EQ(Lines().size(), 1u);
    EXPECT_TRUE(std::regex_match(Lines()[0],
                                 std::regex(LinePattern(GetParam().tag, "status 0xc006 of claim"))))
        << Lines()[0];
}

INSTANTIATE_TEST_SUITE_P(Levels, LoggerPrefixTest,
                         testing::Values(PrefixRow{0x1, "\\[CRITICAL\\] "},
                                         PrefixRow{0x10, "\\[ERROR   \\] "},
                                         PrefixRow{0x100, "\\[WARNING \\] "},
                                         PrefixRow{0x1000, "\\[INFO    \\] "},
                                         PrefixRow{0x10000000, "\\[DEBUG   \\] "},
                                         PrefixRow{0x2, ""}, PrefixRow{0x11, ""}));

TEST_F(LoggerTest, SetLevel_ReplacesTheMask)
{
    m_logger.Init(true, Path(), kAll);
    m_logger.SetLevel(ZR_LOG_ERROR);
    m_logger.Trace(ZR_LOG_WARNING, "dropped");
    m_logger.Trace(ZR_LOG_ERROR, "written");
    ASSERT_EQ(Lines().size(), 1u);
    EXPECT_THAT(Lines()[0], testing::HasSubstr("[ERROR   ] written"));
}

TEST_F(LoggerTest, SetFileLoggingEnable_ChangesNothing)
{
    char other[] = "other.txt";
    m_logger.SetFileLoggingEnable(true, other);
    EXPECT_FALSE(std::filesystem::exists(other));
    m_logger.Init(true, Path(), kAll);
    m_logger.SetFileLoggingEnable(false, nullptr);
    m_logger.Trace(ZR_LOG_ERROR, "still there");
    EXPECT_EQ(Lines().size(), 1u);
}

TEST_F(LoggerTest, Trace_MessageLongerThanTheLine_IsCutAt4095Characters)
{
    m_logger.Init(true, Path(), kAll);
    m_logger.Trace(ZR_LOG_ERROR, "%s", std::string(10'000, 'x').c_str());
    ASSERT_EQ(Lines().size(), 1u);
    EXPECT_EQ(Lines()[0].size(), 4095u);
}

TEST_F(LoggerTest, Trace_MessageCannotBeFormatted_WritesThePrefixAlone)
{
    m_logger.Init(true, Path(), kAll);
    const wchar_t invalid[] = {static_cast<wchar_t>(0x7FFFFFFF), 0};
    m_logger.Trace(ZR_LOG_ERROR, "before %ls", invalid);
    ASSERT_EQ(Lines().size(), 1u);
    EXPECT_TRUE(std::regex_match(Lines()[0], std::regex(LinePattern("\\[ERROR   \\] ", ""))));
}

TEST_F(LoggerTest, Trace_ReturnedOnce_LineIsInTheFile)
{
    m_logger.Init(true, Path(), kAll);
    m_logger.Trace(ZR_LOG_ERROR, "flushed");
    EXPECT_EQ(Lines().size(), 1u); // while the file is still open
}

TEST_F(LoggerTest, Trace_ManyThreads_LinesNeverInterleave)
{
    m_logger.Init(true, Path(), kAll);
    std::vector<std::thread> threads;
    for (char c = 'a'; c < 'e'; ++c) {
        threads.emplace_back([this, c] {
            for (int i = 0; i < 100; ++i) {
                m_logger.Trace(ZR_LOG_INFO, "%s", std::string(200, c).c_str());
                m_logger.SetLevel(kAll);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    const std::regex pattern(LinePattern("\\[INFO    \\] ", "(a+|b+|c+|d+)"));
    ASSERT_EQ(Lines().size(), 400u);
    for (const auto& line : Lines()) {
        EXPECT_TRUE(std::regex_match(line, pattern)) << line;
    }
}

TEST_F(LoggerTest, Init_WhileOthersTrace_LosesNoWholeLineAndRacesWithNobody)
{
    std::atomic<bool> stop{false};
    std::thread tracer([&] {
        while (!stop) {
            m_logger.Trace(ZR_LOG_INFO, "x");
        }
    });
    std::thread initialiser([&] { m_logger.Init(true, Path(), kAll); });
    m_logger.Init(true, Path(), kAll);
    initialiser.join();
    stop = true;
    tracer.join();
    for (const auto& line : Lines()) {
        EXPECT_TRUE(line.ends_with("[INFO    ] x")) << line;
    }
}

TEST(GlobalLogger, UsedByEarlyStaticObject_IsNotBuiltAnew)
{
    EXPECT_TRUE(g_earlyUser.initialised);
    EXPECT_FALSE(g_logger.Init(true, nullptr, ZR_LOG_ERROR));
}

TEST(GlobalLoggerDeathTest, Trace_AfterItsDestruction_DoesNothing)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            g_traceAtTheEnd = true;
            exit(0);
        },
        testing::ExitedWithCode(0), "survived");
}

} // namespace
