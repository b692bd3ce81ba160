// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sim/faults.hpp"

#include <cmath>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>

#include <vorn/mv/sl/patterns.hpp>

#include "sim/demo.hpp"
#include "sim/sensor.hpp"

namespace vorn::sim {
namespace {

Campaign campaignOf(std::string const& words, int divisor = 8) {
  Campaign campaign = plannedCampaign(demoRig(divisor), demoTarget(), demoTargetPoses());
  if (!words.empty()) {
    spoil(campaign, faultOf(words));
  }
  return campaign;
}

struct Patterns {
  std::vector<cv::Mat> columns;
  std::vector<cv::Mat> rows;

  Patterns() {
    cv::Size size = demoRig(8).projector.device.resolution();
    mv::generate_ps4_patterns(columns, rows, size);
  }
};

ViewImages viewOf(Campaign const& campaign, std::size_t view) {
  static Patterns const patterns;
  RenderOptions coarse;
  coarse.supersample = 1;
  return taken(campaign.views[view], patterns.columns, patterns.rows, 100, coarse);
}

bool areEqual(std::vector<cv::Mat> const& a, std::vector<cv::Mat> const& b) {
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (cv::norm(a[i], b[i]) != 0.0) {
      return false;
    }
  }
  return a.size() == b.size();
}

bool isEqual(ViewImages const& a, ViewImages const& b) {
  return areEqual({a.target}, {b.target}) && areEqual(a.columns, b.columns) && areEqual(a.rows, b.rows);
}

TEST(Faults, EveryKindChangesTheViewsThatItSpoilsAndNoOthers) {
  Campaign const sound = campaignOf("");
  std::vector<ViewImages> clean;
  for (std::size_t view = 0; view < 4; ++view) {
    clean.push_back(viewOf(sound, view));
  }
  for (FaultKind const& kind : faultKinds()) {
    Fault fault = faultOf(kind.name);
    fault.view = 2;
    if (kind.name == "dirty-dots") {
      fault.strength = 50; // at one ray for each of few pixels most specks are not met
    }
    Campaign spoiled = campaignOf("");
    spoil(spoiled, fault);
    EXPECT_FALSE(isEqual(viewOf(spoiled, 2), clean[2])) << kind.name;
    EXPECT_TRUE(isEqual(viewOf(spoiled, 1), clean[1])) << kind.name;
    bool const isFollowing = kind.reach == FaultReach::Following;
    EXPECT_EQ(isEqual(viewOf(spoiled, 3), clean[3]), !isFollowing) << kind.name;
  }
}

TEST(Faults, WordsAreRefusedByWhatIsWrongWithThem) {
  EXPECT_NEAR(faultOf("bent-target=-1.5").strength, -1.5, 0);
  EXPECT_EQ(faultOf("moved-before=0.5@7").view, 7);
  for (auto const& [words, said] :
       {std::pair("bent", "there are projector-turned"), std::pair("gamma=", "where a number"),
        std::pair("gamma=2x", "where a number"), std::pair("gamma=9", "from 0.2 to 5"),
        std::pair("gamma=nan", "where a number"), std::pair("mixed-view=1", "no strength"),
        std::pair("gamma@1.5", "whole number"), std::pair("gamma@-1", "whole number")}) {
    try {
      (void)faultOf(words);
      ADD_FAILURE() << words;
    } catch (std::invalid_argument const& e) {
      EXPECT_NE(std::string(e.what()).find(said), std::string::npos) << words << ": " << e.what();
    }
  }
  EXPECT_THROW((void)campaignOf("moved-before@12"), std::invalid_argument);
  EXPECT_THROW((void)campaignOf("projector-turned@13"), std::invalid_argument);
}

TEST(Faults, WhatFollowsReachesTheScanAndWhatIsOfViewsDoesNot) {
  auto const turnOf = [](Campaign const& campaign) {
    cv::Vec3d turn;
    cv::Rodrigues(demoRig(8).projector.world_from_proj.rotation.t() *
                      campaign.scanRig.projector.world_from_proj.rotation,
                  turn);
    return cv::norm(turn) * 180 / CV_PI;
  };
  EXPECT_NEAR(turnOf(campaignOf("projector-turned=0.5@12")), 0.5, 1e-9);
  EXPECT_TRUE(isEqual(viewOf(campaignOf("projector-turned=0.5@12"), 11), viewOf(campaignOf(""), 11)));
  EXPECT_EQ(campaignOf("gamma").scanRig.projector.gamma, 2.2);
  EXPECT_EQ(campaignOf("gamma@3").scanRig.projector.gamma, 1.0);
}

TEST(Faults, ABentTargetIsSeenWhereItsTruthSaysItIs) {
  Campaign const campaign = campaignOf("bent-target=12");
  PlannedView const& view = campaign.views[1];
  Object const object = targetObject(view.target, view.atTarget);
  Scene const scene({object});
  int seen = 0;
  for (DotTruth const& dot : dotTruth(view.target, view.atTarget, view.rig.camera, nullptr)) {
    SurfacePoint point;
    ASSERT_TRUE(scene.trace({{0, 0, 0}, dot.x_in_world}, point));
    EXPECT_NEAR(cv::norm(point.x_in_world - dot.x_in_world), 0, 1e-6);
    EXPECT_NEAR(point.uv[0], dot.pattern.x, 1e-6);
    seen += std::abs(dot.index.x) == 10 ? 1 : 0;
    if (std::abs(dot.index.x) == 10) {
      EXPECT_NEAR((view.atTarget.inverse() * dot.x_in_world)[2], 12, 1e-9);
    }
  }
  EXPECT_EQ(seen, 30);
}

TEST(Faults, MirroredImagesAreThoseOfTheCleanViewTurnedOver) {
  cv::Mat turned;
  cv::flip(viewOf(campaignOf(""), 3).columns[1], turned, 1);
  EXPECT_EQ(cv::norm(turned, viewOf(campaignOf("mirrored-camera"), 3).columns[1]), 0.0);
}

TEST(Faults, ATargetThatCreepsMovesFromImageToImage) {
  ViewImages const images = viewOf(campaignOf("moved-during=20"), 3);
  ViewImages const clean = viewOf(campaignOf(""), 3);
  EXPECT_EQ(cv::norm(images.target, clean.target), 0.0);
  EXPECT_LT(cv::norm(images.columns[0], clean.columns[0]), cv::norm(images.rows[7], clean.rows[7]));
}

TEST(Faults, BandsRunAcrossAnImageAndStandElsewhereInTheNext) {
  Sensor sensor = demoRig(8).camera.sensor;
  sensor.fullWell = 1e9;
  sensor.bandDepth = 0.1;
  sensor.bandRows = 40;
  cv::Mat const even(120, 50, CV_32F, cv::Scalar(153));
  cv::Mat first;
  cv::Mat second;
  cv::reduce(readOut(sensor, even, 0), first, 1, cv::REDUCE_AVG, CV_64F);
  cv::reduce(readOut(sensor, even, 1), second, 1, cv::REDUCE_AVG, CV_64F);
  double least = 0;
  double most = 0;
  cv::minMaxLoc(first, &least, &most);
  EXPECT_NEAR(most - least, 2 * 0.1 * (153 - sensor.blackLevel), 1.5);
  EXPECT_LT(cv::norm(first.rowRange(0, 80), first.rowRange(40, 120), cv::NORM_INF), 1.5);
  EXPECT_GT(cv::norm(first, second, cv::NORM_INF), 3);
}

TEST(Faults, ALensWithPrismTermsIsThatOfOpenCvAndItsOwnInverse) {
  Device const device = demoRig().camera.device.withPrism({2e-3, -1e-3, -3e-3, 5e-4});
  std::vector<double> const D{-0.21, 0.14, 8e-4, -6e-4, -0.03, 0, 0, 0, 2e-3, -1e-3, -3e-3, 5e-4};
  for (cv::Vec3d const& point :
       {cv::Vec3d(200, -140, 500), cv::Vec3d(-180, 150, 520), cv::Vec3d(3, 4, 600)}) {
    std::vector<cv::Point2d> expected;
    cv::projectPoints(std::vector<cv::Point3d>{cv::Point3d(point)}, cv::Vec3d(), cv::Vec3d(), device.matrix(),
                      D, expected);
    auto const pixel = device.project(point);
    ASSERT_TRUE(pixel.has_value());
    EXPECT_NEAR(cv::norm(*pixel - expected[0]), 0, 1e-9);
    EXPECT_NEAR(cv::norm(device.ray(*pixel) - point / point[2]), 0, 1e-11);
  }
}

} // namespace
} // namespace vorn::sim
