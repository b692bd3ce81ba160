// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <limits>
#include <string>
#include <vector>

#include <vorn/core/export.hpp>
#include <vorn/mv/calib/diagnosis.hpp>

namespace vorn::mv {

/// What the images of one sequence of fringes on a target tell of the light and of motion, on the target's
/// dots or ground, where it is lit and away from edges. NaN where the images do not tell.
struct SequenceFigures {
  /// In place of a figure that the images do not tell.
  static constexpr double untold = std::numeric_limits<double>::quiet_NaN();

  /// Amplitude of what the four fringe images hold at twice the phase, as a share of the fringe's: 0 where
  /// camera and projector are linear.
  double secondHarmonic = untold;
  /// How much the first and third fringe image are brighter than the second and fourth, as a share of the
  /// mean: lamps that flicker.
  double flicker = untold;
  /// How much that share changes from image row to row, as a multiple of what noise makes of it: 1 where
  /// lamps do not beat with a rolling shutter.
  double bands = untold;
  /// Standard deviation of that share's means over image rows, less what noise makes of it: how deep such
  /// bands are.
  double bandDepth = untold;
  /// Share of samples of the fringe images at the upper end of their range.
  double clipped = untold;
  /// Median amplitude of the fringes, grey values of 255.
  double amplitude = untold;
  /// Median of the amplitude over the mean: less where light of the room adds to the projector's.
  double contrast = untold;
  /// Amplitude of what in the decoded coordinate repeats with each projector pixel, projector pixels: the
  /// staircase of a sharp projector.
  double staircase = untold;
  /// The same of what repeats with each fringe: something moved, or the light changed, during the sequence.
  double ripple = untold;
  /// How far what is seen moves from one fringe image to the next, camera pixels.
  double creep = untold;
};

/// What the images of one pose before a scanner tell of light, focus and motion.
struct ViewFigures {
  /// What a motion is given as where it is so large that it is not measured.
  static constexpr double largeMotion = 1;

  SequenceFigures columns; ///< of the column sequence
  SequenceFigures rows;    ///< of the row sequence
  /// Share of samples of the target image at the upper end of its range.
  double targetClipped = SequenceFigures::untold;
  /// Standard deviation of the camera's blur at the edges of dots, pixels: 0.9 and less when it is in focus.
  double cameraBlur = SequenceFigures::untold;
  /// How far the target moved from the column to the row sequence, camera pixels, at most `largeMotion`.
  double movedBetween = SequenceFigures::untold;
  /// How far it moved from the target image to the column sequence, the same way.
  double movedBefore = SequenceFigures::untold;
};

/// A view's name and its figures.
struct NamedFigures {
  std::string name;    ///< for texts
  ViewFigures figures; ///< of its images
};

/// Names what is wrong with the images of a scanner's views: gamma, flicker, bands, exposure, focus,
/// sharpness, light of the room, and a target that moved. Single faults of this kind change a calibration by
/// less than its noise, but for motion, and spoil the scans that follow. Findings of motion count views;
/// others stand for all views that they name.
[[nodiscard]] VORN_API std::vector<Finding> diagnoseImages(std::vector<NamedFigures> const& views);

} // namespace vorn::mv
