#pragma once

// What the fuzz targets share: reading a script out of the bytes, and the end of a broken promise.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// Reads values off the front; behind the end everything is zero, so every input is a script.
class FuzzInput
{
public:
    FuzzInput(const uint8_t* data, size_t size) : m_bytes(data, size) {}

    bool IsEmpty() const { return m_bytes.empty(); }
    size_t Left() const { return m_bytes.size(); }

    template <class T>
    T Take()
    {
        T value{};
        const size_t size = std::min(sizeof(T), m_bytes.size());
        if (size > 0) {
            std::memcpy(&value, m_bytes.data(), size);
        }
        m_bytes = m_bytes.subspan(size);
        return value;
    }

    uint8_t Byte() { return Take<uint8_t>(); }
    // 0 .. limit - 1
    unsigned Below(unsigned limit) { return Byte() % limit; }
    bool Flag() { return (Byte() & 1U) != 0; }

    std::vector<uint8_t> Bytes(size_t size)
    {
        size = std::min(size, m_bytes.size());
        std::vector<uint8_t> bytes(m_bytes.begin(), m_bytes.begin() + static_cast<ptrdiff_t>(size));
        m_bytes = m_bytes.subspan(size);
        return bytes;
    }

    std::string Text(size_t size)
    {
        const auto bytes = Bytes(size);
        return std::string(bytes.begin(), bytes.end());
    }

    std::span<const uint8_t> Rest() const { return m_bytes; }

private:
    std::span<const uint8_t> m_bytes;
};

// A promise that the library has broken without tripping a sanitizer.
inline void FuzzDemand(bool kept, const char* promise)
{
    if (!kept) {
        std::fprintf(stderr, "broken promise: %s\n", promise);
        std::abort();
    }
}

// The library prints a few texts on stdout; they would drown the fuzzer's own report.
inline void FuzzQuietStdout()
{
    static const bool done = std::freopen("/dev/null", "w", stdout) != nullptr;
    static_cast<void>(done);
}
