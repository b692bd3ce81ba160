// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/files/target_file.hpp"

#if defined(VORN_MV_CHARUCO_LIBRARY) && !defined(VORN_MV_PLAIN) && __has_include(<dlfcn.h>)
#include <dlfcn.h>
#endif

#include <vorn/core/exception.hpp>
#include <vorn/core/json_file.hpp>
#include <vorn/mv/calib/target_finder.hpp>

namespace vorn::tools {

namespace {

Exception refusal(std::string const& reason) {
  return Exception("ChArUco boards take a library that " + reason, nullptr, 0, "--target");
}

/// Never unloaded: finders that it makes live as long as the program.
void loadCharuco() {
#if defined(VORN_MV_CHARUCO_LIBRARY) && !defined(VORN_MV_PLAIN) && __has_include(<dlfcn.h>)
  void* const library = dlopen(VORN_MV_CHARUCO_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    throw refusal("comes in the package " VORN_MV_CHARUCO_PACKAGE " and could not be loaded: " +
                  std::string(dlerror()));
  }
  using Use = void (*)();
  auto const use = reinterpret_cast<Use>(dlsym(library, "vorn_mv_use_charuco"));
  if (use == nullptr) {
    throw refusal("is not the one of this version: " + std::string(dlerror()));
  }
  use();
#else
  throw refusal("this program was built without");
#endif
}

} // namespace

void prepareFor(mv::TargetDescription const& target) {
  if (target.kind == mv::TargetKind::Charuco && mv::targetFinder(target.kind) == nullptr) {
    loadCharuco();
  }
}

mv::TargetDescription readTarget(std::string const& path) {
  auto target = load<mv::TargetDescription>(path);
  prepareFor(target);
  return target;
}

} // namespace vorn::tools
