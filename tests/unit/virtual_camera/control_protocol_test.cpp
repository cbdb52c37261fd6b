// Commands and acknowledges of the virtual camera, against bytes written from the standard's
// tables.

#include "camera_host.h"

using vcam::UsbStatus;

TEST(ControlProtocol, ReadMem_GenCPVersion_ExactBytes)
{
    CameraHost host;
    const Bytes command{0x55, 0x33, 0x56, 0x43, 0x00, 0x40, 0x00, 0x08, 0x0C, 0x00, 0x34, 0x12,
                        0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x04, 0x00};
    const Bytes ack{0x55, 0x33, 0x56, 0x43, 0x00, 0x00, 0x01, 0x08,
                    0x04, 0x00, 0x34, 0x12, 0x00, 0x00, 0x01, 0x00};
    EXPECT_EQ(ack, host.Exchange(command));
}

TEST(ControlProtocol, WriteMem_UserMemory_ExactBytes)
{
    CameraHost host;
    const Bytes command{0x55, 0x33, 0x56, 0x43, 0x00, 0x40, 0x02, 0x08, 0x0A, 0x00, 0x07,
                        0x00, 0x00, 0x00, 0x06, 0x00, 0x00, 0x00, 0x00, 0x00, 0xAB, 0xCD};
    const Bytes ack{0x55, 0x33, 0x56, 0x43, 0x00, 0x00, 0x03, 0x08,
                    0x04, 0x00, 0x07, 0x00, 0x00, 0x00, 0x02, 0x00};
    EXPECT_EQ(ack, host.Exchange(command));
    EXPECT_EQ((Bytes{0xAB, 0xCD}), host.ReadMem(0x60000, 2));
}

TEST(ControlProtocol, WriteMem_WithoutWrittenLength_AckIsHeaderOnly)
{
    CameraHost host("written-length=0");
    EXPECT_EQ(12U, host.Exchange(CameraHost::WriteCommand(0x60000, {1})).size());
    EXPECT_EQ(0U, host.Read64(0x1C4) & (1U << 11));
}

TEST(ControlProtocol, ReadMem_OtherLengthField_ToleratedUnlessStrict)
{
    CameraHost tolerant;
    EXPECT_EQ(0U, Get(tolerant.Exchange(CameraHost::ReadCommand(0, 4, 1, 16)), 4, 2));
    CameraHost strict("strict=1");
    EXPECT_EQ(0x800EU, Get(strict.Exchange(CameraHost::ReadCommand(0, 4, 1, 16)), 4, 2));
    EXPECT_EQ(0U, Get(strict.Exchange(CameraHost::ReadCommand(0, 4)), 4, 2));
}

TEST(ControlProtocol, Command_Unknown_NotImplemented)
{
    CameraHost host;
    Bytes command = CameraHost::ReadCommand(0, 4);
    command[6] = 0x10;
    const Bytes ack = host.Exchange(command);
    EXPECT_EQ(12U, ack.size());
    EXPECT_EQ(0x8001U, Get(ack, 4, 2));
    EXPECT_EQ(0x0811U, Get(ack, 6, 2));
}

TEST(ControlProtocol, Command_WrongPrefixOrTooShort_NoAnswer)
{
    CameraHost host;
    Bytes command = CameraHost::ReadCommand(0, 4);
    command[0] = 0;
    EXPECT_EQ(UsbStatus::Done, host.Send(command));
    EXPECT_EQ(UsbStatus::Done, host.Send({0x55, 0x33, 0x56}));
    EXPECT_EQ(UsbStatus::Nak, host.Receive(0x81, 64).status);
    EXPECT_EQ(2U, host.camera.Errors()["bad-prefix"]);
}

