#pragma once

#include <cstdint>
#include <string_view>

// Status codes of acknowledges and trailers.
namespace gencp_status {

inline constexpr uint16_t kSuccess = 0x0000;
inline constexpr uint16_t kNotImplemented = 0x8001;
inline constexpr uint16_t kInvalidParameter = 0x8002;
inline constexpr uint16_t kInvalidAddress = 0x8003;
inline constexpr uint16_t kWriteProtect = 0x8004;
inline constexpr uint16_t kBadAlignment = 0x8005;
inline constexpr uint16_t kAccessDenied = 0x8006;
inline constexpr uint16_t kBusy = 0x8007;
inline constexpr uint16_t kMessageTimeout = 0x800B;
inline constexpr uint16_t kInvalidHeader = 0x800E;
inline constexpr uint16_t kWrongConfiguration = 0x800F;
inline constexpr uint16_t kError = 0x8FFF;
inline constexpr uint16_t kResendNotSupported = 0xA001;
inline constexpr uint16_t kStreamEndpointHalted = 0xA002;
inline constexpr uint16_t kPayloadSizeNotAligned = 0xA003;
inline constexpr uint16_t kStreamRegistersInconsistent = 0xA004;
inline constexpr uint16_t kDataDiscarded = 0xA100;
inline constexpr uint16_t kDataOverrun = 0xA101;

// The code in words, for messages.
constexpr std::string_view Name(uint16_t status)
{
    switch (status) {
    case kSuccess: return "success";
    case kNotImplemented: return "not implemented";
    case kInvalidParameter: return "invalid parameter";
    case kInvalidAddress: return "invalid address";
    case kWriteProtect: return "write protect";
    case kBadAlignment: return "bad alignment";
    case kAccessDenied: return "access denied";
    case kBusy: return "busy";
    case kMessageTimeout: return "message time-out";
    case kInvalidHeader: return "invalid header";
    case kWrongConfiguration: return "wrong configuration";
    case kError: return "error";
    case kResendNotSupported: return "resend not supported";
    case kStreamEndpointHalted: return "stream endpoint halted";
    case kPayloadSizeNotAligned: return "payload size not aligned";
    case kStreamRegistersInconsistent: return "stream registers inconsistent";
    case kDataDiscarded: return "data discarded";
    case kDataOverrun: return "data overrun";
    default: return "unknown status";
    }
}

} // namespace gencp_status
