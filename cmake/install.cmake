# What is installed where, the API reference, and the Debian packages (packaging/).
#
# Components: runtime (the program, its manual, completion and all documents), dev (library, headers,
# CMake package, pkg-config file and example) and python (the Python package with its commands; only
# in the Debian package).

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# ---- program, library, headers -------------------------------------------------------------------

target_include_directories(vostrel_utils INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
# A new statistic is a new member of the class, so minor releases have different layouts.
set_target_properties(vostrel_utils PROPERTIES
  EXPORT_NAME utils
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})

# The loader finds the library in its own folders. Elsewhere the program needs the path.
if(BUILD_SHARED_LIBS AND UNIX
    AND NOT CMAKE_INSTALL_FULL_LIBDIR IN_LIST CMAKE_CXX_IMPLICIT_LINK_DIRECTORIES)
  file(RELATIVE_PATH vostrel_bin_to_lib ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  if(APPLE)
    set_target_properties(vostrel_program PROPERTIES INSTALL_RPATH "@loader_path/${vostrel_bin_to_lib}")
  else()
    set_target_properties(vostrel_program PROPERTIES INSTALL_RPATH "$ORIGIN/${vostrel_bin_to_lib}")
  endif()
endif()

install(TARGETS vostrel_program RUNTIME COMPONENT runtime)
install(TARGETS vostrel_utils EXPORT vostrel
  RUNTIME COMPONENT runtime
  LIBRARY COMPONENT runtime NAMELINK_COMPONENT dev
  ARCHIVE COMPONENT dev)
install(FILES ${vostrel_public_headers}
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vostrel COMPONENT dev)

if(BUILD_SHARED_LIBS AND CMAKE_SYSTEM_NAME STREQUAL "Linux")
  install(CODE [[
    if("$ENV{DESTDIR}" STREQUAL "" AND CMAKE_INSTALL_PREFIX MATCHES "^/usr(/local)?/*$")
      message(STATUS "Now run ldconfig as root. Until then programs don't find libvostrel_utils.so.")
    endif()]] COMPONENT runtime)
endif()

# ---- how other builds find the library -----------------------------------------------------------

set(vostrel_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vostrel)
install(EXPORT vostrel FILE vostrel-targets.cmake NAMESPACE vostrel::
  DESTINATION ${vostrel_cmake_dir} COMPONENT dev)
configure_package_config_file(cmake/vostrel-config.cmake.in cmake/vostrel-config.cmake
  INSTALL_DESTINATION ${vostrel_cmake_dir}
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/cmake/vostrel-config-version.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/cmake/vostrel-config.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/cmake/vostrel-config-version.cmake
  DESTINATION ${vostrel_cmake_dir} COMPONENT dev)

# The prefix is relative to the file: an installed tree can be moved.
set(vostrel_pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR})
  set(vostrel_pc_prefix ${CMAKE_INSTALL_PREFIX})
else()
  file(RELATIVE_PATH vostrel_pc_prefix /${vostrel_pc_dir} /)
  string(REGEX REPLACE "/$" "" vostrel_pc_prefix "\${pcfiledir}/${vostrel_pc_prefix}")
endif()
foreach(dir IN ITEMS INCLUDEDIR LIBDIR)
  if(IS_ABSOLUTE ${CMAKE_INSTALL_${dir}})
    set(vostrel_pc_${dir} ${CMAKE_INSTALL_${dir}})
  else()
    set(vostrel_pc_${dir} "\${prefix}/${CMAKE_INSTALL_${dir}}")
  endif()
endforeach()
configure_file(cmake/vostrel.pc.in cmake/vostrel.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/cmake/vostrel.pc
  DESTINATION ${vostrel_pc_dir} COMPONENT dev)

# ---- manual, completion, documents ---------------------------------------------------------------

configure_file(docs/vostrel.1.in docs/vostrel.1 @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/docs/vostrel.1
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT runtime)
install(FILES packaging/vostrel.bash RENAME vostrel
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT runtime)
# Laid out as in the source tree, to keep their links.
if(PROJECT_IS_TOP_LEVEL)
  set(vostrel_doc_dir ${CMAKE_INSTALL_DOCDIR})
else()  # CMAKE_INSTALL_DOCDIR is that of the parent
  set(vostrel_doc_dir ${CMAKE_INSTALL_DATAROOTDIR}/doc/vostrel)
endif()
install(FILES README.md CHANGELOG.md CONTRIBUTING.md LICENSE CITATION.cff CODE_OF_CONDUCT.md
  DESTINATION ${vostrel_doc_dir} COMPONENT runtime)
install(DIRECTORY docs DESTINATION ${vostrel_doc_dir} COMPONENT runtime
  FILES_MATCHING PATTERN "*.md" PATTERN "*.png" PATTERN "*.svg"
  PATTERN reference EXCLUDE PATTERN site EXCLUDE  # these are for Sphinx
  PATTERN checklists.md EXCLUDE)  # for reviewers of the sources
install(FILES examples/redshifts.csv DESTINATION ${vostrel_doc_dir}/examples COMPONENT runtime)
install(DIRECTORY examples/consumer DESTINATION ${vostrel_doc_dir}/examples COMPONENT dev)

# ---- vostrel-plot and vostrel-evaluate -----------------------------------------------------------

# They are entry points of the Python package. Their manuals come with the Debian package.
foreach(command IN ITEMS vostrel-plot vostrel-evaluate)
  configure_file(docs/${command}.1.in docs/${command}.1 @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/docs/${command}.1
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT python EXCLUDE_FROM_ALL)
endforeach()

# ---- the API reference: cmake --build build --target vostrel_doc_api -----------------------------

configure_file(docs/Doxyfile.in docs/Doxyfile @ONLY)
add_custom_target(vostrel_doc_api
  COMMAND doxygen ${CMAKE_CURRENT_BINARY_DIR}/docs/Doxyfile
  COMMENT "API reference in ${CMAKE_CURRENT_BINARY_DIR}/doc-api/html/annotated.html" VERBATIM)

# ---- the Debian packages: cpack, from a build with -DCMAKE_INSTALL_PREFIX=/usr -------------------

if(PROJECT_IS_TOP_LEVEL)
  include(packaging/debian.cmake)
endif()
