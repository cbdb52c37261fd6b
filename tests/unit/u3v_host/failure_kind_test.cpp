#include "failure_kind.h"

#include <gtest/gtest.h>

namespace u3v_host {
namespace {

TEST(FailureKind, KindOfStatus_EachStatus_HasItsKind)
{
    const std::pair<uint16_t, ErrorKind> table[] = {
        {0x8001, ErrorKind::NotImplemented},
        {0x8002, ErrorKind::InvalidParameter},
        {0x8003, ErrorKind::InvalidAddress},
        {0x8004, ErrorKind::AccessDenied},
        {0x8005, ErrorKind::InvalidAddress},
        {0x8006, ErrorKind::AccessDenied},
        {0x8007, ErrorKind::Busy},
        {0x800B, ErrorKind::Timeout},
        {0x800E, ErrorKind::Io},
        {0x800F, ErrorKind::Io},
        {0x8FFF, ErrorKind::Io},
        {0xA001, ErrorKind::Io},
        {0xA004, ErrorKind::Io},
        {0x1234, ErrorKind::Io},
    };
    for (const auto& [status, kind] : table) {
        EXPECT_EQ(KindOfStatus(status), kind) << std::hex << status;
    }
}

TEST(FailureKind, KindOfUsbError_EachError_HasItsKind)
{
    const std::pair<int, ErrorKind> table[] = {
        {LIBUSB_ERROR_ACCESS, ErrorKind::AccessDenied},
        {LIBUSB_ERROR_BUSY, ErrorKind::InUse},
        {LIBUSB_ERROR_NO_MEM, ErrorKind::ResourceExhausted},
        {LIBUSB_ERROR_NO_DEVICE, ErrorKind::Io},
        {LIBUSB_ERROR_NOT_FOUND, ErrorKind::Io},
        {LIBUSB_ERROR_PIPE, ErrorKind::Io},
        {-4711, ErrorKind::Io},
    };
    for (const auto& [code, kind] : table) {
        EXPECT_EQ(KindOfUsbError(code), kind) << code;
    }
}

TEST(FailureKind, StatusText_KnownAndUnknown_NamesNumberAndMeaning)
{
    EXPECT_EQ(StatusText(0x8003), "0x8003 (invalid address)");
    EXPECT_EQ(StatusText(0x0042), "0x0042 (unknown status)");
}

TEST(FailureKind, TransferStatusName_EachStatus_IsLibusbs)
{
    EXPECT_STREQ(TransferStatusName(LIBUSB_TRANSFER_COMPLETED), "LIBUSB_TRANSFER_COMPLETED");
    EXPECT_STREQ(TransferStatusName(LIBUSB_TRANSFER_ERROR), "LIBUSB_TRANSFER_ERROR");
    EXPECT_STREQ(TransferStatusName(LIBUSB_TRANSFER_TIMED_OUT), "LIBUSB_TRANSFER_TIMED_OUT");
    EXPECT_STREQ(TransferStatusName(LIBUSB_TRANSFER_CANCELLED), "LIBUSB_TRANSFER_CANCELLED");
    EXPECT_STREQ(TransferStatusName(LIBUSB_TRANSFER_STALL), "LIBUSB_TRANSFER_STALL");
    EXPECT_STREQ(TransferStatusName(LIBUSB_TRANSFER_NO_DEVICE), "LIBUSB_TRANSFER_NO_DEVICE");
    EXPECT_STREQ(TransferStatusName(LIBUSB_TRANSFER_OVERFLOW), "LIBUSB_TRANSFER_OVERFLOW");
}

} // namespace
} // namespace u3v_host
