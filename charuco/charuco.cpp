// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv_charuco/charuco.hpp>

#include <algorithm>
#include <memory>

#include <vorn/mv/calib/target_finder.hpp>

#include "board_corners.hpp"
#include "board_layout.hpp"
#include "board_markers.hpp"
#include "dictionaries.hpp"

namespace vorn::mv {

namespace {

/// A marker tells which corner is which, so that few will do: two rows of four.
constexpr int leastCorners = 8;

/// Whether the corners leave a pose undetermined.
bool isOneLine(std::vector<BoardCorner> const& corners) {
  auto const isOf = [&](auto const& coordinate) {
    return std::all_of(corners.begin(), corners.end(), [&](BoardCorner const& corner) {
      return coordinate(corner.index) == coordinate(corners.front().index);
    });
  };
  return isOf([](cv::Point const& p) { return p.x; }) || isOf([](cv::Point const& p) { return p.y; });
}

/// A rectangle from one corner to the other one.
cv::Rect2d between(cv::Point2d const& upperLeft, cv::Point2d const& lowerRight) {
  return {upperLeft, lowerRight};
}

/// The dark cells of a marker, a row's neighbours as one.
void addMarker(std::vector<cv::Rect2d>& parts, cv::Mat const& cells, cv::Point2d const& upperLeft,
               double side) {
  auto const at = [&](int x, int y) {
    return upperLeft + cv::Point2d(x * side / cells.cols, y * side / cells.rows);
  };
  for (int y = 0; y < cells.rows; ++y) {
    for (int x = 0; x < cells.cols; ++x) {
      int const first = x;
      while (x < cells.cols && cells.at<unsigned char>(y, x) == 0) {
        ++x;
      }
      if (x > first) {
        parts.push_back(between(at(first, y), at(x, y + 1)));
      }
    }
  }
}

class CharucoFinder : public ITargetFinder {
public:
  Detection detect(cv::Mat const& grey, TargetDescription const& target,
                   DetectSettings const& settings) const override {
    Detection detection = detectDark(grey, target, settings);
    if (detection.isEmpty()) {
      Detection negative = detectDark(255 - grey, target, settings);
      return negative.isEmpty() ? detection : negative;
    }
    return detection;
  }

  std::vector<cv::Rect2d> darkParts(TargetDescription const& target) const override;

private:
  /// A board of dark ink on bright ground.
  static Detection detectDark(cv::Mat const& grey, TargetDescription const& target,
                              DetectSettings const& settings) {
    SeenBoard const board = findMarkers(grey, target);
    Detection detection;
    detection.steps = board.steps;
    detection.reason = board.reason;
    if (!detection.reason.empty()) {
      return detection;
    }
    auto const corners = measureCorners(grey, board, target, detection.steps, detection.dropped);
    int const most = target.size.area();
    int const least = settings.minKeyPoints > 0 ? settings.minKeyPoints : std::min(leastCorners, most);
    if (static_cast<int>(corners.size()) < least) {
      detection.reason = std::to_string(corners.size()) + " corners beside " +
                         std::to_string(board.markers.size()) + " markers, and a target takes " +
                         std::to_string(least);
    } else if (isOneLine(corners)) {
      detection.reason = "the corners seen stand in one line";
    } else {
      fill(detection, corners, target);
    }
    return detection;
  }

  static void fill(Detection& detection, std::vector<BoardCorner> const& corners,
                   TargetDescription const& target) {
    for (BoardCorner const& corner : corners) {
      detection.keyPoints.emplace_back(corner.centre, cv::Point2f(target.position(corner.index)));
      detection.indices.push_back(corner.index);
    }
    detection.isOriginMarked = true;
    detection.readings = 1;
  }
};

std::vector<cv::Rect2d> CharucoFinder::darkParts(TargetDescription const& target) const {
  target.check();
  auto const dictionary = dictionaryOf(target);
  cv::Size const squares = squaresOf(target);
  double const pitch = target.pitch;
  std::vector<cv::Rect2d> parts;
  int number = target.firstMarker;
  for (int y = 0; y < squares.height; ++y) {
    for (int x = 0; x < squares.width; ++x) {
      // The first inner corner is the target's origin.
      cv::Point2d const upperLeft((x - 1) * pitch, (y - 1) * pitch);
      if (!isMarked({x, y}, UpperLeft::Dark)) {
        parts.push_back(between(upperLeft, {x * pitch, y * pitch}));
        continue;
      }
      cv::Mat cells;
      constexpr int borderCells = 2;
      dictionary->drawMarker(number++, dictionary->markerSize + borderCells, cells);
      double const gap = (pitch - target.markerSize) / 2;
      addMarker(parts, cells, upperLeft + cv::Point2d(gap, gap), target.markerSize);
    }
  }
  return parts;
}

} // namespace

void useCharuco() {
  setTargetFinder(TargetKind::Charuco, std::make_shared<CharucoFinder>());
}

} // namespace vorn::mv

void vorn_mv_use_charuco() {
  vorn::mv::useCharuco();
}
