// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/calib/diagnosis.hpp>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <set>

#include <gtest/gtest.h>

#include <vorn/core/exception.hpp>

#include "calib/adjustment_rig.hpp"

namespace vorn::mv {
namespace {

using test::AdjustmentRig;

constexpr int viewCount = 8;

/// A rig of a clean set of views, and what may be done to some of them.
struct DiagnosisTest : testing::Test {
  DiagnosisTest() {
    rig.cameraNoise = 0.006;
    rig.projectorNoise = 0.0018;
    rig.halfColumns = 9;
    rig.halfRows = 6;
    rig.pitch = 18;
  }

  /// The views of a rig that `change` changes from view `first` on.
  std::vector<AdjustmentView> viewsChangedFrom(int first,
                                               std::function<void(AdjustmentRig&)> const& change) const {
    AdjustmentRig changed = rig;
    change(changed);
    auto views = rig.views(viewCount, seed);
    auto const other = changed.views(viewCount, seed + 1000);
    std::copy(other.begin() + first, other.end(), views.begin() + first);
    return views;
  }

  std::vector<Finding> found(std::vector<AdjustmentView> const& views) const {
    Adjustment const adjustment =
        adjustScanner(views, AdjustmentRig::sizeOf(rig.camera), AdjustmentRig::sizeOf(rig.projector));
    return diagnose(views, adjustment);
  }

