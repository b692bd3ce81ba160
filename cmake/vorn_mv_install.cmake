# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
include(CMakePackageConfigHelpers)

set(vorn_mv_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vorn_mv)

install(TARGETS vorn_mv EXPORT vorn_mv_targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
# Everything under include/ is public, and nothing else is.
install(DIRECTORY include/vorn DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT vorn_mv_targets NAMESPACE vorn:: DESTINATION ${vorn_mv_package_dir})

configure_package_config_file(cmake/vorn_mvConfig.cmake.in vorn_mvConfig.cmake
  INSTALL_DESTINATION ${vorn_mv_package_dir})
write_basic_package_version_file(vorn_mvConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/vorn_mvConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/vorn_mvConfigVersion.cmake
  DESTINATION ${vorn_mv_package_dir})

# Relative to the file itself, so that an installed tree can be moved.
file(RELATIVE_PATH vorn_mv_prefix_from_pc /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/vorn_mv.pc.in vorn_mv.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vorn_mv.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