TEST(ControlProtocol, Command_NoAcknowledgeRequested_DoneWithoutAnswer)
{
    CameraHost host;
    Bytes command = CameraHost::WriteCommand(0x60000, {0x77});
    command[5] = 0;
    host.Send(command);
    EXPECT_EQ(UsbStatus::Nak, host.Receive(0x81, 64).status);
    EXPECT_EQ((Bytes{0x77}), host.ReadMem(0x60000, 1));
}

TEST(ControlProtocol, Command_Resend_NotSupported)
{
    CameraHost host;
    Bytes command = CameraHost::ReadCommand(0, 4);
    command[5] = 0xC0;
    EXPECT_EQ(0xA001U, Get(host.Exchange(command), 4, 2));
}

TEST(ControlProtocol, Access_OutsideTheMap_InvalidAddress)
{
    CameraHost host;
    EXPECT_EQ(0x8003U, host.StatusOfRead(0x4000000, 4));
    EXPECT_EQ(0x8003U, host.StatusOfRead(0x61FFE, 4));
    EXPECT_EQ(0x8003U, host.StatusOfRead(0xFFFFFFFFFFFFFFFE, 4));
    EXPECT_EQ(0x8003U, host.Write(0x4000000, {1}));
}

TEST(ControlProtocol, Write_ReadOnlyRegister_WriteProtect)
{
    CameraHost host;
    EXPECT_EQ(0x8004U, host.Write32(0x0, 1));
    EXPECT_EQ(0x8004U, host.Write32(0x5000C, 1));
    EXPECT_EQ(0x8004U, host.Write32(0x20008, 1));
    EXPECT_EQ(0x8004U, host.Write(0x1C0, Bytes(8)));
}

TEST(ControlProtocol, Read_LargestAndBeyond)
{
    CameraHost host;
    EXPECT_EQ(0U, host.StatusOfRead(0x60000, 1012));
    EXPECT_EQ(0x8002U, host.StatusOfRead(0x60000, 1013));
    EXPECT_EQ(0x8002U, host.StatusOfRead(0x60000, 0));
}

TEST(ControlProtocol, Read_AckOfWholePacketsAtMaximum_NoEmptyPacketLeft)
{
    CameraHost host;
    host.Send(CameraHost::ReadCommand(0x60000, 1012));
    EXPECT_EQ(1024U, host.Receive(0x81, 1024).data.size());
    EXPECT_EQ(UsbStatus::Nak, host.Receive(0x81, 1024).status);
}

TEST(ControlProtocol, Read_AckOfWholePacketsBelowMaximum_EndsWithEmptyPacket)
{
    CameraHost host("max-acknowledge=4096");
    host.Send(CameraHost::ReadCommand(0x60000, 1012));
    const Read roomy = host.Receive(0x81, 4096);
    EXPECT_EQ(UsbStatus::Done, roomy.status);
    EXPECT_EQ(1024U, roomy.data.size());
    EXPECT_EQ(UsbStatus::Nak, host.Receive(0x81, 4096).status);
    // Who has asked for exactly so much finds the empty packet in the next request.
    host.Send(CameraHost::ReadCommand(0x60000, 1012));
    EXPECT_EQ(1024U, host.Receive(0x81, 1024).data.size());
    const Read empty = host.Receive(0x81, 1024);
    EXPECT_EQ(UsbStatus::Done, empty.status);
    EXPECT_TRUE(empty.data.empty());
}

TEST(ControlProtocol, Read_RequestSmallerThanPacket_Overflows)
{
    CameraHost host;
    host.Send(CameraHost::ReadCommand(0, 64));
    EXPECT_EQ(UsbStatus::Overflow, host.Receive(0x81, 32).status);
    EXPECT_EQ(UsbStatus::Nak, host.Receive(0x81, 1024).status);
}

TEST(ControlProtocol, Write_BeyondMaximumCommand_InvalidParameter)
{
    CameraHost host("max-command=64");
    EXPECT_EQ(0U, host.Write(0x60000, Bytes(44)));
    EXPECT_EQ(0x8002U, host.Write(0x60000, Bytes(45)));
    CameraHost usual;
    EXPECT_EQ(0U, usual.Write(0x60000, Bytes(1024, 0x5A)));
    EXPECT_EQ(Bytes(1012, 0x5A), usual.ReadMem(0x60000, 1012));
}

