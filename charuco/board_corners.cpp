// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "board_corners.hpp"

#include <algorithm>
#include <cmath>
#include <optional>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include "calib/target/board_neighbours.hpp"
#include "calib/target/corner_saddle.hpp"

namespace vorn::mv {

namespace {

/// A corner on its way: where the markers put it, how the board lies there, and where it was measured.
struct Candidate {
  cv::Point index;
  cv::Point2f predicted;
  cv::Matx22d pixels_from_squares; ///< for short ways at the corner
  double gap = 0;                  ///< to the nearest edge of a marker, px
  cv::Point2f centre;
  double contrast = 0; ///< how much brighter its white squares are than its dark ones
};

/// How the board lies around a place, from markers up to 1.7 squares off: the ones beside it and their
/// neighbours.
std::optional<cv::Matx33d> homographyAround(cv::Point2f const& place,
                                            std::vector<SeenMarker> const& markers) {
  constexpr double beside = 0.75; // squares; 0.71 for the markers of the two squares that meet here
  constexpr double near = 1.7;
  std::vector<cv::Point2f> onBoard;
  std::vector<cv::Point2f> inImage;
  bool isAnyBeside = false;
  for (SeenMarker const& marker : markers) {
    double const distance = cv::norm(marker.centre - place);
    if (distance < near) {
      onBoard.insert(onBoard.end(), marker.onBoard.begin(), marker.onBoard.end());
      inImage.insert(inImage.end(), marker.inImage.begin(), marker.inImage.end());
    }
    isAnyBeside = isAnyBeside || distance < beside;
  }
  if (!isAnyBeside) {
    return std::nullopt;
  }
  cv::Mat const image_from_board = cv::findHomography(onBoard, inImage);
  return image_from_board.empty() ? std::nullopt : std::optional<cv::Matx33d>(image_from_board);
}

std::optional<Candidate> predict(cv::Point const& index, SeenBoard const& board, double markerShare,
                                 cv::Size const& image) {
  cv::Point2d const place(index);
  auto const h = homographyAround(cv::Point2f(place), board.markers);
  if (!h) {
    return std::nullopt;
  }
  cv::Vec3d const p = *h * cv::Vec3d(place.x, place.y, 1);
  Candidate candidate;
  candidate.index = index;
  candidate.predicted = {static_cast<float>(p[0] / p[2]), static_cast<float>(p[1] / p[2])};
  for (int i = 0; i < 2; ++i) {
    for (int k = 0; k < 2; ++k) {
      candidate.pixels_from_squares(i, k) = ((*h)(i, k) - p[i] / p[2] * (*h)(2, k)) / p[2];
    }
  }
  cv::Matx22d const& j = candidate.pixels_from_squares;
  double const narrowest = std::min(std::hypot(j(0, 0), j(1, 0)), std::hypot(j(0, 1), j(1, 1)));
  double const slant = std::abs(j(0, 0) * j(1, 1) - j(0, 1) * j(1, 0)) /
                       std::max(std::hypot(j(0, 0), j(1, 0)) * std::hypot(j(0, 1), j(1, 1)), 1e-9);
  candidate.gap = narrowest * slant * (1 - markerShare) / 2;
  cv::Rect const inside(3, 3, image.width - 6, image.height - 6);
  return inside.contains(cv::Point(candidate.predicted)) ? std::optional(candidate) : std::nullopt;
}

/// Refines the corner in a window that ends before the markers. A prediction that is off by more than the
/// window sees is brought near by the gradients around it first.
void refine(Candidate& candidate, cv::Mat const& grey, cv::Mat const& smooth) {
  constexpr int smallest = 2; // px each way; fewer hold no crossing
  constexpr int largest = 12;
  constexpr double margin = 0.8; // of the gap: a marker's blurred edge begins before it
  int const half = std::clamp(static_cast<int>(margin * candidate.gap), smallest, largest);
  constexpr int mostSteps = 30;
  constexpr double leastStep = 1e-3; // px
  std::vector<cv::Point2f> corner = {candidate.predicted};
  cv::cornerSubPix(grey, corner, {half, half}, {-1, -1},
                   {cv::TermCriteria::COUNT + cv::TermCriteria::EPS, mostSteps, leastStep});
  // Where there is no saddle, the crossing of gradients stands.
  candidate.centre = settledSaddle(smooth, corner.front(), half).value_or(cv::Point2d(corner.front()));
}

double brightness(cv::Mat const& grey, cv::Point2d const& at) {
  int const x = std::clamp(cvRound(at.x), 0, grey.cols - 1);
  int const y = std::clamp(cvRound(at.y), 0, grey.rows - 1);
  return grey.at<unsigned char>(y, x);
}

/// How much the darker white square outshines the brighter dark one.
double contrastAt(Candidate const& candidate, cv::Mat const& grey, double markerShare, UpperLeft upperLeft) {
  double const inWhite = 0.6 * (1 - markerShare) / 2; // squares, along both axes: ends before the marker
  constexpr double inDark = 0.2;
  double white = 255;
  double dark = 0;
  for (cv::Point const& side : {cv::Point(-1, -1), cv::Point(0, -1), cv::Point(-1, 0), cv::Point(0, 0)}) {
    cv::Point const square = candidate.index + side + cv::Point(1, 1);
    bool const isWhite = isMarked(square, upperLeft);
    double const reach = isWhite ? inWhite : inDark;
    cv::Vec2d const way =
        candidate.pixels_from_squares * cv::Vec2d(side.x < 0 ? -reach : reach, side.y < 0 ? -reach : reach);
    double const value = brightness(grey, cv::Point2d(candidate.centre) + cv::Point2d(way[0], way[1]));
    white = isWhite ? std::min(white, value) : white;
    dark = isWhite ? dark : std::max(dark, value);
  }
  return white - dark;
}

/// Moves the corners that fail to those that were dropped.
template <class IsGood>
void keep(std::vector<Candidate>& corners, std::vector<DroppedDot>& dropped, char const* reason,
          IsGood const& isGood) {
  std::vector<char> good; // judged by all corners, before any is dropped
  for (Candidate const& corner : corners) {
    good.push_back(isGood(corner) ? 1 : 0);
  }
  std::vector<Candidate> kept;
  for (std::size_t i = 0; i < corners.size(); ++i) {
    if (good[i] != 0) {
      kept.push_back(corners[i]);
    } else {
      dropped.push_back({corners[i].centre, reason});
    }
  }
  corners = std::move(kept);
}

std::vector<Candidate> refinedCorners(cv::Mat const& grey, SeenBoard const& board,
                                      TargetDescription const& target) {
  double const markerShare = target.markerSize / target.pitch;
  cv::Mat smooth;
  cv::GaussianBlur(grey, smooth, {}, saddleSmoothing);
  std::vector<Candidate> corners;
  for (int y = 0; y < target.size.height; ++y) {
    for (int x = 0; x < target.size.width; ++x) {
      if (auto corner = predict({x, y}, board, markerShare, grey.size())) {
        refine(*corner, grey, smooth);
        corner->contrast = contrastAt(*corner, grey, markerShare, board.upperLeft);
        corners.push_back(*corner);
      }
    }
  }
  return corners;
}

double medianContrast(std::vector<Candidate> const& corners) {
  std::vector<double> contrasts;
  for (Candidate const& corner : corners) {
    contrasts.push_back(corner.contrast);
  }
  auto const middle = contrasts.begin() + static_cast<std::ptrdiff_t>(contrasts.size() / 2);
  std::nth_element(contrasts.begin(), middle, contrasts.end());
  return *middle;
}

} // namespace

std::vector<BoardCorner> measureCorners(cv::Mat const& grey, SeenBoard const& board,
                                        TargetDescription const& target, std::vector<DetectionStep>& steps,
                                        std::vector<DroppedDot>& dropped) {
  std::vector<Candidate> corners = refinedCorners(grey, board, target);
  steps.push_back({"corners beside them", static_cast<int>(corners.size())});
  if (!corners.empty()) {
    constexpr double leastContrast = 0.3; // of the corners' median
    double const least = std::max(1.0, leastContrast * medianContrast(corners));
    keep(corners, dropped, "is no crossing of two dark and two white squares",
         [&](Candidate const& corner) { return corner.contrast >= least; });
    constexpr double farthest = 1.5; // px, or the gap to the markers where that is more
    keep(corners, dropped, "was not found where the markers put it", [&](Candidate const& corner) {
      return cv::norm(corner.centre - corner.predicted) <= std::max(farthest, corner.gap);
    });
    keep(corners, dropped, "stands off from its neighbours", [&](Candidate const& corner) {
      double const square = cv::norm(corner.pixels_from_squares) / std::sqrt(2.0);
      return offsetFromNeighbours(corners, corner).value_or(0) <= mostOffset(square);
    });
  }
  steps.push_back({"measured", static_cast<int>(corners.size())});
  std::vector<BoardCorner> measured;
  for (Candidate const& corner : corners) {
    measured.push_back({corner.index, corner.centre});
  }
  return measured;
}

} // namespace vorn::mv
