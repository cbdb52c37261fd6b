#include <array>
#include <numeric>
#include <thread>

#include "bus_camera.h"

namespace u3v_host {
namespace {

constexpr uint64_t kWidth = 0x50000;
constexpr uint64_t kReset = 0x50018;       // write only
constexpr uint64_t kSensorWidth = 0x5002C; // read only
constexpr uint64_t kUserMemory = 0x60000;
constexpr size_t kUserMemorySize = 0x2000;
constexpr uint64_t kNowhere = 0x7FFFFFFF0000;

using Bytes = std::vector<uint8_t>;

class ControlChannelTest : public BusTest
{
protected:
    // Plugs a camera in and opens it.
    void Begin(const std::string& options = {})
    {
        m_plugged.emplace(options);
        m_camera = OpenOnly();
    }
    void TearDown() override { m_camera.reset(); }

    Camera& Opened() { return *m_camera; }
    const vusb::Camera& Plugged() { return *m_plugged; }
    uint64_t Exchanges() { return Plugged().Stats().control_transactions; }

    Bytes Read(uint64_t address, size_t size)
    {
        Bytes bytes(size);
        size_t done = 0;
        m_camera->Read(address, bytes, done);
        EXPECT_EQ(done, size);
        return bytes;
    }
    void Write(uint64_t address, const Bytes& bytes)
    {
        size_t done = 0;
        m_camera->Write(address, bytes, done);
        EXPECT_EQ(done, bytes.size());
    }
    uint32_t ReadWidth()
    {
        const Bytes bytes = Read(kWidth, 4);
        return static_cast<uint32_t>(bytes[0] | bytes[1] << 8 | bytes[2] << 16 | bytes[3] << 24);
    }
    static Bytes Pattern(size_t size)
    {
        Bytes bytes(size);
        for (size_t i = 0; i < size; ++i) {
            bytes[i] = static_cast<uint8_t>(i * 7 + i / 256);
        }
        return bytes;
    }

private:
    std::optional<vusb::Camera> m_plugged;
    std::unique_ptr<Camera> m_camera;
};

TEST_F(ControlChannelTest, Read_CameraThatInsistsOnLength12_Answers)
{
    Begin("strict=1");
    EXPECT_EQ(ReadWidth(), 640U);
    EXPECT_EQ(vusb_camera_errors(Plugged().Id(), "bad-length"), 0U);
}

TEST_F(ControlChannelTest, Write_ThenRead_GivesTheSameBytes)
{
    Begin();
    const Bytes bytes = Pattern(4);
    Write(kUserMemory, bytes);
    EXPECT_EQ(Read(kUserMemory, 4), bytes);
}

TEST_F(ControlChannelTest, Read_NoBytes_SendsNothing)
{
    Begin();
    const uint64_t before = Exchanges();
    EXPECT_EQ(Read(kWidth, 0), Bytes());
    Write(kUserMemory, {});
    EXPECT_EQ(Exchanges(), before);
}

struct Transfers
{
    unsigned maxCommand;
    unsigned maxAcknowledge;
};

class AnyLength : public ControlChannelTest, public ::testing::WithParamInterface<Transfers>
{
};

TEST_P(AnyLength, ReadAndWrite_AnyLength_IsCutIntoWhatTheCameraTakes)
{
    const auto [command, acknowledge] = GetParam();
    Begin("strict=1,max-command=" + std::to_string(command) +
          ",max-acknowledge=" + std::to_string(acknowledge));
    for (const size_t size : {size_t{1}, size_t{3}, size_t{4}, size_t{1011}, size_t{1012},
                              size_t{1013}, size_t{4097}, kUserMemorySize}) {
        const Bytes bytes = Pattern(size);
        Write(kUserMemory, bytes);
        EXPECT_EQ(Read(kUserMemory, size), bytes) << size;
    }
    EXPECT_EQ(vusb_camera_errors(Plugged().Id(), nullptr), 0U);
}

TEST_P(AnyLength, ReadAndWrite_ManyBytes_TakeAsFewExchangesAsPossible)
{
    const auto [command, acknowledge] = GetParam();
    Begin("max-command=" + std::to_string(command) +
          ",max-acknowledge=" + std::to_string(acknowledge));
    const auto pieces = [](size_t transfer, size_t head) {
        const size_t piece = (transfer - head) / 4 * 4;
        return (kUserMemorySize + piece - 1) / piece;
    };
    const uint64_t before = Exchanges();
    Write(kUserMemory, Pattern(kUserMemorySize));
    const uint64_t between = Exchanges();
    EXPECT_EQ(between - before, pieces(command, 20));
    Read(kUserMemory, kUserMemorySize);
    EXPECT_EQ(Exchanges() - between, pieces(acknowledge, 12));
}

INSTANTIATE_TEST_SUITE_P(ControlChannel, AnyLength,
                         ::testing::Values(Transfers{2048, 1024}, Transfers{64, 64},
                                           Transfers{1024, 2048}, Transfers{1030, 1030},
                                           Transfers{255, 257}, Transfers{8192, 8192}));

TEST_F(ControlChannelTest, Read_AnswersThatFillTheirPackets_LeaveNothingBehind)
{
    Begin("max-acknowledge=4096");
    for (int i = 0; i < 3; ++i) {
        Read(kUserMemory, 1012); // with its header one USB packet, and an empty one behind it
        EXPECT_EQ(ReadWidth(), 640U);
        Read(kUserMemory, 2036);
    }
}

TEST_F(ControlChannelTest, Read_RunsOverTheEndOfTheAddresses_IsRefusedWithoutAnExchange)
{
    Begin();
    const uint64_t before = Exchanges();
    Bytes bytes(8);
    size_t done = 1;
    EXPECT_EQ(FailureKind([&] { Opened().Read(0xFFFFFFFFFFFFFFFC, bytes, done); }),
              ErrorKind::InvalidAddress);
    EXPECT_EQ(done, 0U);
    EXPECT_EQ(FailureKind([&] { Opened().Write(0xFFFFFFFFFFFFFFFC, bytes, done); }),
              ErrorKind::InvalidAddress);
    EXPECT_EQ(Exchanges(), before);
}

// ---- pending acknowledges

TEST_F(ControlChannelTest, Read_PendingAcknowledges_AreFollowed)
{
    Begin("pending-ms=500");
    Plugged().SetFaults("pending:3");
    EXPECT_EQ(ReadWidth(), 640U);
}

TEST_F(ControlChannelTest, Write_PendingAcknowledges_AreFollowed)
{
    Begin("pending-ms=500,written-length=0");
    Plugged().SetFaults("pending:3");
    Write(kUserMemory, Pattern(4));
    Plugged().SetFaults("");
    EXPECT_EQ(Read(kUserMemory, 4), Pattern(4));
}

TEST_F(ControlChannelTest, Read_AnswerLaterThanTheResponseTimeButAnnounced_IsWaitedFor)
{
    Begin("pending-ms=900,pending-delay-ms=300"); // the response time is 100
    Plugged().SetFaults("pending:1");
    const uint64_t before = Exchanges();
    EXPECT_EQ(ReadWidth(), 640U);
    EXPECT_EQ(Exchanges(), before + 1);
}

TEST_F(ControlChannelTest, Read_PendingWithoutEnd_EndsAndIsNotRepeated)
{
    Begin("pending-ms=50");
    Plugged().SetFaults("pending-endless");
    const uint64_t before = Exchanges();
    const Error error = Failure([&] { ReadWidth(); });
    EXPECT_EQ(error.Kind(), ErrorKind::Timeout);
    EXPECT_EQ(Exchanges(), before + 1);
    Plugged().SetFaults("");
    EXPECT_EQ(ReadWidth(), 640U);
}

TEST_F(ControlChannelTest, Write_PendingWithoutEnd_Ends)
{
    Begin("pending-ms=50");
    Plugged().SetFaults("pending-endless");
    EXPECT_EQ(FailureKind([&] { Write(kUserMemory, Pattern(4)); }), ErrorKind::Timeout);
}

// ---- answers that do not come, or come damaged

TEST_F(ControlChannelTest, Read_NotAnsweredOnce_IsRepeatedWithANewId)
{
    Begin();
    Plugged().SetFaults("reply-missing@0*1");
    const uint64_t before = Exchanges();
    EXPECT_EQ(ReadWidth(), 640U);
    EXPECT_EQ(Exchanges(), before + 2);
}

TEST_F(ControlChannelTest, Read_NotAnsweredTwice_IsRepeatedTwice)
{
    Begin();
    Plugged().SetFaults("reply-missing@0*2");
    const uint64_t before = Exchanges();
    EXPECT_EQ(ReadWidth(), 640U);
    EXPECT_EQ(Exchanges(), before + 3);
}

TEST_F(ControlChannelTest, Read_NeverAnswered_IsATimeoutAfterThreeCommands)
{
    Begin();
    Plugged().SetFaults("reply-missing");
    const uint64_t before = Exchanges();
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(FailureKind([&] { ReadWidth(); }), ErrorKind::Timeout);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 300ms);
    EXPECT_EQ(Exchanges(), before + 3);
    Plugged().SetFaults("");
    EXPECT_EQ(ReadWidth(), 640U);
}

TEST_F(ControlChannelTest, Write_NotAnswered_IsNeverRepeated)
{
    Begin();
    Plugged().SetFaults("reply-missing");
    const uint64_t before = Exchanges();
    EXPECT_EQ(FailureKind([&] { Write(kUserMemory, Pattern(4)); }), ErrorKind::Timeout);
    EXPECT_EQ(Exchanges(), before + 1);
}

class DamagedAnswer : public ControlChannelTest, public ::testing::WithParamInterface<const char*>
{
};

TEST_P(DamagedAnswer, Read_DamagedOnce_IsRepeated)
{
    Begin();
    Plugged().SetFaults(std::string(GetParam()) + "@0*1");
    const uint64_t before = Exchanges();
    EXPECT_EQ(ReadWidth(), 640U);
    EXPECT_EQ(Exchanges(), before + 2);
}

TEST_P(DamagedAnswer, Read_DamagedAlways_FailsAfterThreeCommands)
{
    Begin();
    Plugged().SetFaults(GetParam());
    const uint64_t before = Exchanges();
    const ErrorKind kind = FailureKind([&] { ReadWidth(); });
    EXPECT_TRUE(kind == ErrorKind::Io || kind == ErrorKind::Timeout);
    EXPECT_EQ(Exchanges(), before + 3);
    Plugged().SetFaults("");
    EXPECT_EQ(ReadWidth(), 640U);
    EXPECT_EQ(Read(kUserMemory, 4096).size(), 4096U);
}

TEST_P(DamagedAnswer, Write_Damaged_IsNotRepeatedAndTheNextWorks)
{
    Begin();
    Plugged().SetFaults(std::string(GetParam()) + "@0*1");
    const uint64_t before = Exchanges();
    FailureKind([&] { Write(kUserMemory, Pattern(4)); });
    EXPECT_EQ(Exchanges(), before + 1);
    Write(kUserMemory, Pattern(8));
    EXPECT_EQ(Read(kUserMemory, 8), Pattern(8));
}

INSTANTIATE_TEST_SUITE_P(ControlChannel, DamagedAnswer,
                         ::testing::Values("reply-short:6", "reply-short:13", "reply-empty",
                                           "reply-wrong-prefix", "reply-wrong-id",
                                           "reply-wrong-request", "reply-wrong-length",
                                           "reply-stalled"));

TEST_F(ControlChannelTest, Read_CommandEndpointStalls_IsClearedAndRepeated)
{
    Begin();
    Plugged().SetFaults("command-stalled@0*1");
    EXPECT_EQ(ReadWidth(), 640U);
    Plugged().SetFaults("command-stalled");
    EXPECT_EQ(FailureKind([&] { ReadWidth(); }), ErrorKind::Io);
    Plugged().SetFaults("");
    EXPECT_EQ(ReadWidth(), 640U);
}

TEST_F(ControlChannelTest, Write_CommandEndpointStalls_FailsAndTheNextWorks)
{
    Begin();
    Plugged().SetFaults("command-stalled@0*1");
    EXPECT_EQ(FailureKind([&] { Write(kUserMemory, Pattern(4)); }), ErrorKind::Io);
    Write(kUserMemory, Pattern(4));
}

TEST_F(ControlChannelTest, Read_AnswerIsDoubled_TheSecondIsReadAway)
{
    Begin();
    Plugged().SetFaults("reply-doubled@0*1");
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(ReadWidth(), 640U);
        EXPECT_EQ(Read(kUserMemory, 16).size(), 16U);
    }
}

