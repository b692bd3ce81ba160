// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <cstdint>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <vorn/mv/calib/adjustment.hpp>
#include <vorn/mv/core/library.hpp>

#include "calib/adjustment_rig.hpp"
#include "calib/shared_errors.hpp"

namespace vorn::mv {
namespace {

/// The errors of all parameters over what is foretold of each, root mean square over runs and parameters.
double errorOverForetold(double shared, double pitches, int runs) {
  Library::init();
  test::AdjustmentRig rig;
  rig.cameraNoise = 0.01;
  AdjustmentSettings settings;
  settings.shape = AdjustmentSettings::Shape::Flat;
  std::vector<double> const truth{rig.camera.K(0, 0),
                                  rig.camera.K(1, 1),
                                  rig.camera.K(0, 2),
                                  rig.camera.K(1, 2),
                                  -0.12,
                                  0.09,
                                  6e-4,
                                  -4e-4,
                                  -0.02};
  double sum = 0;
  for (int run = 0; run < runs; ++run) {
    auto views = rig.views(8, 100 + static_cast<std::uint64_t>(run));
    for (AdjustmentView& view : views) {
      view.points1.clear();
    }
    cv::RNG random(7 + static_cast<std::uint64_t>(run));
    for (AdjustmentView& view : views) {
      test::addShared(view, shared, pitches, rig.pitch, random);
    }
    Adjustment const found = adjustCamera(views, test::AdjustmentRig::sizeOf(rig.camera), settings);
    cv::Mat_<double> const K = found.models[0].getK();
    cv::Mat_<double> const D = found.models[0].getD().reshape(1, 1);
    std::vector<double> numbers{K(0, 0), K(1, 1), K(0, 2), K(1, 2)};
    numbers.insert(numbers.end(), D.begin(), D.end());
    for (std::size_t i = 0; i < numbers.size(); ++i) {
      sum += std::pow((numbers[i] - truth[i]) / found.sigmas[i], 2) / static_cast<double>(numbers.size());
    }
  }
  return std::sqrt(sum / runs);
}

// Errors that dots share do not average out as fast as those of their own: sigmas of independent ones were 2
// to 4 times too small.
TEST(CorrelatedNoise, SharedErrorsMakeSigmasLarger) {
  constexpr int runs = 16;
  EXPECT_NEAR(errorOverForetold(0, 1, runs), 1.0, 0.15);
  EXPECT_NEAR(errorOverForetold(0.01, 1, runs), 1.1, 0.25);
  EXPECT_NEAR(errorOverForetold(0.02, 1.5, runs), 1.15, 0.3);
  EXPECT_LT(errorOverForetold(0.01, 4, runs), 1.6) << "which poses take up in part, out of sight";
}

} // namespace
} // namespace vorn::mv
