// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/calib/adjustment.hpp>

#include <algorithm>
#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include <vorn/core/exception.hpp>
#include <vorn/mv/calib/stereo_camera.hpp>
#include <vorn/mv/geometry/fitting.hpp>

#include "calib/adjustment_rig.hpp"
#include "geometry/rotation_vector.hpp"

namespace vorn::mv {
namespace {

using test::AdjustmentRig;
using test::ExactCamera;
using test::numbersOf;
using test::ofCamera;
using Shape = AdjustmentSettings::Shape;

constexpr float none = std::numeric_limits<float>::quiet_NaN();

Adjustment adjustRig(AdjustmentRig const& rig, std::vector<AdjustmentView> const& views,
                     AdjustmentSettings const& settings = {}) {
  return adjustScanner(views, AdjustmentRig::sizeOf(rig.camera), AdjustmentRig::sizeOf(rig.projector),
                       settings);
}

/// What all parameters of a scanner are off by, in the order of the covariance.
cv::Mat_<double> errorsOf(Adjustment const& found, AdjustmentRig const& rig) {
  std::vector<double> errors = numbersOf(found.models[0]);
  std::vector<double> const second = numbersOf(found.models[1]);
  std::vector<double> truth = numbersOf(rig.camera.K, rig.camera.D);
  std::vector<double> const truth1 = numbersOf(rig.projector.K, rig.projector.D);
  errors.insert(errors.end(), second.begin(), second.end());
  truth.insert(truth.end(), truth1.begin(), truth1.end());
  for (std::size_t i = 0; i < errors.size(); ++i) {
    errors[i] -= truth[i];
  }
  cv::Vec3d const turn = rotationVector(math::getR3(found.transform) * math::getR3(rig.cam_from_proj).t());
  cv::Vec3d const shift = math::getT3(found.transform) - math::getT3(rig.cam_from_proj);
  errors.insert(errors.end(), {turn[0], turn[1], turn[2], shift[0], shift[1], shift[2]});
  return cv::Mat(errors, true);
}

/// Squared errors in units of their covariance, a parameter.
double normalizedSquares(Adjustment const& found, AdjustmentRig const& rig) {
  cv::Mat_<double> const errors = errorsOf(found, rig);
  cv::Mat solution;
  // Scaled, as the parameters' variances differ by ten powers of ten and more.
  cv::Mat const scale = cv::Mat::diag(1 / cv::Mat(found.sigmas));
  cv::solve(cv::Mat(scale * found.covariance * scale), cv::Mat(scale * errors), solution,
            cv::DECOMP_CHOLESKY);
  return cv::Mat(scale * errors).dot(solution) / errors.rows;
}

/// What the calibration alone does to points in space, root mean square in mm, after the best rigid motion.
double rigidError(Adjustment const& found, AdjustmentRig const& rig) {
  StereoCamera stereo;
  nlohmann::json document{{"Hpc", found.transform}, {"Hpose", cv::Matx44d::eye()}};
  found.models[0].write(document["CameraModel0"]);
  found.models[1].write(document["CameraModel1"]);
  stereo.read(document);
  std::vector<cv::Point3f> truth;
  std::vector<cv::Point2f> pixels0;
  std::vector<cv::Point2f> pixels1;
  for (double z = 450; z <= 600; z += 50) {
    for (double y = -0.24; y <= 0.25; y += 0.12) {
      for (double x = -0.32; x <= 0.33; x += 0.16) {
        cv::Vec3d const point(x * z, y * z, z);
        cv::Vec2d const pixel1 = AdjustmentRig::imageOf(rig.projector, rig.inProjector(point));
        if (AdjustmentRig::isInside(rig.projector, pixel1)) {
          truth.emplace_back(cv::Vec3f(point));
          pixels0.emplace_back(cv::Point2d(AdjustmentRig::imageOf(rig.camera, point)));
          pixels1.emplace_back(cv::Point2d(pixel1));
        }
      }
    }
  }
  auto const points = stereo.triangulate(pixels0, pixels1).points;
  auto const aligned = math::transformPoints(points, math::estimateTransform(points, truth));
  return cv::norm(aligned, truth, cv::NORM_L2) / std::sqrt(static_cast<double>(truth.size()));
}

TEST(Adjustment, FindsTheRigThatMadeTheViews) {
  AdjustmentRig const rig;
  auto const views = rig.views(8);
  Adjustment const found = adjustRig(rig, views);
  ASSERT_EQ(found.models.size(), 2U);
  ASSERT_EQ(found.parameters.size(), 24U);
  EXPECT_EQ(found.parameters[4], "k1_0");
  EXPECT_EQ(found.parameters[23], "tz");
  // Pixels are floats: their rounding (3e-5 px) is the noise.
  EXPECT_LT(found.noise.camera0, 4e-5);
  EXPECT_LT(found.noise.camera1, 4e-5);
  cv::Mat_<double> const errors = errorsOf(found, rig);
  for (int i = 0; i < errors.rows; ++i) {
    EXPECT_LT(std::abs(errors(i)), 4.5 * found.sigmas[static_cast<std::size_t>(i)])
        << found.parameters[static_cast<std::size_t>(i)];
  }
  EXPECT_LT(std::abs(errors(0)), 1e-3) << "focal length, pixels";
  EXPECT_EQ(found.shape.kind, TargetShape::Kind::Flat);
  for (std::size_t i = 0; i < views.size(); ++i) {
    EXPECT_LT(cv::norm(found.poses[i] - AdjustmentRig::poses(8)[i], cv::NORM_INF), 1e-3);
    EXPECT_TRUE(found.views[i].leftOut.empty());
    EXPECT_EQ(found.views[i].name, views[i].name);
    EXPECT_EQ(found.views[i].dotCount, static_cast<int>(views[i].objPnts.size()));
  }
}

TEST(Adjustment, KnowsItsNoiseAndItsErrors) {
  AdjustmentRig rig;
  rig.cameraNoise = 0.006;
  rig.projectorNoise = 0.0018;
  constexpr int runs = 20;
  constexpr int viewCount = 6;
  double squares = 0;
  for (int run = 0; run < runs; ++run) {
    Adjustment const found = adjustRig(rig, rig.views(viewCount, static_cast<std::uint64_t>(100 + run)));
    squares += normalizedSquares(found, rig) / runs;
    // 900 points tell a standard deviation to 2 %.
    EXPECT_NEAR(found.noise.camera0, rig.cameraNoise, 0.08 * rig.cameraNoise);
    EXPECT_NEAR(found.noise.camera1, rig.projectorNoise, 0.08 * rig.projectorNoise);
    EXPECT_NEAR(found.s0, 1, 0.08);
    EXPECT_EQ(found.shape.kind, TargetShape::Kind::Flat) << "a flat target of seed " << run;
  }
  // Of 24 parameters in 20 runs; a standard deviation of 0.065.
  EXPECT_NEAR(squares, 1, 0.22);
}

/// Makes what is read along x less exact, by the same factor, of one half of the target and of all of one
/// view.
void blurHalf(std::vector<AdjustmentView>& views, double usual, double factor, std::uint64_t seed) {
  cv::RNG rng(seed);
  double const more = usual * std::sqrt(factor * factor - 1);
  for (std::size_t i = 0; i < views.size(); ++i) {
    AdjustmentView& view = views[i];
    for (std::size_t j = 0; j < view.objPnts.size(); ++j) {
      bool const isBlurred = i == 2 || view.objPnts[j].x > 40;
      view.points1[j].x += static_cast<float>(isBlurred ? rng.gaussian(more) : 0);
      view.sigmas1.emplace_back(cv::Point2d(usual * (isBlurred ? factor : 1), usual));
    }
  }
}

TEST(Adjustment, WeighsDotsByHowExactTheyAre) {
  AdjustmentRig rig;
  rig.cameraNoise = 0.006;
  rig.projectorNoise = 0.0018;
  constexpr int runs = 8;
  double weighted2 = 0;
  double alike2 = 0;
  double squares = 0;
  for (int run = 0; run < runs; ++run) {
    auto views = rig.views(6, static_cast<std::uint64_t>(300 + run));
    blurHalf(views, rig.projectorNoise, 8, static_cast<std::uint64_t>(run));
    Adjustment const weighted = adjustRig(rig, views);
    weighted2 += std::pow(rigidError(weighted, rig), 2);
    squares += normalizedSquares(weighted, rig) / runs;
    EXPECT_NEAR(weighted.noise.camera1, rig.projectorNoise, 0.1 * rig.projectorNoise);
    EXPECT_NEAR(weighted.s0, 1, 0.1);
    for (ViewAdjustment const& view : weighted.views) {
      EXPECT_TRUE(view.leftOut.empty()) << view.name;
    }
    for (AdjustmentView& view : views) {
      view.sigmas1.clear();
    }
    alike2 += std::pow(rigidError(adjustRig(rig, views), rig), 2);
  }
  EXPECT_LT(std::sqrt(weighted2), 0.75 * std::sqrt(alike2));
  EXPECT_NEAR(squares, 1, 0.35) << "the foretold covariance, of 24 parameters in 8 runs";
}

TEST(Adjustment, ReadProjectorPointsAreNoIndependentOnes) {
  AdjustmentRig rig;
  rig.cameraNoise = 0.006;
  rig.projectorNoise = 0.0018;
  double read = 0;
  double independent = 0;
  for (std::uint64_t seed = 1; seed <= 6; ++seed) {
    auto const views = rig.views(6, seed);
    AdjustmentSettings settings;
    settings.shape = Shape::Flat;
    read += std::pow(rigidError(adjustRig(rig, views, settings), rig), 2);
    Adjustment const alike = adjustStereo(views, AdjustmentRig::sizeOf(rig.camera),
                                          AdjustmentRig::sizeOf(rig.projector), settings);
    independent += std::pow(rigidError(alike, rig), 2);
  }
  EXPECT_LT(read, 0.5 * independent) << "the knowledge of where points were read is worth this much";
}

TEST(Adjustment, FindsABentTarget) {
  AdjustmentRig rig;
  rig.cameraNoise = 0.006;
  rig.projectorNoise = 0.0018;
  double const half = rig.pitch * rig.halfColumns;
  rig.deviation = [half](cv::Vec2d const& dot) { return cv::Vec3d(0, 0, 0.3 * std::pow(dot[0] / half, 2)); };
  auto const views = rig.views(8);
  Adjustment const found = adjustRig(rig, views);
  EXPECT_EQ(found.shape.kind, TargetShape::Kind::Smooth);
  EXPECT_NEAR(found.shape.sagX, 0.3, 0.004);
  EXPECT_NEAR(found.shape.sagY, 0, 0.004);
  EXPECT_NEAR(found.shape.twist, 0, 0.004);
  EXPECT_GT(found.shape.significance, 50);
  EXPECT_GT(found.shape.flatS0, 5);
  EXPECT_NEAR(found.s0, 1, 0.08);
  EXPECT_NEAR(normalizedSquares(found, rig), 1, 0.9) << "chi square of 24, a standard deviation of 0.29";
  // Its height, dot by dot, up to the tilt and shift that poses take up.
  ASSERT_EQ(found.shape.deviations.size(), found.shape.objPnts.size());
  cv::Mat_<double> heights(static_cast<int>(found.shape.objPnts.size()), 4);
  for (int i = 0; i < heights.rows; ++i) {
    cv::Point2f const p = found.shape.objPnts[static_cast<std::size_t>(i)];
    double const error = found.shape.deviations[static_cast<std::size_t>(i)].z - rig.deviation({p.x, p.y})[2];
    cv::Mat(cv::Matx14d(1, p.x, p.y, error)).copyTo(heights.row(i));
  }
  cv::Mat plane;
  cv::solve(heights.colRange(0, 3), heights.col(3), plane, cv::DECOMP_SVD);
  EXPECT_LT(cv::norm(heights.colRange(0, 3) * plane - heights.col(3), cv::NORM_INF), 0.006) << "mm";

  AdjustmentSettings flat;
  flat.shape = Shape::Flat;
  Adjustment const wrong = adjustRig(rig, views, flat);
  EXPECT_EQ(wrong.shape.kind, TargetShape::Kind::Flat);
  EXPECT_GT(normalizedSquares(wrong, rig), 4) << "the bent target does harm";
}

TEST(Adjustment, FindsDotsThatArePrintedOff) {
  AdjustmentRig rig;
  rig.cameraNoise = 0.006;
  rig.projectorNoise = 0.0018;
  cv::RNG rng(3);
  cv::Mat_<cv::Vec2d> offsets(2 * rig.halfRows + 1, 2 * rig.halfColumns + 1);
  rng.fill(offsets, cv::RNG::NORMAL, 0, 0.01);
  rig.deviation = [&](cv::Vec2d const& dot) {
    cv::Vec2d const o =
        offsets(cvRound(dot[1] / rig.pitch) + rig.halfRows, cvRound(dot[0] / rig.pitch) + rig.halfColumns);
    return cv::Vec3d(o[0], o[1], 0);
  };
  Adjustment const found = adjustRig(rig, rig.views(8));
  EXPECT_EQ(found.shape.kind, TargetShape::Kind::Dots);
  double squares = 0;
  cv::Mat_<double> left(2 * static_cast<int>(found.shape.objPnts.size()), 5);
  for (std::size_t i = 0; i < found.shape.objPnts.size(); ++i) {
    cv::Point2f const p = found.shape.objPnts[i];
    cv::Vec3d const truth = rig.deviation({p.x, p.y});
    int const row = 2 * static_cast<int>(i);
    // Up to a shift, a turn and a scale.
    cv::Mat(cv::Matx<double, 2, 5>(1, 0, p.x, -p.y, found.shape.deviations[i].x - truth[0], 0, 1, p.y, p.x,
                                   found.shape.deviations[i].y - truth[1]))
        .copyTo(left.rowRange(row, row + 2));
    squares += truth[0] * truth[0] + truth[1] * truth[1];
  }
  cv::Mat similar;
  cv::solve(left.colRange(0, 4), left.col(4), similar, cv::DECOMP_SVD);
  double const rest = cv::norm(left.colRange(0, 4) * similar - left.col(4), cv::NORM_L2SQR);
  EXPECT_LT(rest, 0.05 * squares) << "most of 0.01 mm is found";
}

TEST(Adjustment, LeavesOutWrongDotsAndSaysWhich) {
  AdjustmentRig rig;
  rig.cameraNoise = 0.006;
  rig.projectorNoise = 0.0018;
  auto views = rig.views(6);
  views[2].points0[17].x += 0.5F;
  views[4].points1[80] += cv::Point2f(0.0F, 0.3F);
  Adjustment const found = adjustRig(rig, views);
  for (std::size_t i = 0; i < views.size(); ++i) {
    std::vector<int> const expected = i == 2   ? std::vector<int>{17}
                                      : i == 4 ? std::vector<int>{80}
                                               : std::vector<int>{};
    EXPECT_EQ(found.views[i].leftOut, expected) << i;
  }
  EXPECT_NEAR(found.s0, 1, 0.08);
}

TEST(Adjustment, EndsThatCurlAreNoWrongDots) {
  AdjustmentRig rig;
  rig.cameraNoise = 0.006;
  rig.projectorNoise = 0.0018;
  double const half = rig.pitch * rig.halfColumns;
  rig.deviation = [half](cv::Vec2d const& dot) { return cv::Vec3d(0, 0, 0.5 * std::pow(dot[0] / half, 6)); };
  auto views = rig.views(8);
  views[2].points0[17].x += 0.5F;
  Adjustment const found = adjustRig(rig, views);
  EXPECT_EQ(found.shape.kind, TargetShape::Kind::Smooth);
  for (std::size_t i = 0; i < views.size(); ++i) {
    EXPECT_EQ(found.views[i].leftOut, i == 2 ? std::vector<int>{17} : std::vector<int>{}) << i;
  }
  EXPECT_NEAR(found.noise.camera0, 0.006, 0.0006);
}

TEST(Adjustment, TheStartDoesNotMatterNorDoThreads) {
  AdjustmentRig rig;
  rig.cameraNoise = 0.006;
  rig.projectorNoise = 0.0018;
  auto const views = rig.views(6);
  Adjustment const first = adjustRig(rig, views);
  Adjustment const fromTruth = adjustScanner(views, rig.camera.model(), rig.projector.model());
  for (int model : {0, 1}) {
    auto const a = numbersOf(first.models[static_cast<std::size_t>(model)]);
    auto const b = numbersOf(fromTruth.models[static_cast<std::size_t>(model)]);
    for (std::size_t i = 0; i < a.size(); ++i) {
      EXPECT_NEAR(a[i], b[i], 1e-4 * first.sigmas[9 * static_cast<std::size_t>(model) + i]) << i;
    }
  }
  EXPECT_LT(cv::norm(first.transform - fromTruth.transform, cv::NORM_INF), 1e-7);
  int const threads = cv::getNumThreads();
  cv::setNumThreads(1);
  Adjustment const again = adjustRig(rig, views);
  cv::setNumThreads(threads);
  EXPECT_EQ(again.transform, first.transform);
  EXPECT_EQ(cv::norm(again.covariance, first.covariance), 0);
}

TEST(Adjustment, HoldsACameraThatIsCalibratedElsewhere) {
  AdjustmentRig rig;
  rig.camera.D = {-0.2, 0.1, 1e-3, -2e-3, 0.03, 0.02, -0.01, 0.004, 2e-3, -1e-3, 3e-3, 5e-4, 0.02, -0.03};
  auto const views = rig.views(4);
  AdjustmentSettings settings;
  settings.holdCamera0 = true;
  Adjustment const found =
      adjustScanner(views, rig.camera.model(), AdjustmentRig::sizeOf(rig.projector), settings);
  EXPECT_EQ(found.parameters.size(), 15U);
  EXPECT_EQ(found.parameters[0], "fx1");
  EXPECT_EQ(cv::norm(found.models[0].getD(), rig.camera.model().getD()), 0);
  EXPECT_LT(cv::norm(found.transform - rig.cam_from_proj, cv::NORM_INF), 1e-3);
  settings.holdCamera1 = true;
  Adjustment const one = adjustScanner({views[0]}, rig.camera.model(), rig.projector.model(), settings);
  EXPECT_EQ(one.parameters.size(), 6U) << "one view tells the transform of two known devices";
  EXPECT_LT(cv::norm(one.transform - rig.cam_from_proj, cv::NORM_INF), 1e-2);
}

TEST(Adjustment, TakesOneCameraAndTwo) {
  AdjustmentRig rig;
  Adjustment const camera = adjustCamera(ofCamera(rig.views(5)), AdjustmentRig::sizeOf(rig.camera));
  EXPECT_EQ(camera.parameters.size(), 9U);
  EXPECT_EQ(camera.transform, cv::Matx44d::eye());
  EXPECT_LT(cv::norm(cv::Mat(rig.camera.K), camera.models[0].getK(), cv::NORM_INF), 2e-3);

  auto views = rig.views(6);
  for (std::size_t i = 0; i < views[1].objPnts.size(); ++i) {
    // Each camera sees other dots of a view, and one of them none of another.
    views[1].points0[i] = i % 3 == 0 ? cv::Point2f(none, none) : views[1].points0[i];
    views[1].points1[i] = i % 3 == 1 ? cv::Point2f(none, none) : views[1].points1[i];
  }
  views[3].points1.assign(views[3].objPnts.size(), {none, none});
  views[5].points0.assign(views[5].objPnts.size(), {none, none});
  Adjustment const stereo =
      adjustStereo(views, AdjustmentRig::sizeOf(rig.camera), AdjustmentRig::sizeOf(rig.projector));
  EXPECT_LT(cv::norm(stereo.transform - rig.cam_from_proj, cv::NORM_INF), 2e-3);
  EXPECT_LT(cv::norm(stereo.poses[5] - AdjustmentRig::poses(6)[5], cv::NORM_INF), 5e-3);
}

TEST(Adjustment, PrismTermsAreFoundWhereTheyAre) {
  AdjustmentRig rig;
  rig.camera.D = {-0.12, 0.09, 6e-4, -4e-4, -0.02, 0, 0, 0, 2e-3, -1e-3, -3e-3, 5e-4};
  auto const views = ofCamera(rig.views(6));
  AdjustmentSettings settings;
  settings.lens = AdjustmentSettings::Lens::ThinPrism;
  Adjustment const found = adjustCamera(views, AdjustmentRig::sizeOf(rig.camera), settings);
  ASSERT_EQ(found.models[0].getD().total(), 12U);
  EXPECT_EQ(found.parameters[9], "s1_0");
  for (int i = 8; i < 12; ++i) {
    EXPECT_NEAR(found.models[0].getD().at<double>(i), rig.camera.D[static_cast<std::size_t>(i)], 3e-5);
  }
}

TEST(Adjustment, SaysWhatCannotBeAdjusted) {
  AdjustmentRig const rig;
  auto const good = rig.views(4);
  CameraModel const camera = AdjustmentRig::sizeOf(rig.camera);
  CameraModel const projector = AdjustmentRig::sizeOf(rig.projector);
  auto const failure = [&](std::vector<AdjustmentView> const& views,
                           AdjustmentSettings const& settings = {}) {
    try {
      (void)adjustScanner(views, camera, projector, settings);
    } catch (Exception const& e) {
      return e.message();
    }
    return std::string("no exception");
  };
  auto const holds = [](std::string const& text, char const* part) {
    return text.find(part) != std::string::npos;
  };
  auto views = good;
  views[1].points1.pop_back();
  EXPECT_TRUE(holds(failure(views), "View 1 (pose_1) holds")) << failure(views);
  views = good;
  views[2].sigmas.assign(views[2].objPnts.size(), 0.0F);
  EXPECT_TRUE(holds(failure(views), "View 2 (pose_2) must hold one sigma above 0")) << failure(views);
  views = good;
  views[1].sigmas1.assign(views[1].objPnts.size(), {0.01F, -1.0F});
  EXPECT_TRUE(holds(failure(views), "View 1 (pose_1) must hold two sigmas above 0")) << failure(views);
  EXPECT_TRUE(holds(failure({good[0], good[1]}), "Of 2 views, 2 show device 0"))
      << failure({good[0], good[1]});
  views = good;
  for (std::size_t i = 0; i < views[3].objPnts.size(); ++i) { // one row of dots is left
    views[3].points0[i] = views[3].objPnts[i].y == 0 ? views[3].points0[i] : cv::Point2f(none, none);
  }
  EXPECT_TRUE(holds(failure(views), "View 3 (pose_3) shows too few dots")) << failure(views);
  AdjustmentSettings settings;
  settings.outlierLimit = 2;
  EXPECT_TRUE(holds(failure(good, settings), "outlierLimit must be at least 3, not 2"));
  settings = {};
  settings.holdCamera1 = true;
  EXPECT_TRUE(holds(failure(good, settings), "Model 1 is to be held but is not calibrated"));
  EXPECT_TRUE(holds(failure({}), "Of 0 views"));
  struct Stop : Observer {
    bool onProgress(std::string_view, double) override { return false; }
  } stop;
  EXPECT_THROW((void)adjustScanner(good, camera, projector, {}, &stop), Cancelled);
}

} // namespace
} // namespace vorn::mv
