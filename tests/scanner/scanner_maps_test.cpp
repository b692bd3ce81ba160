// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// What a scanner keeps of its models' lenses, and which part of an image it triangulates.
#include <array>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/mv/sl/sl3d_scanner.hpp>

#include "support/expect_error.hpp"
#include "support/scanner_rig.hpp"

namespace vorn::mv {
namespace {

using test::scannerOf;

cv::Mat_<cv::Vec3f> pointsOf(Sl3dScanner& scanner, float column) {
  cv::Size const size = std::as_const(scanner).getCameraModel().getResolution();
  cv::Mat_<cv::Vec3f> xyz;
  scanner.triangulate(cv::Mat_<float>(size, column), xyz, {{0, 0}, size});
  return xyz;
}

sim::Device with(sim::Device const& device, std::array<double, 5> const& distortion,
                 cv::Size const& resolution) {
  return {device.focal(), device.centre(), distortion, resolution};
}

/// The rig's devices with one thing changed: a lens, or how many pixels there are.
std::vector<sim::Rig> changedRigs(sim::Rig const& rig) {
  std::vector<sim::Rig> changed(4, rig);
  sim::Device const& camera = rig.camera.device;
  sim::Device const& projector = rig.projector.device;
  std::array<double, 5> const lens{-0.05, 0.02, 0.0001, 0.0002, 0.0};
  changed[0].camera.device = with(camera, lens, camera.resolution());
  changed[1].projector.device = with(projector, lens, projector.resolution());
  changed[2].camera.device = with(camera, camera.distortion(), camera.resolution() + cv::Size(16, 12));
  changed[3].projector.device =
      with(projector, projector.distortion(), projector.resolution() + cv::Size(36, 24));
  return changed;
}

TEST(ScannerMaps, FollowALensOrAResolutionThatChangesAlone) {
  sim::Rig const rig = sim::demoRig(4);
  float const column = 226.5F; // in the last but one column of the smaller projector
  for (sim::Rig const& changed : changedRigs(rig)) {
    Sl3dScanner scanner = scannerOf(rig);
    cv::Mat_<cv::Vec3f> const before = pointsOf(scanner, column);
    scanner.getCameraModel() = test::modelOf(changed.camera.device);
    scanner.getProjectorModel() = test::modelOf(changed.projector.device);
    cv::Mat_<cv::Vec3f> const after = pointsOf(scanner, column);
    Sl3dScanner fresh = scannerOf(changed);
    cv::Mat_<cv::Vec3f> const expected = pointsOf(fresh, column);
    ASSERT_EQ(after.size(), expected.size());
    EXPECT_EQ(cv::norm(after, expected, cv::NORM_INF), 0.0);
    EXPECT_TRUE(after.size() != before.size() || cv::norm(after, before, cv::NORM_INF) > 0.0);
  }
}

TEST(ScannerMaps, FollowElementsOfKThatChangeInPlaceInOneScanner) {
  float const column = 100.0F;
  Sl3dScanner scanner = scannerOf(sim::demoRig(4));
  cv::Mat_<cv::Vec3f> const before = pointsOf(scanner, column);
  Sl3dScanner copy = scanner;
  cv::Mat K = std::as_const(scanner).getCameraModel().getK(); // another header of the same elements
  K.at<double>(0, 0) *= 1.25;
  Sl3dScanner fresh;
  nlohmann::json json;
  scanner.write(json);
  fresh.read(json);
  cv::Mat_<cv::Vec3f> const after = pointsOf(scanner, column);
  EXPECT_EQ(cv::norm(after, pointsOf(fresh, column), cv::NORM_INF), 0.0);
  EXPECT_GT(cv::norm(after, before, cv::NORM_INF), 0.0);
  EXPECT_EQ(cv::norm(pointsOf(copy, column), before, cv::NORM_INF), 0.0);
}

TEST(ScannerMaps, RefuseARegionWithoutPixels) {
  Sl3dScanner scanner = scannerOf(sim::demoRig(4));
  cv::Mat_<float> const map(240, 320, 50.0F);
  cv::Mat_<cv::Vec3f> xyz;
  for (cv::Rect const& roi : {cv::Rect(0, 0, 0, 0), cv::Rect(0, 0, 320, 0), cv::Rect(0, 0, 0, 240),
                              cv::Rect(7, 7, 0, 0), cv::Rect(320, 240, 0, 0)}) {
    vorn::test::expectError([&] { scanner.triangulate(map, xyz, roi); },
                            "is not within the camera's 320 x 240");
  }
  EXPECT_TRUE(xyz.empty());
}

} // namespace
} // namespace vorn::mv