TEST(ControlProtocol, Bootstrap_Strings_AreThoseOfTheConfiguration)
{
    CameraHost host("vendor=V,model=M,family=F,version=1.2,info=I,serial=S,user=U");
    const std::pair<std::uint64_t, char> strings[] = {{0x004, 'V'}, {0x044, 'M'}, {0x084, 'F'},
                                                      {0x0C4, '1'}, {0x104, 'I'}, {0x144, 'S'},
                                                      {0x184, 'U'}};
    for (const auto& [address, first] : strings) {
        const Bytes text = host.ReadMem(address, 64);
        EXPECT_EQ(static_cast<std::uint8_t>(first), text[0]) << std::hex << address;
        EXPECT_EQ(0, text[63]);
    }
}

TEST(ControlProtocol, Bootstrap_ReservedPartAfterTheStrings_ReadsOn)
{
    CameraHost host("user=Front");
    const Bytes all = host.ReadMem(0x184, 512);
    EXPECT_EQ("Front", std::string(all.begin(), all.begin() + 5));
    EXPECT_EQ(0, all[511]);
}

TEST(ControlProtocol, Bootstrap_UserName_IsWritable)
{
    CameraHost host;
    EXPECT_EQ(0U, host.Write(0x184, {'c', 'a', 'm', 0}));
    EXPECT_EQ("cam", host.camera.Persistent().user);
}

TEST(ControlProtocol, Bootstrap_SbrmAndSirm_AreLinked)
{
    CameraHost host("alignment=4,leader=60,trailer=40");
    const std::uint64_t sbrm = host.Read64(0x1D8);
    EXPECT_EQ(1U, host.Read64(sbrm + 0x04));
    EXPECT_EQ(2048U, host.Read32(sbrm + 0x14));
    EXPECT_EQ(1024U, host.Read32(sbrm + 0x18));
    EXPECT_EQ(1U, host.Read32(sbrm + 0x1C));
    EXPECT_EQ(0x30U, host.Read32(sbrm + 0x28));
    EXPECT_EQ(8U, host.Read32(sbrm + 0x40));
    const std::uint64_t sirm = host.Read64(sbrm + 0x20);
    EXPECT_EQ(0x04000000U, host.Read32(sirm));
    EXPECT_EQ(640U * 480, host.Read64(sirm + 0x08));
    EXPECT_EQ(60U, host.Read32(sirm + 0x10));
    EXPECT_EQ(40U, host.Read32(sirm + 0x14));
}

TEST(ControlProtocol, Timestamp_Latched_Advances)
{
    CameraHost host;
    EXPECT_EQ(0U, host.Read64(0x1F0));
    host.Write32(0x1F8, 1);
    const std::uint64_t first = host.Read64(0x1F0);
    EXPECT_LT(0U, first);
    EXPECT_EQ(first, host.Read64(0x1F0));
    host.Write32(0x1F8, 1);
    EXPECT_LT(first, host.Read64(0x1F0));
}

TEST(ControlProtocol, Sirm_StreamEnabled_SizesAreLocked)
{
    CameraHost host("width=64,height=8");
    EXPECT_EQ(0U, host.Write32(0x2001C, 4096));
    host.StartWhole();
    for (std::uint64_t address = 0x20018; address <= 0x2002C; address += 4) {
        EXPECT_EQ(0x8004U, host.Write32(address, 4096)) << std::hex << address;
    }
    EXPECT_EQ(0x8006U, host.Write32(0x50000, 32)); // the width as well
    EXPECT_EQ(0U, host.Write32(0x20004, 0));
    EXPECT_EQ(0U, host.Write32(0x2001C, 4096));
    EXPECT_EQ(0U, host.Write32(0x50000, 32));
}

