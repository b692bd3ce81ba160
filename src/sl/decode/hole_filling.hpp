// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include "sl/decode/segments.hpp"

namespace vorn::mv::sl {

/// The wrapped phase in [0, 2 pi) that a pixel itself shows, or a negative number where it shows none.
using OwnPhase = std::function<float(cv::Point pixel)>;

/// Closes holes in an absolute phase map that one smooth surface surrounds.
///
/// A hole is a set of 8-connected missing pixels that does not touch the image's border; it is closed when it
/// fits into a square of 2 `maxRadius` + 1 pixels and a quadratic surface fits what is around it. A pixel in
/// it that shows a phase of its own keeps that one, if it agrees with the surface, and stays missing if not.
/// @param phase absolute, radians
/// @param kept  255 where `phase` is known, 0 in holes
/// @param runs  working memory
/// @return the number of pixels closed
int fillHoles(cv::Mat_<float>& phase, cv::Mat_<uchar>& kept, int maxRadius, OwnPhase const& ownPhase,
              std::vector<Run>& runs);

} // namespace vorn::mv::sl
