// The System's register map: every register at its exact address, what can be written, and the
// document.

#include <climits>
#include <cstdlib>

#include "port_access.h"
#include "zr_gentl_util.h"
#include "zr_u3v_system.h"

namespace {

class SystemRegisters : public SystemTest
{
};

TEST_F(SystemRegisters, Strings_AreTheProducersIdentity)
{
    EXPECT_EQ(StringAt(m_tl, 0x50000), StringAnswer("ZRK-ORVANE GmbH"));
    EXPECT_EQ(StringAt(m_tl, 0x50100), StringAnswer("U3VTL"));
    EXPECT_EQ(StringAt(m_tl, 0x50200), StringAnswer("ZrGenTLU3V"));
    EXPECT_EQ(StringAt(m_tl, 0x50300), StringAnswer(ZR_EXACT_VERSION));
    char path[PATH_MAX] = {};
    ASSERT_NE(realpath("/proc/self/exe", path), nullptr);
    EXPECT_EQ(StringAt(m_tl, 0x50400), StringAnswer(path));
}

TEST_F(SystemRegisters, MirroredString_RestOfTheBufferIsCleared)
{
    const PortRead read = ReadAt(m_tl, 0x50100, 256);
    EXPECT_EQ(read.bytes, [] {
        std::vector<uint8_t> bytes(256, 0);
        const char text[] = "U3VTL";
        std::copy(text, text + 5, bytes.begin());
        return bytes;
    }());
}

TEST_F(SystemRegisters, MirroredString_RoomForTextButNotItsZero_TooSmall)
{
    const PortRead read = ReadAt(m_tl, 0x50100, 5);
    EXPECT_EQ(read.status, -1016);
    EXPECT_EQ(read.size, 6u);
    EXPECT_EQ(ReadAt(m_tl, 0x50100, 6).status, 0);
}

TEST_F(SystemRegisters, Integers_WithoutInterface)
{
    EXPECT_EQ(IntegerAt(m_tl, 0x50504), 1);
    EXPECT_EQ(IntegerAt(m_tl, 0x50508), 3);
    EXPECT_EQ(IntegerAt(m_tl, 0x5050C), 0);
    EXPECT_EQ(IntegerAt(m_tl, 0x50510), 0);
    EXPECT_EQ(StringAt(m_tl, 0x50514), StringAnswer(""));
    EXPECT_EQ(IntegerAt(m_tl, 0x50614), 0);
}

TEST_F(SystemRegisters, Integer_LessThanFourBytes_TooSmall)
{
    for (const uint64_t address : Addresses{0x50504, 0x5050C, 0x50510, 0x50614}) {
        const PortRead read = ReadAt(m_tl, address, 3);
        EXPECT_EQ(read.status, -1016);
        EXPECT_EQ(read.size, 4u);
    }
}

TEST_F(SystemRegisters, UpdateList_AnyValue_RunsTheUpdate)
{
    EXPECT_EQ(WriteAt(m_tl, 0x5050C, {0, 0, 0, 0}), 0);
    EXPECT_EQ(IntegerAt(m_tl, 0x50614), 1);
    EXPECT_EQ(StringAt(m_tl, 0x50514), StringAnswer("ZRK-USB-3-IF ID"));
    EXPECT_EQ(IntegerAt(m_tl, 0x5050C), 0); // over again
}

TEST_F(SystemRegisters, Selector_OutOfRange_StoredAndTheIdIsEmpty)
{
    ASSERT_EQ(TLUpdateInterfaceList(m_tl, nullptr, 0), 0);
    EXPECT_EQ(WriteAt(m_tl, 0x50510, {7, 0, 0, 0}), 0);
    EXPECT_EQ(IntegerAt(m_tl, 0x50510), 7);
    EXPECT_EQ(StringAt(m_tl, 0x50514), StringAnswer(""));
    EXPECT_EQ(WriteAt(m_tl, 0x50510, {1, 0, 0, 0}), 0);
    EXPECT_EQ(StringAt(m_tl, 0x50514), StringAnswer(""));
    EXPECT_EQ(WriteAt(m_tl, 0x50510, {0, 0, 0, 0}), 0);
    EXPECT_EQ(StringAt(m_tl, 0x50514), StringAnswer("ZRK-USB-3-IF ID"));
}

TEST_F(SystemRegisters, Selector_FourBytesLittleEndian_MoreIgnored)
{
    EXPECT_EQ(WriteAt(m_tl, 0x50510, {0x78, 0x56, 0x34, 0x12, 0xFF, 0xFF}), 0);
    EXPECT_EQ(ReadAt(m_tl, 0x50510, 4).bytes, (std::vector<uint8_t>{0x78, 0x56, 0x34, 0x12}));
    EXPECT_EQ(WriteAt(m_tl, 0x50510, {0x11}), 0); // nothing beyond the caller's bytes is read
    EXPECT_EQ(IntegerAt(m_tl, 0x50510), 0x11);
}

TEST_F(SystemRegisters, Selector_ListChanges_NotReset)
{
    ASSERT_EQ(WriteAt(m_tl, 0x50510, {7, 0, 0, 0}), 0);
    ASSERT_EQ(WriteAt(m_tl, 0x5050C, {1, 0, 0, 0}), 0);
    EXPECT_EQ(IntegerAt(m_tl, 0x50510), 7);
}

TEST_F(SystemRegisters, Read_AnyOtherAddress_NotImplementedWithoutALine)
{
    for (const uint64_t address : Addresses{0x0, 0xFFFF, 0x10001, 0x50001, 0x500FF, 0x50500,
                                            0x50505, 0x5050D, 0x50515, 0x50610, 0x50618, 0x60000}) {
        TraceCapture trace;
        EXPECT_EQ(ReadAt(m_tl, address, 256).status, -1003) << std::hex << address;
        EXPECT_EQ(trace.Errors(), (std::vector<std::string>{"GCReadPort Failed:-1003"}));
    }
}

TEST_F(SystemRegisters, Write_AnyButTheTwo_NotImplementedWithoutALine)
{
    for (const uint64_t address :
         Addresses{0x10000, 0x50000, 0x50100, 0x50200, 0x50300, 0x50400, 0x50504, 0x50508, 0x5050D,
                   0x50511, 0x50514, 0x50614, 0x0}) {
        TraceCapture trace;
        EXPECT_EQ(WriteAt(m_tl, address, {1, 0, 0, 0}), -1003) << std::hex << address;
        EXPECT_EQ(trace.Errors(), (std::vector<std::string>{"GCWritePort Failed:-1003"}));
    }
}

TEST_F(SystemRegisters, NullBufferOrSize_TracedWithTheOperationsName)
{
    char buffer[4] = {};
    size_t size = sizeof(buffer);
    TraceCapture trace;
    EXPECT_EQ(GCReadPort(m_tl, 0x50000, nullptr, &size), -1009);
    EXPECT_EQ(GCReadPort(m_tl, 0x1, buffer, nullptr), -1009);
    EXPECT_EQ(GCWritePort(m_tl, 0x5050C, nullptr, &size), -1009);
    EXPECT_EQ(GCWritePort(m_tl, 0x1, buffer, nullptr), -1009);
    EXPECT_EQ(trace.Errors(),
              (std::vector<std::string>{
                  "ReadPort failed! GC_ERR_INVALID_PARAMETER", "GCReadPort Failed:-1009",
                  "ReadPort failed! GC_ERR_INVALID_PARAMETER", "GCReadPort Failed:-1009",
                  "WritePort failed! GC_ERR_INVALID_PARAMETER", "GCWritePort Failed:-1009",
                  "WritePort failed! GC_ERR_INVALID_PARAMETER", "GCWritePort Failed:-1009"}));
}

TEST_F(SystemRegisters, Stacked_FirstFailureEnds)
{
    char selector[4] = {7, 0, 0, 0};
    char later[4] = {9, 0, 0, 0};
    PORT_REGISTER_STACK_ENTRY entries[] = {
        {0x50510, selector, 4}, {0x1, later, 4}, {0x50510, later, 4}};
    size_t count = 3;
    EXPECT_EQ(GCWritePortStacked(m_tl, entries, &count), -1003);
    EXPECT_EQ(IntegerAt(m_tl, 0x50510), 7);
    EXPECT_EQ(count, 3u);
}

TEST_F(SystemRegisters, IsAddressValid_TheTenAndNoOther)
{
    for (const uint64_t address : Addresses{0x50000, 0x50100, 0x50200, 0x50300, 0x50400, 0x50504,
                                            0x50508, 0x5050C, 0x50510, 0x50514}) {
        EXPECT_TRUE(ZrU3VSystem::_isAddressValid(address)) << std::hex << address;
    }
    for (const uint64_t address :
         Addresses{0x50614, 0x10000, 0x0, 0x50001, 0x50500, 0x50518, 0x60000}) {
        EXPECT_FALSE(ZrU3VSystem::_isAddressValid(address)) << std::hex << address;
    }
}

// ---- document

TEST_F(SystemRegisters, Document_LargerBuffer_ExactBytesAndSizeUnchanged)
{
    const std::string text = ZrGenTLUtil::CreateXMLSystem();
    const PortRead read = ReadAt(m_tl, 0x10000, text.size() + 3);
    EXPECT_EQ(read.status, 0);
    EXPECT_EQ(read.size, text.size() + 3);
    std::vector<uint8_t> expected(text.begin(), text.end());
    expected.resize(text.size() + 3, 0xEE);
    EXPECT_EQ(read.bytes, expected);
}

TEST_F(SystemRegisters, Document_SmallerBuffer_SilentlyCut)
{
    const PortRead read = ReadAt(m_tl, 0x10000, 5);
    EXPECT_EQ(read.status, 0);
    EXPECT_EQ(read.size, 5u);
    EXPECT_EQ(read.bytes, (std::vector<uint8_t>{'<', '?', 'x', 'm', 'l'}));
}

TEST_F(SystemRegisters, Url_NamesFileAddressAndLength)
{
    char expected[64];
    snprintf(expected, sizeof(expected), "local:ZrGenTLU3V_TL.xml;10000;%zX",
             ZrGenTLUtil::CreateXMLSystem().size());
    EXPECT_EQ(ReadText([this](auto... out) { return GCGetPortURLInfo(m_tl, 0, 0, out...); }),
              Text(expected));
    char url[64] = {};
    size_t size = sizeof(url);
    EXPECT_EQ(GCGetPortURL(m_tl, url, &size), 0);
    EXPECT_STREQ(url, expected);
    uint32_t count = 0;
    EXPECT_EQ(GCGetNumPortURLs(m_tl, &count), 0);
    EXPECT_EQ(count, 1u);
    INFO_DATATYPE type = 0;
    EXPECT_EQ(GCGetPortURLInfo(m_tl, 1, 0, &type, nullptr, &size), -1017);
}

} // namespace
