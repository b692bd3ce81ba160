// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/calib/adjustment.hpp>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/calib3d.hpp>

#include <vorn/core/exception.hpp>

#include "calib/adjustment_rig.hpp"

namespace vorn::mv {
namespace {

using test::AdjustmentRig;
using test::numbersOf;
using test::ofCamera;
using Shape = AdjustmentSettings::Shape;

/// What a camera sees of a paper that bends otherwise in each view, by a tenth of a pitch, and is held much
/// alike.
std::vector<AdjustmentView> viewsOfPaper(int count, std::uint64_t seed) {
  AdjustmentRig rig;
  rig.cameraNoise = 0.05;
  double const half = rig.pitch * rig.halfColumns;
  cv::RNG rng(seed);
  std::vector<AdjustmentView> views;
  for (int i = 0; i < count; ++i) {
    // One after the other: the order of arguments is the compiler's.
    double numbers[10];
    for (double& number : numbers) {
      number = rng.gaussian(1);
    }
    cv::Matx33d R;
    cv::Rodrigues(cv::Vec3d(0.3 * numbers[0], 0.3 * numbers[1], 0.05 * numbers[2]), R);
    cv::Vec3d const place(20 * numbers[3], 15 * numbers[4], 550 + 60 * numbers[5]);
    cv::Vec4d const bend(2 * numbers[6], 2 * numbers[7], 2 * numbers[8], 2 * numbers[9]);
    rig.deviation = [half, bend](cv::Vec2d const& dot) {
      cv::Vec2d const p = dot / half;
      cv::Vec4d const ways(p[0] * p[0], p[1] * p[1], p[0] * p[1], p[0] * p[0] * p[0]);
      return cv::Vec3d(0, 0, bend.dot(ways));
    };
    views.push_back(rig.view(math::createTransform(R, place), rng));
  }
  return ofCamera(std::move(views));
}

TEST(BentPaper, EndsAtTheMinimumWhereSquaresBendMoreThanTheirModel) {
  AdjustmentSettings smooth;
  smooth.shape = Shape::Smooth;
  for (std::uint64_t seed = 1; seed <= 12; ++seed) {
    SCOPED_TRACE(seed);
    auto const views = viewsOfPaper(8, seed);
    Adjustment found;
    ASSERT_NO_THROW(found = adjustCamera(views, AdjustmentRig::sizeOf(AdjustmentRig().camera), smooth));
    // The lens that was found leads back to itself.
    Adjustment const again = adjustCamera(views, found.models[0], smooth);
    for (std::size_t i = 0; i < found.sigmas.size(); ++i) {
      EXPECT_NEAR(numbersOf(again.models[0])[i], numbersOf(found.models[0])[i], 0.01 * found.sigmas[i]);
    }
  }
}

TEST(BentPaper, ViewsThatDoNotDetermineAShapeLeaveItSimplerAndSayIt) {
  int limited = 0;
  for (std::uint64_t seed = 1; seed <= 8; ++seed) {
    SCOPED_TRACE(seed);
    auto const views = viewsOfPaper(4, seed);
    CameraModel const camera = AdjustmentRig::sizeOf(AdjustmentRig().camera);
    Adjustment found;
    ASSERT_NO_THROW(found = adjustCamera(views, camera));
    if (found.shapeLimit.empty()) {
      continue;
    }
    ++limited;
    AdjustmentSettings smooth;
    smooth.shape = Shape::Smooth;
    EXPECT_THROW((void)adjustCamera(views, camera, smooth), Exception) << "asked for by name";
    EXPECT_LT(found.shape.degree, 6);
    bool const isFlat = found.shape.kind == TargetShape::Kind::Flat;
    EXPECT_NE(found.shapeLimit.find(isFlat ? "taken to be flat" : "taken to be evenly bent"),
              std::string::npos)
        << found.shapeLimit;
  }
  EXPECT_GE(limited, 1) << "or the test tells nothing";
}

} // namespace
} // namespace vorn::mv
