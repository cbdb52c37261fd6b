#include "last_error.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <cxxabi.h>
#include <iterator>
#include <new>

#include "copy_info.h"
#include "error_names.h"
#include "failure.h"

namespace standard_tl {
namespace {

constexpr size_t kLongestText = 384;

struct LastError
{
    GC_ERROR code;
    const char* function; // NULL until the exported function has noted itself
    char text[kLongestText + 1];
};

thread_local constinit LastError t_last = {};

struct KindRow
{
    u3v_host::ErrorKind kind;
    GC_ERROR code;
};

constexpr KindRow kKinds[] = {
    {u3v_host::ErrorKind::Io, GC_ERR_IO},
    {u3v_host::ErrorKind::Timeout, GC_ERR_TIMEOUT},
    {u3v_host::ErrorKind::AccessDenied, GC_ERR_ACCESS_DENIED},
    {u3v_host::ErrorKind::InUse, GC_ERR_RESOURCE_IN_USE},
    {u3v_host::ErrorKind::InvalidId, GC_ERR_INVALID_ID},
    {u3v_host::ErrorKind::NotImplemented, GC_ERR_NOT_IMPLEMENTED},
    {u3v_host::ErrorKind::InvalidParameter, GC_ERR_INVALID_PARAMETER},
    {u3v_host::ErrorKind::InvalidAddress, GC_ERR_INVALID_ADDRESS},
    {u3v_host::ErrorKind::Busy, GC_ERR_BUSY},
    {u3v_host::ErrorKind::NotAvailable, GC_ERR_NOT_AVAILABLE},
    {u3v_host::ErrorKind::ResourceExhausted, GC_ERR_RESOURCE_EXHAUSTED},
};

// The bytes of a text that fit, without half a character at the end.
size_t FittingLength(std::string_view text, size_t room)
{
    size_t length = std::min(text.size(), room);
    while (length != 0 && length < text.size() && (text[length] & 0xC0) == 0x80) {
        --length;
    }
    return length;
}

} // namespace

GC_ERROR Refuse(GC_ERROR code, std::string_view text) noexcept
{
    t_last.code = code;
    t_last.function = nullptr;
    const size_t length = FittingLength(text, kLongestText);
    memcpy(t_last.text, text.data(), length);
    t_last.text[length] = '\0';
    return code;
}

void NoteFunction(const char* name) noexcept
{
    t_last.function = name;
}

GC_ERROR RefuseException()
{
    try {
        throw;
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (const Failure& failure) {
        return Refuse(failure.Code(), failure.what());
    } catch (const u3v_host::Error& error) {
        return Refuse(CodeOf(error.Kind()), error.what());
    } catch (const std::bad_alloc&) {
        return Refuse(GC_ERR_OUT_OF_MEMORY, "there is no memory for it");
    } catch (const std::exception& exception) {
        return Refuse(GC_ERR_ERROR, exception.what());
    } catch (...) {
        return Refuse(GC_ERR_ERROR, "something unknown was thrown");
    }
}

GC_ERROR CodeOf(u3v_host::ErrorKind kind)
{
    const auto* const row = std::find_if(std::begin(kKinds), std::end(kKinds),
                                         [kind](const KindRow& r) { return r.kind == kind; });
    return row != std::end(kKinds) ? row->code : GC_ERR_ERROR;
}

// Its own refusals are answered but not noted: they would take the place of what was asked for.
GC_ERROR TellLastError(GC_ERROR* code, char* text, size_t* size)
{
    if (code == nullptr || size == nullptr) {
        return GC_ERR_INVALID_PARAMETER;
    }
    char line[kLongestText + 128] = "No error";
    if (t_last.code != GC_ERR_SUCCESS) {
        const bool isNamed = t_last.function != nullptr;
        snprintf(line, sizeof(line), "%s%s%s: %s", isNamed ? t_last.function : "",
                 isNamed ? ": " : "", info::ErrorName(t_last.code), t_last.text);
    }
    *code = t_last.code;
    return info::CopyString(line, nullptr, text, size);
}

} // namespace standard_tl