TEST_F(ControlChannelTest, Write_AnswerComesAfterTheCommandWasGivenUp_IsReadAway)
{
    Begin();
    Plugged().SetFaults("reply-late@0*1:150"); // the response time is 100
    EXPECT_EQ(FailureKind([&] { Write(kUserMemory, Pattern(4)); }), ErrorKind::Timeout);
    const uint64_t before = Exchanges();
    EXPECT_EQ(Read(kUserMemory, 4), Pattern(4));
    EXPECT_EQ(Exchanges(), before + 1);
    EXPECT_EQ(ReadWidth(), 640U);
}

TEST_F(ControlChannelTest, Read_LongAnswerComesLate_IsReadAwayAsAWhole)
{
    Begin("max-acknowledge=4096");
    Write(kUserMemory, Pattern(4000));
    Plugged().SetFaults("reply-late@0*1:150");
    EXPECT_EQ(Read(kUserMemory, 4000), Pattern(4000)); // repeated, behind the late one
    EXPECT_EQ(ReadWidth(), 640U);
}

// ---- what the camera refuses

struct Refusal
{
    unsigned status;
    ErrorKind kind;
};

class Refused : public ControlChannelTest, public ::testing::WithParamInterface<Refusal>
{
};

TEST_P(Refused, ReadAndWrite_CameraRefuses_IsItsKindAndNotRepeated)
{
    const auto [status, kind] = GetParam();
    Begin();
    Plugged().SetFaults("reply-error:" + std::to_string(status));
    const uint64_t before = Exchanges();
    EXPECT_EQ(FailureKind([&] { ReadWidth(); }), kind);
    EXPECT_EQ(FailureKind([&] { Write(kUserMemory, Pattern(4)); }), kind);
    EXPECT_EQ(Exchanges(), before + 2);
}

