#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "camera.h"
#include "feature.h"
#include "info.h"

namespace standard_tl {

// The registers of a module's port, made from the module's features. Numbers are little-endian.
// Any range may be read or written, of part of a register or over several, as memory: all of it or,
// when something stands against it, nothing. Does not change after construction; what the features
// do about locks is theirs.
class RegisterMap
{
public:
    static constexpr uint64_t kFirstRegister = 0x1000;
    static constexpr uint64_t kDocument = 0x100000;

    RegisterMap(const DocumentIdentity& identity, std::vector<Feature> features);

    // Throw Failure: GC_ERR_INVALID_ADDRESS, GC_ERR_ACCESS_DENIED, GC_ERR_INVALID_VALUE.
    void Read(uint64_t address, std::span<uint8_t> destination) const;
    void Write(uint64_t address, Bytes source) const;

    const std::vector<Register>& Registers() const { return m_registers; }
    // The feature of that name, which there is.
    const Feature& Find(std::string_view name) const;
    // Where the document lies, in the form of a camera's.
    const u3v_host::DescriptionFile& File() const { return m_file; }

private:
    using Range = std::span<const Register>;

    Range _cover(uint64_t address, size_t size) const;
    void _checkWritable(const Feature& feature) const;
    void _checkValue(const Feature& feature, uint64_t value) const;
    bool _isAllowed(const Feature& feature, uint64_t value) const;

    const std::vector<Register> m_registers; // without gaps
    const std::string m_document;
    const u3v_host::DescriptionFile m_file;
};

} // namespace standard_tl
