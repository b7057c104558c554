# Reads version.h: sets VOSTREL_VERSION and VOSTREL_RELEASE_DATE.

set(vostrel_version_header ${CMAKE_CURRENT_LIST_DIR}/../version.h)
file(STRINGS "${vostrel_version_header}" vostrel_version_lines REGEX "kVersion =|kReleaseDate =")
if(NOT "${vostrel_version_lines}" MATCHES
    "kVersion = \"([0-9]+\\.[0-9]+\\.[0-9]+)\".*kReleaseDate = \"([0-9]+-[0-9]+-[0-9]+)\"")
  message(FATAL_ERROR "version.h must say kVersion = \"X.Y.Z\" and kReleaseDate = \"YYYY-MM-DD\".")
endif()
set(VOSTREL_VERSION ${CMAKE_MATCH_1})
set(VOSTREL_RELEASE_DATE ${CMAKE_MATCH_2})
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${vostrel_version_header}")
