#include "info.h"

#include <cstdio>

#include "copy_info.h"
#include "last_error.h"

namespace standard_tl {
namespace {

Bytes AsBytes(std::string_view text)
{
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

std::string_view AsText(Bytes bytes)
{
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// Runs one of the copies of info/ and notes why it was refused.
template <class Copy>
GC_ERROR Noted(const InfoOut& out, Copy copy)
{
    const size_t stated = out.size != nullptr ? *out.size : 0;
    const GC_ERROR code = copy(out.type, out.buffer, out.size);
    if (code == GC_ERR_INVALID_PARAMETER) {
        return Refuse(code, "piSize is NULL");
    }
    if (code == GC_ERR_BUFFER_TOO_SMALL) {
        char text[96];
        snprintf(text, sizeof(text), "%zu bytes are needed, the buffer has %zu", *out.size, stated);
        return Refuse(code, text);
    }
    return code;
}

template <class T>
GC_ERROR CopyNumber(INFO_DATATYPE type, uint64_t number, const InfoOut& out)
{
    return Noted(out,
                 [&](auto... to) { return info::CopyValue(type, static_cast<T>(number), to...); });
}

} // namespace

uint64_t Value::Number() const
{
    const uint64_t* const number = std::get_if<uint64_t>(&m_value);
    return number != nullptr ? *number : 0;
}

Bytes Value::Raw() const
{
    if (const auto* const bytes = std::get_if<Bytes>(&m_value)) {
        return *bytes;
    }
    if (const auto* const owned = std::get_if<std::string>(&m_value)) {
        return AsBytes(*owned);
    }
    const auto* const view = std::get_if<std::string_view>(&m_value);
    return view != nullptr ? AsBytes(*view) : Bytes{};
}

GC_ERROR CopyBytes(Bytes bytes, const InfoOut& out)
{
    return Noted(out, [&](auto... to) {
        return info::CopyBytes(INFO_DATATYPE_BUFFER, bytes.data(), bytes.size(), to...);
    });
}

GC_ERROR CopyText(std::string_view text, const InfoOut& out)
{
    return Noted(out, [&](auto... to) { return info::CopyString(text, to...); });
}

GC_ERROR AnswerInfo(INFO_DATATYPE type, const Value& value, const InfoOut& out)
{
    switch (type) {
    case INFO_DATATYPE_STRING: return CopyText(AsText(value.Raw()), out);
    case INFO_DATATYPE_BUFFER: return CopyBytes(value.Raw(), out);
    case INFO_DATATYPE_BOOL8: return CopyNumber<uint8_t>(type, value.Number() != 0 ? 1 : 0, out);
    case INFO_DATATYPE_INT32: return CopyNumber<int32_t>(type, value.Number(), out);
    case INFO_DATATYPE_UINT32: return CopyNumber<uint32_t>(type, value.Number(), out);
    case INFO_DATATYPE_PTR: return CopyNumber<uintptr_t>(type, value.Number(), out);
    case INFO_DATATYPE_SIZET: return CopyNumber<size_t>(type, value.Number(), out);
    default: return CopyNumber<uint64_t>(type, value.Number(), out);
    }
}

GC_ERROR RefuseCommand(GC_ERROR code, const char* subject, int32_t command)
{
    char text[128];
    snprintf(text, sizeof(text),
             code == GC_ERR_NOT_AVAILABLE ? "the %s has no answer to command %d now"
                                          : "the %s does not know command %d",
             subject, command);
    return Refuse(code, text);
}

} // namespace standard_tl