  AdjustmentRig rig;
  std::uint64_t seed = 1;
};

/// The one finding that is expected.
Finding only(std::vector<Finding> const& findings, FindingCause cause) {
  EXPECT_EQ(findings.size(), 1U);
  for (Finding const& finding : findings) {
    EXPECT_EQ(static_cast<int>(finding.cause), static_cast<int>(cause)) << finding.text;
  }
  return findings.empty() ? Finding() : findings[0];
}

TEST_F(DiagnosisTest, FindsNothingInCleanViews) {
  for (seed = 1; seed <= 3; ++seed) {
    for (Finding const& finding : found(rig.views(viewCount, seed))) {
      ADD_FAILURE() << finding.text << " (" << finding.value << ", limit " << finding.limit << ')';
    }
  }
}

TEST_F(DiagnosisTest, NamesTheViewInWhichTheTargetMoved) {
  // Between the camera's picture and the projector's sequences, by 0.36 mm.
  auto views = rig.views(viewCount);
  cv::RNG rng(9);
  auto const moved = rig.view(
      AdjustmentRig::poses(viewCount)[3] * math::createTransform(cv::Matx33d::eye(), {0.25, 0.25, 0}), rng);
  ASSERT_EQ(moved.objPnts, views[3].objPnts);
  views[3].points1 = moved.points1;
  Finding const finding = only(found(views), FindingCause::WrongView);
  EXPECT_EQ(finding.view, 3);
  EXPECT_TRUE(finding.isGrave);
  EXPECT_NE(finding.text.find("pose_3"), std::string::npos) << finding.text;

  // Columns decoded a period off.
  views = rig.views(viewCount);
  for (cv::Point2f& p : views[6].points1) {
    p.x += 4;
  }
  EXPECT_EQ(only(found(views), FindingCause::WrongView).view, 6);
}

TEST_F(DiagnosisTest, NamesThePoseBeforeWhichADeviceMoved) {
  auto const views = viewsChangedFrom(5, [](AdjustmentRig& changed) {
    changed.cam_from_proj = changed.cam_from_proj * math::createTransform(math::rotY(0.03 * CV_PI / 180), {});
  });
  Finding const finding = only(found(views), FindingCause::DeviceMoved);
  EXPECT_EQ(finding.view, 5);
  EXPECT_NE(finding.text.find("0.03"), std::string::npos) << finding.text;
}

TEST_F(DiagnosisTest, TellsAChangeOfFocusFromAMove) {
  auto const views = viewsChangedFrom(5, [](AdjustmentRig& changed) {
    changed.camera.K(0, 0) *= 1.002;
    changed.camera.K(1, 1) *= 1.002;
  });
  Finding const finding = only(found(views), FindingCause::FocusChanged);
  EXPECT_EQ(finding.view, 5);
  EXPECT_EQ(finding.device, 0);
}

TEST_F(DiagnosisTest, TellsABentTargetFromAMove) {
  double const half = rig.pitch * rig.halfColumns;
  rig.deviation = [half](cv::Vec2d const& dot) { return cv::Vec3d(0, 0, 0.3 * std::pow(dot[0] / half, 2)); };
  Finding const finding = only(found(rig.views(viewCount)), FindingCause::BentTarget);
  EXPECT_FALSE(finding.isGrave) << "it is taken into account";
  EXPECT_NE(finding.text.find("bent by 0.30"), std::string::npos) << finding.text;
}

TEST_F(DiagnosisTest, DoesNotCallDotsInWeakLightWrong) {
  // Of 2 % of the dots columns are read ten times less exactly, and the views say so.
  auto views = rig.views(viewCount);
  cv::RNG rng(5);
  std::size_t number = 0;
  for (AdjustmentView& view : views) {
    for (cv::Point2f& p : view.points1) {
      bool const isWeak = ++number % 50 == 0;
      double const sigma = isWeak ? 10 * rig.projectorNoise : rig.projectorNoise;
      p.x += static_cast<float>(isWeak ? rng.gaussian(sigma) : 0);
      view.sigmas1.emplace_back(cv::Point2d(sigma, rig.projectorNoise));
    }
  }
  EXPECT_TRUE(found(views).empty());
  auto dirty = views;
  for (AdjustmentView& view : dirty) {
    for (cv::Point2f& p : view.points0) {
      p.x += ++number % 100 == 0 ? 0.5F : 0.0F;
    }
  }
  EXPECT_NEAR(only(found(dirty), FindingCause::WrongDots).value, 0.01, 0.0015);
  for (AdjustmentView& view : views) {
    view.sigmas1.clear();
  }
  only(found(views), FindingCause::WrongDots);
}

TEST_F(DiagnosisTest, CountsWrongDots) {
  auto views = rig.views(viewCount);
  std::size_t number = 0;
  for (AdjustmentView& view : views) {
    for (cv::Point2f& p : view.points0) {
      p.x += ++number % 100 == 0 ? 0.5F : 0.0F;
    }
  }
  Finding const finding = only(found(views), FindingCause::WrongDots);
  EXPECT_NEAR(finding.value, 0.01, 0.001);
}

TEST_F(DiagnosisTest, NamesWhatTheViewsLack) {
  auto const causes = [&](std::vector<AdjustmentView> const& views) {
    std::set<FindingCause> result;
    for (Finding const& finding : found(views)) {
      result.insert(finding.cause);
    }
    return result;
  };
  AdjustmentRig const whole = rig;
  rig.halfColumns = 3;
  rig.halfRows = 2;
  EXPECT_EQ(causes(rig.views(viewCount)).count(FindingCause::Coverage), 1U);
  rig = whole;
  auto twice = rig.views(viewCount);
  cv::RNG rng(3);
  twice.push_back(rig.view(AdjustmentRig::poses(viewCount)[2], rng));
  EXPECT_EQ(only(found(twice), FindingCause::SamePose).view, viewCount);
  std::vector<AdjustmentView> upright;
  for (cv::Matx44d pose : AdjustmentRig::poses(viewCount)) {
    cv::Vec3d turn;
    cv::Rodrigues(math::getR3(pose), turn);
    cv::Matx33d R;
    cv::Rodrigues(turn * 0.3, R);
    math::setR3(pose, R);
    upright.push_back(rig.view(pose, rng));
  }
  EXPECT_EQ(causes(upright).count(FindingCause::SmallTilts), 1U);
}

TEST_F(DiagnosisTest, NamesMirroredImages) {
  auto views = rig.views(viewCount);
  Adjustment const adjustment =
      adjustScanner(views, AdjustmentRig::sizeOf(rig.camera), AdjustmentRig::sizeOf(rig.projector));
  for (cv::Point2f& p : views[4].points1) {
    p.x = static_cast<float>(rig.projector.resolution.width - 1) - p.x;
  }
  auto const findings = diagnose(views, adjustment);
  ASSERT_FALSE(findings.empty());
  EXPECT_EQ(static_cast<int>(findings[0].cause), static_cast<int>(FindingCause::Mirrored));
  EXPECT_EQ(findings[0].view, 4);
  EXPECT_EQ(findings[0].device, 1);
}

TEST_F(DiagnosisTest, CallsATargetWhoseAxisPointsUpNotMirrored) {
  auto views = rig.views(viewCount);
  for (AdjustmentView& view : views) {
    for (cv::Point2f& dot : view.objPnts) {
      dot.y = -dot.y;
    }
  }
  for (Finding const& finding : found(views)) {
    ADD_FAILURE() << finding.text;
  }
}

TEST_F(DiagnosisTest, RefusesViewsOfAnotherAdjustment) {
  auto const views = rig.views(viewCount);
  Adjustment const adjustment =
      adjustScanner(views, AdjustmentRig::sizeOf(rig.camera), AdjustmentRig::sizeOf(rig.projector));
  auto const expectRefused = [&](char const* what, std::function<void(std::vector<AdjustmentView>&)> change) {
    auto other = views;
    change(other);
    EXPECT_THROW((void)diagnose(other, adjustment), Exception) << what;
    EXPECT_THROW((void)transformDeviations(other, adjustment), Exception) << what;
  };
  expectRefused("fewer views", [](auto& other) { other.pop_back(); });
  expectRefused("a short list", [](auto& other) { other[2].points1.pop_back(); });
  expectRefused("no second list", [](auto& other) { other[2].points1.clear(); });
  expectRefused("a dot more", [](auto& other) {
    other[2].objPnts.emplace_back(1e4F, 1e4F);
    other[2].points0.emplace_back(100.0F, 100.0F);
    other[2].points1.emplace_back(100.0F, 100.0F);
  });
  expectRefused("another target", [](auto& other) {
    for (AdjustmentView& view : other) {
      for (cv::Point2f& dot : view.objPnts) {
        dot *= 2.0F;
      }
    }
  });
}

TEST_F(DiagnosisTest, TellsTheViewThatDisagreesBesideOneThatACameraAloneSees) {
  auto views = viewsChangedFrom(viewCount - 1, [](AdjustmentRig& changed) {
    changed.cam_from_proj = changed.cam_from_proj * math::createTransform(math::rotY(0.1 * CV_PI / 180), {});
  });
  constexpr float none = std::numeric_limits<float>::quiet_NaN();
  std::fill(views[3].points1.begin(), views[3].points1.end(), cv::Point2f(none, none));
  AdjustmentSettings settings;
  settings.shape = AdjustmentSettings::Shape::Smooth;
  Adjustment const adjustment =
      adjustStereo(views, AdjustmentRig::sizeOf(rig.camera), AdjustmentRig::sizeOf(rig.projector), settings);
  auto const deviations = transformDeviations(views, adjustment);
  ASSERT_EQ(deviations.size(), views.size());
  EXPECT_EQ(deviations[3].chi2, 0.0) << "says nothing of the second camera";
  auto const worst = std::max_element(deviations.begin(), deviations.end(),
                                      [](auto const& a, auto const& b) { return a.chi2 < b.chi2; });
  EXPECT_EQ(worst - deviations.begin(), viewCount - 1);
}

/// Where dots are printed off, the noise of neighbours is not that of the adjustment: what all views gain by
/// other weights is no disagreement of any of them.
TEST_F(DiagnosisTest, CountsOnlyWhatATransformOfItsOwnGains) {
  rig.deviation = [](cv::Vec2d const& dot) {
    cv::RNG rng(static_cast<std::uint64_t>(std::lround(1e4 + dot[0] + 1e3 * dot[1])));
    rng.next();
    return cv::Vec3d(rng.gaussian(0.01), rng.gaussian(0.01), rng.gaussian(0.02));
  };
  auto const views = rig.views(viewCount);
  Adjustment const adjustment =
      adjustScanner(views, AdjustmentRig::sizeOf(rig.camera), AdjustmentRig::sizeOf(rig.projector));
  ASSERT_EQ(static_cast<int>(adjustment.shape.kind), static_cast<int>(TargetShape::Kind::Dots));
  double least = std::numeric_limits<double>::infinity();
  for (TransformDeviation const& deviation : transformDeviations(views, adjustment)) {
    least = std::min(least, deviation.chi2);
  }
  EXPECT_LT(least, 0.8) << "1 by chance, of eight views one less";
}

TEST_F(DiagnosisTest, ProposesPrismTermsForALensThatHasThem) {
  rig.camera.D = {-0.12, 0.09, 6e-4, -4e-4, -0.02, 0, 0, 0, 2e-3, -1e-3, -3e-3, 5e-4};
  Finding const finding = only(found(rig.views(viewCount)), FindingCause::LensModel);
  EXPECT_EQ(finding.device, 0);
}

} // namespace
} // namespace vorn::mv
