// The control channel under a misbehaving camera: each fault is answered with GC_ERR_IO, and the
// next access works.

#include "producer_fixture.h"

#include <chrono>
#include <description_url.h>
#include <thread>

namespace {

constexpr uint64_t kUserNameRegister = 0x184;
constexpr uint64_t kSerialNumberRegister = 0x144;

class Control : public ProducerTest
{
};

TEST_F(Control, RegistersAreReadAndWritten)
{
    const vusb::Camera camera("serial=ABC123");
    const auto session = OpenSession();
    const OpenCamera opened(session);
    char serial[64] = {};
    ASSERT_EQ(opened.TryRead(kSerialNumberRegister, serial, sizeof(serial)), GC_ERR_SUCCESS);
    EXPECT_STREQ(serial, "ABC123");
    const char name[64] = "Line 7";
    ASSERT_EQ(opened.TryWrite(kUserNameRegister, name, sizeof(name)), GC_ERR_SUCCESS);
    char back[64] = {};
    ASSERT_EQ(opened.TryRead(kUserNameRegister, back, sizeof(back)), GC_ERR_SUCCESS);
    EXPECT_STREQ(back, "Line 7");
}

TEST_F(Control, DescriptionFile_IsReadWholeThroughItsUrl)
{
    for (const char* options : {"zip=0,model=Cam,version=1.2", "zip=1,model=Cam,version=1.2"}) {
        vusb_reset();
        const vusb::Camera camera(options);
        const auto session = OpenSession();
        const OpenCamera opened(session);
        const std::string text = consumer::FirstUrl(Gentl(), opened.Port());
        const bool zipped = options[4] == '1';
        EXPECT_EQ(text.find(zipped ? "local:Cam_v1.2.zip;" : "local:Cam_v1.2.xml;"), 0u) << text;
        const auto url = consumer::ParseDescriptionUrl(text);
        std::vector<unsigned char> file(url.length);
        opened.Read(url.address, file.data(), file.size());
        EXPECT_EQ(file, camera.DescriptionFile());
    }
}

struct ReplyFault
{
    const char* fault;
    bool read;
    bool write;
};

class ControlFault : public Control, public ::testing::WithParamInterface<ReplyFault>
{
};

TEST_P(ControlFault, IsAnsweredWithIoError_AndTheNextAccessWorks)
{
    const vusb::Camera camera("response-ms=200");
    const auto session = OpenSession();
    const OpenCamera opened(session);
    char text[64] = "kept";
    if (GetParam().read) {
        camera.SetFaults(GetParam().fault);
        EXPECT_EQ(opened.TryRead(kUserNameRegister, text, sizeof(text)), GC_ERR_IO);
        camera.SetFaults("");
        // A late answer may still be on its way: it is recognised and costs one more
        // attempt.
        GC_ERROR status = GC_ERR_IO;
        for (int attempt = 0; attempt < 10 && status != GC_ERR_SUCCESS; ++attempt) {
            status = opened.TryRead(kUserNameRegister, text, sizeof(text));
        }
        EXPECT_EQ(status, GC_ERR_SUCCESS);
    }
    if (GetParam().write) {
        camera.SetFaults(GetParam().fault);
        EXPECT_EQ(opened.TryWrite(kUserNameRegister, text, sizeof(text)), GC_ERR_IO);
        camera.SetFaults("");
        GC_ERROR status = GC_ERR_IO;
        for (int attempt = 0; attempt < 10 && status != GC_ERR_SUCCESS; ++attempt) {
            status = opened.TryWrite(kUserNameRegister, text, sizeof(text));
        }
        EXPECT_EQ(status, GC_ERR_SUCCESS);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Faults, ControlFault,
    ::testing::Values(
        ReplyFault{"reply-short*1", true, true}, ReplyFault{"reply-empty*1", true, true},
        ReplyFault{"reply-missing*1", true, true}, ReplyFault{"reply-stalled*1", true, true},
        ReplyFault{"reply-wrong-prefix*1", true, true}, ReplyFault{"reply-wrong-id*1", true, true},
        ReplyFault{"reply-wrong-request*1", true, true}, ReplyFault{"reply-status*1", true, true},
        ReplyFault{"reply-error*1", true, true}, ReplyFault{"reply-long*1", true, false},
        ReplyFault{"command-stalled*1", true, true}, ReplyFault{"pending*1", true, false},
        ReplyFault{"reply-late*1:600", true, true}),
    [](const auto& tested) {
        std::string name = tested.param.fault;
        std::erase_if(name, [](char c) { return !isalnum(static_cast<unsigned char>(c)); });
        return name;
    });

TEST_F(Control, PendingAcknowledges_AreWaitedFor)
{
    const vusb::Camera camera("pending-delay-ms=20");
    const auto session = OpenSession();
    const OpenCamera opened(session);
    const char name[64] = "slow flash";
    for (const char* fault : {"pending*1", "pending*1:5"}) {
        camera.SetFaults(fault);
        EXPECT_EQ(opened.TryWrite(kUserNameRegister, name, sizeof(name)), GC_ERR_SUCCESS) << fault;
    }
}

TEST_F(Control, EndlessPendingAcknowledges_EndWithAnError)
{
    const vusb::Camera camera;
    const auto session = OpenSession();
    const OpenCamera opened(session);
    const char name[64] = "never";
    camera.SetFaults("pending-endless*1");
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(opened.TryWrite(kUserNameRegister, name, sizeof(name)), GC_ERR_IO);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(65));
    camera.SetFaults("");
}

TEST_F(Control, WritesBeyondOneExchange_FailAndNothingIsWritten)
{
    const vusb::Camera camera;
    const auto session = OpenSession();
    const OpenCamera opened(session);
    const std::vector<char> data(1025, 'x');
    const uint64_t before = vusb_call_count("libusb_bulk_transfer");
    EXPECT_EQ(opened.TryWrite(kUserNameRegister, data.data(), data.size()), GC_ERR_IO);
    EXPECT_EQ(vusb_call_count("libusb_bulk_transfer"), before);
}

TEST_F(Control, ReadsAreSplitIntoPiecesOf256Bytes)
{
    const vusb::Camera camera;
    const auto session = OpenSession();
    const OpenCamera opened(session);
    std::vector<char> data(257);
    const uint64_t before = vusb_call_count("libusb_bulk_transfer");
    ASSERT_EQ(opened.TryRead(0, data.data(), 256), GC_ERR_SUCCESS);
    EXPECT_EQ(vusb_call_count("libusb_bulk_transfer") - before, 2u);
    ASSERT_EQ(opened.TryRead(0, data.data(), 257), GC_ERR_SUCCESS);
    EXPECT_EQ(vusb_call_count("libusb_bulk_transfer") - before, 6u);
}

TEST_F(Control, SeveralThreadsReadAndWrite_EveryExchangeIsItsOwn)
{
    const vusb::Camera camera("serial=ABC123");
    const auto session = OpenSession();
    const OpenCamera opened(session);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 200; ++i) {
                char serial[64] = {};
                ASSERT_EQ(opened.TryRead(kSerialNumberRegister, serial, sizeof(serial)),
                          GC_ERR_SUCCESS);
                ASSERT_STREQ(serial, "ABC123");
                const char name[64] = "n";
                ASSERT_EQ(opened.TryWrite(kUserNameRegister, name, sizeof(name)), GC_ERR_SUCCESS);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
}

TEST_F(Control, UserNameThatCannotBeRead_IsIoError)
{
    const vusb::Camera camera("user=U");
    const auto session = OpenSession();
    const OpenCamera opened(session);
    char name[64] = {};
    size_t size = sizeof(name);
    INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
    ASSERT_EQ(
        Gentl().DevGetInfo(opened.Device(), DEVICE_INFO_USER_DEFINED_NAME, &type, name, &size),
        GC_ERR_SUCCESS);
    EXPECT_STREQ(name, "U");
    camera.SetFaults("reply-stalled*1");
    size = sizeof(name);
    EXPECT_EQ(
        Gentl().DevGetInfo(opened.Device(), DEVICE_INFO_USER_DEFINED_NAME, &type, name, &size),
        GC_ERR_IO);
}

TEST_F(Control, UnplugDuringAnExchange_IsIoErrorAndTheDeviceCloses)
{
    const vusb::Camera camera;
    const auto session = OpenSession();
    const OpenCamera opened(session);
    camera.SetFaults("unplug-at-command");
    char name[64] = {};
    EXPECT_EQ(opened.TryRead(kUserNameRegister, name, sizeof(name)), GC_ERR_IO);
    EXPECT_EQ(opened.TryRead(kUserNameRegister, name, sizeof(name)), GC_ERR_IO);
}

} // namespace
