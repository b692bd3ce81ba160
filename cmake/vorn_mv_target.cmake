# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0

# What every target of this project is compiled with.
function(vorn_mv_compile_settings target)
  target_compile_features(${target} PUBLIC cxx_std_17)
  set_target_properties(${target} PROPERTIES
    CXX_EXTENSIONS OFF
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  # No fused multiply-add behind our back: results must not depend on the processor. Nobody reads errno or the
  # floating-point exception flags after arithmetic; loops with conditions vectorise only without them.
  target_compile_options(${target} PRIVATE
    -ffp-contract=off -fno-math-errno -fno-trapping-math -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wold-style-cast
    -Woverloaded-virtual -Wconversion)
  if(VORN_MV_WARNINGS_AS_ERRORS)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
  if(VORN_MV_PLAIN)
    target_compile_definitions(${target} PRIVATE VORN_MV_PLAIN)
  endif()
  if(VORN_MV_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${VORN_MV_SANITIZE} -fno-omit-frame-pointer)
    target_compile_definitions(${target} PRIVATE VORN_MV_SANITIZED)
    target_link_options(${target} PRIVATE -fsanitize=${VORN_MV_SANITIZE})
    # The compiler takes its own checks for a use of what was not set.
    if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
      target_compile_options(${target} PRIVATE -Wno-maybe-uninitialized)
    endif()
  endif()
endfunction()
