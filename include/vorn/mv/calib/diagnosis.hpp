// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <opencv2/core/matx.hpp>

#include <vorn/core/export.hpp>
#include <vorn/core/observer.hpp>
#include <vorn/mv/calib/adjustment.hpp>

namespace vorn::mv {

/// What may be wrong with the views of a calibration.
enum class FindingCause {
  WrongDots,         ///< single dots are not where they should be; they were left out
  BentTarget,        ///< the target is bent, or its pitch uneven; the adjustment took its shape into account
  WrongView,         ///< one view belongs to no pose: the target moved, or its images are of several poses
  ViewDisagrees,     ///< the view is good by itself, but shows the devices elsewhere to each other than the
                     ///< others
  DeviceMoved,       ///< a device was moved between two views; the calibration holds for neither part
  FocusChanged,      ///< focus or zoom of a device were changed between two views
  Coverage,          ///< the dots fill too little of a device's image
  SmallTilts,        ///< the target was hardly tilted
  Mirrored,          ///< an image is mirrored, or columns and rows are exchanged
  SamePose,          ///< two views show one and the same pose
  LensModel,         ///< the lens needs thin prism terms
  Gamma,             ///< camera or projector are not linear
  Flicker,           ///< the light changes from image to image
  Bands,             ///< lamps beat with a rolling shutter
  Overexposed,       ///< fringe images are clipped
  TargetOverexposed, ///< target images are clipped
  TooDark,           ///< fringes are dark
  CameraBlurred,     ///< the camera is out of focus
  ProjectorBlurred,  ///< the projector is out of focus
  Staircase,         ///< the projector shows its single pixels
  RoomLight,         ///< light of the room adds to the projector's
  MovedBefore,       ///< the target moved between its image and the sequences
  MovedBetween,      ///< the target moved between the sequences
  MovedDuring        ///< the target moved while the sequences were shown
};

/// The name of a cause in files: "wrongDots", "bentTarget" and so on, as the enumerators.
[[nodiscard]] VORN_API std::string nameOf(FindingCause cause);

/// What to do about a cause, one sentence.
[[nodiscard]] VORN_API std::string adviceOf(FindingCause cause);

/// Something that is wrong with a calibration, or that its user should know.
struct Finding {
  /// What.
  FindingCause cause = FindingCause::WrongDots;
  /// The index of the view, of DeviceMoved and FocusChanged the first one after; -1: none by itself.
  int view = -1;
  /// The device: 0 the (first) camera, 1 the projector or second camera; -1: none by itself.
  int device = -1;
  /// The figure that gave it away.
  double value = 0;
  /// The figure's limit.
  double limit = 0;
  /// One sentence with the view's name and the figure in words.
  std::string text;
  /// What to do.
  std::string advice;
  /// Whether the calibration should not be used as it is.
  bool isGrave = false;
};

/// How far two devices stand elsewhere to each other in one view than in all views together, to first order.
struct TransformDeviation {
  cv::Vec3d turn;  ///< of device 1 in the frame of device 0, radians
  cv::Vec3d shift; ///< in the target's unit
  /// How much better the view fits with a transform of its own: a sixth of what the weighted squares fall by.
  /// About 1 by chance; 30 and more in a view that disagrees.
  double chi2 = 0;
};

/// The deviation of every view of an adjustment of two devices; none for a single camera or below 3 views. 0
/// for a view that does not show both devices at least 6 dots: it says nothing of how they stand.
/// @throws Exception when views and adjustment do not belong together
[[nodiscard]] VORN_API std::vector<TransformDeviation>
transformDeviations(std::vector<AdjustmentView> const& views, Adjustment const& adjustment);

/// Names what is wrong with the views of an adjustment, from its residuals and from trial adjustments:
/// without each view in turn, and with a device moved between any two. Nothing is found where nothing is
/// wrong.
///
/// Where residuals are greater than the noise (`Adjustment::s0` above 1.3), one cause is named, the first in
/// this order that explains them: wrong dots, target's shape, one view, device moved, focus changed. Of a
/// single camera that is free: wrong dots, mirrored images, focus changed, target's shape, one view.
/// Not seen: a wrong pitch of the whole target; that all images of a single camera are mirrored, or some of
/// one whose principal point is in their middle; and what lies in the images themselves (exposure, gamma,
/// flicker), which the points do not show.
/// @param views      as given to the adjustment
/// @param adjustment their result
/// @param observer   is told the stage "diagnosing" and may stop it
/// @throws Exception when the two do not belong together; `Cancelled` when the observer stops it
[[nodiscard]] VORN_API std::vector<Finding> diagnose(std::vector<AdjustmentView> const& views,
                                                     Adjustment const& adjustment,
                                                     Observer* observer = nullptr);

} // namespace vorn::mv
