#include "module_registers.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

#include "failure.h"

namespace standard_tl {
namespace {

constexpr size_t kNumberSize = 8;

std::string Hex(uint64_t number)
{
    char text[24];
    snprintf(text, sizeof(text), "0x%llX", static_cast<unsigned long long>(number));
    return text;
}

std::vector<Register> Place(std::vector<Feature> features)
{
    std::vector<Register> registers;
    uint64_t address = RegisterMap::kFirstRegister;
    for (Feature& feature : features) {
        registers.push_back({std::move(feature), address});
        address = registers.back().End();
    }
    return registers;
}

u3v_host::DescriptionFile FileOf(const DocumentIdentity& identity, size_t size)
{
    return {std::string(identity.name) + ".xml",
            RegisterMap::kDocument,
            size,
            false,
            1,
            1,
            1,
            0,
            0,
            std::nullopt};
}

// The piece of [address, address + size) that lies in a register: where in each.
struct Overlap
{
    size_t inRegister;
    size_t inRange;
    size_t size;
};

Overlap OverlapOf(const Register& reg, uint64_t address, size_t size)
{
    const uint64_t begin = std::max(reg.address, address);
    const uint64_t end = std::min(reg.End(), address + size);
    return {begin - reg.address, begin - address, end - begin};
}

std::array<uint8_t, kNumberSize> Encode(uint64_t number)
{
    std::array<uint8_t, kNumberSize> bytes;
    for (size_t i = 0; i < kNumberSize; ++i) {
        bytes[i] = static_cast<uint8_t>(number >> (8 * i));
    }
    return bytes;
}

uint64_t Decode(const std::array<uint8_t, kNumberSize>& bytes)
{
    uint64_t number = 0;
    for (size_t i = 0; i < kNumberSize; ++i) {
        number |= uint64_t{bytes[i]} << (8 * i);
    }
    return number;
}

// Bytes of a register from `offset` on; what the value does not have is zero.
void CopyPadded(Bytes value, size_t offset, std::span<uint8_t> destination)
{
    const size_t known =
        offset < value.size() ? std::min(value.size() - offset, destination.size()) : 0;
    std::copy_n(value.begin() + static_cast<ptrdiff_t>(std::min(offset, value.size())), known,
                destination.begin());
    std::fill(destination.begin() + static_cast<ptrdiff_t>(known), destination.end(), uint8_t{0});
}

void ReadRegister(const Register& reg, size_t offset, std::span<uint8_t> destination)
{
    const Value value = reg.feature.get();
    if (reg.feature.kind == FeatureKind::Text) {
        // The last byte is always a zero.
        const Bytes raw = value.Raw();
        CopyPadded(raw.first(std::min(raw.size(), reg.feature.length - 1)), offset, destination);
    } else {
        CopyPadded(Encode(value.Number()), offset, destination);
    }
}

// What the register would hold after a write of the range. It is a number: texts are read only.
uint64_t Written(const Register& reg, uint64_t address, Bytes source)
{
    const Overlap overlap = OverlapOf(reg, address, source.size());
    auto bytes = Encode(reg.feature.get().Number());
    const Bytes piece = source.subspan(overlap.inRange, overlap.size);
    std::copy(piece.begin(), piece.end(),
              bytes.begin() + static_cast<ptrdiff_t>(overlap.inRegister));
    return Decode(bytes);
}

} // namespace

RegisterMap::RegisterMap(const DocumentIdentity& identity, std::vector<Feature> features)
    : m_registers(Place(std::move(features))), m_document(MakeDocument(identity, m_registers)),
      m_file(FileOf(identity, m_document.size()))
{
}

const Feature& RegisterMap::Find(std::string_view name) const
{
    return std::ranges::find_if(m_registers,
                                [name](const Register& reg) { return reg.feature.name == name; })
        ->feature;
}

void RegisterMap::Read(uint64_t address, std::span<uint8_t> destination) const
{
    if (address >= kDocument && address - kDocument <= m_document.size() &&
        destination.size() <= m_document.size() - (address - kDocument)) {
        memcpy(destination.data(), m_document.data() + (address - kDocument), destination.size());
        return;
    }
    for (const Register& reg : _cover(address, destination.size())) {
        const Overlap overlap = OverlapOf(reg, address, destination.size());
        ReadRegister(reg, overlap.inRegister, destination.subspan(overlap.inRange, overlap.size));
    }
}

// First everything is looked at, then everything is done.
void RegisterMap::Write(uint64_t address, Bytes source) const
{
    const uint64_t documentEnd = kDocument + m_document.size();
    if (address >= kDocument && address < documentEnd && source.size() <= documentEnd - address) {
        throw Failure(GC_ERR_ACCESS_DENIED, "the description file cannot be written");
    }
    const Range range = _cover(address, source.size());
    for (const Register& reg : range) {
        _checkWritable(reg.feature);
    }
    for (const Register& reg : range) {
        _checkValue(reg.feature, Written(reg, address, source));
    }
    for (const Register& reg : range) {
        reg.feature.set(Written(reg, address, source));
    }
}

// The registers that a range touches, if it lies in registers entirely.
RegisterMap::Range RegisterMap::_cover(uint64_t address, size_t size) const
{
    const uint64_t end = m_registers.back().End();
    if (address < kFirstRegister || address > end || size > end - address) {
        throw Failure(GC_ERR_INVALID_ADDRESS, "there are no registers from " + Hex(address) +
                                                  " on, " + std::to_string(size) + " bytes");
    }
    const auto first = std::ranges::find_if(
        m_registers, [address](const Register& reg) { return reg.End() > address; });
    const auto last = std::find_if(first, m_registers.end(), [address, size](const Register& reg) {
        return reg.address >= address + size;
    });
    return {first, last};
}

void RegisterMap::_checkWritable(const Feature& feature) const
{
    if (!feature.set) {
        throw Failure(GC_ERR_ACCESS_DENIED, std::string(feature.name) + " is read only");
    }
    if (feature.locked != nullptr && Find(feature.locked).get().Number() != 0) {
        throw Failure(GC_ERR_ACCESS_DENIED, std::string(feature.name) +
                                                " cannot be written while " + feature.locked +
                                                " is true");
    }
}

void RegisterMap::_checkValue(const Feature& feature, uint64_t value) const
{
    if (!_isAllowed(feature, value)) {
        throw Failure(GC_ERR_INVALID_VALUE,
                      std::string(feature.name) + " cannot be " + std::to_string(value));
    }
}

bool RegisterMap::_isAllowed(const Feature& feature, uint64_t value) const
{
    switch (feature.kind) {
    case FeatureKind::Choice:
        return std::ranges::any_of(feature.choices, [value](const FeatureChoice& choice) {
            return choice.value == value;
        });
    case FeatureKind::Flag:
    case FeatureKind::Command: return value <= 1;
    default: return feature.maximum == nullptr || value <= Find(feature.maximum).get().Number();
    }
}

} // namespace standard_tl
