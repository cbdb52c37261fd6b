// How often the host has done what a standard host does not do, by kind.
#ifndef VCAM_ERROR_COUNTS_H
#define VCAM_ERROR_COUNTS_H

#include <cstdint>
#include <map>
#include <string>

namespace vcam {

using ErrorCounts = std::map<std::string, std::uint64_t, std::less<>>;

} // namespace vcam

#endif
