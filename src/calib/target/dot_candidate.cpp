// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/target/dot_candidate.hpp"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

namespace vorn::mv {
namespace {

constexpr char const* stage = "detecting targets";

/// Diameter in reduced pixels from which dots are found reliably. Twice as large ones still are, and a marker
/// is half as large again; together they span the step from one factor to the next.
constexpr double leastReducedDiameter = 6.5;

/// Half the least width of a blob in reduced pixels: smaller ones have neither a size nor a shape to go by.
constexpr double leastReducedHalfAxis = 1.5;

/// Width of the Gaussian that local brightness is averaged with, in reduced pixels. About a dot's diameter:
/// much less and the middle of a marker is no brighter than its own average, much more and the dark
/// surroundings of a target make the rim of its ground look bright.
constexpr double surroundingsSigma = 7.0;

/// Grey levels by which a dot exceeds the average of its surroundings.
constexpr double minExcess = 3.0;

/// An ellipse covers its moments' ellipse exactly; less than this share is a ragged or hollow shape.
constexpr double minEllipseShare = 0.8;

double diameterOfArea(double area) {
  return 2.0 * std::sqrt(area / CV_PI);
}

/// The block size for which OpenCV derives the given sigma.
int blockSize(double sigma) {
  int const half = cvRound((sigma - 0.8) / 0.3 + 1.0);
  return 2 * half + 1;
}

void smooth(ReducedImage& level, TargetSettings const& settings) {
  // More than a sixth of the smallest dot's diameter would wash out dots seen at a slant.
  double const smallest = diameterOfArea(std::max(settings.minDotArea, 20.0)) / level.factor;
  double const widest = std::max(smallest, leastReducedDiameter) / 6.0;
  double const sigma = std::min(settings.blurRadius / 3.0 / level.factor, widest);
  int const radius = std::min(settings.blurRadius, static_cast<int>(std::ceil(3.0 * sigma)));
  if (settings.blurRadius > 0 && sigma > 0.2) {
    cv::GaussianBlur(level.image, level.image, {2 * radius + 1, 2 * radius + 1}, sigma);
  }
}

/// 255 where the image is no brighter than its surroundings. Band by band, each with the rows beside it that
/// its averages need: the same as at once, without two images of floats.
cv::Mat groundOf(cv::Mat const& image, Progress const& progress) {
  int const block = blockSize(surroundingsSigma);
  constexpr int bandRows = 256;
  cv::Mat ground(image.size(), CV_8U);
  cv::Mat band;
  for (int first = 0; first < image.rows; first += bandRows) {
    progress.at(stage, static_cast<double>(first) / image.rows);
    int const end = std::min(first + bandRows, image.rows);
    int const top = std::max(0, first - block / 2);
    int const bottom = std::min(image.rows, end + block / 2);
    cv::adaptiveThreshold(image.rowRange(top, bottom), band, 255, cv::ADAPTIVE_THRESH_GAUSSIAN_C,
                          cv::THRESH_BINARY_INV, block, -minExcess);
    band.rowRange(first - top, end - top).copyTo(ground.rowRange(first, end));
  }
  return ground;
}

cv::Mat binarise(ReducedImage const& level, TargetSettings const& settings, Progress const& progress) {
  cv::Mat ground = groundOf(level.image, progress);
  if (settings.morphRadius > 0) {
    progress.at(stage, 1.0);
    int const radius = std::max(1, cvRound(static_cast<double>(settings.morphRadius) / level.factor));
    cv::Mat const element = cv::getStructuringElement(cv::MORPH_ELLIPSE, {2 * radius + 1, 2 * radius + 1});
    cv::dilate(ground, ground, element);
    progress.at(stage, 1.0);
    cv::erode(ground, ground, element);
  }
  return ground;
}

/// Mean grey level of the part of `box` that lies inside the image.
double meanOf(cv::Mat const& image, cv::Rect const& box) {
  cv::Rect const inside = box & cv::Rect({}, image.size());
  return inside.empty() ? 0.0 : cv::sum(image(inside))[0] / inside.area();
}

bool isBrighterThanAround(cv::Mat const& image, cv::Rect const& box) {
  cv::Rect const core(box.x + box.width / 4, box.y + box.height / 4, std::max(1, box.width / 2),
                      std::max(1, box.height / 2));
  cv::Rect const around(box.x - box.width / 4, box.y - box.height / 4, box.width + box.width / 2,
                        box.height + box.height / 2);
  return meanOf(image, core) > meanOf(image, around) + 1.0;
}

/// The blob inside a contour that runs through the ground pixels around it, in reduced pixels.
bool describe(std::vector<cv::Point> const& contour, TargetSettings const& settings, DotCandidate& blob) {
  cv::Moments const m = cv::moments(contour);
  if (m.m00 <= 0) {
    return false;
  }
  double const xx = m.mu20 / m.m00;
  double const xy = m.mu11 / m.m00;
  double const yy = m.mu02 / m.m00;
  double const middle = 0.5 * (xx + yy);
  double const spread = std::hypot(0.5 * (xx - yy), xy);
  if (middle - spread <= 0) {
    return false;
  }
  double const outerLong = 2.0 * std::sqrt(middle + spread);
  double const outerShort = 2.0 * std::sqrt(middle - spread);
  if (m.m00 < minEllipseShare * CV_PI * outerLong * outerShort) {
    return false;
  }
  // The contour runs half a pixel outside the blob's edge.
  double const longAxis = outerLong - 0.5;
  double const shortAxis = outerShort - 0.5;
  if (shortAxis < leastReducedHalfAxis || shortAxis < settings.minDotRatio * longAxis) {
    return false;
  }
  double const angle = 0.5 * std::atan2(2.0 * xy, xx - yy);
  double const c = std::cos(angle);
  double const s = std::sin(angle);
  cv::Matx22d const axes(c, -s, s, c);
  blob.centre = {m.m10 / m.m00, m.m01 / m.m00};
  blob.area = CV_PI * longAxis * shortAxis;
  blob.outline = axes * cv::Matx22d(longAxis, 0, 0, shortAxis) * axes.t();
  blob.whitening = axes * cv::Matx22d(1.0 / longAxis, 0, 0, 1.0 / shortAxis) * axes.t();
  return true;
}

/// Contours run the other way round holes than round what has them.
bool surroundsHole(std::vector<cv::Point> const& contour) {
  return cv::contourArea(contour, true) > 0;
}

} // namespace

ReducedImage reduce(cv::Mat const& image, int factor) {
  ReducedImage level;
  level.factor = factor;
  if (factor == 1) {
    level.image = image.clone();
    return level;
  }
  cv::Size const size(image.cols / factor, image.rows / factor);
  cv::resize(image(cv::Rect(0, 0, size.width * factor, size.height * factor)), level.image, size, 0, 0,
             cv::INTER_AREA);
  return level;
}

std::vector<int> searchFactors(cv::Size const& size, TargetSettings const& settings) {
  double const smallest = diameterOfArea(std::max(settings.minDotArea, 20.0));
  double const largest = diameterOfArea(std::max(settings.maxDotArea, settings.minDotArea));
  constexpr int leastSide = 40;
  int factor = 1;
  while (largest >= 2 * factor * leastReducedDiameter &&
         std::min(size.width, size.height) >= 2 * factor * leastSide) {
    factor *= 2;
  }
  std::vector<int> factors = {factor};
  while (factor > 1 && smallest < factor * leastReducedDiameter) {
    factor /= 2;
    factors.push_back(factor);
  }
  return factors;
}

std::vector<DotCandidate> findCandidates(ReducedImage& level, TargetSettings const& settings,
                                         Progress const& progress) {
  progress.at(stage, 0.0);
  smooth(level, settings);
  progress.at(stage, 0.0);
  cv::Mat const ground = binarise(level, settings, progress.part(0.0, 0.5));
  progress.at(stage, 0.5);
  std::vector<std::vector<cv::Point>> contours;
  // Not which contour lies in which: to find that for the holes of noise takes time with their square.
  cv::findContours(ground, contours, cv::RETR_LIST, cv::CHAIN_APPROX_NONE);

  double const pixelArea = static_cast<double>(level.factor) * level.factor;
  double const minArea = settings.minDotArea / areaSlack / pixelArea;
  double const maxArea = settings.maxDotArea * areaSlack * settings.maxAreaMultiplier / pixelArea;
  // An ellipse of axis ratio q has a perimeter below 4 long axes, and long axis² = area / (pi q).
  double const maxLength = 4.0 * std::sqrt(maxArea / (CV_PI * settings.minDotRatio)) + 16.0;
  std::vector<DotCandidate> candidates;
  for (std::size_t i = 0; i < contours.size(); ++i) {
    constexpr std::size_t contoursBetweenAskings = 4096;
    if (i % contoursBetweenAskings == 0) {
      double const share = static_cast<double>(i) / static_cast<double>(contours.size());
      progress.at(stage, 0.6 + 0.4 * share);
    }
    if (static_cast<double>(contours[i].size()) > maxLength || !surroundsHole(contours[i])) {
      continue;
    }
    DotCandidate blob;
    if (!describe(contours[i], settings, blob) || blob.area < minArea || blob.area > maxArea ||
        !isBrighterThanAround(level.image, cv::boundingRect(contours[i]))) {
      continue;
    }
    blob.centre = level.toFull(blob.centre);
    blob.area *= pixelArea;
    blob.outline *= level.factor;
    blob.whitening *= 1.0 / level.factor;
    candidates.push_back(blob);
  }
  return candidates;
}

} // namespace vorn::mv
