// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "scanner/scan/triangulation.hpp"

#include <algorithm>
#include <cfloat>
#include <cmath>

#include <limits>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "sim/demo.hpp"

namespace vorn::mv::sl {
namespace {

/// Single-precision maps and arithmetic move a point half a metre away by some 1e-4 mm. Interpolating the
/// lens between two projector pixels and taking its column for straight over four rows adds up to 1e-3 mm
/// with this rig's coarse projector pixels, which cover 1 mm.
constexpr double geometryTolerance = 1.5e-3;

cv::Mat_<cv::Vec2f> mapOf(sim::Device const& device) {
  cv::Mat_<cv::Vec2f> map(device.resolution());
  for (int y = 0; y < map.rows; ++y) {
    for (int x = 0; x < map.cols; ++x) {
      cv::Vec3d const ray = device.ray(cv::Point2d(x, y));
      map(y, x) = cv::Vec2f(static_cast<float>(ray[0]), static_cast<float>(ray[1]));
    }
  }
  return map;
}

/// The demonstration rig, its projector below the camera for row codes.
sim::Rig rigFor(bool columns) {
  sim::Rig rig = sim::demoRig(2);
  if (!columns) {
    rig.projector.world_from_proj = sim::Pose::fromDegrees({-12, -198, 18}, {-19.6, -1.4, 0.7});
  }
  return rig;
}

struct Case {
  sim::Rig rig;
  TriangulationSetup setup;
  cv::Mat_<float> coordinates; ///< of the truth
  cv::Mat_<cv::Vec3d> truth;   ///< in the camera's frame; z is 0 where the projector does not reach

  explicit Case(bool columns) : Case(columns, rigFor(columns)) {}

  Case(bool columns, sim::Rig const& rig_)
      : rig(rig_), setup{mapOf(rig.camera.device), mapOf(rig.projector.device),
                         rig.projector.world_from_proj.matrix(), cv::Matx44d::eye()},
        coordinates(rig.camera.device.resolution(), -1.0F),
        truth(rig.camera.device.resolution(), cv::Vec3d()) {
    sim::Pose const proj_from_cam = rig.projector.world_from_proj.inverse();
    for (int y = 0; y < truth.rows; ++y) {
      for (int x = 0; x < truth.cols; ++x) {
        // A bumpy surface, some 560 mm away.
        double const depth = 560 + 40 * std::sin(0.05 * x) * std::cos(0.04 * y);
        cv::Vec3d const x_in_cam = depth * rig.camera.device.ray(cv::Point2d(x, y));
        auto const pixel = rig.projector.device.project(proj_from_cam * x_in_cam);
        if (pixel && rig.projector.device.contains(*pixel)) {
          coordinates(y, x) = static_cast<float>(columns ? pixel->x : pixel->y);
          truth(y, x) = x_in_cam;
        }
      }
    }
  }

