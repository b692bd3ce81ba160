// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <vorn/mv/calib/adjustment.hpp>

#include "calib/adjust/bundle.hpp"
#include "core/progress.hpp"

namespace vorn::mv {

/// What is known of a device before an adjustment.
struct DeviceStart {
  CameraModel model; ///< its resolution, and its lens where it is calibrated
  bool isHeld = false;
};

/// The dots of all views with the target's dots numbered, without devices and poses.
/// @param deviceCount 1: `points1` do not count
/// @param isRead dots without a pixel in device 0 do not count
Bundle bundleOf(std::vector<AdjustmentView> const& views, int deviceCount, bool isRead);

/// One device of a bundle by itself: its lens and the poses that its views have to it, each view's dots those
/// that it sees. Views in which it sees too few dots for a pose have none.
struct DeviceAlone {
  Bundle bundle;
  std::vector<int> viewOf;  ///< of the whole bundle, for each of this one
  std::vector<int> indexOf; ///< the other way round; -1 for views without
};

/// The least-squares solution of a device by itself, for a flat target: Zhang's closed form (2000) and the
/// poses from homographies, refined.
DeviceAlone solveAlone(Bundle const& whole, int device, DeviceStart const& start,
                       AdjustmentSettings const& settings, Progress const& progress);

/// Puts both devices' own solutions together: the first one's poses, and of the transforms that the views
/// give the one nearest to all others.
void joinSolutions(DeviceAlone const& alone0, DeviceAlone const& alone1, Bundle& whole);

} // namespace vorn::mv
