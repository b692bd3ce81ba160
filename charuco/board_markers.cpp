// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "board_markers.hpp"

#include <algorithm>

#include <opencv2/aruco.hpp>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include "dictionaries.hpp"

namespace vorn::mv {

namespace {

/// As `cv::aruco::detectMarkers` gives them.
struct Markers {
  std::vector<std::vector<cv::Point2f>> corners;
  std::vector<int> ids;
  std::size_t candidates = 0;
};

/// Dim images from black to white: the search for markers takes a difference of a fixed number of grey levels
/// for an edge.
cv::Mat brightened(cv::Mat const& grey) {
  constexpr double least = 100; // between the darkest and the brightest, grey levels
  cv::Mat smooth;               // without which noise decides
  cv::blur(grey, smooth, {3, 3});
  double darkest = 0;
  double brightest = 0;
  cv::minMaxLoc(smooth, &darkest, &brightest);
  double const range = brightest - darkest;
  if (range >= least || range <= 0) {
    return grey;
  }
  constexpr double white = 255;
  cv::Mat bright;
  grey.convertTo(bright, CV_8U, white / range, -darkest * white / range);
  return bright;
}

Markers detectMarkers(cv::Mat const& grey, cv::Ptr<cv::aruco::Dictionary> const& dictionary) {
  int const side = std::max(grey.cols, grey.rows);
  auto const parameters = cv::aruco::DetectorParameters::create();
  // Markers of large images are larger than the usual windows, whose thresholds then follow noise.
  constexpr int windowsASide = 40;
  constexpr int windowSteps = 3;
  parameters->adaptiveThreshWinSizeMax = std::max(parameters->adaptiveThreshWinSizeMax, side / windowsASide);
  parameters->adaptiveThreshWinSizeStep =
      (parameters->adaptiveThreshWinSizeMax - parameters->adaptiveThreshWinSizeMin) / windowSteps + 1;
  constexpr double leastPerimeter = 48; // px: twice a pixel a cell of the smallest markers
  parameters->minMarkerPerimeterRate = std::min(parameters->minMarkerPerimeterRate, leastPerimeter / side);
  Markers markers;
  std::vector<std::vector<cv::Point2f>> rejected;
  cv::aruco::detectMarkers(brightened(grey), dictionary, markers.corners, markers.ids, parameters, rejected);
  markers.candidates = markers.ids.size() + rejected.size();
  return markers;
}

/// The markers with the numbers of the board, where the board has them.
std::vector<SeenMarker> placeMarkers(Markers const& found, TargetDescription const& target,
                                     UpperLeft upperLeft) {
  std::vector<cv::Point> const squares = markedSquares(target, upperLeft);
  auto const half = static_cast<float>(target.markerSize / target.pitch / 2);
  std::vector<SeenMarker> markers;
  for (std::size_t i = 0; i < found.ids.size(); ++i) {
    int const number = found.ids[i] - target.firstMarker;
    if (number < 0 || number >= static_cast<int>(squares.size())) {
      continue;
    }
    SeenMarker marker;
    // The square with its lower right corner at the first inner corner is (0, 0).
    marker.centre = cv::Point2f(squares[static_cast<std::size_t>(number)]) - cv::Point2f(0.5F, 0.5F);
    marker.onBoard = {marker.centre + cv::Point2f(-half, -half), marker.centre + cv::Point2f(half, -half),
                      marker.centre + cv::Point2f(half, half), marker.centre + cv::Point2f(-half, half)};
    std::copy_n(found.corners[i].begin(), marker.inImage.size(), marker.inImage.begin());
    markers.push_back(marker);
  }
  return markers;
}

/// Those that lie as one plane shows them, a lens's distortion aside.
std::vector<SeenMarker> consistent(std::vector<SeenMarker> const& markers) {
  constexpr std::size_t least = 2; // of one marker nothing tells whether it is the board's
  constexpr double farthest = 0.3; // squares, of markers that are a square and more apart
  if (markers.size() < least) {
    return {};
  }
  std::vector<cv::Point2f> onBoard;
  std::vector<cv::Point2f> inImage;
  for (SeenMarker const& marker : markers) {
    onBoard.insert(onBoard.end(), marker.onBoard.begin(), marker.onBoard.end());
    inImage.insert(inImage.end(), marker.inImage.begin(), marker.inImage.end());
  }
  cv::Mat const board_from_image = cv::findHomography(inImage, onBoard, cv::RANSAC, farthest);
  if (board_from_image.empty()) {
    return {};
  }
  std::vector<cv::Point2f> mapped;
  cv::perspectiveTransform(inImage, mapped, board_from_image);
  std::vector<SeenMarker> kept;
  for (std::size_t i = 0; i < markers.size(); ++i) {
    bool const isKept = std::all_of(markers[i].onBoard.begin(), markers[i].onBoard.end(), [&](auto const& p) {
      auto const corner = static_cast<std::size_t>(&p - markers[i].onBoard.data());
      return cv::norm(mapped[4 * i + corner] - p) < farthest;
    });
    if (isKept) {
      kept.push_back(markers[i]);
    }
  }
  return kept.size() < least ? std::vector<SeenMarker>() : kept;
}

std::string text(std::size_t count) {
  return std::to_string(count);
}

/// Why the markers are not the board's; empty when they are.
std::string problemOf(SeenBoard const& board, Markers const& found, std::size_t numbered,
                      TargetDescription const& target) {
  if (found.ids.empty()) {
    return "of " + text(found.candidates) + " shapes with four corners none is a marker of " +
           target.dictionary;
  }
  int const last = target.firstMarker + markerCount(target, UpperLeft::Dark) - 1;
  // Markers are told apart by their neighbours; a board of another number of columns has them elsewhere.
  constexpr double leastShare = 0.7;
  if (static_cast<double>(board.markers.size()) < leastShare * static_cast<double>(found.ids.size())) {
    cv::Size const squares = squaresOf(target);
    return "of " + text(found.ids.size()) + " markers of " + target.dictionary + " " + text(numbered) +
           " have the board's numbers, " + std::to_string(target.firstMarker) + " to " +
           std::to_string(last) + ", and " + text(board.markers.size()) + " stand where a board of " +
           std::to_string(squares.width) + " x " + std::to_string(squares.height) + " squares has them";
  }
  return "";
}

} // namespace

SeenBoard findMarkers(cv::Mat const& grey, TargetDescription const& target) {
  Markers const found = detectMarkers(grey, dictionaryOf(target));
  SeenBoard board;
  std::size_t numbered = 0;
  for (UpperLeft const upperLeft : {UpperLeft::Dark, UpperLeft::Marked}) {
    std::vector<SeenMarker> const placed = placeMarkers(found, target, upperLeft);
    std::vector<SeenMarker> kept = consistent(placed);
    numbered = std::max(numbered, placed.size());
    if (kept.size() > board.markers.size()) {
      board.markers = std::move(kept);
      board.upperLeft = upperLeft;
    }
  }
  board.steps = {{"shapes with four corners", static_cast<int>(found.candidates)},
                 {"markers of the dictionary", static_cast<int>(found.ids.size())},
                 {"where the board has them", static_cast<int>(board.markers.size())}};
  board.reason = problemOf(board, found, numbered, target);
  return board;
}

} // namespace vorn::mv