INSTANTIATE_TEST_SUITE_P(ControlChannel, Refused,
                         ::testing::Values(Refusal{0x8001, ErrorKind::NotImplemented},
                                           Refusal{0x8002, ErrorKind::InvalidParameter},
                                           Refusal{0x8003, ErrorKind::InvalidAddress},
                                           Refusal{0x8004, ErrorKind::AccessDenied},
                                           Refusal{0x8005, ErrorKind::InvalidAddress},
                                           Refusal{0x8006, ErrorKind::AccessDenied},
                                           Refusal{0x8007, ErrorKind::Busy},
                                           Refusal{0x800B, ErrorKind::Timeout},
                                           Refusal{0x8FFF, ErrorKind::Io}));

TEST_F(ControlChannelTest, Read_NothingAtTheAddress_IsAnInvalidAddress)
{
    Begin();
    EXPECT_EQ(FailureKind([&] { Read(kNowhere, 4); }), ErrorKind::InvalidAddress);
}

TEST_F(ControlChannelTest, Write_ReadOnlyRegister_IsAccessDenied)
{
    Begin();
    EXPECT_EQ(FailureKind([&] { Write(kSensorWidth, Pattern(4)); }), ErrorKind::AccessDenied);
}

TEST_F(ControlChannelTest, Read_LaterPieceIsRefused_SaysHowManyBytesWere)
{
    Begin();
    Bytes bytes(kUserMemorySize + 4096);
    size_t done = 0;
    EXPECT_EQ(FailureKind([&] { Opened().Read(kUserMemory, bytes, done); }),
              ErrorKind::InvalidAddress);
    EXPECT_EQ(done, kUserMemorySize / 1012 * 1012);
    EXPECT_EQ(FailureKind([&] { Opened().Write(kUserMemory, bytes, done); }),
              ErrorKind::InvalidAddress);
    EXPECT_EQ(done, kUserMemorySize / 2028 * 2028);
}

