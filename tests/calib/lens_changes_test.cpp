// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

/// What a diagnosis tells of a single camera's lens, and of two cameras'.

#include <algorithm>
#include <cmath>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <vorn/mv/calib/diagnosis.hpp>
#include <vorn/mv/calib/laser_adjustment.hpp>

#include "calib/adjustment_rig.hpp"

namespace vorn::mv {
namespace {

using test::AdjustmentRig;
using Change = std::function<void(AdjustmentRig&)>;

constexpr int viewCount = 8;

struct LensChanges : testing::Test {
  LensChanges() {
    rig.cameraNoise = 0.006;
    rig.halfColumns = 9;
    rig.halfRows = 6;
    rig.pitch = 18;
  }

  /// One camera's views of a rig, of which some are from a rig that `change` changes.
  std::vector<AdjustmentView> views(std::vector<int> const& changedViews = {}, Change const& change = {},
                                    std::uint64_t seed = 1) const {
    auto result = rig.views(viewCount, seed);
    if (change) {
      AdjustmentRig changed = rig;
      change(changed);
      auto const others = changed.views(viewCount, seed + 1000);
      for (int const view : changedViews) {
        result[static_cast<std::size_t>(view)] = others[static_cast<std::size_t>(view)];
      }
    }
    for (AdjustmentView& view : result) {
      view.points1.clear();
    }
    return result;
  }

  std::vector<Finding> found(std::vector<AdjustmentView> const& given) const {
    return diagnose(given, adjustCamera(given, AdjustmentRig::sizeOf(rig.camera)));
  }

