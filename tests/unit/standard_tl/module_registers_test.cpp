#include "module_registers.h"

#include <gtest/gtest.h>
#include <optional>

#include "failure.h"

namespace standard_tl {
namespace {

constexpr DocumentIdentity kIdentity{"test", "test", "TestPort",
                                     "00000000-0000-0000-0000-000000000000"};
constexpr uint64_t kFirst = RegisterMap::kFirstRegister;
constexpr uint64_t kText = kFirst;          // 16 bytes
constexpr uint64_t kNumber = kFirst + 16;   // read only
constexpr uint64_t kSelector = kFirst + 24; // 0 to Largest
constexpr uint64_t kMode = kFirst + 32;     // 1 or 5, unless locked
constexpr uint64_t kCommand = kFirst + 40;
constexpr uint64_t kLocked = kFirst + 48;
constexpr uint64_t kEnd = kFirst + 64;

class ModuleRegisters : public testing::Test
{
protected:
    Feature Number(const char* name, uint64_t& value, bool isWritable)
    {
        Feature feature = NumberFeature("C", name, "t", [&value] { return Value(value); });
        if (isWritable) {
            feature.set = [&value](uint64_t written) { value = written; };
        }
        return feature;
    }

    std::vector<Feature> Features()
    {
        Feature selectorFeature = Number("Selector", selector, true);
        selectorFeature.maximum = "Largest";
        Feature modeFeature = Number("Mode", mode, true);
        modeFeature.kind = FeatureKind::Choice;
        modeFeature.choices = {{"One", 1}, {"Five", 5}};
        modeFeature.locked = "Locked";
        Feature command = Number("Command", executed, true);
        command.kind = FeatureKind::Command;
        Feature lockedFeature = Number("Locked", locked, true);
        lockedFeature.kind = FeatureKind::Flag;
        return {TextFeature(
                    "C", "Text", "t", [this] { return Value(text); }, 16),
                Number("Number", number, false),
                selectorFeature,
                modeFeature,
                command,
                lockedFeature,
                Number("Largest", largest, false)};
    }

    std::vector<uint8_t> Read(uint64_t address, size_t size)
    {
        std::vector<uint8_t> bytes(size, 0xEE);
        map.Read(address, bytes);
        return bytes;
    }
    GC_ERROR TryRead(uint64_t address, size_t size)
    {
        return Try([&] { Read(address, size); });
    }
    GC_ERROR TryWrite(uint64_t address, const std::vector<uint8_t>& bytes)
    {
        return Try([&] { map.Write(address, bytes); });
    }
    template <class Call>
    static GC_ERROR Try(Call call)
    {
        try {
            call();
            return GC_ERR_SUCCESS;
        } catch (const Failure& failure) {
            EXPECT_STRNE(failure.what(), "");
            return failure.Code();
        }
    }

