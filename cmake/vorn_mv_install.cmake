# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
# What is installed, in components: "library" to run programs, "development" to build them, and "tools"; "charuco" and
# "charuco_development", the same of ChArUco boards; "batch", which is installed as its sources lie, says so itself.
include(CMakePackageConfigHelpers)

set(vorn_mv_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vorn_mv)

install(TARGETS vorn_mv EXPORT vorn_mv_targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
# Everything under include/ is public, and nothing else is.
install(DIRECTORY include/vorn DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
install(EXPORT vorn_mv_targets NAMESPACE vorn:: DESTINATION ${vorn_mv_package_dir} COMPONENT development)

configure_package_config_file(cmake/vorn_mvConfig.cmake.in vorn_mvConfig.cmake
  INSTALL_DESTINATION ${vorn_mv_package_dir})
write_basic_package_version_file(vorn_mvConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/vorn_mvConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/vorn_mvConfigVersion.cmake
  DESTINATION ${vorn_mv_package_dir} COMPONENT development)

# Relative to the file itself, so that an installed tree can be moved.
file(RELATIVE_PATH vorn_mv_prefix_from_pc /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/vorn_mv.pc.in vorn_mv.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vorn_mv.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

if(VORN_MV_BUILD_CHARUCO)
  # Found beside the library that it adds to, from any prefix.
  if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    set_target_properties(vorn_mv_charuco PROPERTIES INSTALL_RPATH "$ORIGIN")
  endif()
  install(TARGETS vorn_mv_charuco EXPORT vorn_mv_charuco_targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT charuco NAMELINK_COMPONENT charuco_development
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(DIRECTORY charuco/include/vorn DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT charuco_development)
  install(EXPORT vorn_mv_charuco_targets NAMESPACE vorn:: DESTINATION ${vorn_mv_package_dir}
    COMPONENT charuco_development)
endif()

if(VORN_MV_BUILD_TOOLS)
  # Where Debian's zsh looks for the functions of packages is not where everybody's does.
  set(VORN_MV_ZSH_FUNCTIONS ${CMAKE_INSTALL_DATADIR}/zsh/site-functions CACHE STRING "Folder for zsh's completion")
  set(manual_dir ${PROJECT_BINARY_DIR}/tools)
  # The tool runs from any prefix, whether the loader looks for libraries there or not; packages need no such path.
  if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    file(RELATIVE_PATH library_from_tool ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
    set_target_properties(vorn-mv PROPERTIES INSTALL_RPATH "$ORIGIN/${library_from_tool}")
  endif()
  install(TARGETS vorn-mv RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  install(FILES ${manual_dir}/vorn-mv.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  install(FILES ${manual_dir}/vorn-mv.bash RENAME vorn-mv
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
  install(DIRECTORY tools/report/schema DESTINATION ${CMAKE_INSTALL_DATADIR}/vorn-mv COMPONENT tools)
  install(FILES ${manual_dir}/_vorn-mv DESTINATION ${VORN_MV_ZSH_FUNCTIONS} COMPONENT tools)
endif()
