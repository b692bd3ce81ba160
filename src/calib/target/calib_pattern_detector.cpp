// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/calib/calib_pattern_detector.hpp>

#include <opencv2/imgproc.hpp>

#include <vorn/core/system.hpp>
#include <vorn/core/timer.hpp>
#include <vorn/mv/core/library.hpp>

#include "calib/target/target_finder.hpp"
#include "core/error.hpp"
#include "core/progress.hpp"

namespace vorn::mv {
namespace {

/// The detector's settings, read once for a run.
TargetSettings settingsOf(CalibPatternDetector const& detector) {
  auto const integer = [&](char const* name) { return detector[name].getValue().toInt(); };
  auto const real = [&](char const* name) { return detector[name].getValue().toDouble(); };
  TargetSettings settings;
  settings.minIndex = {integer("XMin"), integer("YMin")};
  settings.maxIndex = {integer("XMax"), integer("YMax")};
  settings.innerMinIndex = {integer("PXMin"), integer("PYMin")};
  settings.innerMaxIndex = {integer("PXMax"), integer("PYMax")};
  settings.minKeyPointCount = integer("MinKeypointCount");
  settings.minDotArea = real("MinDotArea");
  settings.maxDotArea = real("MaxDotArea");
  settings.blurRadius = integer("BlurRadius");
  settings.morphRadius = integer("MorphRadius");
  settings.minDotRatio = real("MinDotRatio");
  settings.minAreaMultiplier = real("MinDotAreaMultiplier");
  settings.maxAreaMultiplier = real("MaxDotAreaMultiplier");
  settings.centreMethod =
      detector["QuadraticFit"].getValue().toBool() ? CentreMethod::TemplatePeak : CentreMethod::Edge;
  return settings;
}

/// The image as grey levels with bright dots.
cv::Mat withBrightDots(cv::Mat const& image, int patternType) {
  if (image.type() != CV_8UC1 && image.type() != CV_8UC3) {
    throw error("Invalid input image type", "detect");
  }
  if (image.empty()) {
    return {};
  }
  cv::Mat grey = image;
  if (image.type() == CV_8UC3) {
    cv::cvtColor(image, grey, cv::COLOR_BGR2GRAY);
  }
  if (patternType != CalibPatternType::CircleGridWhiteOnGray) {
    cv::Mat inverted;
    cv::bitwise_not(grey, inverted);
    return inverted;
  }
  return grey;
}

} // namespace

CalibPatternDetector::CalibPatternDetector() : AlgorithmBase(new PropertySetBase::Private) {
  declareProperties({patternTypeRow(), patternDimRow(), xMinRow(), xMaxRow(), yMinRow(), yMaxRow(),
                     minKeypointCountRow(), minDotAreaRow(), maxDotAreaRow(), blurRadiusRow(),
                     morphRadiusRow(), minDotRatioRow(), minDotAreaMultiplierRow(), maxDotAreaMultiplierRow(),
                     pxMinRow(), pxMaxRow(), pyMinRow(), pyMaxRow(), quadraticFitRow()});
}

CalibPatternDetector::Result CalibPatternDetector::detect(cv::Mat const& image) const {
  return detect(image, nullptr);
}

CalibPatternDetector::Result CalibPatternDetector::detect(cv::Mat const& image, Observer* observer) const {
  Library::assertValid();
  TargetSettings const settings = settingsOf(*this);
  IEnum const& type = getProperty("PatternType");
  auto const pitch = getProperty("PatternDim").getValue().toFloat();
  Timer timer;
  timer.tic();
  cv::Mat const grey = withBrightDots(image, type.getIndex());
  Result result;
  if (grey.empty()) {
    return result;
  }
  TargetView const view = findTarget({grey, {}}, settings, nullptr, Progress(observer));
  for (TargetDot const& dot : view.dots) {
    result.addKeyPoint({cv::Point2f(dot.centre), cv::Point2f(dot.index) * pitch});
  }
  result.setOriginMarked(view.isOriginMarked);
  if (Library::getEnableDebug()) {
    System::log("detect: " + std::to_string(result.count()) + " dots, " + std::to_string(timer.toc()) +
                " ms\n");
  }
  return result;
}

std::string const& CalibPatternDetector::getClassName() const {
  static std::string const name = "vorn::mv::CalibPatternDetector";
  return name;
}

} // namespace vorn::mv
