// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/core/export.hpp>
#include <vorn/mv/calib/detect_target.hpp>
#include <vorn/mv/calib/target_description.hpp>

namespace vorn::mv {

/// Finds targets of a kind whose search takes libraries that this one does without. Its functions are called
/// from several threads at a time.
class VORN_API ITargetFinder {
public:
  virtual ~ITargetFinder();

  /// The target's points in an image, as `detectTarget` gives them.
  /// @param grey H x W CV_8UC1
  /// @param target of the finder's kind, within the bounds of `TargetDescription::check`
  virtual Detection detect(cv::Mat const& grey, TargetDescription const& target,
                           DetectSettings const& settings) const = 0;

  /// What is to be printed dark on white, to draw the target: rectangles, mm, in the target's frame. Those
  /// that touch share their edge exactly.
  virtual std::vector<cv::Rect2d> darkParts(TargetDescription const& target) const = 0;
};

/// Lets `detectTarget`, and with it all calibrations, find targets of a kind by a finder; without one (null)
/// they refuse the kind. Libraries of finders do this themselves, such as `useCharuco` of `vorn::mv_charuco`.
/// @throws Exception for a kind that the library finds by itself: any but TargetKind::Charuco
VORN_API void setTargetFinder(TargetKind kind, std::shared_ptr<ITargetFinder const> finder);

/// The finder that was set for a kind; null when there is none.
VORN_API std::shared_ptr<ITargetFinder const> targetFinder(TargetKind kind);

} // namespace vorn::mv
