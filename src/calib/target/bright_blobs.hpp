// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>
#include <vector>

namespace vorn::mv {

/// Joined pixels with what they enclose. Positions and moments in pixels.
struct BrightBlob {
  double area = 0;
  cv::Point2d centre;
  double xx = 0; ///< of its pixels about the centre, per pixel; the squares that pixels are included
  double xy = 0;
  double yy = 0;
  cv::Rect box;
};

/// The blobs of zeros among other values that lie wholly in the image: pixels joined by their sides, holes in
/// them filled. By the rows of their first pixels.
///
/// @param ground    H x W CV_8UC1
/// @param largest   blobs of more pixels (holes not counted) are left out
/// @param smallest  likewise of less
std::vector<BrightBlob> findBlobs(cv::Mat const& ground, double smallest, double largest);

} // namespace vorn::mv
