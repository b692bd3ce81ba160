// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "scanner/calibration/laser_on_target.hpp"

#include <algorithm>
#include <utility>

#include <opencv2/imgproc.hpp>

#include "calib/laser/laser_search.hpp"
#include "core/median.hpp"

namespace vorn::mv {

namespace {

constexpr char const* stage = "finding laser lines";

struct Stripe {
  std::vector<LaserPeak> peaks;
  LaserLineOptions::Direction direction = LaserLineOptions::Direction::PerColumn;
};

/// The peaks along columns or along rows, whichever cut the line more often.
Stripe findStripe(LaserGrey const& image, LaserLineOptions options, Progress const& progress) {
  options.dropMoved = false; // the target's own image tells where its edges are, and spares what is between
  Stripe best;
  for (auto const direction : {LaserLineOptions::Direction::PerColumn, LaserLineOptions::Direction::PerRow}) {
    options.direction = direction;
    std::vector<LaserPeak> peaks;
    for (LaserSample const& sample : findLaserSamples(image, options, progress)) {
      peaks.push_back(peakOf(sample, direction));
    }
    if (peaks.size() > best.peaks.size()) {
      best = {std::move(peaks), direction};
    }
  }
  return best;
}

/// Where the target's plain view is even within a stripe's reach: a stripe across the rim of a dot is not
/// symmetric, and its place is off by up to its width.
cv::Mat evenGround(cv::Mat const& target, Stripe const& stripe, Progress const& progress) {
  std::vector<float> widths;
  for (LaserPeak const& peak : stripe.peaks) {
    widths.push_back(peak.width);
  }
  constexpr float widthsToEnd = 3;
  int const across = 2 * cvCeil(widthsToEnd * medianAmong(widths)) + 1;
  constexpr int along = 3; // the lens's blur
  bool const isPerColumn = stripe.direction == LaserLineOptions::Direction::PerColumn;
  cv::Mat const reach(isPerColumn ? cv::Size(along, across) : cv::Size(across, along), CV_8U, cv::Scalar(1));

  cv::Mat smooth;
  cv::GaussianBlur(target, smooth, {3, 3}, 0);
  cv::Mat most;
  cv::Mat least;
  progress.at(stage, 0.0);
  cv::dilate(smooth, most, reach);
  progress.at(stage, 0.0);
  cv::erode(smooth, least, reach);
  progress.at(stage, 0.0);
  // Uneven light counts as even: a gradient of this share over the reach moves a stripe of width w by
  // w^2 times its share a pixel, some hundredths of a pixel. Grey levels are for the noise.
  constexpr double unevenShare = 0.15;
  constexpr double unevenLevels = 4;
  cv::Mat limit;
  most.convertTo(limit, CV_8U, unevenShare, unevenLevels);
  return most - least <= limit;
}

} // namespace

ViewLine laserLineOnTarget(LaserGrey const& image, cv::Mat const& target, ViewPoints const& dots,
                           LaserLineOptions const& options, Progress const& progress) {
  Stripe const stripe = findStripe(image, options, progress);
  ViewLine line;
  if (stripe.peaks.empty()) {
    return line;
  }
  std::vector<cv::Point2f> hull;
  cv::convexHull(dots.imgPnts, hull);
  cv::Mat const isEven = evenGround(target, stripe, progress);
  for (LaserPeak const& peak : stripe.peaks) {
    cv::Point const pixel(cvRound(peak.point.x), cvRound(peak.point.y));
    if (isEven.at<uchar>(pixel) != 0 && cv::pointPolygonTest(hull, peak.point, false) >= 0) {
      line.imgPnts.push_back(peak.point);
    }
  }
  return line;
}

} // namespace vorn::mv