  AdjustmentRig rig;
};

std::vector<int> from(int first) {
  std::vector<int> result;
  for (int i = first; i < viewCount; ++i) {
    result.push_back(i);
  }
  return result;
}

Change zoomed(double factor) {
  return [factor](AdjustmentRig& rig) {
    rig.camera.K(0, 0) *= factor;
    rig.camera.K(1, 1) *= factor;
  };
}

/// As a detector reads a mirrored image of a target with corner marks: columns for rows.
void mirror(AdjustmentView& view, cv::Size const& size, bool isUpsideDown) {
  for (cv::Point2f& p : view.points0) {
    (isUpsideDown ? p.y : p.x) =
        static_cast<float>(isUpsideDown ? size.height : size.width) - 1 - (isUpsideDown ? p.y : p.x);
  }
  for (cv::Point2f& dot : view.objPnts) {
    std::swap(dot.x, dot.y);
  }
}

std::string textOf(std::vector<Finding> const& findings) {
  std::string text;
  for (Finding const& finding : findings) {
    text += finding.text + " (" + std::to_string(finding.value) + ", limit " + std::to_string(finding.limit) +
            ")\n";
  }
  return text;
}

/// The causes with their views.
std::vector<std::pair<std::string, int>> causesOf(std::vector<Finding> const& findings) {
  std::vector<std::pair<std::string, int>> causes;
  for (Finding const& finding : findings) {
    causes.emplace_back(nameOf(finding.cause), finding.view);
  }
  return causes;
}

using Causes = std::vector<std::pair<std::string, int>>;

TEST_F(LensChanges, SoundViewsOfOneCameraHaveNone) {
  for (std::uint64_t seed = 1; seed <= 4; ++seed) {
    auto const findings = found(views({}, {}, seed));
    EXPECT_TRUE(findings.empty()) << textOf(findings);
  }
}

TEST_F(LensChanges, AnotherFocusOrZoomIsNamedWithItsView) {
  for (auto const& [factor, first] : {std::pair(1.002, 5), std::pair(0.998, 2), std::pair(1.01, 4),
                                      std::pair(0.95, 6), std::pair(1.05, 3)}) {
    auto const findings = found(views(from(first), zoomed(factor)));
    ASSERT_EQ(causesOf(findings), (Causes{{"focusChanged", first}})) << factor << ' ' << textOf(findings);
    EXPECT_EQ(findings[0].device, 0);
    EXPECT_TRUE(findings[0].isGrave);
    EXPECT_NE(findings[0].text.find("before pose_" + std::to_string(first)), std::string::npos);
  }
}

TEST_F(LensChanges, AnotherImageSectionIsAChangeToo) {
  // A lens that is taken off and put on again looks elsewhere.
  auto const findings = found(views(from(4), [](AdjustmentRig& changed) { changed.camera.K(0, 2) += 6; }));
  EXPECT_EQ(causesOf(findings), (Causes{{"focusChanged", 4}})) << textOf(findings);
}

TEST_F(LensChanges, MirroredViewsOfOneCameraAreNamed) {
  for (std::vector<int> const& mirrored : std::vector<std::vector<int>>{{2}, {7}, {1, 4}, {0, 3, 6}}) {
    for (bool const isUpsideDown : {false, true}) {
      AdjustmentRig const whole = rig;
      rig.camera.K(1, 2) = isUpsideDown ? 390 : whole.camera.K(1, 2);
      auto given = views();
      Causes expected;
      for (int const view : mirrored) {
        mirror(given[static_cast<std::size_t>(view)], rig.camera.resolution, isUpsideDown);
        expected.emplace_back("mirrored", view);
      }
      auto const findings = found(given);
      EXPECT_EQ(causesOf(findings), expected) << isUpsideDown << ' ' << textOf(findings);
      rig = whole;
    }
  }
}

TEST_F(LensChanges, OtherFaultsOfOneCameraAreNotTakenForItsLens) {
  double const half = rig.pitch * rig.halfColumns;
  auto const bent = [half](cv::Vec2d const& dot) {
    return cv::Vec3d(0, 0, 0.3 * std::pow(dot[0] / half, 2));
  };
  auto const inOneView = found(views({3}, [&](AdjustmentRig& changed) { changed.deviation = bent; }));
  ASSERT_FALSE(inOneView.empty());
  EXPECT_EQ(causesOf({inOneView.back()}), (Causes{{"wrongView", 3}})) << textOf(inOneView);
  auto const ofAnotherZoom = found(views({5}, zoomed(1.01)));
  EXPECT_EQ(causesOf(ofAnotherZoom), (Causes{{"wrongView", 5}})) << textOf(ofAnotherZoom);
  AdjustmentRig const whole = rig;
  rig.deviation = bent;
  auto const inAll = found(views());
  EXPECT_EQ(causesOf(inAll), (Causes{{"bentTarget", -1}})) << textOf(inAll);
  rig = whole;
  rig.camera.D = {-0.12, 0.09, 6e-4, -4e-4, -0.02, 0, 0, 0, 4e-3, -2e-3, -6e-3, 1e-3};
  auto const ofPrism = found(views());
  EXPECT_EQ(causesOf(ofPrism), (Causes{{"lensModel", -1}})) << textOf(ofPrism);
}

TEST_F(LensChanges, ACameraThatIsHeldIsNotTested) {
  auto const given = views(from(4), zoomed(1.002));
  CameraModel const held = rig.camera.model();
  AdjustmentSettings settings;
  settings.holdCamera0 = true;
  for (Finding const& finding : diagnose(given, adjustCamera(given, held, settings))) {
    EXPECT_NE(nameOf(finding.cause), "focusChanged") << finding.text;
  }
}

/// Two cameras whose errors have nothing to do with each other.
std::vector<AdjustmentView> viewsOfTwo(AdjustmentRig rig, std::uint64_t seed) {
  cv::RNG rng(seed);
  double const noise = rig.cameraNoise;
  rig.cameraNoise = 0;
  rig.projectorNoise = 0;
  auto result = rig.views(viewCount, seed);
  for (AdjustmentView& view : result) {
    for (std::vector<cv::Point2f>* const points : {&view.points0, &view.points1}) {
      for (cv::Point2f& p : *points) {
        p += cv::Point2f(cv::Point2d(rng.gaussian(noise), rng.gaussian(noise)));
      }
    }
  }
  return result;
}

TEST_F(LensChanges, OfTwoCamerasTheOneIsNamedThatChanged) {
  struct Case {
    int first;
    Change change;
    Causes causes;
    int device;
  };
  auto const turned = [](AdjustmentRig& changed) {
    changed.cam_from_proj = changed.cam_from_proj * math::createTransform(math::rotY(0.05 * CV_PI / 180), {});
  };
  auto const secondZoomed = [](AdjustmentRig& changed) {
    changed.projector.K(0, 0) *= 1.002;
    changed.projector.K(1, 1) *= 1.002;
  };
  for (Case const& given :
       {Case{0, {}, {}, -1}, Case{5, zoomed(1.002), {{"focusChanged", 5}}, 0},
        Case{3, secondZoomed, {{"focusChanged", 3}}, 1}, Case{4, turned, {{"deviceMoved", 4}}, -1}}) {
    auto both = viewsOfTwo(rig, 1);
    AdjustmentRig changed = rig;
    if (given.change) {
      given.change(changed);
    }
    auto const others = viewsOfTwo(changed, 2);
    std::copy(others.begin() + given.first, others.end(), both.begin() + given.first);
    auto const findings = diagnose(
        both, adjustStereo(both, AdjustmentRig::sizeOf(rig.camera), AdjustmentRig::sizeOf(rig.projector)));
    ASSERT_EQ(causesOf(findings), given.causes) << textOf(findings);
    if (!findings.empty()) {
      EXPECT_EQ(findings[0].device, given.device) << textOf(findings);
    }
  }
}

TEST_F(LensChanges, OfALaserScannersCameraTheyAreNamedToo) {
  // Lines on the target of a plane that the camera sees; the dots alone tell of the lens.
  auto const withLines = [&](std::vector<AdjustmentView> const& dots) {
    std::vector<LaserAdjustmentView> result;
    auto const poses = AdjustmentRig::poses(viewCount);
    for (std::size_t i = 0; i < dots.size(); ++i) {
      cv::Vec3d const n = cv::normalize(cv::Vec3d(0.05, 0.9, 0.45));
      cv::Vec3d const inTarget = math::getR3(poses[i]).t() * n;
      double const d = 230 - n.dot(math::getT3(poses[i]));
      LaserAdjustmentView view{dots[i], {{}}};
      for (double x = -80; x <= 80; x += 2) {
        cv::Vec2d const place(x, (d - inTarget[0] * x) / inTarget[1]);
        cv::Vec2d const pixel = AdjustmentRig::imageOf(rig.camera, rig.inCamera(place, poses[i]));
        if (std::abs(place[1]) < 100 && AdjustmentRig::isInside(rig.camera, pixel)) {
          view.lines[0].emplace_back(cv::Point2d(pixel));
        }
      }
      result.push_back(std::move(view));
    }
    return result;
  };
  auto const found = [&](std::vector<AdjustmentView> const& dots) {
    LaserAdjustment const lasers = adjustLasers(withLines(dots), AdjustmentRig::sizeOf(rig.camera));
    return diagnose(dots, lasers.camera);
  };
  EXPECT_TRUE(found(views()).empty());
  EXPECT_EQ(causesOf(found(views(from(5), zoomed(1.002)))), (Causes{{"focusChanged", 5}}));
  auto mirrored = views();
  mirror(mirrored[2], rig.camera.resolution, false);
  EXPECT_EQ(causesOf(found(mirrored)), (Causes{{"mirrored", 2}}));
}

} // namespace
} // namespace vorn::mv
