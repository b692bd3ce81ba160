// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// Scans with more or fewer camera pixels to a projector pixel than the demonstration rig has.
#include <string>

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

sim::MapComparison scanned(Sampling const& sampling) {
  sim::Rig const rig = rigOf(sampling);
  sim::Scene const scene = sim::demoScene();
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
      EXPECT_NE(std::string(exception.what()).find("at least 1.9 are needed"), std::string::npos);
    }
  }
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