TEST(ControlProtocol, Sirm_EnableWithUnfitPlan_Refused)
{
    CameraHost host("width=64,height=8");
    EXPECT_EQ(0xA004U, host.Write32(0x20004, 1)); // nothing programmed
    host.Write32(0x20018, 52);
    host.Write32(0x2002C, 32);
    host.Write32(0x20024, 508);
    EXPECT_EQ(0xA003U, host.Write32(0x20004, 1)); // 508 is no multiple of 8
    host.Write32(0x20024, 504);
    EXPECT_EQ(0xA004U, host.Write32(0x20004, 1)); // 8 bytes missing
    host.Write32(0x20028, 8);
    EXPECT_EQ(0U, host.Write32(0x20004, 1));
}

TEST(ControlProtocol, StreamRegisters_Fixed_RefuseWritesAndHoldAPlan)
{
    CameraHost host("width=64,height=33,stream-registers=fixed,fixed-transfer=1000,alignment=4");
    for (std::uint64_t address = 0x20018; address <= 0x2002C; address += 4) {
        EXPECT_EQ(0x8004U, host.Write32(address, 4096)) << std::hex << address;
    }
    EXPECT_EQ(64U, host.Read32(0x20018));
    EXPECT_EQ(1008U, host.Read32(0x2001C));
    EXPECT_EQ(2U, host.Read32(0x20020));
    EXPECT_EQ(96U, host.Read32(0x20024));
    EXPECT_EQ(0U, host.Read32(0x20028));
    EXPECT_EQ(32U, host.Read32(0x2002C));
    EXPECT_EQ(0U, host.Write32(0x20004, 1));
    EXPECT_EQ(0U, host.Write32(0x50014, 1));
    EXPECT_EQ(52U, host.Stream(1024).data.size());
    EXPECT_EQ(1008U, host.Stream(1024).data.size());
    EXPECT_EQ(1008U, host.Stream(1024).data.size());
    EXPECT_EQ(96U, host.Stream(1024).data.size());
    EXPECT_EQ(32U, host.Stream(1024).data.size());
}

TEST(ControlProtocol, StreamRegisters_Ignored_TakeWritesWithoutEffect)
{
    CameraHost host("width=64,height=33,stream-registers=ignored");
    EXPECT_EQ(0U, host.Write32(0x2001C, 4096));
    EXPECT_EQ(65536U, host.Read32(0x2001C));
    EXPECT_EQ(2112U, host.Read32(0x20024));
    EXPECT_EQ(0U, host.Write32(0x50004, 10)); // the plan follows the image
    EXPECT_EQ(640U, host.Read32(0x20024));
}

TEST(ControlProtocol, SensorLargerThanTheImage_LeavesRoomForOffsets)
{
    CameraHost host("width=64,height=32,offset-x=7,offset-y=3,sensor-width=100");
    EXPECT_EQ(7U, host.Read32(0x5001C));
    EXPECT_EQ(3U, host.Read32(0x50020));
    EXPECT_EQ(100U, host.Read32(0x5002C));
    EXPECT_EQ(35U, host.Read32(0x50030));
    EXPECT_EQ(0U, host.Write32(0x5001C, 36));
    EXPECT_EQ(0x8002U, host.Write32(0x5001C, 37));
}

TEST(ControlProtocol, Features_FormatAndSize_ChangeThePayload)
{
    CameraHost host("width=64,height=8");
    EXPECT_EQ(512U, host.Read32(0x5000C));
    EXPECT_EQ(0U, host.Write32(0x50008, 0x02180014)); // RGB8
    EXPECT_EQ(1536U, host.Read32(0x5000C));
    EXPECT_EQ(0U, host.Write32(0x50000, 32));
    EXPECT_EQ(768U, host.Read64(0x20008));
    EXPECT_EQ(0x8002U, host.Write32(0x50008, 0x01020304));
    EXPECT_EQ(0x8002U, host.Write32(0x50000, 65)); // wider than the sensor
    EXPECT_EQ(0x8002U, host.Write32(0x50000, 0));
    EXPECT_EQ(0x8002U, host.Write32(0x5001C, 33)); // no room right of the image
    EXPECT_EQ(0U, host.Write32(0x501EC, 0));
    EXPECT_EQ(0U, host.Write32(0x501F0, 0));
}

