#include "failure_kind.h"

#include "status.h"
#include "text.h"

namespace u3v_host {

ErrorKind KindOfStatus(uint16_t status)
{
    switch (status) {
    case gencp_status::kNotImplemented: return ErrorKind::NotImplemented;
    case gencp_status::kInvalidParameter: return ErrorKind::InvalidParameter;
    case gencp_status::kInvalidAddress:
    case gencp_status::kBadAlignment: return ErrorKind::InvalidAddress;
    case gencp_status::kWriteProtect:
    case gencp_status::kAccessDenied: return ErrorKind::AccessDenied;
    case gencp_status::kBusy: return ErrorKind::Busy;
    case gencp_status::kMessageTimeout: return ErrorKind::Timeout;
    default: return ErrorKind::Io;
    }
}

ErrorKind KindOfUsbError(int code)
{
    switch (code) {
    case LIBUSB_ERROR_ACCESS: return ErrorKind::AccessDenied;
    case LIBUSB_ERROR_BUSY: return ErrorKind::InUse;
    case LIBUSB_ERROR_NO_MEM: return ErrorKind::ResourceExhausted;
    default: return ErrorKind::Io;
    }
}

std::string StatusText(uint16_t status)
{
    return HexText(status, 4) + " (" + std::string(gencp_status::Name(status)) + ')';
}

const char* TransferStatusName(libusb_transfer_status status)
{
    switch (status) {
    case LIBUSB_TRANSFER_COMPLETED: return "LIBUSB_TRANSFER_COMPLETED";
    case LIBUSB_TRANSFER_ERROR: return "LIBUSB_TRANSFER_ERROR";
    case LIBUSB_TRANSFER_TIMED_OUT: return "LIBUSB_TRANSFER_TIMED_OUT";
    case LIBUSB_TRANSFER_CANCELLED: return "LIBUSB_TRANSFER_CANCELLED";
    case LIBUSB_TRANSFER_STALL: return "LIBUSB_TRANSFER_STALL";
    case LIBUSB_TRANSFER_NO_DEVICE: return "LIBUSB_TRANSFER_NO_DEVICE";
    case LIBUSB_TRANSFER_OVERFLOW: return "LIBUSB_TRANSFER_OVERFLOW";
    }
    return "an unknown transfer status";
}

} // namespace u3v_host
