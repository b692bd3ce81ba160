// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv.hpp>
#include <vorn/mv_charuco/charuco.hpp>

int main() {
  vorn::mv::Library::init();
  vorn::mv::useCharuco();
  bool const isThere = vorn::mv::targetFinder(vorn::mv::TargetKind::Charuco) != nullptr;
  return isThere && !vorn::mv::charucoDictionaries().empty() ? 0 : 1;
}
