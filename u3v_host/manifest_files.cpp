#include "manifest_files.h"

#include <algorithm>
#include <limits>
#include <tuple>

#include "text.h"

namespace u3v_host {

namespace {

// Far above any description file; a camera that names more means something else.
constexpr uint64_t kLargestFile = uint64_t{256} << 20U;
constexpr size_t kLongestName = 100;
constexpr uint16_t kKnownSchema = 0x0101; // major and minor byte

bool IsDescription(const ManifestEntry& entry)
{
    return entry.fileType == manifest_wire::kDeviceDescription &&
           (entry.fileFormat == manifest_wire::kPlainXml ||
            entry.fileFormat == manifest_wire::kZippedXml);
}

bool MakesSense(const ManifestEntry& entry)
{
    return entry.fileSize != 0 && entry.fileSize <= kLargestFile &&
           entry.registerAddress <= std::numeric_limits<uint64_t>::max() - entry.fileSize;
}

std::string NameOf(const ManifestEntry& entry, std::string_view camera)
{
    std::string name = FileNameText(camera.substr(0, kLongestName));
    for (const unsigned number :
         {unsigned{entry.fileVersionMajor}, unsigned{entry.fileVersionMinor},
          unsigned{entry.fileVersionSubMinor}}) {
        name += (name.empty() ? "" : "_") + std::to_string(number);
    }
    return name + (entry.fileFormat == manifest_wire::kZippedXml ? ".zip" : ".xml");
}

DescriptionFile FileOf(const ManifestEntry& entry, std::string_view camera)
{
    DescriptionFile file{NameOf(entry, camera),
                         entry.registerAddress,
                         entry.fileSize,
                         entry.fileFormat == manifest_wire::kZippedXml,
                         entry.schemaMajor,
                         entry.schemaMinor,
                         entry.fileVersionMajor,
                         entry.fileVersionMinor,
                         entry.fileVersionSubMinor,
                         std::nullopt};
    if (std::ranges::any_of(entry.sha1, [](uint8_t byte) { return byte != 0; })) {
        file.sha1 = entry.sha1;
    }
    return file;
}

bool IsBetter(const DescriptionFile& left, const DescriptionFile& right)
{
    const auto rank = [](const DescriptionFile& file) {
        const int schema = file.schemaMajor << 8 | file.schemaMinor;
        // Beyond what is known, the nearest is the best.
        const int known = schema <= kKnownSchema ? schema : -schema;
        return std::tuple(known, file.fileMajor, file.fileMinor, file.fileSubMinor, file.zipped);
    };
    return rank(left) > rank(right);
}

} // namespace

std::vector<DescriptionFile> DescriptionFilesOf(std::span<const ManifestEntry> entries,
                                                std::string_view camera)
{
    std::vector<DescriptionFile> files;
    for (const ManifestEntry& entry : entries) {
        if (IsDescription(entry) && MakesSense(entry)) {
            files.push_back(FileOf(entry, camera));
        }
    }
    std::ranges::stable_sort(files, IsBetter);
    return files;
}

} // namespace u3v_host
