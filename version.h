// The release. CMake, the manuals and the packages read it here, in its one place.

#ifndef VOSTREL_VERSION_H
#define VOSTREL_VERSION_H

#include <string_view>

namespace vostrel {

inline constexpr std::string_view kVersion = "1.1.0";
inline constexpr std::string_view kReleaseDate = "2026-11-21";
// The banner shows major and minor number alone.
inline constexpr std::string_view kRelease = kVersion.substr(0, kVersion.rfind('.'));

}  // namespace vostrel

#endif  // VOSTREL_VERSION_H
