#pragma once

// What the tests of the modules below one camera share: a camera behind the stand-in for the flat
// U3V functions, and readers of the typed answers.

#include <cstdint>
#include <string>
#include <vector>

#include "tl_fixture.h"
#include "zr_u3v_info.h"
#include "zr_u3v_remote_device.h"

inline constexpr uint64_t kFileAddress = 0xABCDEF00;
inline constexpr uint64_t kFileSize = 0x1F2E;
// Any status that no module knows: 0x8006, traced as 32774.
inline constexpr uint16_t kRefused = 0x8006;

// The record of the one camera; every string is told apart from every other.
inline _ZR_U3V_DEVICE_INFO CameraRecord()
{
    _ZR_U3V_DEVICE_INFO info;
    info.id = "GUID-A";
    info.vendor = "VendorA";
    info.model = "ModelA";
    info.displayName = "DisplayA";
    info.tlType = "TypeA";
    info.userDefinedName = "RecordName";
    info.serialNumber = "SerialA";
    info.version = "1.2";
    return info;
}

// An integer answer.
template <class T>
struct Answer
{
    GC_ERROR status;
    INFO_DATATYPE type;
    size_t size;
    T value;

    bool operator==(const Answer& other) const = default;
};

template <class T>
std::ostream& operator<<(std::ostream& out, const Answer<T>& answer)
{
    return out << "status " << answer.status << " type " << answer.type << " size " << answer.size
               << " value " << answer.value;
}

// Runs `query(type, buffer, size)` with a buffer of exactly one T.
template <class T, class Query>
Answer<T> ReadValue(Query query)
{
    Answer<T> answer{GC_ERR_SUCCESS, -1, sizeof(T), {}};
    answer.status = query(&answer.type, &answer.value, &answer.size);
    return answer;
}

// A register of a module's port as an integer; there is no type.
template <class T>
Answer<T> ReadRegisterOf(ZrGenTLModuleBase& module, uint64_t address)
{
    return ReadValue<T>([&](INFO_DATATYPE* /*type*/, void* buffer, size_t* size) {
        return module.ReadPort(address, buffer, size);
    });
}

template <class T>
Answer<T> RegisterValue(T value)
{
    return {GC_ERR_SUCCESS, -1, sizeof(T), value};
}

// A string register, read with the 4200 bytes of ReadText.
inline TextAnswer ReadTextRegisterOf(ZrGenTLModuleBase& module, uint64_t address)
{
    return ReadText([&](INFO_DATATYPE* /*type*/, void* buffer, size_t* size) {
        return module.ReadPort(address, buffer, size);
    });
}

inline TextAnswer RegisterText(const std::string& text)
{
    return {GC_ERR_SUCCESS, -1, text.size() + 1, text};
}

template <class T>
GC_ERROR WriteRegisterOf(ZrGenTLModuleBase& module, uint64_t address, T value)
{
    size_t size = sizeof(value);
    const GC_ERROR status = module.WritePort(address, &value, &size);
    EXPECT_EQ(size, sizeof(value)) << "a write leaves the size alone";
    return status;
}

inline std::string PortText(ZrGenTLModuleBase& module, PORT_INFO_CMD cmd)
{
    return ReadText([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
               return module.GetPortInfo(cmd, type, buffer, size);
           })
        .text;
}

inline bool PortFlag(ZrGenTLModuleBase& module, PORT_INFO_CMD cmd)
{
    return ReadValue<bool8_t>([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
               return module.GetPortInfo(cmd, type, buffer, size);
           }).value != 0;
}

inline std::vector<std::string> UrlsOf(ZrGenTLModuleBase& module)
{
    uint32_t count = 0;
    EXPECT_EQ(module.GetNumPortURLs(&count), GC_ERR_SUCCESS);
    std::vector<std::string> urls;
    for (uint32_t i = 0; i < count; ++i) {
        urls.push_back(ReadText([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
                           return module.GetPortURLInfo(i, URL_INFO_URL, type, buffer, size);
                       }).text);
    }
    return urls;
}

inline std::string UpperHex(size_t value)
{
    char text[32];
    snprintf(text, sizeof(text), "%zX", value);
    return text;
}

// One camera with a manifest of one plain file. Whatever a test opened is closed when it ends.
class CameraTest : public ::testing::Test
{
protected:
    CameraTest()
    {
        m_fake.Reset();
        m_fake.PokeManifest(1, kFileAddress, kFileSize, false);
    }
    // After the members of the tests, hence after the modules.
    ~CameraTest() override { EXPECT_EQ(m_fake.OpenHandles(), 0); }

    using Lines = std::vector<TracedLine>;
    using Strings = std::vector<std::string>;

    FakeU3V& m_fake = FakeU3V::Instance();
};
