// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/core/export.hpp>
#include <vorn/core/interfaces.hpp>

namespace vorn::mv {

/// What a calibration target's points are.
enum class TargetKind {
  Circles,          ///< dots at every place of a square grid: (column, row) * pitch
  StaggeredCircles, ///< dots in rows that are set off by half a step in turn, as on an asymmetric circle
                    ///< grid: row r has its dots at ((2 column + r mod 2), r) * pitch
  Chessboard,       ///< the inner corners of a chessboard: (column, row) * pitch
  Charuco           ///< the same of a chessboard with ArUco markers in its white squares, which tell the
                    ///< corners apart in any part of it; found by the library `vorn::mv_charuco`
};

/// Whether dots are brighter or darker than their ground.
enum class TargetPolarity { Either, Bright, Dark };

/// How far a dot stands from where it was meant to, as measured.
struct DotDeviation {
  cv::Point index;    ///< of the dot
  cv::Point2d offset; ///< actual minus nominal, mm
};

/// A calibration target: what is needed to find it and to know which of its points is where.
///
/// Indices count columns to the right and rows downwards, seen from the front. Of a staggered grid, an index
/// counts half steps: the dots of row 0 are at (0, 0), (2, 0), ..., those of row 1 at (1, 1), (3, 1), ...
struct VORN_API TargetDescription : IJsonSerializable {
  /// What its points are. Staggered grids and chessboards take a known size, and `first` at (0, 0).
  TargetKind kind = TargetKind::Circles;
  /// The unit of the grid, mm; above 0. Of dots the way to the next column, of a staggered grid the way to
  /// the next row, which is half the way from one dot of a row to the next; of a chessboard a square's side.
  double pitch = 0;
  /// Columns and rows of dots, of chessboards those of inner corners; of a staggered grid the dots of one
  /// row and the rows; 2 or more each way, of chessboards 3. (0, 0) when not known: marks must fix the
  /// indices then, or they are counted from the middle of what is seen.
  cv::Size size;
  /// The index of the first column and row.
  cv::Point first;
  /// Dots that are larger than the others. Three at (0, 0), (1, 0) and (0, 1) fix the indices of any part of
  /// the target in which they are seen; other ones tell which way round a grid of known size lies.
  std::vector<cv::Point> marks;
  /// Of a ChArUco board, the side of a marker, its dark border included, mm; above 0 and below the pitch.
  double markerSize = 0;
  /// Of a ChArUco board, the dictionary of its markers by OpenCV's name, as "DICT_5X5_100".
  std::string dictionary;
  /// Of a ChArUco board, the number of its first marker in the dictionary; the others count up from it, by
  /// rows from the top. 0 or more.
  int firstMarker = 0;
  /// Whether dots are brighter or darker than their ground; Either takes what the image shows. Chessboards
  /// have none.
  TargetPolarity polarity = TargetPolarity::Either;
  /// Of dots that do not stand where they were meant to; others do.
  std::vector<DotDeviation> deviations;

  /// @throws Exception that names the member, its value and the bound
  void check() const;

  /// Whether the marks are the three that fix the indices of a part of the target.
  bool hasCornerMarks() const;

  /// Where a point of the target is on it, mm.
  cv::Point2d position(cv::Point const& index) const;

  /// Reads members "kind" ("circles", "staggered", "chessboard", "charuco"), "pitch", "size" [columns, rows],
  /// "first", "marks" [[column, row], ...], "polarity" ("either", "bright", "dark") and "deviations"
  /// [[column, row, dx, dy], ...]; all but "pitch" may be missing. Of chessboards "squares" [columns, rows],
  /// one more than inner corners each way, may stand in the place of "size". A ChArUco board has "markerSize"
  /// and "dictionary" too, and "firstMarker" when it is not 0. The description is as it was when it throws.
  /// @throws Exception for a member of a wrong type or value, or whose name is misspelt; others are passed
  /// over
  void read(nlohmann::json const& json) override;
  void write(nlohmann::json& json) const override;
};

} // namespace vorn::mv
