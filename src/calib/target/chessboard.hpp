// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>

#include <vorn/mv/calib/detect_target.hpp>

#include "core/progress.hpp"

namespace vorn::mv {

/// Finds the inner corners of a chessboard, the whole of which must be in view, of either polarity.
///
/// `cv::findChessboardCornersSB` looks for the board in the image reduced and brought to even light, and as
/// it is, from coarse to fine; corners are then measured at the saddles of the grey levels, and each must be
/// a crossing of two dark and two bright squares. A board whose squares go on beyond the described ones is
/// refused: which part of it was found, nothing tells. Where the colours of the squares differ after half or
/// a quarter turn they fix the indices, the first corner being one with dark squares at its upper left and
/// lower right.
///
/// @param image H x W CV_8UC1
/// @throws Cancelled when the observer stops it
Detection detectChessboard(cv::Mat const& image, TargetDescription const& target,
                           Progress const& progress = {});

} // namespace vorn::mv
