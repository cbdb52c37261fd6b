// From GCInitLib to GCCloseLib, last errors, and what a forked child finds.

#include "standard_fixture.h"

#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace standard_tl {
namespace {

using LibraryTest = StandardTest;

Answer InfoOfLibrary(TL_INFO_CMD command)
{
    return Ask([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
        return GCGetInfo(command, type, buffer, size);
    });
}

TEST_F(LibraryTest, InitLib_Twice_IsInUse)
{
    EXPECT_EQ(GCInitLib(), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(TheLastError().text,
              "GCInitLib: GC_ERR_RESOURCE_IN_USE: the library is initialised already");
}

TEST_F(LibraryTest, CloseLib_Twice_IsNotInitialized)
{
    EXPECT_EQ(GCCloseLib(), GC_ERR_SUCCESS);
    EXPECT_EQ(GCCloseLib(), GC_ERR_NOT_INITIALIZED);
}

TEST_F(LibraryTest, InitLib_AfterCloseLib_StartsAnew)
{
    TL_HANDLE before = System();
    EXPECT_EQ(GCCloseLib(), GC_ERR_SUCCESS);
    EXPECT_EQ(GCInitLib(), GC_ERR_SUCCESS);
    uint32_t count = 0;
    EXPECT_EQ(TLGetNumInterfaces(before, &count), GC_ERR_INVALID_HANDLE);
    TL_HANDLE after = nullptr;
    EXPECT_EQ(TLOpen(&after), GC_ERR_SUCCESS);
    EXPECT_NE(before, after);
}

TEST_F(LibraryTest, InitLib_NoUsb_TellsWhyAndCanBeRepeated)
{
    EXPECT_EQ(GCCloseLib(), GC_ERR_SUCCESS);
    bus.initFailure = u3v_host::Error(u3v_host::ErrorKind::ResourceExhausted, "no thread");
    EXPECT_EQ(GCInitLib(), GC_ERR_RESOURCE_EXHAUSTED);
    EXPECT_EQ(TheLastError().text, "GCInitLib: GC_ERR_RESOURCE_EXHAUSTED: no thread");
    bus.initFailure.reset();
    EXPECT_EQ(GCInitLib(), GC_ERR_SUCCESS);
}

TEST_F(LibraryTest, CloseLib_EverythingOpen_ClosesAll)
{
    Stream();
    Remote();
    EVENT_HANDLE event = Register(Stream(), EVENT_NEW_BUFFER);
    BUFFER_HANDLE buffer = nullptr;
    ASSERT_EQ(DSAllocAndAnnounceBuffer(Stream(), 64, nullptr, &buffer), GC_ERR_SUCCESS);
    ASSERT_EQ(DSQueueBuffer(Stream(), buffer), GC_ERR_SUCCESS);
    ASSERT_EQ(DSStartAcquisition(Stream(), 0, GENTL_INFINITE), GC_ERR_SUCCESS);
    EXPECT_EQ(GCCloseLib(), GC_ERR_SUCCESS);
    EXPECT_FALSE(camera.mode) << "the camera is still open";
    EXPECT_EQ(camera.receiver, nullptr) << "its stream is still open";
    EXPECT_EQ(EventKill(event), GC_ERR_NOT_INITIALIZED);
}

TEST_F(LibraryTest, GetInfo_BeforeInitLib_Answers)
{
    EXPECT_EQ(GCCloseLib(), GC_ERR_SUCCESS);
    EXPECT_EQ(InfoOfLibrary(TL_INFO_TLTYPE).Text(), "U3V");
}

TEST_F(LibraryTest, GetInfo_EveryCommand_HasTypeAndValueOfTheStandard)
{
    EXPECT_EQ(InfoOfLibrary(TL_INFO_ID).Text(), "ZRK-U3V-STANDARD");
    EXPECT_EQ(InfoOfLibrary(TL_INFO_VENDOR).Text(), "ZRK-ORVANE GmbH");
    EXPECT_EQ(InfoOfLibrary(TL_INFO_MODEL).Text(), "U3V Standard");
    EXPECT_EQ(InfoOfLibrary(TL_INFO_VERSION).Text(), ZR_STANDARD_VERSION);
    EXPECT_EQ(InfoOfLibrary(TL_INFO_TLTYPE).Text(), "U3V");
    EXPECT_EQ(InfoOfLibrary(TL_INFO_DISPLAYNAME).Text(), "ZRK-ORVANE USB3 Vision");
    const Answer encoding = InfoOfLibrary(TL_INFO_CHAR_ENCODING);
    EXPECT_EQ(encoding.type, INFO_DATATYPE_INT32);
    EXPECT_EQ(encoding.As<int32_t>(), TL_CHAR_ENCODING_UTF8);
    const Answer major = InfoOfLibrary(TL_INFO_GENTL_VER_MAJOR);
    EXPECT_EQ(major.type, INFO_DATATYPE_UINT32);
    EXPECT_EQ(major.As<uint32_t>(), 1U);
    EXPECT_EQ(InfoOfLibrary(TL_INFO_GENTL_VER_MINOR).As<uint32_t>(), 6U);
}

// The functions stand in the test program itself here.
TEST_F(LibraryTest, GetInfo_Path_IsTheFileThatHoldsTheFunctions)
{
    char program[4096] = {};
    ASSERT_GT(readlink("/proc/self/exe", program, sizeof(program) - 1), 0);
    const std::string path = InfoOfLibrary(TL_INFO_PATHNAME).Text();
    EXPECT_EQ(path, program);
    EXPECT_EQ(InfoOfLibrary(TL_INFO_NAME).Text(), path.substr(path.rfind('/') + 1));
}

TEST_F(LibraryTest, GetInfo_UnknownCommand_IsNotImplementedAndNamed)
{
    EXPECT_EQ(InfoOfLibrary(11).code, GC_ERR_NOT_IMPLEMENTED);
    EXPECT_NE(TheLastError().text.find("command 11"), std::string::npos);
    EXPECT_EQ(InfoOfLibrary(-1).code, GC_ERR_NOT_IMPLEMENTED);
}

// ---- last error

TEST_F(LibraryTest, LastError_FreshThread_IsNoError)
{
    LastError last;
    std::thread([&last] { last = TheLastError(); }).join();
    EXPECT_EQ(last.code, GC_ERR_SUCCESS);
    EXPECT_EQ(last.text, "No error");
}

TEST_F(LibraryTest, LastError_TwoThreads_EachHasItsOwn)
{
    EXPECT_EQ(TLClose(nullptr), GC_ERR_INVALID_HANDLE);
    std::thread([] { EXPECT_EQ(GCInitLib(), GC_ERR_RESOURCE_IN_USE); }).join();
    EXPECT_EQ(TheLastError().code, GC_ERR_INVALID_HANDLE);
}

TEST_F(LibraryTest, LastError_ASuccess_DoesNotClearIt)
{
    EXPECT_EQ(TLClose(nullptr), GC_ERR_INVALID_HANDLE);
    System();
    EXPECT_EQ(TheLastError().code, GC_ERR_INVALID_HANDLE);
}

TEST_F(LibraryTest, LastError_NullPointersAndSmallBuffer_AreAnsweredAndNotNoted)
{
    EXPECT_EQ(TLClose(nullptr), GC_ERR_INVALID_HANDLE);
    GC_ERROR code = 0;
    size_t size = 0;
    char text[4] = "abc";
    EXPECT_EQ(GCGetLastError(nullptr, text, &size), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(GCGetLastError(&code, text, nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(GCGetLastError(&code, nullptr, &size), GC_ERR_SUCCESS);
    const size_t needed = size;
    size = sizeof(text);
    EXPECT_EQ(GCGetLastError(&code, text, &size), GC_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, needed);
    EXPECT_STREQ(text, "abc");
    EXPECT_EQ(TheLastError().code, GC_ERR_INVALID_HANDLE);
}

TEST_F(LibraryTest, LastError_VeryLongId_IsCutAtACharacter)
{
    std::string id(370, 'x');
    for (int i = 0; i < 50; ++i) {
        id += "\xC3\xA4";
    }
    size_t size = 0;
    EXPECT_EQ(IFGetDeviceInfo(Interface(), id.c_str(), 0, nullptr, nullptr, &size),
              GC_ERR_INVALID_ID);
    const std::string text = TheLastError().text;
    EXPECT_NE(text.find("xxx"), std::string::npos);
    const auto last = static_cast<unsigned char>(text.back());
    EXPECT_NE(last & 0xC0, 0xC0) << "half a character at the end";
}

// ---- forked children

// Runs the check in a child; true when it said so.
template <class Check>
bool InChild(Check check)
{
    const pid_t child = fork();
    if (child == 0) {
        alarm(20); // a hang is a failure
        _exit(check() ? 0 : 1);
    }
    int status = 0;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

TEST_F(LibraryTest, ForkedChild_ParentsHandles_AreNotInitialized)
{
    DS_HANDLE stream = Stream();
    EXPECT_TRUE(InChild([stream] {
        size_t size = 0;
        return DSGetInfo(stream, STREAM_INFO_ID, nullptr, nullptr, &size) ==
                   GC_ERR_NOT_INITIALIZED &&
               GCCloseLib() == GC_ERR_NOT_INITIALIZED;
    }));
    EXPECT_EQ(StreamInfo(STREAM_INFO_ID).code, GC_ERR_SUCCESS);
}

TEST_F(LibraryTest, ForkedChild_InitLib_StartsAnewWithHandlesOfItsOwn)
{
    TL_HANDLE parents = System();
    EXPECT_TRUE(InChild([parents] {
        TL_HANDLE own = nullptr;
        uint32_t count = 0;
        return GCInitLib() == GC_ERR_SUCCESS && TLOpen(&own) == GC_ERR_SUCCESS && own != parents &&
               TLGetNumInterfaces(parents, &count) == GC_ERR_INVALID_HANDLE &&
               GCCloseLib() == GC_ERR_SUCCESS;
    }));
}

// A thread that waits holds locks of the library all the time.
TEST_F(LibraryTest, ForkedChild_AnotherThreadInside_DoesNotHang)
{
    EVENT_HANDLE event = Register(Stream(), EVENT_NEW_BUFFER);
    std::thread waiter([event] {
        char record[64];
        size_t size = sizeof(record);
        EventGetData(event, record, &size, GENTL_INFINITE);
    });
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(InChild(
            [] { return GCInitLib() == GC_ERR_SUCCESS && GCCloseLib() == GC_ERR_SUCCESS; }));
    }
    EXPECT_EQ(EventKill(event), GC_ERR_SUCCESS);
    waiter.join();
}

} // namespace
} // namespace standard_tl
