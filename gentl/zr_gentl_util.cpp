#include "zr_gentl_util.h"

#include "copy_info.h"

#include <array>
#include <cstdlib>
#include <cstring>

namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";

// The value of a hexadecimal digit of either case, -1 for any other character.
int HexValue(char digit)
{
    if (digit >= '0' && digit <= '9') {
        return digit - '0';
    }
    if (digit >= 'A' && digit <= 'F') {
        return digit - 'A' + 10;
    }
    if (digit >= 'a' && digit <= 'f') {
        return digit - 'a' + 10;
    }
    return -1;
}

} // namespace

GC_ERROR ZrGenTLUtil::CopyInfoString(std::string_view value, int* piType, void* pBuffer,
                                     size_t* piSize)
{
    return info::CopyString(value, piType, pBuffer, piSize);
}

GC_ERROR ZrGenTLUtil::CopyInfoInt16(int16_t value, int* piType, void* pBuffer, size_t* piSize)
{
    return info::CopyValue(INFO_DATATYPE_INT16, value, piType, pBuffer, piSize);
}

GC_ERROR ZrGenTLUtil::CopyInfoUint16(uint16_t value, int* piType, void* pBuffer, size_t* piSize)
{
    return info::CopyValue(INFO_DATATYPE_UINT16, value, piType, pBuffer, piSize);
}

GC_ERROR ZrGenTLUtil::CopyInfoInt32(int32_t value, int* piType, void* pBuffer, size_t* piSize)
{
    return info::CopyValue(INFO_DATATYPE_INT32, value, piType, pBuffer, piSize);
}

GC_ERROR ZrGenTLUtil::CopyInfoUint32(uint32_t value, int* piType, void* pBuffer, size_t* piSize)
{
    return info::CopyValue(INFO_DATATYPE_UINT32, value, piType, pBuffer, piSize);
}

GC_ERROR ZrGenTLUtil::CopyInfoInt64(int64_t value, int* piType, void* pBuffer, size_t* piSize)
{
    return info::CopyValue(INFO_DATATYPE_INT64, value, piType, pBuffer, piSize);
}

GC_ERROR ZrGenTLUtil::CopyInfoUint64(uint64_t value, int* piType, void* pBuffer, size_t* piSize)
{
    return info::CopyValue(INFO_DATATYPE_UINT64, value, piType, pBuffer, piSize);
}

GC_ERROR ZrGenTLUtil::CopyInfoFloat64(double value, int* piType, void* pBuffer, size_t* piSize)
{
    return info::CopyValue(INFO_DATATYPE_FLOAT64, value, piType, pBuffer, piSize);
}

GC_ERROR ZrGenTLUtil::CopyInfoPtr(void* value, int* piType, void* pBuffer, size_t* piSize)
{
    return info::CopyValue(INFO_DATATYPE_PTR, value, piType, pBuffer, piSize);
}

GC_ERROR ZrGenTLUtil::CopyInfoBool(bool value, int* piType, void* pBuffer, size_t* piSize)
{
    return info::CopyBool(value, piType, pBuffer, piSize);
}

GC_ERROR ZrGenTLUtil::CopyInfoSizeT(size_t value, int* piType, void* pBuffer, size_t* piSize)
{
    return info::CopyValue(INFO_DATATYPE_SIZET, value, piType, pBuffer, piSize);
}

GC_ERROR ZrGenTLUtil::CopyInfoBuffer(const void* data, size_t length, int* piType, void* pBuffer,
                                     size_t* piSize)
{
    return info::CopyBytes(INFO_DATATYPE_BUFFER, data, length, piType, pBuffer, piSize);
}

void ZrGenTLUtil::ClearInfoBuffer(void* pBuffer, const size_t* piSize)
{
    if (pBuffer != nullptr && piSize != nullptr && *piSize != 0) {
        memset(pBuffer, 0, *piSize);
    }
}

std::string ZrGenTLUtil::UriEncode(const std::string& text)
{
    std::string encoded;
    encoded.reserve(text.size());
    for (const char c : text) {
        // Quirk Q15: the blank alone is escaped; a percent sign is not, so decoding is no inverse.
        if (c == ' ') {
            encoded += '%';
            encoded += kHexDigits[static_cast<unsigned char>(c) >> 4];
            encoded += kHexDigits[static_cast<unsigned char>(c) & 0x0F];
        } else {
            encoded += c;
        }
    }
    return encoded;
}

std::string ZrGenTLUtil::UriDecode(const std::string& text)
{
    std::string decoded;
    decoded.reserve(text.size());
    size_t position = 0;
    // Three bytes or none: an escape that is cut short at the end stays as it is.
    while (text.size() - position >= 3) {
        const int high = HexValue(text[position + 1]);
        const int low = HexValue(text[position + 2]);
        if (text[position] == '%' && high >= 0 && low >= 0) {
            decoded += static_cast<char>(high * 16 + low);
            position += 3;
        } else {
            decoded += text[position];
            ++position;
        }
    }
    return decoded.append(text, position, std::string::npos);
}

uint64_t ZrGenTLUtil::ConvertMacAddress(const std::string& text)
{
    std::array<uint32_t, 6> parts{};
    const char* position = text.c_str();
    for (size_t i = 0; i < parts.size(); ++i) {
        if (i != 0 && *position++ != '-') {
            return 0;
        }
        char* end = nullptr;
        parts[i] = static_cast<uint32_t>(strtoul(position, &end, 16));
        if (end == position) {
            return 0;
        }
        position = end;
    }
    // Quirk Q16: the parts are not masked to eight bits; a wide one runs into its neighbours.
    uint64_t address = 0;
    unsigned shift = 40;
    for (const uint32_t part : parts) {
        address |= uint64_t{part} << shift;
        shift -= 8;
    }
    return address;
}
