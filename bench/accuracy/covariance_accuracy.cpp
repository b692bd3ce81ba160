// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "covariance_accuracy.hpp"

namespace vorn::bench {

namespace {

struct Case {
  char const* name;
  test::AdjustmentRig rig;
  int views;
};

std::vector<Case> cases() {
  std::vector<Case> all(4);
  for (Case& one : all) {
    one.rig.cameraNoise = 0.006;
    one.rig.projectorNoise = 0.0018;
    one.views = 8;
  }
  all[0].name = "172 mm base, eight views";
  all[1].name = "the same, four views";
  all[1].views = 4;
  all[2].name = "wide lens, 300 mm away";
  all[2].rig.camera.K = {760, 0, 515, 0, 759, 381, 0, 0, 1};
  all[2].rig.projector.K = {480, 0, 322, 0, 479, 208, 0, 0, 1};
  all[2].rig.cam_from_proj =
      mv::math::createTransform(mv::math::rotY(-0.3) * mv::math::rotX(0.02), {150, -8, 16});
  all[3].name = "projector turned by 40 degrees, coarse noise";
  all[3].rig.cam_from_proj =
      mv::math::createTransform(mv::math::rotY(-0.7) * mv::math::rotX(0.02), {340, -8, 120});
  all[3].rig.cameraNoise = 0.0168;
  all[3].rig.projectorNoise = 0.0046;
  return all;
}

} // namespace

std::vector<CovarianceFigures> compareCovariances(int runs) {
  std::vector<CovarianceFigures> figures;
  for (Case const& one : cases()) {
    figures.push_back({one.name, test::repeatAdjustments(one.rig, one.views, runs)});
  }
  return figures;
}

} // namespace vorn::bench
