// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/mv/calib/target_description.hpp>
#include <vorn/mv/scanner/calibration.hpp>

namespace vorn::mv {

/// The middle of a whole target of known size, about which it looks the same turned, mm.
cv::Point2d middleOf(TargetDescription const& target);

/// How far two transforms differ: the angle plus what the difference in place is of the target's distance.
double difference(cv::Matx44d const& a, cv::Matx44d const& b, double distance);

/// Makes two cameras count the dots of a target alike that looks the same turned: of the ways to count them,
/// those are taken in which all views agree on where the cameras stand to each other.
///
/// Counted wrongly, a view turns one camera about the target's normal, which is another axis in every view;
/// only counted rightly do the views agree.
///
/// @param views whose second device's `objPnts` are turned
/// @param readings in how many ways each view may be counted: 1, 2 or 4
/// @param sizes of the cameras' images
/// @throws Exception when the views agree in more than one way
void countAlike(std::vector<CalibratedView>& views, std::vector<int> const& readings,
                TargetDescription const& target, std::vector<cv::Size> const& sizes);

} // namespace vorn::mv
