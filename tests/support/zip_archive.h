#pragma once

#include <cstdint>
#include <miniz.h>
#include <string>
#include <vector>

// A zip archive with one member, deflated; without a name an empty archive.
inline std::vector<uint8_t> ZipArchive(const std::string& name, const std::string& content)
{
    mz_zip_archive archive = {};
    mz_zip_writer_init_heap(&archive, 0, 0);
    if (!name.empty()) {
        mz_zip_writer_add_mem(&archive, name.c_str(), content.data(), content.size(),
                              static_cast<mz_uint>(MZ_BEST_COMPRESSION));
    }
    void* data = nullptr;
    size_t size = 0;
    mz_zip_writer_finalize_heap_archive(&archive, &data, &size);
    const auto* bytes = static_cast<const uint8_t*>(data);
    std::vector<uint8_t> zip(bytes, bytes + size);
    mz_free(data);
    mz_zip_writer_end(&archive);
    return zip;
}