    std::string text = "hello";
    uint64_t number = 0x1122334455667788;
    uint64_t selector = 0;
    uint64_t mode = 1;
    uint64_t executed = 0;
    uint64_t locked = 0;
    uint64_t largest = 300;
    RegisterMap map{kIdentity, Features()};
};

using Bytes8 = std::vector<uint8_t>;

TEST_F(ModuleRegisters, Read_WholeRegisters_TextIsPaddedNumbersAreLittleEndian)
{
    EXPECT_EQ(Read(kText, 16), (Bytes8{'h', 'e', 'l', 'l', 'o', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(Read(kNumber, 8), (Bytes8{0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11}));
}

TEST_F(ModuleRegisters, Read_LongText_IsCutAndEnded)
{
    text = "0123456789abcdefXYZ";
    const auto bytes = Read(kText, 16);
    EXPECT_EQ(std::string(bytes.begin(), bytes.end() - 1), "0123456789abcde");
    EXPECT_EQ(bytes.back(), 0);
}

TEST_F(ModuleRegisters, Read_EveryRange_IsAPieceOfTheWhole)
{
    const auto all = Read(kFirst, kEnd - kFirst);
    for (size_t from = 0; from < all.size(); ++from) {
        for (size_t size = 0; size <= all.size() - from; ++size) {
            const auto begin = all.begin() + static_cast<ptrdiff_t>(from);
            ASSERT_EQ(Read(kFirst + from, size),
                      Bytes8(begin, begin + static_cast<ptrdiff_t>(size)))
                << from << " " << size;
        }
    }
}

TEST_F(ModuleRegisters, Read_AnyByteOutside_IsInvalidAddress)
{
    const std::pair<uint64_t, size_t> ranges[] = {
        {0, 4},          {kFirst - 1, 2}, {kEnd, 1},          {kEnd - 1, 2},
        {UINT64_MAX, 1}, {kNumber, 1000}, {UINT64_MAX - 3, 8}};
    for (const auto& [address, size] : ranges) {
        EXPECT_EQ(TryRead(address, size), GC_ERR_INVALID_ADDRESS) << address;
        EXPECT_EQ(TryWrite(address, Bytes8(size)), GC_ERR_INVALID_ADDRESS) << address;
    }
}

TEST_F(ModuleRegisters, Write_PartOfARegister_KeepsTheRest)
{
    selector = 0x0101;
    EXPECT_EQ(TryWrite(kSelector, {0x20}), GC_ERR_SUCCESS);
    EXPECT_EQ(selector, 0x0120U);
    EXPECT_EQ(TryWrite(kSelector + 1, {0, 0}), GC_ERR_SUCCESS);
    EXPECT_EQ(selector, 0x0020U);
}

TEST_F(ModuleRegisters, Write_SeveralRegisters_WritesAll)
{
    Bytes8 bytes(16);
    bytes[0] = 7;
    bytes[8] = 5;
    EXPECT_EQ(TryWrite(kSelector, bytes), GC_ERR_SUCCESS);
    EXPECT_EQ(selector, 7U);
    EXPECT_EQ(mode, 5U);
}

TEST_F(ModuleRegisters, Write_ReadOnlyAmongThem_IsDeniedAndDoesNothing)
{
    Bytes8 bytes(16);
    bytes[8] = 7;
    EXPECT_EQ(TryWrite(kNumber, bytes), GC_ERR_ACCESS_DENIED);
    EXPECT_EQ(selector, 0U);
    EXPECT_EQ(TryWrite(kText + 3, {1}), GC_ERR_ACCESS_DENIED);
}

TEST_F(ModuleRegisters, Write_ValueNotAllowed_IsInvalidValueAndDoesNothing)
{
    EXPECT_EQ(TryWrite(kSelector, {0x2D, 1}), GC_ERR_INVALID_VALUE) << "301";
    Bytes8 bytes(16);
    bytes[0] = 7;
    bytes[8] = 2;
    EXPECT_EQ(TryWrite(kSelector, bytes), GC_ERR_INVALID_VALUE) << "mode 2";
    EXPECT_EQ(selector, 0U);
    EXPECT_EQ(TryWrite(kLocked, {2}), GC_ERR_INVALID_VALUE);
    EXPECT_EQ(TryWrite(kSelector, {0x2C, 1}), GC_ERR_SUCCESS) << "300";
}

TEST_F(ModuleRegisters, Write_Locked_IsDenied)
{
    locked = 1;
    EXPECT_EQ(TryWrite(kMode, {5}), GC_ERR_ACCESS_DENIED);
    EXPECT_EQ(mode, 1U);
    locked = 0;
    EXPECT_EQ(TryWrite(kMode, {5}), GC_ERR_SUCCESS);
}

TEST_F(ModuleRegisters, Document_LiesWhereItsFileSays)
{
    const auto& file = map.File();
    EXPECT_EQ(file.name, "test.xml");
    const auto bytes = Read(file.address, file.size);
    const std::string document(bytes.begin(), bytes.end());
    EXPECT_EQ(document.substr(0, 5), "<?xml");
    EXPECT_EQ(document.substr(document.size() - 23), "</RegisterDescription>\n");
    EXPECT_EQ(Read(file.address + 2, 3), (Bytes8{'x', 'm', 'l'}));
}

TEST_F(ModuleRegisters, Document_BeyondItsEnd_IsInvalidAddressAndItIsReadOnly)
{
    const auto& file = map.File();
    EXPECT_EQ(TryRead(file.address, file.size + 1), GC_ERR_INVALID_ADDRESS);
    EXPECT_EQ(TryRead(file.address + file.size, 1), GC_ERR_INVALID_ADDRESS);
    EXPECT_EQ(TryRead(file.address - 1, 2), GC_ERR_INVALID_ADDRESS);
    EXPECT_EQ(TryWrite(file.address, {1}), GC_ERR_ACCESS_DENIED);
    EXPECT_EQ(TryWrite(file.address + file.size - 1, {1, 2}), GC_ERR_INVALID_ADDRESS);
}

TEST_F(ModuleRegisters, Document_OtherFeatures_OtherVersion)
{
    const auto version = [](const RegisterMap& registers) {
        std::vector<uint8_t> bytes(registers.File().size);
        registers.Read(registers.File().address, bytes);
        const std::string document(bytes.begin(), bytes.end());
        return document.substr(document.find("VersionGuid="), 50);
    };
    auto features = Features();
    features[0].toolTip = "another";
    EXPECT_NE(version(map), version(RegisterMap(kIdentity, features)));
    EXPECT_EQ(version(map), version(RegisterMap(kIdentity, Features())));
}

} // namespace
} // namespace standard_tl
