// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/core/export.hpp>
#include <vorn/mv/calib/calib_key_point.hpp>
#include <vorn/mv/calib/target_description.hpp>

namespace vorn {
class Observer;
}

namespace vorn::mv {

/// Bounds of a search for a target; as they are they leave out nothing that can be measured.
struct DetectSettings {
  /// Fewer points are no target; 0: 20, or as many as the target has; of a ChArUco board 8.
  int minKeyPoints = 0;
  /// Least area of the ordinary dots, px², 0 or more; narrow bounds make the search faster.
  double minDotArea = 20;
  /// Greatest area of the ordinary dots, px²; `minDotArea` or more, and at least 1.
  double maxDotArea = 32000;
  /// Least ratio of a dot's short axis to its long one, above 0 and up to 1.
  double minDotRatio = 0.2;
  /// Radius of the smoothing before the search, 0 to 15 pixels.
  int blurRadius = 7;
  /// Specks and necks of less than this radius are taken off what may be dots, 0 to 10 pixels.
  int morphRadius = 1;

  /// @throws Exception that names the setting, its value and the bound
  VORN_API void check() const;
};

/// How much was left after a step of a detection.
struct DetectionStep {
  std::string name; ///< such as "candidates", "in a grid", "measured"
  int count = 0;    ///< dots or corners left
};

/// A dot that was found and is not among the key points.
struct DroppedDot {
  cv::Point2f imgPnt; ///< pixels
  std::string reason; ///< why, in words
};

/// What was found of a target in an image.
struct Detection {
  /// By rows of the target; none when it was not found.
  std::vector<CalibKeyPoint> keyPoints;
  /// The index of each key point.
  std::vector<cv::Point> indices;
  /// How large each dot is in the image: the radius of a circle of the same area, pixels; none for corners.
  std::vector<float> radii;
  /// Whether marks fixed the indices.
  bool isOriginMarked = false;
  /// In how many ways the points may be counted: 1 when marks, colours or the shape of a whole grid fix the
  /// indices; 2 or 4 when a whole grid looks the same turned, of which the way was taken that has x most
  /// along the image's columns; 0 when indices count from the middle of what is seen of an unknown grid.
  int readings = 0;
  /// How many candidates were left after each step.
  std::vector<DetectionStep> steps;
  /// The dots of the grid that were left out; where nothing was found also those of the grid that was refused
  /// and the candidates that are in no grid, a thousand at most for each reason; of boards the corners.
  std::vector<DroppedDot> dropped;
  /// Why nothing was found, with the figure that decided; empty when something was.
  std::string reason;

  /// Whether no target was found.
  bool isEmpty() const { return keyPoints.empty(); }
};

/// Finds a target in an image and tells which of its points each is.
///
/// Dots are found at any diameter from 0.2 to 0.8 of the pitch and from about 6 to 200 pixels, of either
/// polarity, cut and covered ones left out; the position of a dot is the image of its centre, corrected for
/// perspective. Of a target with the three corner marks any part will do that shows them. A grid of known
/// size must be seen to its last row and column on all four sides, with gaps if need be. Corners of
/// chessboards are found by `cv::findChessboardCornersSB`, which wants the whole board, in the image reduced
/// and brought to even light, and as it is; they are then moved to the saddles of the grey levels. Corners
/// that are no crossings of two dark and two bright squares, or that do not stand where their neighbours say,
/// are left out; a board whose squares go on beyond the described ones is refused. Where its columns and
/// rows are not both odd or both even, the squares' colours fix the indices: the first corner has dark
/// squares at its upper left and lower right. Of a ChArUco board
/// any part will do; it takes the library `vorn::mv_charuco`, or another finder (`setTargetFinder`).
///
/// Images of more than 8 bits are brought to 8 by a linear stretch between their darkest and brightest
/// thousandth to be searched; dots are then measured in the full depth, corners of boards in the 8 bits.
/// 8-bit images are taken as they are.
///
/// @param image H x W, 8- or 16-bit unsigned, float or double, one channel or three in blue, green, red; not
///              empty
/// @throws Exception for an image of another type or none, a description or settings out of bounds, a ChArUco
///         board where no finder for it was set, and before `Library::init`
/// @throws Cancelled when the observer stops it
VORN_API Detection detectTarget(cv::Mat const& image, TargetDescription const& target,
                                DetectSettings const& settings = {}, Observer* observer = nullptr);

} // namespace vorn::mv