TEST(ControlProtocol, Reset_AcknowledgedThenGone)
{
    CameraHost host("reboot-ms=70");
    EXPECT_EQ(0U, host.Write32(0x50018, 0xAFFE));
    EXPECT_TRUE(host.camera.Gone());
    EXPECT_EQ(UsbStatus::NoDevice, host.Send(CameraHost::ReadCommand(0, 4)));
    EXPECT_EQ(std::chrono::milliseconds(70), host.camera.ReturnsAfter());
}

TEST(ControlProtocol, Reset_OtherValue_NothingHappens)
{
    CameraHost host;
    EXPECT_EQ(0U, host.Write32(0x50018, 0xAFFF));
    EXPECT_FALSE(host.camera.Gone());
}

// --- scripted faults -----------------------------------------------------------------------

TEST(ControlFaults, Pending_Two_ThenTheAnswer)
{
    CameraHost host("faults=pending:2,pending-ms=250");
    host.Send(CameraHost::WriteCommand(0x60000, {1}, 9));
    const Bytes pending{0x55, 0x33, 0x56, 0x43, 0x00, 0x00, 0x05, 0x08,
                        0x04, 0x00, 0x09, 0x00, 0x00, 0x00, 0xFA, 0x00};
    EXPECT_EQ(pending, host.Receive(0x81, 64).data);
    EXPECT_EQ(pending, host.Receive(0x81, 64).data);
    EXPECT_EQ(0x0803U, Get(host.Receive(0x81, 64).data, 6, 2));
}

TEST(ControlFaults, PendingEndless_NeverAnswers_UntilTheNextCommand)
{
    CameraHost host("faults=pending-endless@0");
    host.Send(CameraHost::WriteCommand(0x60000, {1}));
    for (int i = 0; i < 20; ++i) {
        ASSERT_EQ(0x0805U, Get(host.Receive(0x81, 64).data, 6, 2));
    }
    EXPECT_EQ(0U, host.Write(0x60000, {1}));
}

TEST(ControlFaults, WrongFields_EachSpoilsItsOwn)
{
    const Bytes good = CameraHost().Exchange(CameraHost::ReadCommand(0, 4, 0x21));
    const std::pair<const char*, std::size_t> fields[] = {{"reply-wrong-prefix", 0},
                                                          {"reply-status", 4},
                                                          {"reply-wrong-id", 6},
                                                          {"reply-wrong-length", 8},
                                                          {"reply-wrong-request", 10}};
    for (const auto& [fault, offset] : fields) {
        Bytes ack = CameraHost(std::string("faults=") + fault)
                        .Exchange(CameraHost::ReadCommand(0, 4, 0x21));
        ASSERT_EQ(good.size(), ack.size()) << fault;
        EXPECT_NE(Get(good, offset, 2), Get(ack, offset, 2)) << fault;
        ack[offset] = good[offset];
        ack[offset + 1] = good[offset + 1];
        EXPECT_EQ(good, ack) << fault;
    }
}

TEST(ControlFaults, Lengths_ShortEmptyLongDoubled)
{
    const auto ack = [](const char* faults) {
        return CameraHost(faults).Exchange(CameraHost::ReadCommand(0, 4)).size();
    };
    EXPECT_EQ(6U, ack("faults=reply-short"));
    EXPECT_EQ(13U, ack("faults=reply-short:13"));
    EXPECT_EQ(0U, ack("faults=reply-empty"));
    EXPECT_EQ(20U, ack("faults=reply-long"));
    CameraHost host("faults=reply-doubled");
    host.Send(CameraHost::ReadCommand(0, 4));
    EXPECT_EQ(host.Receive(0x81, 64).data, host.Receive(0x81, 64).data);
}

