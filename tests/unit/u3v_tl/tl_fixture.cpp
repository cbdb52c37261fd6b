#include "tl_fixture.h"

#include <mutex>
#include <ostream>

namespace {

std::mutex g_traceMutex;
std::vector<TracedLine> g_traced;

void Capture(unsigned level, const char* /*line*/, const char* message)
{
    const std::lock_guard lock(g_traceMutex);
    g_traced.push_back({level, message});
}

} // namespace

TraceCapture::TraceCapture()
{
    Clear();
    SetTraceHook(&Capture);
}

TraceCapture::~TraceCapture()
{
    SetTraceHook(nullptr);
}

std::vector<TracedLine> TraceCapture::Lines() const
{
    const std::lock_guard lock(g_traceMutex);
    return g_traced;
}

std::vector<std::string> TraceCapture::Errors() const
{
    std::vector<std::string> errors;
    for (const TracedLine& line : Lines()) {
        if (line.level == 2) {
            errors.push_back(line.message);
        }
    }
    return errors;
}

void TraceCapture::Clear()
{
    const std::lock_guard lock(g_traceMutex);
    g_traced.clear();
}

std::string HandleText(const void* handle)
{
    char text[16];
    snprintf(text, sizeof(text), "0x%X",
             static_cast<unsigned>(reinterpret_cast<uintptr_t>(handle)));
    return text;
}

LastError ReadLastError()
{
    char text[64] = {};
    size_t size = sizeof(text);
    LastError error{};
    EXPECT_EQ(GCGetLastError(&error.code, text, &size), GC_ERR_SUCCESS);
    error.text = text;
    return error;
}

void LeaveParameterError(TL_HANDLE tl)
{
    ASSERT_EQ(TLGetNumInterfaces(tl, nullptr), GC_ERR_INVALID_PARAMETER);
}

std::ostream& operator<<(std::ostream& out, const TracedLine& line)
{
    return out << "[" << line.level << "] " << line.message;
}

std::ostream& operator<<(std::ostream& out, const LastError& error)
{
    return out << error.code << " " << error.text;
}

std::ostream& operator<<(std::ostream& out, const TextAnswer& answer)
{
    return out << "status " << answer.status << " type " << answer.type << " size " << answer.size
               << " \"" << answer.text << "\"";
}

void LibraryTest::SetUp()
{
    FakeU3V::Instance().Reset();
}

void LibraryTest::TearDown()
{
    static_cast<void>(GCCloseLib());
    EXPECT_EQ(FakeU3V::Instance().OpenHandles(), 0);
}

void SystemTest::SetUp()
{
    LibraryTest::SetUp();
    ASSERT_EQ(GCInitLib(), GC_ERR_SUCCESS);
    ASSERT_EQ(TLOpen(&m_tl), GC_ERR_SUCCESS);
}

void InterfaceTest::SetUp()
{
    SystemTest::SetUp();
    FakeU3V::Instance().SetCameras({FakeU3V::MakeCamera("GUID-A", "VendorA", "ModelA", "1.0"),
                                    FakeU3V::MakeCamera("GUID-B", "VendorB", "ModelB", "2.0")});
    ASSERT_EQ(TLUpdateInterfaceList(m_tl, nullptr, 0), GC_ERR_SUCCESS);
    ASSERT_EQ(TLOpenInterface(m_tl, kInterfaceIdText, &m_iface), GC_ERR_SUCCESS);
}

GC_ERROR InterfaceTest::UpdateUntilDone(bool8_t* changed)
{
    // With two more begun, one of them began after this and is over.
    const size_t enough = FakeU3V::Instance().CountOf("U3V_DiscoveryDevices") + 2;
    bool anyChange = false;
    GC_ERROR status = GC_ERR_TIMEOUT;
    bool fresh = false;
    for (int attempt = 0; attempt < 1000 && (status == GC_ERR_TIMEOUT || !fresh); ++attempt) {
        fresh = FakeU3V::Instance().CountOf("U3V_DiscoveryDevices") >= enough;
        bool8_t change = false;
        status = IFUpdateDeviceList(m_iface, &change, 5);
        anyChange = anyChange || change;
    }
    if (changed != nullptr) {
        *changed = anyChange;
    }
    return status;
}

void InterfaceTest::UpdateDevices()
{
    ASSERT_EQ(UpdateUntilDone(nullptr), GC_ERR_SUCCESS);
}
