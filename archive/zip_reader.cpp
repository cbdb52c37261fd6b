#include "zip_reader.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <miniz.h>

namespace {

// No description file comes near this; an archive that claims more is not believed.
constexpr uint64_t kMaximumContent = 256U << 20U;

// The memory of an archive's directory. miniz looks at an entry's extra fields before it knows
// that they lie within the directory: name and extra fields may reach 64 KiB each behind the end.
// That much follows every block, and reads as zero.
class DirectoryMemory
{
public:
    static void* Allocate(void* opaque, size_t items, size_t size)
    {
        return Reallocate(opaque, nullptr, items, size);
    }
    static void* Reallocate(void* /*opaque*/, void* block, size_t items, size_t size)
    {
        if (size != 0 && items > kMaximum / size) {
            return nullptr;
        }
        auto* const grown = static_cast<uint8_t*>(std::realloc(block, items * size + kBeyond));
        if (grown != nullptr) {
            std::memset(grown + items * size, 0, kBeyond);
        }
        return grown;
    }
    static void Free(void* /*opaque*/, void* block) { std::free(block); }

private:
    static constexpr size_t kBeyond = size_t{3} * 0x10000;
    // No archive of a description file has a directory like that; the sizes are the camera's word.
    static constexpr size_t kMaximum = size_t{16} << 20U;
};

// An archive held in memory, closed with the scope.
class ZipReader
{
public:
    explicit ZipReader(std::span<const uint8_t> file) : m_file(file)
    {
        m_archive.m_pRead = _read;
        m_archive.m_pIO_opaque = this;
        m_archive.m_pAlloc = DirectoryMemory::Allocate;
        m_archive.m_pRealloc = DirectoryMemory::Reallocate;
        m_archive.m_pFree = DirectoryMemory::Free;
        m_open = mz_zip_reader_init(&m_archive, file.size(), 0) != MZ_FALSE;
    }
    ~ZipReader()
    {
        if (m_open) {
            mz_zip_reader_end(&m_archive);
        }
    }
    ZipReader(const ZipReader&) = delete;
    ZipReader& operator=(const ZipReader&) = delete;

    bool IsOpen() const { return m_open; }
    bool StatFirst(mz_zip_archive_file_stat& stat)
    {
        return mz_zip_reader_file_stat(&m_archive, 0, &stat) != MZ_FALSE;
    }
    // The size is the archive's claim; miniz checks it against the data, but only after we have
    // allocated it.
    bool Extract(const mz_zip_archive_file_stat& stat, std::vector<uint8_t>& out)
    {
        if (stat.m_uncomp_size > kMaximumContent || !_canExpand(stat)) {
            return false;
        }
        // Zeros: of a directory, and of a member without data, nothing is written at all.
        std::vector<uint8_t> content(static_cast<size_t>(stat.m_uncomp_size));
        uint8_t none = 0; // miniz refuses a null destination even of nothing
        if (mz_zip_reader_extract_file_to_mem(&m_archive, stat.m_filename,
                                              content.empty() ? &none : content.data(),
                                              content.size(), 0) == MZ_FALSE) {
            return false;
        }
        out = std::move(content);
        return true;
    }

private:
    // Whether the data can become as large as is claimed. miniz reads zeros behind the data's end
    // until the claimed size is reached: seconds of work for a few bytes.
    bool _canExpand(const mz_zip_archive_file_stat& stat) const
    {
        constexpr uint64_t kDeflatesMost = 1032; // 258 bytes for two bits
        const uint64_t data = std::min<uint64_t>(stat.m_comp_size, m_file.size());
        return stat.m_uncomp_size / kDeflatesMost <= data;
    }

    // Offsets are the archive's word and may lie anywhere: miniz's own reader for memory computes
    // addresses with them before it looks.
    static size_t _read(void* opaque, mz_uint64 offset, void* buffer, size_t size)
    {
        const std::span<const uint8_t> file = static_cast<ZipReader*>(opaque)->m_file;
        if (offset >= file.size()) {
            return 0;
        }
        const auto rest = file.subspan(offset);
        const size_t count = std::min(size, rest.size());
        std::memcpy(buffer, rest.data(), count);
        return count;
    }

    std::span<const uint8_t> m_file;
    mz_zip_archive m_archive = {};
    bool m_open = false;
};

} // namespace

ZipResult ExtractFirstMember(std::span<const uint8_t> archive, std::vector<uint8_t>& content)
{
    ZipReader zip(archive);
    if (!zip.IsOpen()) {
        return ZipResult::NoArchive;
    }
    mz_zip_archive_file_stat stat{};
    if (!zip.StatFirst(stat)) {
        return ZipResult::NoMember;
    }
    return zip.Extract(stat, content) ? ZipResult::Extracted : ZipResult::Damaged;
}
