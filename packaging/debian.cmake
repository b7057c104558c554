# Three Debian packages: the program, the library with its headers, and the Python package with
# vostrel-plot and vostrel-evaluate. Only the last one needs Python.

if(BUILD_SHARED_LIBS)
  message(STATUS "Debian packages are made only from static builds")
  return()
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VENDOR "the vostrel developers")
set(CPACK_PACKAGE_CONTACT "the vostrel developers <vostrel@example.org>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_COMPONENTS_ALL runtime dev python)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SOURCE ${PROJECT_NAME})

# A summary here would become the first line of all three descriptions.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
# All three descriptions begin with this text and end with their own paragraph.
set(vostrel_purpose
  "vostrel evaluates photometric redshifts, or any other estimates. From a
table with a reference and an estimate for each object it computes bias,
sigma, RMS, MAD, NMAD and outlier percentages of the residuals and of the
residuals divided by one plus the reference.")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME vostrel)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SOURCE "")  # the same name
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION science)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SUGGESTS python3-vostrel)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "${PROJECT_DESCRIPTION}
${vostrel_purpose}

This package holds the program.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libvostrel-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_SUGGESTS vostrel)
set(CPACK_DEBIAN_DEV_DESCRIPTION "${PROJECT_DESCRIPTION} (C++ library)
${vostrel_purpose}

This package holds the static library, its headers, and what CMake and
pkg-config need to find them.")

# cpack builds the Python package, for Debian's own Python.
set(vostrel_debian_python /usr/bin/python3)
configure_file(packaging/python.cmake.in packaging/python.cmake @ONLY)
install(SCRIPT ${CMAKE_CURRENT_BINARY_DIR}/packaging/python.cmake
  COMPONENT python EXCLUDE_FROM_ALL)
execute_process(
  COMMAND ${vostrel_debian_python} -c
    "import sys; print('python3 (>= {0}.{1}), python3 (<< {0}.{2})'.format(*sys.version_info[:2], sys.version_info[1] + 1))"
  OUTPUT_VARIABLE vostrel_python_versions OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)

set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-vostrel)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "${vostrel_python_versions}, python3-numpy")
set(CPACK_DEBIAN_PYTHON_PACKAGE_RECOMMENDS "python3-matplotlib, python3-jinja2, vostrel")
set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS "python3-pandas, python3-astropy, python3-h5py")
# vostrel-plot was a package of its own.
set(CPACK_DEBIAN_PYTHON_PACKAGE_PROVIDES vostrel-plot)
set(CPACK_DEBIAN_PYTHON_PACKAGE_REPLACES vostrel-plot)
set(CPACK_DEBIAN_PYTHON_PACKAGE_BREAKS vostrel-plot)
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA
  ${CMAKE_CURRENT_SOURCE_DIR}/packaging/postinst ${CMAKE_CURRENT_SOURCE_DIR}/packaging/prerm)
set(CPACK_DEBIAN_PYTHON_DESCRIPTION "${PROJECT_DESCRIPTION} (Python)
${vostrel_purpose}

This package holds the Python package, which computes the same numbers from
arrays, vostrel-plot, which draws the figure that goes with them, and
vostrel-evaluate, which reads the columns of catalogues.")

# Adds what only a package has to the staged files, just before they are packed.
configure_file(packaging/changelog.in packaging/changelog.in @ONLY)
configure_file(packaging/finish.cmake.in packaging/finish.cmake @ONLY)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_BINARY_DIR}/packaging/finish.cmake)

include(CPack)
