// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/calibration/residual_plots.hpp"

#include <cmath>
#include <cstddef>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <vorn/mv/measure/plot.hpp>

namespace vorn::tools {
namespace {

/// Views of 300 dots all over an image of 1000 x 600 pixels, whose errors scatter by 0.01 px; the last view's
/// twice as much. In the right upper corner all dots are off by 0.02 px to the left beside that.
mv::Calibration calibration(int views) {
  mv::Calibration result;
  result.report.devices = {{"camera", {1000, 600}, 0.014, 0, true}};
  cv::RNG random(20);
  for (int v = 0; v < views; ++v) {
    mv::CalibratedView view;
    view.name = "view_" + std::to_string(v);
    view.devices.resize(1);
    double const sigma = v + 1 == views ? 0.02 : 0.01;
    for (int i = 0; i < 300; ++i) {
      cv::Point2d const at(random.uniform(0.0, 999.0), random.uniform(0.0, 599.0));
      double const off = at.x > 800 && at.y < 200 ? -0.02 : 0.0;
      view.devices[0].imgPnts.emplace_back(at);
      view.devices[0].residuals.emplace_back(
          cv::Point2d(random.gaussian(sigma) + off, random.gaussian(sigma)));
    }
    result.views.push_back(view);
  }
  return result;
}

TEST(ResidualPlots, TellSystematicErrorsFromScatter) {
  mv::Calibration const views = calibration(20);
  mv::PlotSeries const systematic = meanErrorPlots(views, mv::Ground::Light).at(0).series.at(1);
  EXPECT_GE(systematic.x.size(), 20U) << "of some 26 cells in that corner";
  for (std::size_t i = 0; i < systematic.x.size(); ++i) {
    EXPECT_GT(systematic.x[i], 780) << "a cell's width at most beside the corner";
    EXPECT_LT(systematic.y[i], 220);
    EXPECT_NEAR(systematic.dx[i], -0.02, 0.012) << "the mean of its dots";
    EXPECT_NEAR(systematic.dy[i], 0, 0.012);
  }

  // Without what is systematic all is scatter, and every dot is in some cell.
  mv::Calibration even = calibration(20);
  for (mv::CalibratedView& view : even.views) {
    for (std::size_t i = 0; i < view.devices[0].imgPnts.size(); ++i) {
      cv::Point2f const at = view.devices[0].imgPnts[i];
      view.devices[0].residuals[i].x += at.x > 800 && at.y < 200 ? 0.02F : 0.0F;
    }
  }
  mv::Plot const plot = meanErrorPlots(even, mv::Ground::Light).at(0);
  EXPECT_TRUE(plot.series.at(1).x.empty());
  EXPECT_GT(plot.series.at(0).x.size(), 300U);

  even.views.resize(1);
  even.views[0].devices[0].imgPnts.resize(1);
  even.views[0].devices[0].residuals.resize(1);
  EXPECT_EQ(meanErrorPlots(even, mv::Ground::Light).at(0).series.at(0).x.size(), 1U)
      << "one dot alone: nothing tells its scatter";
}

TEST(ResidualPlots, ShowTheWorstViewsInTheirOrder) {
  mv::Calibration views = calibration(5);
  for (cv::Point2f& residual : views.views[1].devices[0].residuals) {
    residual *= 5;
  }
  views.views[2].reason = "no target";
  views.views[4].devices[0].strayPnts = {{3, 4}, {5, 6}};
  std::vector<mv::Plot> const plots = viewErrorPlots(views, mv::Ground::Dark, 2);
  ASSERT_EQ(plots.size(), 2U);
  EXPECT_EQ(plots[0].title.substr(0, 14), "view_1, camera");
  EXPECT_EQ(plots[1].title.substr(0, 14), "view_4, camera");
  ASSERT_EQ(plots[1].series.size(), 2U);
  EXPECT_EQ(plots[1].series[1].y, (std::vector<double>{4, 6})) << "dots that were left out";
  EXPECT_EQ(viewErrorPlots(views, mv::Ground::Dark, 12).size(), 4U) << "not the one without a target";

  mv::Plot const errors = errorsByViewPlot(views, mv::Ground::Dark);
  ASSERT_EQ(errors.series.size(), 1U);
  EXPECT_EQ(errors.series[0].x, (std::vector<double>{0, 1, 3, 4})) << "at their places among all views";
  EXPECT_NEAR(errors.series[0].y[2], 0.01 * std::sqrt(2.0), 0.002);
}

} // namespace
} // namespace vorn::tools
