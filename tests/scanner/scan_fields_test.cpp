// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// What is written with the points of a scan about each of them.
#include <vorn/mv/scanner/scan_fields.hpp>

#include <algorithm>
#include <cmath>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <vorn/mv/calib/calibration_covariance.hpp>
#include <vorn/mv/geometry/rotation.hpp>
#include <vorn/mv/geometry/transform.hpp>
#include <vorn/mv/scanner/point_uncertainty.hpp>
#include <vorn/mv/scanner/scan.hpp>

#include "support/expect_error.hpp"
#include "support/scanner_rig.hpp"

namespace vorn::mv {
namespace {

using vorn::test::expectError;

std::vector<cv::Mat> const& images() {
  static std::vector<cv::Mat> const all = test::captured(sim::demoRig(4), sim::demoScene());
  return all;
}

TEST(ScanFields, TellOfEveryPointHowWellItIsKnown) {
  sim::Rig const rig = sim::demoRig(4);
  Sl3dScanner scanner = test::scannerOf(rig);
  cv::Matx44d const pose = math::createTransform(math::rotY(2.0), {10, 20, -30});
  scanner.setPose(pose);
  scanner.setCovariance(
      {{"fx0", "rx", "ty"}, cv::Mat(cv::Matx33d(0.04, 1e-5, 0, 1e-5, 1e-6, 0, 0, 0, 1e-4)), 1e-4});
  ScanResult result = scan(scanner, images());
  addScanFields(result, scanner, scanFieldNames());
  auto const& fields = result.cloud.fields();
  ASSERT_EQ(fields.size(), 3U);

  sim::Truth const truth = sim::truth(rig.camera, rig.projector, sim::demoScene());
  PointUncertainty const uncertainty(scanner);
  std::vector<double> ratios;
  int compared = 0;
  for (int y = 0; y < result.xyz.rows; ++y) {
    for (int x = 0; x < result.xyz.cols; ++x) {
      cv::Point const at(x, y);
      bool const isMeasured = result.mask(at) == static_cast<uchar>(PixelReason::Measured);
      for (auto const& [name, field] : fields) {
        ASSERT_EQ(!std::isnan(field(at)), isMeasured) << name << at;
      }
      if (!isMeasured) {
        continue;
      }
      EXPECT_EQ(fields.at("modulation")(at), result.modulation(at));
      if (compared < 200 && (x + 7 * y) % 97 == 0) {
        ++compared;
        UncertainPoint const point =
            uncertainty.at({at, static_cast<double>(result.map(at)), static_cast<double>(result.sigma(at))});
        EXPECT_NEAR(fields.at("sigma")(at), std::sqrt(cv::trace(point.noise)),
                    0.002 * fields.at("sigma")(at));
        EXPECT_NEAR(fields.at("sigma_calibration")(at), std::sqrt(cv::trace(point.calibration)),
                    0.002 * fields.at("sigma_calibration")(at));
      }
      if (truth.edge(at) == 0 && !std::isnan(truth.x_in_cam(at)[2])) {
        cv::Vec4d const back =
            pose.inv() * cv::Vec4d(result.xyz(at)[0], result.xyz(at)[1], result.xyz(at)[2], 1);
        double const error = cv::norm(cv::Vec3d(back.val) - cv::Vec3d(truth.x_in_cam(at)));
        ratios.push_back(error / static_cast<double>(fields.at("sigma")(at)));
      }
    }
  }
  EXPECT_EQ(compared, 200);
  std::sort(ratios.begin(), ratios.end());
  constexpr double medianOfNormal = 0.6745;
  EXPECT_NEAR(ratios[ratios.size() / 2] / medianOfNormal, 1.0, 0.2)
      << "errors over their sigma, " << ratios.size();
}

TEST(ScanFields, RefuseWhatTheScanDoesNotHave) {
  Sl3dScanner scanner = test::scannerOf(sim::demoRig(4));
  ScanSettings bare;
  bare.makeModulation = bare.makeSigma = false;
  ScanResult result = scan(scanner, images(), bare);
  expectError([&] { addScanFields(result, scanner, {"modulation"}); }, "makeModulation");
  expectError([&] { addScanFields(result, scanner, {"sigma"}); }, "makeSigma");
  expectError([&] { addScanFields(result, scanner, {"sigma_calibration"}); }, "Covariance");
  expectError([&] { addScanFields(result, scanner, {"colour"}); }, "modulation, sigma, sigma_calibration");
  EXPECT_TRUE(result.cloud.fields().empty());
}

} // namespace
} // namespace vorn::mv