TEST(ControlFaults, StatusWithData_AndErrorWithout)
{
    CameraHost host("faults=reply-status%0x4:0x8007,reply-error%w0x60000:0x800B");
    const Bytes busy = host.Exchange(CameraHost::ReadCommand(4, 64));
    EXPECT_EQ(76U, busy.size());
    EXPECT_EQ(0x8007U, Get(busy, 4, 2));
    EXPECT_EQ(0U, host.StatusOfRead(0x44, 64));
    EXPECT_EQ(0x800BU, host.Write(0x60000, {5}));
    EXPECT_EQ((Bytes{0}), host.ReadMem(0x60000, 1)); // nothing was written
}

TEST(ControlFaults, Missing_OnlyTheChosenCommand)
{
    CameraHost host("faults=reply-missing@1");
    EXPECT_EQ(0U, host.StatusOfRead(0, 4));
    host.Send(CameraHost::ReadCommand(0, 4));
    EXPECT_EQ(UsbStatus::Nak, host.Receive(0x81, 64).status);
    EXPECT_EQ(0U, host.StatusOfRead(0, 4));
}

TEST(ControlFaults, Late_ComesAfterTheTime)
{
    CameraHost host("faults=reply-late:60");
    const auto start = vcam::Clock::now();
    EXPECT_EQ(0U, host.StatusOfRead(0, 4));
    EXPECT_LE(std::chrono::milliseconds(60), vcam::Clock::now() - start);
}

TEST(ControlFaults, Stalled_HaltsUntilCleared)
{
    CameraHost host("faults=reply-stalled@0");
    host.Send(CameraHost::ReadCommand(0, 4));
    EXPECT_EQ(UsbStatus::Stall, host.Receive(0x81, 64).status);
    EXPECT_EQ(UsbStatus::Stall, host.Receive(0x81, 64).status);
    Bytes none;
    EXPECT_EQ(UsbStatus::Done, host.camera.Control({0x02, 1, 0, 0x81, 0}, none).status);
    EXPECT_EQ(0U, host.StatusOfRead(0, 4));
}

TEST(ControlFaults, CommandStalled_HaltsTheOutEndpoint)
{
    CameraHost host("faults=command-stalled@0");
    EXPECT_EQ(UsbStatus::Stall, host.Send(CameraHost::ReadCommand(0, 4)));
    EXPECT_EQ(UsbStatus::Stall, host.Send(CameraHost::ReadCommand(0, 4)));
    Bytes none;
    host.camera.Control({0x02, 1, 0, 0x01, 0}, none);
    EXPECT_EQ(0U, host.StatusOfRead(0, 4));
}

TEST(ControlFaults, UnplugAtCommand_Gone)
{
    CameraHost host("faults=unplug-at-command@0");
    EXPECT_EQ(UsbStatus::NoDevice, host.Send(CameraHost::ReadCommand(0, 4)));
    EXPECT_EQ(UsbStatus::NoDevice, host.Receive(0x81, 64).status);
}

TEST(ControlFaults, ClearHalt_DropsAcknowledgesNotFetched)
{
    CameraHost host;
    host.Send(CameraHost::ReadCommand(0, 4));
    Bytes none;
    host.camera.Control({0x02, 1, 0, 0x81, 0}, none);
    EXPECT_EQ(UsbStatus::Nak, host.Receive(0x81, 64).status);
}

TEST(ControlFaults, NoSirm_CapabilityAndAddressAreClear)
{
    CameraHost host("faults=no-sirm");
    EXPECT_EQ(0U, host.Read64(0x10004));
    EXPECT_EQ(0U, host.Read64(0x10020));
    EXPECT_EQ(0U, host.Read32(0x1001C));
}
