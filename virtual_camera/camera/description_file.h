// The camera's GenICam description file: which register is which feature.
#ifndef VCAM_DESCRIPTION_FILE_H
#define VCAM_DESCRIPTION_FILE_H

#include <string>

#include "camera_config.h"
#include "manifest.h"

namespace vcam {

std::string DescriptionXml(const CameraConfig& config, const ManifestEntry& entry);

// The name of the document inside an archive: "<model>_v<version>.xml", blanks replaced.
std::string DescriptionName(const CameraConfig& config);

} // namespace vcam

#endif
