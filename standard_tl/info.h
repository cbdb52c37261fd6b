#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include <zr_u3v_tl/gentl.h>

namespace standard_tl {

using Bytes = std::span<const uint8_t>;

// What an information query or a register answers, in the form in which it is known. Nothing at all
// is GC_ERR_NOT_AVAILABLE: not now, or not of such a thing.
class Value
{
public:
    Value() = default;
    Value(bool flag) : m_value(uint64_t{flag}) {}
    Value(int32_t number) : m_value(static_cast<uint64_t>(int64_t{number})) {}
    Value(uint32_t number) : m_value(uint64_t{number}) {}
    Value(uint64_t number) : m_value(number) {}
    Value(const void* pointer) : m_value(uint64_t{reinterpret_cast<uintptr_t>(pointer)}) {}
    Value(const char* text) : m_value(std::string_view(text)) {} // which lives for ever
    Value(std::string text) : m_value(std::move(text)) {}
    Value(Bytes bytes) : m_value(bytes) {} // which live as long as the answer takes

    bool IsNothing() const { return std::holds_alternative<std::monostate>(m_value); }
    // 0 for anything that is no number.
    uint64_t Number() const;
    // Of a text or of bytes; empty for anything else.
    Bytes Raw() const;

private:
    std::variant<std::monostate, uint64_t, std::string_view, std::string, Bytes> m_value;
};

// Where the consumer wants an answer. `type` may be NULL; a NULL `buffer` asks for the size only.
struct InfoOut
{
    INFO_DATATYPE* type;
    void* buffer;
    size_t* size; // [in, out]
};

// Hand an answer out by the rule of info/. Refusals are noted.
GC_ERROR CopyBytes(Bytes bytes, const InfoOut& out); // INFO_DATATYPE_BUFFER
GC_ERROR CopyText(std::string_view text, const InfoOut& out);
// As `type` wants it.
GC_ERROR AnswerInfo(INFO_DATATYPE type, const Value& value, const InfoOut& out);

// A command that a table does not have, or that has no answer now.
GC_ERROR RefuseCommand(GC_ERROR code, const char* subject, int32_t command);

// One information command: its type, and the way to its value.
template <class Source>
struct InfoRow
{
    int32_t command;
    INFO_DATATYPE type;
    Value (*get)(Source& source);
};

// All commands of one kind of thing.
template <class Source, size_t N>
struct InfoTable
{
    const char* subject; // what is asked, for messages
    InfoRow<Source> rows[N];

    GC_ERROR Answer(Source& source, int32_t command, const InfoOut& out) const
    {
        const auto* const row = std::find_if(
            rows, rows + N, [command](const InfoRow<Source>& r) { return r.command == command; });
        if (row == rows + N) {
            return RefuseCommand(GC_ERR_NOT_IMPLEMENTED, subject, command);
        }
        const Value value = row->get(source);
        return value.IsNothing() ? RefuseCommand(GC_ERR_NOT_AVAILABLE, subject, command)
                                 : AnswerInfo(row->type, value, out);
    }
};

} // namespace standard_tl
