#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "description_file.h"
#include "manifest.h"

namespace u3v_host {

// The entries that are device description files and make sense, the best first: the highest schema
// that GenApi 3 knows (those beyond it come last), then the highest file version, then zipped
// before plain, then as the manifest has them. `camera` goes into their names.
std::vector<DescriptionFile> DescriptionFilesOf(std::span<const ManifestEntry> entries,
                                                std::string_view camera);

} // namespace u3v_host
