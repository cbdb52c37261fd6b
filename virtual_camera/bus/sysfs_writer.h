// The kernel's device tree as text records, as far as hosts read it.
#ifndef VBUS_SYSFS_WRITER_H
#define VBUS_SYSFS_WRITER_H

#include <string>

namespace vbus {

// Replaces what is below "folder", which stands for /sys. False with the reason.
bool WriteSysfs(const std::string& folder, std::string& error);

} // namespace vbus

#endif
