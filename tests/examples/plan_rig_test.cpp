// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <cstdlib>
#include <sstream>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/system.hpp>
#include <vorn/mv/core/library.hpp>
#include <vorn/mv/sl/patterns.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

#include "sim/demo.hpp"
#include "sim/render.hpp"
#include "sim/truth.hpp"
#include "sim/truth_json.hpp"
#include "support/file_content.hpp"
#include "support/temporary_folder.hpp"

namespace vorn::test {
namespace {

constexpr double distance = 570;

/// The demonstration rig with its projector moved to `base` mm beside the camera, aimed at the middle of a
/// plane before the camera.
sim::Rig rigWithBase(double base) {
  sim::Rig rig = sim::demoRig(2);
  double const angle = std::atan2(base, distance) * 180 / CV_PI;
  rig.projector.world_from_proj = sim::Pose::fromDegrees({base, 0, 0}, {0, -angle, 0});
  // A small image around the axis is enough.
  sim::Device const& camera = rig.camera.device;
  rig.camera.device = sim::Device(camera.focal(), {79.5, 59.5}, camera.distortion(), {160, 120});
  rig.projector.focus = rig.projector.referenceDistance = std::hypot(base, distance);
  return rig;
}

/// What a scan of the plane gives around the camera's axis.
struct Measured {
  double rms = 0; ///< of the points along their rays, mm
  double amplitude = 0;
  double noise = 0;
};

Measured measure(sim::Rig const& rig) {
  sim::Object plane;
  plane.shape = sim::Rectangle{{300, 300}};
  plane.world_from_object.translation = {0, 0, distance};
  std::vector<cv::Mat> columns;
  std::vector<cv::Mat> rows;
  mv::generate_ps4_patterns(columns, rows, rig.projector.device.resolution());
  sim::ProjectorView const view(rig.camera, rig.projector, sim::Scene({plane}));
  mv::Sl3dScanner scanner;
  scanner.read(sim::scannerJson(rig));
  cv::Mat_<float> const map = scanner.decode(view.capture(columns));
  cv::Mat_<cv::Vec3f> xyz;
  scanner.triangulate(map, xyz, cv::Rect(0, 0, map.cols, map.rows));

  sim::Signal const signal =
      sim::signal(rig.camera.sensor, view.expose({columns.begin(), columns.begin() + 4}));
  constexpr int reach = 30;
  cv::Point2d const axis = rig.camera.device.centre();
  cv::Rect const middle(cvRound(axis.x) - reach, cvRound(axis.y) - reach, 2 * reach, 2 * reach);
  Measured result;
  for (cv::Vec3f const& p : cv::Mat_<cv::Vec3f>(xyz(middle))) {
    result.rms += std::pow((p[2] - distance) * cv::norm(p) / p[2], 2);
  }
  result.rms = std::sqrt(result.rms / middle.area());
  result.amplitude = cv::mean(signal.amplitude(middle))[0];
  result.noise = cv::mean(signal.noise(middle))[0];
  return result;
}

TEST(PlanRig, ForetellsWhatTheVirtualRigMeasures) {
  mv::Library::init();
  System::set("EnableDebugMode", Variant(false));
  TemporaryFolder const folder;
  for (double const base : {100.0, 200.0, 400.0}) {
    sim::Rig const rig = rigWithBase(base);
    Measured const measured = measure(rig);
    std::ostringstream command;
    command << "PATH='" VORN_MV_EXAMPLES_PATH "' example_plan_rig " << base << ' ' << distance << ' '
            << rig.projector.device.focal().x << ' ' << measured.amplitude << ' ' << measured.noise << " > '"
            << (folder / "answer").string() << "'";
    ASSERT_EQ(std::system(command.str().c_str()), 0);
    double const expected = std::stod(contentOf(folder / "answer"));
    // 3600 points: their RMS scatters by 1.2 %. The rest is the staircase of the fringes, which adds 3 %
    // here.
    constexpr double tolerance = 0.07;
    EXPECT_NEAR(measured.rms, expected, tolerance * expected) << "base " << base;
  }
}

} // namespace
} // namespace vorn::test
