// The Interface's register map: every register at its exact address, what can be written, and the
// document.

#include <atomic>
#include <chrono>
#include <thread>

#include "port_access.h"
#include "wait.h"
#include "zr_gentl_util.h"

namespace {

using Errors = std::vector<std::string>;

class InterfaceRegisters : public InterfaceTest
{
};

TEST_F(InterfaceRegisters, NoDevice_IdOnly)
{
    EXPECT_EQ(StringAt(m_iface, 0x60000), StringAnswer("ZRK-USB-3-IF ID"));
    EXPECT_EQ(IntegerAt(m_iface, 0x60104), 0);
    EXPECT_EQ(IntegerAt(m_iface, 0x60108), 0);
    EXPECT_EQ(StringAt(m_iface, 0x6010C), StringAnswer(""));
    EXPECT_EQ(StringAt(m_iface, 0x6020C), StringAnswer(""));
    EXPECT_EQ(StringAt(m_iface, 0x6030C), StringAnswer(""));
    EXPECT_EQ(IntegerAt(m_iface, 0x6040C), 0);
    EXPECT_EQ(IntegerAt(m_iface, 0x60410), 0);
}

TEST_F(InterfaceRegisters, SelectedDevice_FollowsTheSelector)
{
    U3V_DEVICE_INFO second = FakeU3V::MakeCamera("GUID-B", "VendorB", "ModelB", "2.0");
    second.InUse = 1;
    FakeU3V::Instance().SetCameras(
        {FakeU3V::MakeCamera("GUID-A", "VendorA", "ModelA", "1.0"), second});
    UpdateDevices();
    EXPECT_EQ(IntegerAt(m_iface, 0x60410), 2);
    EXPECT_EQ(StringAt(m_iface, 0x6010C), StringAnswer("GUID-A"));
    EXPECT_EQ(StringAt(m_iface, 0x6020C), StringAnswer("VendorA"));
    EXPECT_EQ(StringAt(m_iface, 0x6030C), StringAnswer("ModelA"));
    EXPECT_EQ(IntegerAt(m_iface, 0x6040C), 1);
    EXPECT_EQ(WriteAt(m_iface, 0x60108, {1, 0, 0, 0}), 0);
    EXPECT_EQ(IntegerAt(m_iface, 0x60108), 1);
    EXPECT_EQ(StringAt(m_iface, 0x6010C), StringAnswer("GUID-B"));
    EXPECT_EQ(StringAt(m_iface, 0x6020C), StringAnswer("VendorB"));
    EXPECT_EQ(StringAt(m_iface, 0x6030C), StringAnswer("ModelB"));
    EXPECT_EQ(IntegerAt(m_iface, 0x6040C), 3);
}

TEST_F(InterfaceRegisters, Selector_OutOfRange_EmptyAndZero)
{
    UpdateDevices();
    EXPECT_EQ(WriteAt(m_iface, 0x60108, {2, 0, 0, 0, 9}), 0);
    EXPECT_EQ(IntegerAt(m_iface, 0x60108), 2);
    EXPECT_EQ(StringAt(m_iface, 0x6010C), StringAnswer(""));
    EXPECT_EQ(StringAt(m_iface, 0x6020C), StringAnswer(""));
    EXPECT_EQ(StringAt(m_iface, 0x6030C), StringAnswer(""));
    EXPECT_EQ(IntegerAt(m_iface, 0x6040C), 0);
    UpdateDevices();
    EXPECT_EQ(IntegerAt(m_iface, 0x60108), 2); // not reset by an update
}

TEST_F(InterfaceRegisters, StringTooSmall_SizeTold)
{
    UpdateDevices();
    const PortRead read = ReadAt(m_iface, 0x6010C, 6);
    EXPECT_EQ(read.status, -1016);
    EXPECT_EQ(read.size, 7u);
    EXPECT_EQ(read.bytes, std::vector<uint8_t>(6, 0xEE));
}

TEST_F(InterfaceRegisters, Read_AnyOtherAddress_NotImplementedWithoutALine)
{
    for (const uint64_t address :
         Addresses{0x0, 0x10001, 0x60001, 0x60100, 0x60105, 0x60109, 0x6010D, 0x6020B, 0x6030B,
                   0x6040B, 0x60411, 0x60414, 0x50000}) {
        TraceCapture trace;
        EXPECT_EQ(ReadAt(m_iface, address, 256).status, -1003) << std::hex << address;
        EXPECT_EQ(trace.Errors(), (Errors{"GCReadPort Failed:-1003"}));
    }
}

TEST_F(InterfaceRegisters, Write_AnyButTheTwo_NotImplementedWithoutALine)
{
    for (const uint64_t address : Addresses{0x10000, 0x60000, 0x6010C, 0x6020C, 0x6030C, 0x6040C,
                                            0x60410, 0x60105, 0x60109}) {
        TraceCapture trace;
        EXPECT_EQ(WriteAt(m_iface, address, {1, 0, 0, 0}), -1003) << std::hex << address;
        EXPECT_EQ(trace.Errors(), (Errors{"GCWritePort Failed:-1003"}));
    }
}

TEST_F(InterfaceRegisters, NullBufferOrSize_TracedWithTheOperationsName)
{
    char buffer[4] = {};
    size_t size = sizeof(buffer);
    TraceCapture trace;
    EXPECT_EQ(GCReadPort(m_iface, 0x60000, nullptr, &size), -1009);
    EXPECT_EQ(GCReadPort(m_iface, 0x1, buffer, nullptr), -1009);
    EXPECT_EQ(GCWritePort(m_iface, 0x60108, nullptr, &size), -1009);
    EXPECT_EQ(GCWritePort(m_iface, 0x1, buffer, nullptr), -1009);
    EXPECT_EQ(trace.Errors(),
              (Errors{"ReadPort failed! GC_ERR_INVALID_PARAMETER", "GCReadPort Failed:-1009",
                      "ReadPort failed! GC_ERR_INVALID_PARAMETER", "GCReadPort Failed:-1009",
                      "WritePort failed! GC_ERR_INVALID_PARAMETER", "GCWritePort Failed:-1009",
                      "WritePort failed! GC_ERR_INVALID_PARAMETER", "GCWritePort Failed:-1009"}));
}

// A pass that does not end: while the update runs the register reads 1 and everything else is
// served. Closing the interface gives the update up, and the write is a success all the same.
TEST_F(InterfaceRegisters, UpdateList_WhileItRuns_ReadsOne_SuccessThoughTheUpdateFails)
{
    std::atomic<bool> release{false};
    FakeU3V::Instance().OnCall("U3V_DiscoveryDevices", [&release] {
        zr_test::WaitUntil([&release] { return release.load(); });
    });
    TraceCapture trace;
    GC_ERROR written = -1;
    std::thread writer([&] { written = WriteAt(m_iface, 0x60104, {0, 0, 0, 0}); });
    EXPECT_TRUE(zr_test::WaitUntil([this] { return IntegerAt(m_iface, 0x60104) == 1; }));
    EXPECT_EQ(IntegerAt(m_iface, 0x60410), 0);
    std::thread closer([&] { EXPECT_EQ(IFClose(m_iface), 0); });
    writer.join();
    EXPECT_EQ(written, 0);
    EXPECT_EQ(trace.Errors(), (Errors{"UpdateDeviceList GC_ERR_TIMEOUT"}));
    release = true;
    closer.join();
}

TEST_F(InterfaceRegisters, UpdateList_AnyValue_RunsForFiveSeconds)
{
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(WriteAt(m_iface, 0x60104, {0, 0, 0, 0}), 0);
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took, std::chrono::milliseconds(4900));
    EXPECT_LT(took, std::chrono::milliseconds(8000));
    EXPECT_EQ(IntegerAt(m_iface, 0x60410), 2);
    EXPECT_EQ(IntegerAt(m_iface, 0x60104), 0);
}

TEST_F(InterfaceRegisters, Document_ExactBytesAndUrl)
{
    const std::string text = ZrGenTLUtil::CreateXMLInterface();
    const PortRead read = ReadAt(m_iface, 0x10000, text.size() + 1);
    EXPECT_EQ(read.status, 0);
    EXPECT_EQ(read.size, text.size() + 1);
    std::vector<uint8_t> expected(text.begin(), text.end());
    expected.push_back(0xEE);
    EXPECT_EQ(read.bytes, expected);
    EXPECT_EQ(ReadAt(m_iface, 0x10000, 3).bytes, (std::vector<uint8_t>{'<', '?', 'x'}));

    char url[64];
    snprintf(url, sizeof(url), "local:ZrGenTLU3V_IF.xml;10000;%zX", text.size());
    EXPECT_EQ(ReadText([this](auto... out) { return GCGetPortURLInfo(m_iface, 0, 0, out...); }),
              Text(url));
}

} // namespace
