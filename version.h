// The version and the release date. CMake, the manuals and the packages read them here.

#ifndef VOSTREL_VERSION_H
#define VOSTREL_VERSION_H

#include <string_view>

namespace vostrel {

inline constexpr std::string_view kVersion = "1.1.0";
inline constexpr std::string_view kReleaseDate = "2026-11-21";
// What the banner shows: only the major and the minor number.
inline constexpr std::string_view kRelease = kVersion.substr(0, kVersion.rfind('.'));

}  // namespace vostrel

#endif  // VOSTREL_VERSION_H
