// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sim/demo.hpp"

#include <set>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "sim/truth.hpp"

namespace vorn::sim {
namespace {

/// How many camera pixels a projector pixel covers in the middle of the demonstration's field.
double cameraPixelsAProjectorPixel(Rig const& rig) {
  Pose const proj_from_world = rig.projector.world_from_proj.inverse();
  auto const both = [&](double x) {
    cv::Vec3d const x_in_world(x, 0, 560);
    return std::pair(*rig.camera.device.project(x_in_world),
                     *rig.projector.device.project(proj_from_world * x_in_world));
  };
  auto const left = both(-10);
  auto const right = both(10);
  return cv::norm(right.first - left.first) / cv::norm(right.second - left.second);
}

TEST(DemoRigSampled, HasAsManyCameraPixelsToAProjectorPixelAsAsked) {
  // The projector looks at the field aslant, from a little farther away.
  constexpr double aslant = 0.1;
  Rig const plain = demoRig(2);
  for (double const ratio : {0.4, 0.75, 2.0, 5.0}) {
    Rig const rig = demoRigSampled(ratio, 2);
    EXPECT_NEAR(cameraPixelsAProjectorPixel(rig), ratio, aslant * ratio);
    EXPECT_EQ(rig.camera.device.resolution(), plain.camera.device.resolution());
    // The same field: the outer corners of both projectors look the same way.
    auto const corner = [](Device const& device) {
      cv::Size const size = device.resolution();
      return device.ray(cv::Point2d(size.width - 0.5, size.height - 0.5));
    };
    constexpr double lastPixel = 0.01; // pixels are whole
    EXPECT_LT(cv::norm(corner(rig.projector.device) - corner(plain.projector.device)), lastPixel);
    EXPECT_LT(cv::norm(rig.projector.device.ray({-0.5, -0.5}) - plain.projector.device.ray({-0.5, -0.5})),
              1e-9);
  }
}

TEST(ClutterScene, FillsTheViewWithManyPartsAtDifferentDepths) {
  Rig const rig = demoRig(4);
  Truth const seen = truth(rig.camera, rig.projector, clutterScene());
  std::set<int> labels(seen.label.begin(), seen.label.end());
  EXPECT_GT(labels.size(), 80U);
  EXPECT_GT(cv::countNonZero(seen.edge), seen.edge.size().area() / 4);
  EXPECT_GT(cv::countNonZero(seen.label), seen.label.size().area() / 2);
}

TEST(ShinyScene, IsTheDemonstrationWithHighlightsOnEveryPart) {
  Scene const plain = demoScene();
  Scene const shiny = shinyScene();
  ASSERT_EQ(shiny.objects().size(), plain.objects().size());
  for (std::size_t i = 0; i < plain.objects().size(); ++i) {
    EXPECT_GT(shiny.objects()[i].material.specular, plain.objects()[i].material.specular);
    EXPECT_EQ(shiny.objects()[i].material.albedo, plain.objects()[i].material.albedo);
  }
}

} // namespace
} // namespace vorn::sim
