// Manifest table and description file: what a host that looks for the camera's features finds.

#include <cstdio>
#include <cstdlib>

#include <unistd.h>

#include "camera_host.h"
#include "genapi_schema.h"
#include "sha1.h"
#include "zip_writer.h"

namespace {

std::string Hex(const std::array<std::uint8_t, 20>& digest)
{
    std::string text;
    for (const std::uint8_t byte : digest) {
        char two[3];
        std::snprintf(two, sizeof two, "%02x", byte);
        text += two;
    }
    return text;
}

Bytes BytesOf(const std::string& text)
{
    return {text.begin(), text.end()};
}

// The file as a host reads it: by the manifest, in pieces.
Bytes ReadFile(CameraHost& host)
{
    const Bytes head = host.ReadMem(host.Read64(0x1D0), 72);
    const std::uint64_t address = Get(head, 8 + 8, 8);
    const std::uint64_t size = Get(head, 8 + 16, 8);
    Bytes file;
    while (file.size() < size) {
        const std::size_t count = std::min<std::size_t>(256, size - file.size());
        const Bytes piece = host.ReadMem(address + file.size(), count);
        file.insert(file.end(), piece.begin(), piece.end());
    }
    return file;
}

// Output of "command" that is fed the bytes in a file named at %s; empty when it fails.
std::string Pipe(const std::string& command, const Bytes& input)
{
    const std::string path = ::testing::TempDir() + "vcam_" + std::to_string(getpid());
    FILE* file = std::fopen(path.c_str(), "wb");
    std::fwrite(input.data(), 1, input.size(), file);
    std::fclose(file);
    FILE* pipe = popen((command + " " + path + " 2>&1").c_str(), "r");
    std::string output;
    char buffer[4096];
    for (std::size_t n = 0; (n = std::fread(buffer, 1, sizeof buffer, pipe)) != 0;) {
        output.append(buffer, n);
    }
    const int status = pclose(pipe);
    std::remove(path.c_str());
    return status == 0 ? output + "ok" : std::string();
}

} // namespace

TEST(Sha1, KnownAnswers)
{
    EXPECT_EQ("da39a3ee5e6b4b0d3255bfef95601890afd80709", Hex(vcam::Sha1({})));
    EXPECT_EQ("a9993e364706816aba3e25717850c26c9cd0d89d", Hex(vcam::Sha1(BytesOf("abc"))));
    EXPECT_EQ("84983e441c3bd26ebaae4aa1f95129e5e54670f1",
              Hex(vcam::Sha1(BytesOf("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"))));
}

TEST(Crc32, KnownAnswer)
{
    EXPECT_EQ(0xCBF43926U, vcam::Crc32(BytesOf("123456789")));
}

TEST(Description, Manifest_OneEntry_WithDigestOfTheFile)
{
    CameraHost host;
    const std::uint64_t table = host.Read64(0x1D0);
    const Bytes head = host.ReadMem(table, 72);
    EXPECT_EQ(1U, Get(head, 0, 8));
    EXPECT_EQ(0U, Get(head, 8 + 4, 4) & (0x3FU << 10)); // plain
    EXPECT_EQ(1U, Get(head, 8 + 4, 4) >> 24);           // schema 1.1
    EXPECT_EQ(1U, Get(head, 8 + 4, 4) >> 16 & 0xFF);
    const auto digest = vcam::Sha1(ReadFile(host));
    EXPECT_EQ(Bytes(digest.begin(), digest.end()), Bytes(head.begin() + 32, head.begin() + 52));
}

TEST(Description, Plain_IsWellFormedXmlWithTheFeatures)
{
    CameraHost host("width=64,height=32");
    const Bytes file = ReadFile(host);
    const std::string text(file.begin(), file.end());
    for (const char* name :
         {"Width", "Height", "OffsetX", "OffsetY", "PixelFormat", "PayloadSize", "AcquisitionMode",
          "AcquisitionStart", "AcquisitionStop", "AcquisitionFrameRate", "TestPattern",
          "DeviceUserID", "DeviceVendorName", "Root"}) {
        EXPECT_NE(std::string::npos, text.find("Name=\"" + std::string(name) + "\"")) << name;
    }
    EXPECT_NE(std::string::npos, text.find("<Port Name=\"Device\""));
    if (std::system("command -v xmllint >/dev/null") == 0) {
        EXPECT_EQ("ok", Pipe("xmllint --noout", file));
    }
}

TEST(Description, EveryNode_FollowsTheSchemaAndRefersToNodesThatAreThere)
{
    for (const char* options : {"events=0", "events=1"}) {
        CameraHost host(options);
        const Bytes file = ReadFile(host);
        const XmlElement root = ParseXml({reinterpret_cast<const char*>(file.data()), file.size()});
        EXPECT_EQ(std::set<std::string>{}, DanglingNames(root)) << options;
        std::set<std::string> names;
        for (const XmlElement* node : NodesOf(root)) {
            const std::string name = node->Attribute("Name");
            EXPECT_EQ("", OrderFault(*node)) << name;
            EXPECT_TRUE(names.insert(name).second) << name << " stands twice";
            for (const XmlElement& child : node->children) {
                EXPECT_EQ("", child.name == "EnumEntry" ? OrderFault(child) : "") << name;
            }
        }
    }
}