  cv::Rect whole() const { return {{0, 0}, coordinates.size()}; }
};

TEST(TriangulateColumns, FindsThePointsOfABumpySurface) {
  Case const scene(true);
  cv::Mat_<cv::Vec3f> xyz(scene.coordinates.size());
  triangulateColumns(scene.setup, scene.coordinates, scene.whole(), xyz);
  auto const last = static_cast<float>(scene.setup.projectorMap.cols - 1);
  int valid = 0;
  for (int y = 0; y < xyz.rows; ++y) {
    for (int x = 0; x < xyz.cols; ++x) {
      float const p = scene.coordinates(y, x);
      if (p > 0 && p < last) {
        ++valid;
        EXPECT_LT(cv::norm(cv::Vec3d(xyz(y, x)) - scene.truth(y, x)), geometryTolerance) << x << ' ' << y;
      } else {
        EXPECT_EQ(xyz(y, x), cv::Vec3f(0, 0, -1));
      }
    }
  }
  EXPECT_GT(valid, xyz.rows * xyz.cols / 2);
}

/// The construction in double precision: the plane through the column's first and last point gives a point,
/// the angles at the projector its row, the plane through the column two rows above and below it the point.
cv::Vec3d constructed(TriangulationSetup const& setup, cv::Point pixel, double p) {
  cv::Matx33d const rotation = setup.camFromProj.get_minor<3, 3>(0, 0);
  cv::Vec3d const centre(setup.camFromProj(0, 3), setup.camFromProj(1, 3), setup.camFromProj(2, 3));
  int const last = setup.projectorMap.rows - 1;
  int const i = static_cast<int>(p);
  auto const direction = [&](int row) {
    cv::Vec2d const at = setup.projectorMap(row, i);
    cv::Vec2d const next = setup.projectorMap(row, i + 1);
    cv::Vec2d const between = at + (p - i) * (next - at);
    return rotation * cv::Vec3d(between[0], between[1], 1);
  };
  cv::Vec2d const c = setup.cameraMap(pixel);
  cv::Vec3d const ray(c[0], c[1], 1);
  auto const meet = [&](int above, int below) {
    cv::Vec3d const normal = direction(above).cross(direction(below));
    return cv::Vec3d(ray * (normal.dot(centre) / normal.dot(ray)));
  };
  auto const angle = [&](cv::Vec3d const& a, cv::Vec3d const& b) {
    return std::acos(a.dot(b) / (cv::norm(a) * cv::norm(b)));
  };
  cv::Vec3d const seen = meet(0, last) - centre;
  double const row = angle(direction(0), seen) / angle(direction(0), direction(last)) * last + 0.5;
  int const bounded = std::clamp(static_cast<int>(std::floor(row)), 2, last - 2);
  return meet(bounded - 2, bounded + 2);
}

TEST(TriangulateColumns, FollowsTheConstructionToSinglePrecision) {
  // The angle that four rows of this projector span is known to 2e-5 of itself, and so is the plane's tilt; a
  // row that is rounded the other way moves a point by what the lens bends a column in one row.
  constexpr double typical = 1e-4;
  constexpr double mostAtARowsBorder = 5e-3;
  Case scene(true);
  // A rotation as an average over views may have it, not quite one.
  for (double const defect : {0.0, 3e-4}) {
    scene.setup.camFromProj(0, 0) += defect;
    cv::Mat_<cv::Vec3f> xyz(scene.coordinates.size());
    triangulateColumns(scene.setup, scene.coordinates, scene.whole(), xyz);
    auto const last = static_cast<float>(scene.setup.projectorMap.cols - 1);
    double squares = 0;
    int count = 0;
    for (int y = 0; y < xyz.rows; y += 3) {
      for (int x = 0; x < xyz.cols; ++x) {
        if (float const p = scene.coordinates(y, x); p > 0 && p < last) {
          double const error = cv::norm(cv::Vec3d(xyz(y, x)) - constructed(scene.setup, {x, y}, p));
          ASSERT_LT(error, mostAtARowsBorder) << x << ' ' << y;
          squares += error * error;
          ++count;
        }
      }
    }
    EXPECT_LT(std::sqrt(squares / count), typical);
  }
}

// Rows so coarse, and a lens so strong, that a row beside the nearest one is another plane of light.
TEST(TriangulateColumns, TakesTheNearestRow) {
  sim::Rig rig = rigFor(true);
  sim::Device const& fine = rig.projector.device;
  constexpr int coarser = 12;
  cv::Size const size = fine.resolution() / coarser;
  rig.projector.device = sim::Device(fine.focal() / coarser, cv::Point2d(0.5 * size.width, 0.5 * size.height),
                                     {-0.4, 0, 0, 0, 0}, size);
  Case const scene(true, rig);
  cv::Mat_<cv::Vec3f> xyz(scene.coordinates.size());
  triangulateColumns(scene.setup, scene.coordinates, scene.whole(), xyz);
  auto const last = static_cast<float>(scene.setup.projectorMap.cols - 1);
  int others = 0;
  int count = 0;
  for (int y = 0; y < xyz.rows; y += 3) {
    for (int x = 0; x < xyz.cols; ++x) {
      if (float const p = scene.coordinates(y, x); p > 0 && p < last) {
        others += cv::norm(cv::Vec3d(xyz(y, x)) - constructed(scene.setup, {x, y}, p)) < 2e-3 ? 0 : 1;
        ++count;
      }
    }
  }
  ASSERT_GT(count, xyz.rows * xyz.cols / 12);
  EXPECT_LT(others, 0.01 * count) << "but for rays between two rows";
}

TEST(TriangulateColumns, CarriesPointsIntoThePosesFrame) {
  Case scene(true);
  cv::Mat_<cv::Vec3f> inCamera(scene.coordinates.size());
  triangulateColumns(scene.setup, scene.coordinates, scene.whole(), inCamera);
  sim::Pose const pose_from_cam = sim::Pose::fromDegrees({10, -20, 30}, {20, -40, 100});
  scene.setup.poseFromCam = pose_from_cam.matrix();
  cv::Mat_<cv::Vec3f> inPose(scene.coordinates.size());
  triangulateColumns(scene.setup, scene.coordinates, scene.whole(), inPose);
  for (int y = 0; y < inPose.rows; y += 3) {
    for (int x = 0; x < inPose.cols; x += 3) {
      bool const valid = inCamera(y, x)[2] > 0;
      cv::Vec3d const expected = valid ? pose_from_cam * cv::Vec3d(inCamera(y, x)) : cv::Vec3d(0, 0, -1);
      EXPECT_LT(cv::norm(cv::Vec3d(inPose(y, x)) - expected), geometryTolerance);
    }
  }
}

TEST(TriangulateColumns, MarksWhatHasNoCoordinateOrNoRay) {
  Case scene(true);
  auto const last = static_cast<float>(scene.setup.projectorMap.cols - 1);
  cv::Mat_<float> row(1, 7);
  float const values[] = {-1,
                          0,
                          last,
                          last + 1,
                          std::numeric_limits<float>::quiet_NaN(),
                          std::numeric_limits<float>::infinity(),
                          0.5F * last};
  std::copy(std::begin(values), std::end(values), row[0]);
  cv::Mat_<cv::Vec3f> xyz(row.size());
  cv::Rect const roi(100, 100, 7, 1);
  triangulateColumns(scene.setup, row, roi, xyz);
  for (int x = 0; x < 6; ++x) {
    EXPECT_EQ(xyz(0, x), cv::Vec3f(0, 0, -1)) << x;
  }
  EXPECT_GT(xyz(0, 6)[2], 0.0F);
  scene.setup.cameraMap(100, 106) = cv::Vec2f::all(std::numeric_limits<float>::quiet_NaN());
  triangulateColumns(scene.setup, row, roi, xyz);
  EXPECT_EQ(xyz(0, 6), cv::Vec3f(0, 0, -1));
}

TEST(TriangulateRows, FindsThePointsOfABumpySurfaceWithoutDistortion) {
  sim::Rig rig = rigFor(false);
  rig.projector.device = sim::Device(rig.projector.device.focal(), rig.projector.device.centre(), {},
                                     rig.projector.device.resolution());
  Case const scene(false, rig);
  cv::Mat_<cv::Vec3f> xyz(scene.coordinates.size());
  triangulateRows(scene.setup, scene.coordinates, scene.whole(), xyz);
  auto const last = static_cast<float>(scene.setup.projectorMap.rows - 1);
  int count = 0;
  for (int y = 2; y < xyz.rows - 2; ++y) {
    for (int x = 2; x < xyz.cols - 2; ++x) {
      if (float const p = scene.coordinates(y, x); p > 0 && p < last) {
        ++count;
        EXPECT_LT(cv::norm(cv::Vec3d(xyz(y, x)) - scene.truth(y, x)), geometryTolerance) << x << ' ' << y;
      }
    }
  }
  EXPECT_GT(count, xyz.rows * xyz.cols / 2);
}

TEST(TriangulateRows, IsExactUnderDistortionWhereItsPlanesAreLaid) {
  // The light of a row is no plane then: one is laid through it at a third and two thirds of its length.
  Case const scene(false);
  cv::Mat_<cv::Vec3f> xyz(scene.coordinates.size());
  triangulateRows(scene.setup, scene.coordinates, scene.whole(), xyz);
  sim::Pose const proj_from_cam = scene.rig.projector.world_from_proj.inverse();
  int const third = scene.setup.projectorMap.cols / 3;
  auto const last = static_cast<float>(scene.setup.projectorMap.rows - 1);
  constexpr double near = 0.25;
  // What the row sags in a quarter of a column.
  constexpr double sag = 0.005;
  int count = 0;
  double worst = 0;
  for (int y = 2; y < xyz.rows - 2; ++y) {
    for (int x = 2; x < xyz.cols - 2; ++x) {
      if (float const p = scene.coordinates(y, x); p <= 0 || p >= last) {
        continue;
      }
      double const column = scene.rig.projector.device.project(proj_from_cam * scene.truth(y, x))->x;
      if (std::min(std::abs(column - third), std::abs(column - 2 * third)) < near) {
        ++count;
        worst = std::max(worst, cv::norm(cv::Vec3d(xyz(y, x)) - scene.truth(y, x)));
      }
    }
  }
  EXPECT_GT(count, 300);
  EXPECT_LT(worst, geometryTolerance + sag);
}

TEST(TriangulateRows, MeetsThePlaneThroughTheThirdsOfTheRow) {
  Case const scene(false);
  cv::Vec3f const untouched(7, 8, 9);
  cv::Mat_<cv::Vec3f> xyz(scene.coordinates.size(), untouched);
  triangulateRows(scene.setup, scene.coordinates, scene.whole(), xyz);
  int const third = scene.setup.projectorMap.cols / 3;
  int const last = scene.setup.projectorMap.rows - 1;
  sim::Pose const& cam_from_proj = scene.rig.projector.world_from_proj;
  cv::Rect const inner(2, 2, xyz.cols - 4, xyz.rows - 4);
  for (int y = 0; y < xyz.rows; ++y) {
    for (int x = 0; x < xyz.cols; ++x) {
      auto const p = static_cast<double>(scene.coordinates(y, x));
      if (!cv::Point(x, y).inside(inner)) {
        EXPECT_EQ(xyz(y, x), untouched);
        continue;
      }
      if (p <= 0 || p >= last) {
        EXPECT_EQ(xyz(y, x), cv::Vec3f(0, 0, -FLT_MAX));
        continue;
      }
      auto const i = static_cast<int>(p);
      auto const direction = [&](int column) {
        cv::Vec2d const at = scene.setup.projectorMap(i, column);
        cv::Vec2d const next = scene.setup.projectorMap(i + 1, column);
        cv::Vec2d const between = at + (p - i) * (next - at);
        return cam_from_proj.rotation * cv::Vec3d(between[0], between[1], 1);
      };
      cv::Vec3d const normal = direction(third).cross(direction(2 * third));
      cv::Vec2f const c = scene.setup.cameraMap(y, x);
      cv::Vec3d const ray(c[0], c[1], 1);
      cv::Vec3d const expected = ray * (normal.dot(cam_from_proj.translation) / normal.dot(ray));
      EXPECT_LT(cv::norm(cv::Vec3d(xyz(y, x)) - expected), geometryTolerance) << x << ' ' << y;
    }
  }
}

} // namespace
} // namespace vorn::mv::sl
