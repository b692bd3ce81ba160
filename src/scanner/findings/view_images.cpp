// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "scanner/findings/view_images.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <utility>

#include <vorn/mv/imaging/white_level.hpp>

#include "core/median.hpp"
#include "scanner/findings/fringe_patch.hpp"
#include "scanner/findings/patch_shift.hpp"
#include "scanner/findings/sequence_figures.hpp"
#include "sl/coding/stripe_code.hpp"

namespace vorn::mv {

namespace {

/// Square patches around the dots that lie within the image, as large as the dots' distance lets them be.
std::vector<cv::Rect> patchesAt(std::vector<cv::Point2f> const& dots, cv::Size const& image) {
  std::vector<float> distances;
  for (cv::Point2f const& a : dots) {
    float nearest = std::numeric_limits<float>::infinity();
    for (cv::Point2f const& b : dots) {
      if (&a != &b) {
        cv::Point2f const d = a - b;
        nearest = std::min(nearest, d.dot(d));
      }
    }
    distances.push_back(std::sqrt(nearest));
  }
  constexpr float leastRadius = 4;
  constexpr float mostRadius = 40;
  float const distance = medianAmong(distances);
  int const radius = cvRound(std::clamp(0.5F * distance, leastRadius, mostRadius));
  std::vector<cv::Rect> patches;
  cv::Rect const whole(cv::Point(), image);
  for (cv::Point2f const& dot : dots) {
    cv::Rect const patch(cvRound(dot.x) - radius, cvRound(dot.y) - radius, 2 * radius + 1, 2 * radius + 1);
    if ((patch & whole) == patch) {
      patches.push_back(patch);
    }
  }
  return patches;
}

/// The blur of the edges of a dot: that of a step which is nowhere steeper.
std::optional<double> blurOf(cv::Mat_<float> const& patch) {
  std::vector<float> values(patch.begin(), patch.end());
  double const low = rankedAmong(values, values.size() / 20);
  double const contrast = rankedAmong(values, values.size() - 1 - values.size() / 20) - low;
  double steepest = 0;
  for (int y = 1; y + 1 < patch.rows; ++y) {
    for (int x = 1; x + 1 < patch.cols; ++x) {
      double const byX = 0.5 * (static_cast<double>(patch(y, x + 1)) - patch(y, x - 1));
      double const byY = 0.5 * (static_cast<double>(patch(y + 1, x)) - patch(y - 1, x));
      steepest = std::max(steepest, std::hypot(byX, byY));
    }
  }
  constexpr double leastContrast = 10;
  if (contrast < leastContrast || steepest <= 0) {
    return std::nullopt;
  }
  return contrast / (std::sqrt(CV_2PI) * steepest);
}

} // namespace

ViewFigures figuresOf(ViewImages const& view, cv::Mat_<float> const& columns, cv::Mat_<float> const& rows,
                      std::vector<cv::Point2f> const& dots) {
  std::vector<cv::Rect> const patches = patchesAt(dots, view.target.size());
  ViewFigures figures;
  figures.columns = sequenceFiguresOf(view.columns, columns, sl::columnCode.period, patches);
  figures.rows = sequenceFiguresOf(view.rows, rows, sl::rowCode.period, patches);
  double clipped = 0;
  double const targetWhite = findWhiteLevel({view.target});
  std::vector<std::optional<cv::Vec2d>> between;
  std::vector<std::optional<cv::Vec2d>> before;
  std::vector<double> blurs;
  for (cv::Rect const& patch : patches) {
    cv::Mat_<float> const target = patchOf(view.target, patch, targetWhite);
    cv::Mat_<float> const inColumns = FringePatch(view.columns, patch).fullLight();
    between.push_back(shiftOf(inColumns, FringePatch(view.rows, patch).fullLight()));
    before.push_back(shiftOf(target, inColumns));
    clipped += shareClipped(target);
    if (auto const blur = blurOf(target)) {
      blurs.push_back(*blur);
    }
  }
  // Images of real numbers have no end of their range.
  figures.targetClipped = view.target.depth() <= CV_16U && !patches.empty()
                              ? clipped / static_cast<double>(patches.size())
                              : SequenceFigures::untold;
  figures.cameraBlur = medianOrUntold(std::move(blurs));
  figures.movedBetween = typicalShift(between);
  figures.movedBefore = typicalShift(before);
  return figures;
}

} // namespace vorn::mv
