// The release. This is its one place: CMake, the manuals, the packages and vostrel-plot read it here.

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
