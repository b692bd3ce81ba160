// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/target/dot_candidate.hpp"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <optional>

#include "calib/target/bright_blobs.hpp"
#include "calib/target/bright_mask.hpp"

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
constexpr int minExcess = 3;

/// An ellipse covers its moments' ellipse exactly; less than this share is a ragged or hollow shape.
constexpr double minEllipseShare = 0.8;

double diameterOfArea(double area) {
  return 2.0 * std::sqrt(area / CV_PI);
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

cv::Mat binarise(ReducedImage const& level, TargetSettings const& settings, Progress const& progress) {
  cv::Mat ground = groundOf(level.image, surroundingsSigma, minExcess, progress);
  if (settings.morphRadius > 0) {
    progress.at(stage, 1.0);
    // Up, so that nothing is left that is narrower than the element at full size.
    int const radius = (settings.morphRadius + level.factor - 1) / level.factor;
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

/// A blob as a candidate, in reduced pixels; nothing where it has not the shape of a dot.
std::optional<DotCandidate> describe(BrightBlob const& blob, TargetSettings const& settings) {
  double const middle = 0.5 * (blob.xx + blob.yy);
  double const spread = std::hypot(0.5 * (blob.xx - blob.yy), blob.xy);
  if (middle - spread <= 0) {
    return std::nullopt;
  }
  double const longAxis = 2.0 * std::sqrt(middle + spread);
  double const shortAxis = 2.0 * std::sqrt(middle - spread);
  if (blob.area < minEllipseShare * CV_PI * longAxis * shortAxis || shortAxis < leastReducedHalfAxis ||
      shortAxis < settings.minDotRatio * longAxis) {
    return std::nullopt;
  }
  double const angle = 0.5 * std::atan2(2.0 * blob.xy, blob.xx - blob.yy);
  double const c = std::cos(angle);
  double const s = std::sin(angle);
  cv::Matx22d const axes(c, -s, s, c);
  DotCandidate candidate;
  candidate.centre = blob.centre;
  candidate.area = CV_PI * longAxis * shortAxis;
  candidate.outline = axes * cv::Matx22d(longAxis, 0, 0, shortAxis) * axes.t();
  candidate.whitening = axes * cv::Matx22d(1.0 / longAxis, 0, 0, 1.0 / shortAxis) * axes.t();
  return candidate;
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
  double const pixelArea = static_cast<double>(level.factor) * level.factor;
  double const minArea = settings.minDotArea / areaSlack / pixelArea;
  double const maxArea = settings.maxDotArea * areaSlack * settings.maxAreaMultiplier / pixelArea;
  // Of its pixels an ellipse's area is short of that of its moments by a few per cent.
  constexpr double slack = 1.5;
  std::vector<BrightBlob> const blobs = findBlobs(ground, minArea / slack, maxArea * slack);
  progress.at(stage, 0.8);
  std::vector<DotCandidate> candidates;
  for (std::size_t i = 0; i < blobs.size(); ++i) {
    constexpr std::size_t blobsBetweenAskings = 4096;
    if (i % blobsBetweenAskings == 0) {
      progress.at(stage, 0.8 + 0.2 * static_cast<double>(i) / static_cast<double>(blobs.size()));
    }
    auto candidate = describe(blobs[i], settings);
    cv::Rect const box = blobs[i].box + cv::Size(2, 2) - cv::Point(1, 1); // with the ground beside it
    if (!candidate || candidate->area < minArea || candidate->area > maxArea ||
        !isBrighterThanAround(level.image, box)) {
      continue;
    }
    candidate->centre = level.toFull(candidate->centre);
    candidate->area *= pixelArea;
    candidate->outline *= level.factor;
    candidate->whitening *= 1.0 / level.factor;
    candidates.push_back(*candidate);
  }
  return candidates;
}

} // namespace vorn::mv
