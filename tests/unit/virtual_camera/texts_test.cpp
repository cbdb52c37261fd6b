// Texts that are more than plain letters: in options, registers and string descriptors.

#include "camera_host.h"
#include "utf16.h"

namespace {

Bytes StringDescriptor(CameraHost& host, std::uint16_t index)
{
    Bytes data;
    host.camera.Control({0x80, 6, static_cast<std::uint16_t>(0x300 | index), 0x0409, 255}, data);
    return data;
}

} // namespace

TEST(Texts, Utf16_OfEveryLengthAndOfNonsense)
{
    EXPECT_EQ(u"", vcam::ToUtf16(""));
    EXPECT_EQ(u"Az", vcam::ToUtf16("Az"));
    EXPECT_EQ(u"\u00E9\u20AC", vcam::ToUtf16("\xC3\xA9\xE2\x82\xAC"));
    EXPECT_EQ(u"\U0001F4F7", vcam::ToUtf16("\xF0\x9F\x93\xB7"));
    EXPECT_EQ(u"\u00C3", vcam::ToUtf16("\xC3")); // cut
    EXPECT_EQ(u"\u00C3A", vcam::ToUtf16("\xC3"
                                        "A"));             // no continuation
    EXPECT_EQ(u"\u0080\u00FF", vcam::ToUtf16("\x80\xFF")); // never first
    EXPECT_EQ(u"\u00C0\u00AF", vcam::ToUtf16("\xC0\xAF")); // longer than need be
}

TEST(Texts, Options_TakeAnyByteAsACode)
{
    vcam::CameraConfig config;
    EXPECT_EQ("", config.Apply("user=a%41%00b%e9,vendor=100%,model=50%zz"));
    EXPECT_EQ(std::string("aA\0b\xE9", 5), config.user);
    EXPECT_EQ("100%", config.vendor);
    EXPECT_EQ("50%zz", config.model);
    EXPECT_NE("", config.Apply("user=\x07"));
    EXPECT_NE("", config.Apply("user=" + std::string(64, 'x')));
    EXPECT_EQ("", config.Apply("user=Caf\xC3\xA9"));
}

TEST(Texts, Registers_InTheEncodingThatTheySay)
{
    const std::pair<const char*, Bytes> cases[] = {{"ascii", {'C', 0xC3, 0xA9, 0}},
                                                   {"utf8", {'C', 0xC3, 0xA9, 0}},
                                                   {"utf16", {'C', 0, 0xE9, 0}}};
    std::uint64_t code = 0;
    for (const auto& [encoding, expected] : cases) {
        CameraHost host(std::string("model=C\xC3\xA9,encoding=") + encoding);
        EXPECT_EQ(code++, host.Read64(0x1C4) >> 4 & 0xF);
        EXPECT_EQ(expected, host.ReadMem(0x44, 4)) << encoding;
    }
    CameraHost full("encoding=utf16,model=" + std::string(40, 'm'));
    EXPECT_EQ(0U, Get(full.ReadMem(0x44, 64), 62, 2)); // ended all the same
}

TEST(Texts, StringDescriptors_AreUtf16)
{
    CameraHost host("vendor=\xC3\xA9\xF0\x9F\x93\xB7");
    EXPECT_EQ((Bytes{8, 3, 0xE9, 0, 0x3D, 0xD8, 0xF7, 0xDC}), StringDescriptor(host, 1));
}

TEST(Texts, StringFaults_LateAndNever)
{
    CameraHost host("faults=strings-hang@1+strings-late@2:30");
    Bytes data;
    const vcam::SetupPacket request{0x80, 6, 0x301, 0x0409, 255};
    EXPECT_EQ(vcam::UsbStatus::Done, host.camera.Control(request, data).status);
    EXPECT_EQ(vcam::UsbStatus::Nak, host.camera.Control(request, data).status);
    const auto start = vcam::Clock::now();
    const vcam::UsbResult late = host.camera.Control(request, data);
    EXPECT_EQ(vcam::UsbStatus::Done, late.status);
    EXPECT_LE(start + std::chrono::milliseconds(30), late.retryAt);
}

TEST(Texts, AccessAlignment_IsInsistedOn)
{
    CameraHost host("access-alignment=4");
    EXPECT_EQ(0U, host.StatusOfRead(0x60000, 8));
    EXPECT_EQ(0x8005U, host.StatusOfRead(0x60002, 8));
    EXPECT_EQ(0x8005U, host.StatusOfRead(0x60000, 6));
    EXPECT_EQ(0x8005U, host.Write(0x60000, Bytes(3)));
    EXPECT_EQ(0U, host.Write(0x60000, Bytes(4)));
}

TEST(Texts, SpeedPlus_SaysSoEverywhere)
{
    CameraHost host("super-speed-plus=1");
    EXPECT_EQ(0x10U, host.Read32(0x10040));
    EXPECT_EQ(0x10, host.camera.Descriptors().Device()[2]);
    EXPECT_EQ(0x03, host.camera.Descriptors().Device()[3]);
}