// ---- what is told

TEST_F(ControlChannelTest, Failure_OfAnyKind_NamesOperationAddressLengthAndReason)
{
    Begin();
    Plugged().SetFaults("reply-error:32771");
    EXPECT_STREQ(Failure([&] { ReadWidth(); }).what(),
                 "reading 4 bytes at 0x50000 failed: the camera answers 0x8003 (invalid address)");
    EXPECT_STREQ(Failure([&] { Write(kUserMemory, Pattern(8)); }).what(),
                 "writing 8 bytes at 0x60000 failed: the camera answers 0x8003 (invalid address)");
    Plugged().SetFaults("reply-missing");
    EXPECT_STREQ(Failure([&] { ReadWidth(); }).what(),
                 "reading 4 bytes at 0x50000 failed: the camera does not answer within 100 ms");
    Plugged().SetFaults("reply-stalled");
    EXPECT_STREQ(Failure([&] { ReadWidth(); }).what(),
                 "reading 4 bytes at 0x50000 failed: the exchange was damaged "
                 "(LIBUSB_TRANSFER_STALL)");
    Plugged().Unplug();
    EXPECT_STREQ(Failure([&] { ReadWidth(); }).what(),
                 "reading 4 bytes at 0x50000 failed: the camera is gone (LIBUSB_ERROR_NO_DEVICE)");
}

