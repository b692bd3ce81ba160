// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/calibration/adjustment_plots.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>

#include <opencv2/core.hpp>

#include "tools/calibration/plot_range.hpp"

namespace vorn::tools {

using mv::CalibratedView;
using mv::Calibration;

namespace {

constexpr float empty = std::numeric_limits<float>::quiet_NaN();

/// How many dots each part of a device's image holds, over all used views: the parts that coverage counts.
mv::Plot coveragePlot(Calibration const& calibration, std::size_t device, mv::Ground ground) {
  constexpr int cols = 8;
  constexpr int rows = 6;
  mv::DeviceReport const& report = calibration.report.devices[device];
  mv::Plot plot;
  plot.ground = ground;
  plot.isYDown = true;
  plot.size = {900, 500};
  plot.heat = cv::Mat(rows, cols, CV_32F, cv::Scalar(empty));
  plot.heatScale = {"points", "", 0, std::numeric_limits<double>::quiet_NaN()};
  plot.x.title = "eighths of the image's width";
  plot.y.title = "sixths of its height";
  int held = 0;
  for (CalibratedView const& view : calibration.views) {
    for (cv::Point2f const& p : view.isUsed() ? view.devices[device].imgPnts : std::vector<cv::Point2f>()) {
      int const col = cvFloor(p.x * cols / static_cast<float>(report.resolution.width));
      int const row = cvFloor(p.y * rows / static_cast<float>(report.resolution.height));
      if (col >= 0 && col < cols && row >= 0 && row < rows) {
        float& count = plot.heat.at<float>(row, col);
        held += std::isnan(count) ? 1 : 0;
        count = std::isnan(count) ? 1 : count + 1;
      }
    }
  }
  plot.title = report.name + ": points in " + std::to_string(held) + " of " + std::to_string(cols * rows) +
               " parts of the image";
  return plot;
}

/// The places of dots along one axis, by number: 0 for the least.
std::vector<float> places(std::vector<cv::Point2f> const& dots, float cv::Point2f::*axis) {
  std::set<float> values;
  for (cv::Point2f const& dot : dots) {
    values.insert(dot.*axis);
  }
  return {values.begin(), values.end()};
}

/// How high each dot of the target lies.
mv::Plot shapePlot(mv::TargetShape const& shape, mv::Ground ground) {
  std::vector<float> const xs = places(shape.objPnts, &cv::Point2f::x);
  std::vector<float> const ys = places(shape.objPnts, &cv::Point2f::y);
  auto const indexOf = [](std::vector<float> const& values, float value) {
    return static_cast<int>(std::lower_bound(values.begin(), values.end(), value) - values.begin());
  };
  mv::Plot plot;
  plot.ground = ground;
  plot.isYDown = true;
  plot.isEqualScale = true;
  plot.size = {900, 500};
  plot.title = "the target's shape, as the views show it";
  plot.x.title = "point across";
  plot.y.title = "point down";
  plot.heat = cv::Mat(static_cast<int>(ys.size()), static_cast<int>(xs.size()), CV_32F, cv::Scalar(empty));
  for (std::size_t i = 0; i < shape.objPnts.size(); ++i) {
    plot.heat.at<float>(indexOf(ys, shape.objPnts[i].y), indexOf(xs, shape.objPnts[i].x)) =
        static_cast<float>(shape.deviations[i].z);
  }
  plot.heatScale.title = "away from the camera";
  plot.heatScale.unit = "mm";
  return plot;
}

/// How far each view shows the devices elsewhere to each other than all together.
mv::Plot agreementPlot(Calibration const& calibration, mv::Ground ground) {
  constexpr double degrees = 180.0 / CV_PI;
  constexpr double thousandths = 1000;
  mv::Plot plot;
  plot.ground = ground;
  plot.size = {900, 420};
  plot.title = "where each view shows the second device, against all views";
  plot.y.title = "deviation";
  mv::PlotSeries turn;
  turn.name = "turn, thousandths of a degree";
  turn.size = 5;
  mv::PlotSeries shift;
  shift.name = "shift, micrometres";
  shift.size = 5;
  std::size_t number = 0;
  for (std::size_t i = 0; i < calibration.views.size(); ++i) {
    plot.x.labels.push_back(calibration.views[i].name);
    if (calibration.views[i].isUsed()) {
      mv::TransformDeviation const& deviation = calibration.report.deviations[number++];
      turn.x.push_back(static_cast<double>(i));
      turn.y.push_back(thousandths * degrees * cv::norm(deviation.turn));
      shift.x.push_back(static_cast<double>(i));
      shift.y.push_back(thousandths * cv::norm(deviation.shift));
    }
  }
  plot.series = {turn, shift};
  fitFromNought(plot);
  return plot;
}

} // namespace

std::vector<mv::Plot> adjustmentPlots(Calibration const& calibration, mv::Ground ground) {
  std::vector<mv::Plot> plots;
  for (std::size_t d = 0; d < calibration.report.devices.size(); ++d) {
    plots.push_back(coveragePlot(calibration, d, ground));
  }
  if (calibration.report.adjustment) {
    mv::TargetShape const& shape = calibration.report.adjustment->shape;
    if (shape.kind != mv::TargetShape::Kind::Flat) {
      plots.push_back(shapePlot(shape, ground));
    }
    if (!calibration.report.deviations.empty()) {
      plots.push_back(agreementPlot(calibration, ground));
    }
  }
  return plots;
}

} // namespace vorn::tools
