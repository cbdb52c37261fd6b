// Where the path of the producer's file comes from when the loader or the file system does not
// tell. The linker puts these functions before the C library's.

#include <cstdlib>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include "zr_u3v_system.h"

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {
int __real_dladdr(const void* address, Dl_info* info);
int __wrap_dladdr(const void* address, Dl_info* info);
char* __real_realpath(const char* path, char* resolved);
char* __wrap_realpath(const char* path, char* resolved);
char* __wrap___realpath_chk(const char* path, char* resolved, size_t length);
}

namespace {

bool g_loaderKnows = true;
const char* g_fileName = nullptr;
bool g_fileExists = true;

} // namespace

int __wrap_dladdr(const void* address, Dl_info* info)
{
    if (!g_loaderKnows) {
        return 0;
    }
    const int result = __real_dladdr(address, info);
    if (g_fileName != nullptr) {
        info->dli_fname = *g_fileName != '\0' ? g_fileName : nullptr;
    }
    return result;
}

char* __wrap_realpath(const char* path, char* resolved)
{
    return g_fileExists ? __real_realpath(path, resolved) : nullptr;
}

char* __wrap___realpath_chk(const char* path, char* resolved, size_t /*length*/)
{
    return __wrap_realpath(path, resolved);
}

// NOLINTEND(bugprone-reserved-identifier)

namespace {

class CtiPath : public ::testing::Test
{
protected:
    ~CtiPath() override
    {
        g_loaderKnows = true;
        g_fileName = nullptr;
        g_fileExists = true;
    }

    ZrU3VSystem m_system;
};

TEST_F(CtiPath, LinkOnTheWay_IsTheFileItself)
{
    g_fileName = "/proc/self/exe";
    char own[4097] = {};
    ASSERT_NE(__real_realpath("/proc/self/exe", own), nullptr);
    EXPECT_EQ(m_system.GetCtiPath(), own);
}

TEST_F(CtiPath, FileCannotBeResolved_IsTheNameThatTheLoaderKnows)
{
    g_fileExists = false;
    g_fileName = "./moved/away.cti";
    EXPECT_EQ(m_system.GetCtiPath(), "./moved/away.cti");
}

TEST_F(CtiPath, LoaderHasNoName_IsEmpty)
{
    g_fileExists = false;
    g_fileName = "";
    EXPECT_EQ(m_system.GetCtiPath(), "");
}

TEST_F(CtiPath, LoaderDoesNotKnowTheLibrary_IsEmpty)
{
    g_loaderKnows = false;
    EXPECT_EQ(m_system.GetCtiPath(), "");
}

} // namespace