// ---- unplugged

TEST_F(ControlChannelTest, Read_UnpluggedDuringTheExchange_FailsAtOnce)
{
    Begin();
    Plugged().SetFaults("unplug-at-command");
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(FailureKind([&] { ReadWidth(); }), ErrorKind::Io);
    EXPECT_TRUE(Opened().IsGone());
    EXPECT_EQ(FailureKind([&] { Write(kUserMemory, Pattern(4)); }), ErrorKind::Io);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
}

TEST_F(ControlChannelTest, Read_UnpluggedWhileWaiting_FailsAtOnce)
{
    m_options.control.maximumTime = 60s;
    Begin("response-ms=60000");
    Plugged().SetFaults("reply-missing");
    std::thread unplug([this] {
        Eventually([this] { return Plugged().Stats().faults_played > 0; });
        Plugged().Unplug();
    });
    EXPECT_EQ(FailureKind([&] { ReadWidth(); }), ErrorKind::Io);
    unplug.join();
}

// ---- many threads

TEST_F(ControlChannelTest, ReadAndWrite_ManyThreads_TakeTurns)
{
    Begin();
    std::vector<std::thread> threads;
    for (uint64_t i = 0; i < 4; ++i) {
        threads.emplace_back([this, i] {
            const uint64_t address = kUserMemory + i * 0x400;
            for (int round = 0; round < 50; ++round) {
                const Bytes bytes(0x400,
                                  static_cast<uint8_t>(i * 50 + static_cast<unsigned>(round)));
                Write(address, bytes);
                EXPECT_EQ(Read(address, bytes.size()), bytes);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(vusb_camera_errors(Plugged().Id(), nullptr), 0U);
}

} // namespace
} // namespace u3v_host
