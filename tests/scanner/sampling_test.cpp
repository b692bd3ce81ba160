// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// Scans with more or fewer camera pixels to a projector pixel than the demonstration rig has.
#include <cmath>
#include <string>
#include <utility>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>

#include "sim/map_comparison.hpp"
#include "support/scanner_rig.hpp"

namespace vorn::mv {
namespace {

using scanner::ScannerType;

struct Sampling {
  double ratio; ///< camera pixels to a projector pixel
  ScannerType::Item type;
};

sim::Rig rigOf(Sampling const& sampling) {
  sim::Rig rig = sim::demoRigSampled(sampling.ratio, 2);
  if (sampling.type == ScannerType::Vertical) {
    rig.projector.world_from_proj = sim::Pose::fromDegrees({-12, -198, 18}, {-19.6, -1.4, 0.7});
  }
  return rig;
}

sim::MapComparison scanned(Sampling const& sampling, sim::Scene const& scene = sim::demoScene()) {
  sim::Rig const rig = rigOf(sampling);
  std::vector<cv::Mat> const patterns = test::patternsOf(rig, sampling.type);
  sim::ProjectorView const view(rig.camera, rig.projector, scene);
  sim::Truth const truth = sim::truth(rig.camera, rig.projector, scene);
  sim::Signal const signal =
      sim::signal(rig.camera.sensor, view.expose({patterns.begin(), patterns.begin() + 4}));
  Sl3dScanner scanner = test::scannerOf(rig);
  scanner["ScannerType"] = ScannerType(sampling.type);
  return sim::compareMap(scanner.decode(view.capture(patterns)), truth, signal, sim::truthMask(truth, signal),
                         sampling.type == ScannerType::Horizontal ? sim::MapAxis::Column : sim::MapAxis::Row);
}

class DecodeSampled : public testing::TestWithParam<Sampling> {};

TEST_P(DecodeSampled, IsExactAndComplete) {
  constexpr double errorOverBound = 1.1;
  constexpr double leastComplete = 0.995;
  constexpr double mostOrderErrors = 2e-4;
  sim::MapComparison const outcome = scanned(GetParam());
  ASSERT_GT(outcome.clean, 10000);
  EXPECT_LE(outcome.overBound(), errorOverBound);
  EXPECT_GE(outcome.cleanReturned, leastComplete * outcome.clean);
  EXPECT_LE(outcome.orderErrors, mostOrderErrors * outcome.returned);
}

/// Some 1.5 camera pixels a fringe: of four projector pixels for columns, of eight for rows.
TEST(DecodeTooCoarse, IsRefusedWithWhatWasMeasured) {
  for (Sampling const& sampling :
       {Sampling{0.35, ScannerType::Horizontal}, Sampling{0.175, ScannerType::Vertical}}) {
    try {
      scanned(sampling);
      ADD_FAILURE() << sampling.ratio;
    } catch (Exception const& exception) {
      EXPECT_NE(std::string(exception.what()).find("(decode)"), std::string::npos) << exception.what();
      EXPECT_NE(std::string(exception.what()).find("at least 2.1 are needed"), std::string::npos);
    }
  }
}

/// A wall that the camera sees this many degrees from its front, around a place on the camera's axis or
/// beginning there and leading away.
sim::Object wall(double degrees, double length, double beginning) {
  sim::Object result;
  result.name = "wall";
  result.shape = sim::Rectangle{{length, length}};
  result.material.albedo = 0.8;
  double const angle = degrees * CV_PI / 180;
  cv::Vec3d const middle(beginning * length * std::cos(angle), 0, 560 + beginning * length * std::sin(angle));
  result.world_from_object = sim::Pose::fromDegrees(middle, {0, -degrees, 0});
  return result;
}

/// A plate of some width seen from its front that ends where such a wall begins.
sim::Object plate(double width) {
  sim::Object result;
  result.name = "plate";
  result.shape = sim::Rectangle{{width, 600}};
  result.material.albedo = 0.7;
  result.world_from_object = sim::Pose::fromDegrees({-0.5 * width, 0, 560}, {0, 0, 0});
  return result;
}

constexpr Sampling demo{1.43, ScannerType::Horizontal};

/// Its fringes are narrow, but wide enough.
TEST(DecodeGrazing, AWallSeenFromTheSideIsExactAndComplete) {
  sim::MapComparison const outcome = scanned(demo, sim::Scene({wall(75, 900, 0)}));
  ASSERT_GT(outcome.clean, 10000);
  EXPECT_LE(outcome.overBound(), 1.1);
  EXPECT_GE(outcome.cleanReturned, 0.995 * outcome.clean);
  EXPECT_EQ(outcome.orderErrors, 0);
}

TEST(DecodeGrazing, WhatIsSeenWellIsNotRefusedForTheRest) {
  for (auto const& [width, leastClean] : {std::pair(300.0, 50000), std::pair(50.0, 10000)}) {
    sim::MapComparison const outcome = scanned(demo, sim::Scene({plate(width), wall(85, 600, 0.5)}));
    ASSERT_GT(outcome.clean, leastClean);
    EXPECT_GE(outcome.cleanReturned, 0.995 * outcome.clean);
    EXPECT_LE(outcome.overBound(), 1.1);
    EXPECT_EQ(outcome.orderErrors, 0) << "what is too fine drops out";
  }
}

TEST(DecodeGrazing, WhatIsTooFineEverywhereIsRefused) {
  EXPECT_THROW(scanned(demo, sim::Scene({wall(84, 900, 0)})), Exception);
}

std::vector<Sampling> samplings() {
  std::vector<Sampling> all;
  for (double const ratio : {0.75, 2.0, 5.0}) {
    all.push_back({ratio, ScannerType::Horizontal});
    all.push_back({ratio, ScannerType::Vertical});
  }
  return all;
}

INSTANTIATE_TEST_SUITE_P(Ratios, DecodeSampled, testing::ValuesIn(samplings()), [](auto const& given) {
  return (given.param.type == ScannerType::Horizontal ? "Columns" : "Rows") +
         std::to_string(static_cast<int>(100 * given.param.ratio));
});

} // namespace
} // namespace vorn::mv
