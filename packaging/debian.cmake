# Three Debian packages: the program without Python, the library with its header, and the figure.

if(BUILD_SHARED_LIBS)
  message(STATUS "Debian packages are made of static builds only")
  return()
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VENDOR "the vostrel developers")
set(CPACK_PACKAGE_CONTACT "the vostrel developers <vostrel@example.org>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_COMPONENTS_ALL runtime dev)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SOURCE ${PROJECT_NAME})

# Else it would be the first line of all three descriptions.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
# The text of all three; each goes on with a paragraph of its own.
set(vostrel_purpose
  "vostrel judges photometric redshifts, or any other estimates: from a table
with a reference and an estimated value per object it computes bias, sigma,
RMS, MAD, NMAD and outlier percentages of the residuals and of the residuals
divided by one plus the reference.")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME vostrel)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SOURCE "")  # the same name
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION science)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SUGGESTS vostrel-plot)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "${PROJECT_DESCRIPTION}
${vostrel_purpose}

This package holds the program.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libvostrel-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_SUGGESTS vostrel)
set(CPACK_DEBIAN_DEV_DESCRIPTION "${PROJECT_DESCRIPTION} (C++ library)
${vostrel_purpose}

This package holds the static library, its header, and what CMake and
pkg-config need to find them.")

if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/plot/vostrel-plot)
  list(APPEND CPACK_COMPONENTS_ALL plot)
  set(CPACK_DEBIAN_PLOT_PACKAGE_NAME vostrel-plot)
  set(CPACK_DEBIAN_PLOT_PACKAGE_SECTION science)
  set(CPACK_DEBIAN_PLOT_PACKAGE_ARCHITECTURE all)
  set(CPACK_DEBIAN_PLOT_PACKAGE_DEPENDS "python3, python3-numpy, python3-matplotlib")
  set(CPACK_DEBIAN_PLOT_PACKAGE_RECOMMENDS vostrel)
  set(CPACK_DEBIAN_PLOT_DESCRIPTION "Figure of the residuals of redshift estimates
${vostrel_purpose}

This package draws the figure that goes with these numbers.")
endif()

# What only a package has is added to the staged files just before they are packed.
configure_file(packaging/changelog.in packaging/changelog.in @ONLY)
configure_file(packaging/finish.cmake.in packaging/finish.cmake @ONLY)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_BINARY_DIR}/packaging/finish.cmake)

include(CPack)
