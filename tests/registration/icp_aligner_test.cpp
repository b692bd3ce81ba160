// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <opencv2/core.hpp>
#include <set>
#include <vector>

#include <gtest/gtest.h>

#include <vorn/core/system.hpp>
#include <vorn/mv/registration/icp_aligner.hpp>

#include "registration/registered_views.hpp"
#include "support/expect_error.hpp"

namespace vorn::mv {
namespace {

using namespace vorn::test;

cv::Vec3d const middle(7.0, 7.0, 400.0);

class Align : public testing::Test {
protected:
  Align()
      : source(moveAll(truth.inv(), view(bumps, 140, 0.03, 0.02, 0.01, 2)), true),
        target(view(bumps, 140, 0.0, 0.0, 0.01, 1), true) {
    System::set("EnableDebugMode", false);
  }

  void expectAligned(double rms) const {
    EXPECT_LT(cv::norm(errorOf(source.getTransform(), truth, middle)), 0.02);
    EXPECT_LT(rms, 0.016);
    EXPECT_FALSE(source.hasNormals()) << "no normals are left behind";
  }

  cv::Matx44d truth = motionAbout(middle, {0.8, -0.5, 1.0}, {0.3, -0.2, 0.4});
  PointCloud source;
  PointCloud target;
};

TEST_F(Align, BothAlignersMoveThePendingTransform) {
  pc::ICPAligner even;
  pc::ICPAligner2 spread;
  for (pc::IAligner* aligner : {static_cast<pc::IAligner*>(&even), static_cast<pc::IAligner*>(&spread)}) {
    source.setTransform(cv::Matx44d::eye());
    std::vector<unsigned> indices{7};
    double const rms = aligner->apply(source, target, indices);
    expectAligned(rms);
    EXPECT_GE(indices.size(), 200U);
    EXPECT_EQ(std::set<unsigned>(indices.begin(), indices.end()).size(), indices.size());
  }
  EXPECT_EQ(even.getClassName(), "vorn::mv::pc::ICPAligner");
  EXPECT_EQ(spread.getClassName(), "vorn::mv::pc::ICPAligner2");
}

TEST_F(Align, StartsFromAndEndsInPendingTransforms) {
  cv::Matx44d const frame = motionAbout({0.0, 0.0, 0.0}, {20.0, 80.0, -30.0}, {100.0, -50.0, 20.0});
  target.setTransform(frame);
  source.setTransform(frame);
  std::vector<unsigned> indices;
  pc::ICPAligner().apply(source, target, indices);
  EXPECT_LT(cv::norm(errorOf(frame.inv() * source.getTransform(), truth, middle)), 0.02);
  EXPECT_EQ(cv::norm(target.getTransform() - frame), 0.0);
}

TEST_F(Align, MatchesWithGivenSamplesOrItsOwn) {
  std::vector<unsigned> samples = source.getICPSample(800);
  EXPECT_EQ(samples.size(), 800U);
  std::set<unsigned> const given(samples.begin(), samples.end());
  expectAligned(source.icpMatch(target, samples));
  EXPECT_LE(samples.size(), 800U);
  EXPECT_GT(samples.size(), 500U);
  for (unsigned const used : samples) {
    ASSERT_EQ(given.count(used), 1U);
  }
  source.setTransform(cv::Matx44d::eye());
  samples.clear();
  expectAligned(source.icpMatch(target, samples));
  EXPECT_GT(samples.size(), 2000U);
  samples = {1000000};
  expectError([&] { source.icpMatch(target, samples); }, "Sample 1000000");
}

TEST_F(Align, SamplesAreSpreadAndKeepAwayFromBorders) {
  source.icpRemoveBoder(20);
  source.state()(70, 70) = 1;
  std::vector<unsigned> const samples = source.getICPSample(400);
  EXPECT_EQ(samples.size(), 400U);
  std::vector<int> quadrants(4);
  for (unsigned const index : samples) {
    int const row = static_cast<int>(index) / 140;
    int const column = static_cast<int>(index) % 140;
    EXPECT_TRUE(row >= 20 && row < 120 && column >= 20 && column < 120);
    EXPECT_FALSE(row == 70 && column == 70);
    ++quadrants[static_cast<std::size_t>(row / 70 * 2 + column / 70)];
  }
  for (int const count : quadrants) {
    EXPECT_NEAR(count, 100, 30);
  }
  expectError([&] { source.getICPSample(0); }, "samples is 0");
}

TEST_F(Align, SamplesHoldAGrooveInAPlane) {
  // One cell in thirty lies in the groove, whose walls alone hold the plane across.
  cv::Mat_<cv::Vec3f> points(150, 150);
  for (int row = 0; row < 150; ++row) {
    for (int column = 0; column < 150; ++column) {
      double const x = 0.1 * column;
      points(row, column) = cv::Vec3d(x, 0.1 * row, 300.0 - 0.5 * std::exp(-std::pow((x - 7.0) / 0.25, 2.0)));
    }
  }
  PointCloud grooved(points, true);
  pc::ICPAligner2 aligner;
  expectError([&] { aligner.getSamples(grooved, 100); }, "has no normals");
  NormalSettings settings;
  settings.windowRadius = 2;
  grooved.calcNormals(settings);
  aligner["SampleRadius"] = 0.5;
  aligner["AngledSampleRadius"] = 0.2;
  std::vector<unsigned> const samples = aligner.getSamples(grooved, 300);
  ASSERT_LE(samples.size(), 300U);
  ASSERT_GT(samples.size(), 200U);
  auto const onWalls = [&](std::vector<unsigned> const& indices) {
    double count = 0.0;
    for (unsigned const index : indices) {
      count +=
          std::abs(grooved.normals()(static_cast<int>(index) / 150, static_cast<int>(index) % 150)[0]) > 0.4F
              ? 1.0
              : 0.0;
    }
    return count / static_cast<double>(indices.size());
  };
  EXPECT_LT(onWalls(grooved.getICPSample(300)), 0.06);
  EXPECT_GT(onWalls(samples), 0.3);
}

TEST_F(Align, RefusesWhatHasNoPlaceAndChangesNothing) {
  PointCloud away(view(bumps, 140, 60.0, 0.0, 0.01, 1), true);
  std::vector<unsigned> indices{3};
  expectError([&] { pc::ICPAligner().apply(source, away, indices); }, "samples have a place on the target");
  EXPECT_EQ(indices, (std::vector<unsigned>{3}));
  EXPECT_EQ(cv::norm(source.getTransform() - cv::Matx44d::eye()), 0.0);
  expectError([&] { source.icpMatch(away, indices = std::vector<unsigned>{}); }, "fewer than 50");
  source.setTransform(cv::Matx44d::diag({1.02, 1.02, 1.02, 1}));
  expectError([&] { pc::ICPAligner().apply(source, target, indices); }, "no rigid motion");
  PointCloud empty;
  expectError([&] { pc::ICPAligner2().apply(empty, target, indices); }, "0 of 0 samples");
}

TEST(AlignerProperties, AreReadAtEveryRun) {
  pc::ICPAligner2 aligner;
  EXPECT_THROW(aligner["MaxNormalAngle"] = 91.0, Exception);
  aligner["MinSampleCount"] = 50000;
  PointCloud source(view(bumps, 60, 0.0, 0.0, 0.01, 2), true);
  PointCloud target(view(bumps, 60, 0.0, 0.0, 0.01, 1), true);
  std::vector<unsigned> indices;
  expectError([&] { aligner.apply(source, target, indices); }, "fewer than 50000");
  pc::ICPAligner2 const copy = aligner;
  aligner["MinSampleCount"] = 100;
  EXPECT_LT(aligner.apply(source, target, indices), 0.02);
  EXPECT_EQ(copy.getProperty("MinSampleCount").getValue().toInt(), 50000) << "copies are values";
}

} // namespace
} // namespace vorn::mv
