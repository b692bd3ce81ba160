// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/calibration/adjustment_plots.hpp"

#include <cmath>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

namespace vorn::tools {
namespace {

/// Two views, with one between them that is not used, of a target whose dots lie 1, 2, ... mm away.
mv::Calibration calibration() {
  mv::Calibration result;
  result.report.devices = {{"camera", {800, 600}, 0.1, 0, true}, {"projector", {400, 240}, 0.1, 0, true}};
  mv::Adjustment adjustment;
  adjustment.shape.kind = mv::TargetShape::Kind::Smooth;
  for (int i = 0; i < 6; ++i) {
    adjustment.shape.objPnts.emplace_back(static_cast<float>(10 * (i % 3)), static_cast<float>(10 * (i / 3)));
    adjustment.shape.deviations.emplace_back(0, 0, i + 1);
  }
  result.report.adjustment = adjustment;
  result.report.deviations.resize(2);
  result.report.deviations[0].turn = {0, 0.003 * CV_PI / 180, 0.004 * CV_PI / 180};
  result.report.deviations[0].shift = {0.002, -0.001, 0.002};
  result.report.deviations[1].shift = {0, 0, 0.007};
  for (char const* name : {"first", "blind", "last"}) {
    mv::CalibratedView view;
    view.name = name;
    view.devices.resize(2);
    view.devices[0].imgPnts = {{50, 50}, {60, 60}, {799, 599}, {801, 20}};
    view.devices[1].imgPnts = {{-1, 3}, {399, 1}};
    result.views.push_back(view);
  }
  result.views[1].reason = "no target";
  return result;
}

TEST(AdjustmentPlots, ShowWhereEachDevicesImageHoldsDots) {
  std::vector<mv::Plot> const plots = adjustmentPlots(calibration(), mv::Ground::Light);
  ASSERT_EQ(plots.size(), 4U);
  EXPECT_EQ(plots[0].title, "camera: points in 2 of 48 parts of the image");
  EXPECT_EQ(plots[0].heat.at<float>(0, 0), 4.0F) << "two dots in each of two views";
  EXPECT_EQ(plots[0].heat.at<float>(5, 7), 2.0F);
  EXPECT_EQ(plots[1].title, "projector: points in 1 of 48 parts of the image");
  EXPECT_EQ(plots[1].heat.at<float>(0, 7), 2.0F);
  EXPECT_TRUE(std::isnan(plots[1].heat.at<float>(0, 0))) << "beside the image";
}

TEST(AdjustmentPlots, ShowTheTargetsShapeAndWhatViewsDisagreeBy) {
  std::vector<mv::Plot> const plots = adjustmentPlots(calibration(), mv::Ground::Dark);
  ASSERT_EQ(plots.size(), 4U);
  cv::Mat_<float> const heights = (cv::Mat_<float>(2, 3) << 1, 2, 3, 4, 5, 6);
  EXPECT_EQ(cv::norm(plots[2].heat, heights, cv::NORM_INF), 0);
  ASSERT_EQ(plots[3].series.size(), 2U);
  std::vector<double> const& turns = plots[3].series[0].y;
  std::vector<double> const& shifts = plots[3].series[1].y;
  ASSERT_EQ(turns.size(), 2U);
  EXPECT_NEAR(turns[0], 5, 1e-9) << "thousandths of a degree";
  EXPECT_NEAR(shifts[0], 3, 1e-9) << "micrometres";
  EXPECT_NEAR(shifts[1], 7, 1e-9);
  EXPECT_EQ(plots[3].series[1].x, (std::vector<double>{0, 2})) << "at its place among all views";
  EXPECT_EQ(plots[3].x.labels.size(), 3U);

  mv::Calibration plain = calibration();
  plain.report.adjustment->shape.kind = mv::TargetShape::Kind::Flat;
  plain.report.deviations.clear();
  EXPECT_EQ(adjustmentPlots(plain, mv::Ground::Light).size(), 2U);
}

} // namespace
} // namespace vorn::tools
