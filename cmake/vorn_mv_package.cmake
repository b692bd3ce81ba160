# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
# The Debian packages that cpack makes, one a component. scripts/package builds and makes them.
set(VORN_MV_MAINTAINER "The vorn authors <maintainers@vorn.invalid>" CACHE STRING
  "Who answers for the packages, as NAME <ADDRESS>")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
# CPack's default: any other stands before the description of every package.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${CMAKE_PROJECT_NAME} built using CMake")
set(CPACK_COMPONENTS_ALL library development)
if(VORN_MV_BUILD_TOOLS)
  list(APPEND CPACK_COMPONENTS_ALL tools batch)
endif()
if(VORN_MV_BUILD_CHARUCO)
  list(APPEND CPACK_COMPONENTS_ALL charuco charuco_development)
endif()
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${VORN_MV_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(vorn_mv_same_version "${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}")

# The package of a shared library bears its SONAME, so that two that are not compatible can be installed together.
set(vorn_mv_library_package libvorn-mv${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME ${vorn_mv_library_package})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_SOURCE_DIR}/packaging/triggers)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION "machine vision for optical 3D measurement
Structured light and laser line scanning, calibration of cameras and scanners,
point clouds and image filters, on OpenCV matrices.

This package holds the shared library.")

# What the public headers include and the CMake and pkg-config packages look for.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libvorn-mv-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "${vorn_mv_library_package} (= ${vorn_mv_same_version}), libopencv-dev (>= 4.5), nlohmann-json3-dev (>= 3.9)")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "machine vision for optical 3D measurement - development files
Structured light and laser line scanning, calibration of cameras and scanners,
point clouds and image filters, on OpenCV matrices.

This package holds what is needed to build programs: headers, and files for
CMake and pkg-config.")

# OpenCV's contributed modules depend on windows, databases and text recognition: only who calibrates with ChArUco boards
# installs them.
set(vorn_mv_charuco_package libvorn-mv-charuco${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_CHARUCO_PACKAGE_NAME ${vorn_mv_charuco_package})
set(CPACK_DEBIAN_CHARUCO_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_CHARUCO_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_SOURCE_DIR}/packaging/triggers)
set(CPACK_DEBIAN_CHARUCO_PACKAGE_DEPENDS "${vorn_mv_library_package} (= ${vorn_mv_same_version})")
set(CPACK_DEBIAN_CHARUCO_DESCRIPTION "machine vision for optical 3D measurement - ChArUco boards
Structured light and laser line scanning, calibration of cameras and scanners,
point clouds and image filters, on OpenCV matrices.

This package holds the shared library that finds and draws ChArUco boards, for
programs and for vorn-mv.")
set(CPACK_DEBIAN_CHARUCO_DEVELOPMENT_PACKAGE_NAME libvorn-mv-charuco-dev)
set(CPACK_DEBIAN_CHARUCO_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_CHARUCO_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_CHARUCO_DEVELOPMENT_PACKAGE_DEPENDS
  "${vorn_mv_charuco_package} (= ${vorn_mv_same_version}), libvorn-mv-dev (= ${vorn_mv_same_version})")
set(CPACK_DEBIAN_CHARUCO_DEVELOPMENT_DESCRIPTION "machine vision for optical 3D measurement - ChArUco development files
Structured light and laser line scanning, calibration of cameras and scanners,
point clouds and image filters, on OpenCV matrices.

This package holds what is needed to build programs that find ChArUco boards.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME vorn-mv-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION science)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${vorn_mv_library_package} (= ${vorn_mv_same_version})")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS "${vorn_mv_charuco_package}")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "machine vision for optical 3D measurement - command line tool
Structured light and laser line scanning, calibration of cameras and scanners,
point clouds and image filters, on OpenCV matrices.

This package holds vorn-mv, which calibrates, scans, cleans clouds and renders
what a rig would capture, from the command line.")

set(CPACK_DEBIAN_BATCH_PACKAGE_NAME vorn-mv-batch)
set(CPACK_DEBIAN_BATCH_PACKAGE_SECTION science)
set(CPACK_DEBIAN_BATCH_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_BATCH_PACKAGE_SHLIBDEPS OFF)
# They compile the modules, and remove what that made.
set(CPACK_DEBIAN_BATCH_PACKAGE_CONTROL_EXTRA
  ${CMAKE_CURRENT_SOURCE_DIR}/packaging/batch/postinst ${CMAKE_CURRENT_SOURCE_DIR}/packaging/batch/prerm)
set(CPACK_DEBIAN_BATCH_PACKAGE_DEPENDS
  "vorn-mv-tools (>= ${vorn_mv_same_version}), python3 (>= 3.9), python3-cryptography, python3-dask, python3-distributed")
set(CPACK_DEBIAN_BATCH_DESCRIPTION "machine vision for optical 3D measurement - many scans
Structured light and laser line scanning, calibration of cameras and scanners,
point clouds and image filters, on OpenCV matrices.

This package holds vorn-mv-batch, which runs commands of vorn-mv for many scans
on one computer or on a cluster, goes on where it was stopped, and shows all
results on one page.")

# Files that Debian wants in every package and nobody elsewhere.
find_program(VORN_MV_GZIP gzip)
if(VORN_MV_GZIP)
  set(package_docs ${CMAKE_CURRENT_BINARY_DIR}/package_docs)
  file(MAKE_DIRECTORY ${package_docs})
  foreach(pair IN ITEMS "CHANGELOG.md:changelog.gz" "packaging/changelog:changelog.Debian.gz")
    string(REPLACE ":" ";" pair ${pair})
    list(GET pair 0 source)
    list(GET pair 1 compressed)
    execute_process(COMMAND ${VORN_MV_GZIP} -9nc ${CMAKE_CURRENT_SOURCE_DIR}/${source}
      OUTPUT_FILE ${package_docs}/${compressed} COMMAND_ERROR_IS_FATAL ANY)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${source})
  endforeach()
  foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER ${component} upper)
    install(FILES packaging/copyright ${package_docs}/changelog.gz ${package_docs}/changelog.Debian.gz
      DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME}
      COMPONENT ${component} EXCLUDE_FROM_ALL)
  endforeach()
endif()

include(CPack)
