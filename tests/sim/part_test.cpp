// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sim/part.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include "sim/demo.hpp"
#include "sim/truth.hpp"

namespace vorn::sim {
namespace {

/// What the camera sees of the part, by ray tracing, lies on it by the closed forms of its bodies, once it is
/// carried by the pose that the JSON holds.
TEST(PartViews, ShowTheSameSurfaceFromEachSide) {
  Rig const rig = demoRig(8);
  for (PartMotion const motion : {PartMotion::Turntable, PartMotion::Free}) {
    std::vector<Pose> const poses = partPoses(5, motion);
    nlohmann::json const json = partPosesJson(poses);
    cv::Vec3d lowest = cv::Vec3d::all(1e9);
    cv::Vec3d highest = cv::Vec3d::all(-1e9);
    for (std::size_t view = 0; view < poses.size(); ++view) {
      Truth const seen = truth(rig.camera, rig.projector, partScene().moved(poses[view]));
      nlohmann::json const& rows = json["views"][view]["commonFromView"];
      int points = 0;
      for (cv::Vec3f const& x_in_cam : seen.x_in_cam) {
        if (x_in_cam != x_in_cam) {
          continue;
        }
        cv::Vec3d x;
        for (int i = 0; i < 3; ++i) {
          for (int j = 0; j < 3; ++j) {
            x[i] += rows[i][j].get<double>() * x_in_cam[j];
          }
          x[i] += rows[i][3].get<double>();
          lowest[i] = std::min(lowest[i], x[i]);
          highest[i] = std::max(highest[i], x[i]);
        }
        ASSERT_NEAR(distanceToPart(x), 0.0, 1e-4);
        ++points;
      }
      EXPECT_GT(points, 500) << "the part is in the field of view " << view;
      EXPECT_EQ(cv::countNonZero(seen.label.row(0)) + cv::countNonZero(seen.label.col(0)), 0)
          << "and not cut by its border";
    }
    // All sides were seen: the block is 120 x 80 mm, the bar's top is 46 above its middle.
    EXPECT_LT(cv::norm(lowest - cv::Vec3d(-60, -46, -40), cv::NORM_INF), 2.0);
    EXPECT_GT(highest[0], 58.0);
    EXPECT_GT(highest[2], 38.0);
  }
}

TEST(PartDistance, IsThatOfTheNearestBody) {
  EXPECT_NEAR(distanceToPart({63, 19, 0}), 5.0, 1e-12) << "from the block's edge";
  EXPECT_NEAR(distanceToPart({34, -40, 8}), 4.0, 1e-12) << "from the ball's top";
  EXPECT_NEAR(distanceToPart({6, -33, -20}), 3.0, 1e-12) << "from the boss";
  EXPECT_NEAR(distanceToPart({0, 13, 30}), -2.0, 1e-12) << "inside";
}

} // namespace
} // namespace vorn::sim
