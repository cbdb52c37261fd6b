#include "register_map.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "zr_gentl_util.h"

namespace {

std::string UpperHex(uint64_t value)
{
    char text[2 * sizeof(value) + 1];
    snprintf(text, sizeof(text), "%llX", static_cast<unsigned long long>(value));
    return text;
}

} // namespace

ZrRegisterDocument::ZrRegisterDocument(const std::string& fileName, const std::string& text)
    : m_text(text),
      m_url("local:" + fileName + ";" + UpperHex(kDocumentAddress) + ";" + UpperHex(text.size()))
{
}

GC_ERROR ZrRegisterDocument::Read(void* buffer, const size_t* size) const
{
    memcpy(buffer, m_text.data(), std::min(*size, m_text.size()));
    return GC_ERR_SUCCESS;
}

GC_ERROR ReadRegister(std::string_view value, void* buffer, size_t* size)
{
    return ZrGenTLUtil::CopyInfoString(value, nullptr, buffer, size);
}

GC_ERROR ReadRegister(uint32_t value, void* buffer, size_t* size)
{
    return ZrGenTLUtil::CopyInfoUint32(value, nullptr, buffer, size);
}

GC_ERROR ReadRegister(uint64_t value, void* buffer, size_t* size)
{
    return ZrGenTLUtil::CopyInfoUint64(value, nullptr, buffer, size);
}

uint32_t WrittenRegister(const void* buffer, const size_t* size)
{
    uint8_t bytes[sizeof(uint32_t)] = {};
    memcpy(bytes, buffer, std::min(*size, sizeof(bytes)));
    uint32_t value = 0;
    for (size_t i = 0; i < sizeof(bytes); ++i) {
        value |= static_cast<uint32_t>(bytes[i]) << (8 * i);
    }
    return value;
}