// What stands in the document is in the camera: a register that can be read, and written where it
// says so.
TEST(Description, EveryRegister_IsThereWithItsAccess)
{
    CameraHost host("events=1");
    const Bytes file = ReadFile(host);
    const XmlElement root = ParseXml({reinterpret_cast<const char*>(file.data()), file.size()});
    std::size_t count = 0;
    for (const XmlElement* node : NodesOf(root)) {
        if (node->One("pPort") != "Device") {
            continue;
        }
        ++count;
        const std::uint64_t address = std::stoull(node->One("Address"), nullptr, 16);
        const std::size_t length = std::stoul(node->One("Length"));
        const Bytes value = host.ReadMem(address, length);
        const std::string name = node->Attribute("Name");
        if (node->One("AccessMode") == "RO") {
            EXPECT_EQ(0x8004U, host.Write(address, value)) << name;
        } else if (name != "ChunkEnableReg") { // that of the image itself cannot be switched off
            EXPECT_EQ(0U, host.Write(address, value)) << name;
        }
    }
    EXPECT_LT(30U, count);
}

TEST(Description, ConsumersFindWhatTheyLookFor)
{
    CameraHost host("events=1");
    const Bytes file = ReadFile(host);
    const std::string text(file.begin(), file.end());
    for (const char* name : {"TriggerSelector",
                             "TriggerMode",
                             "TriggerSource",
                             "TriggerSoftware",
                             "ExposureTime",
                             "Gain",
                             "TLParamsLocked",
                             "TimestampLatch",
                             "TimestampLatchValue",
                             "WidthMax",
                             "HeightMax",
                             "ChunkModeActive",
                             "ChunkSelector",
                             "ChunkEnable",
                             "ChunkFrameID",
                             "ChunkTimestamp",
                             "EventSelector",
                             "EventNotification",
                             "TestEventGenerate",
                             "EventExposureEnd",
                             "EventExposureEndTimestamp",
                             "EventExposureEndFrameID"}) {
        EXPECT_NE(std::string::npos, text.find("Name=\"" + std::string(name) + "\"")) << name;
    }
    CameraHost without;
    const Bytes other = ReadFile(without);
    EXPECT_EQ(std::string::npos, std::string(other.begin(), other.end()).find("EventSelector"));
}

TEST(Description, Zipped_ManifestSaysSoAndTheArchiveUnpacksToTheSame)
{
    CameraHost plain;
    CameraHost zipped("zip=1");
    const Bytes head = zipped.ReadMem(zipped.Read64(0x1D0), 72);
    EXPECT_EQ(1U, Get(head, 8 + 4, 4) >> 10 & 0x3F);
    const Bytes archive = ReadFile(zipped);
    EXPECT_LT(archive.size() * 2, ReadFile(plain).size());
    EXPECT_EQ(0x04034B50U, Get(archive, 0, 4));
    if (std::system("command -v unzip >/dev/null") == 0) {
        const Bytes file = ReadFile(plain);
        EXPECT_EQ(std::string(file.begin(), file.end()) + "ok", Pipe("unzip -p", archive));
    }
}

TEST(Deflate, RunsAndNoise_UnpackToTheSame)
{
    if (std::system("command -v unzip >/dev/null") != 0) {
        GTEST_SKIP() << "no unzip to check with";
    }
    Bytes data(70000, 'a'); // matches of greatest length, at distance 1
    std::uint32_t state = 1;
    for (int i = 0; i < 40000; ++i) {
        state = state * 1664525 + 1013904223;
        data.push_back(static_cast<std::uint8_t>(state >> 24));
    }
    data.insert(data.end(), data.begin() + 75000, data.begin() + 100000); // far matches
    const std::string unpacked = Pipe("unzip -p", vcam::ZipArchive("data.bin", data));
    ASSERT_EQ(data.size() + 2, unpacked.size());
    EXPECT_EQ(data, Bytes(unpacked.begin(), unpacked.end() - 2));
}

TEST(Description, ManifestFaults_CountAndSize)
{
    CameraHost none("faults=manifest-entries");
    EXPECT_EQ(0U, none.Read64(0x30000));
    CameraHost two("faults=manifest-entries:2");
    EXPECT_EQ(2U, two.Read64(0x30000));
    EXPECT_EQ(two.ReadMem(0x30008, 64), two.ReadMem(0x30048, 64));
    CameraHost empty("faults=manifest-size-zero");
    EXPECT_EQ(1U, empty.Read64(0x30000));
    EXPECT_EQ(0U, empty.Read64(0x30018));
}
