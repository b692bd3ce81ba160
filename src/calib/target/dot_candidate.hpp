// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>
#include <vector>

#include "calib/target/target_finder.hpp"
#include "core/progress.hpp"

namespace vorn::mv {

/// A bright blob that may be the image of a dot. Pixels of the full image.
struct DotCandidate {
  cv::Point2d centre;
  double area = 0;
  /// Takes the unit circle to the blob's outline about its centre; symmetric.
  cv::Matx22d outline;
  /// The inverse of `outline`.
  cv::Matx22d whitening;
};

/// Slack of the bounds of a dot's area: areas of blobs are coarse, and dots at a bound are no worse than
/// others.
constexpr double areaSlack = 1.6;

/// An image reduced by a whole factor, each pixel the mean of a square of the full one.
struct ReducedImage {
  cv::Mat image;
  int factor = 1;

  /// The position in the full image of a position in this one.
  cv::Point2d toFull(cv::Point2d const& p) const {
    double const shift = 0.5 * (factor - 1);
    return {p.x * factor + shift, p.y * factor + shift};
  }
  /// The position in this image of a position in the full one.
  cv::Point2d fromFull(cv::Point2d const& p) const {
    double const shift = 0.5 * (factor - 1);
    return {(p.x - shift) / factor, (p.y - shift) / factor};
  }
};

/// `image` reduced by `factor`; rows and columns that do not fill a square are left out.
ReducedImage reduce(cv::Mat const& image, int factor);

/// Factors to search an image at, coarsest first, so that at one of them at least every dot within the area
/// bounds has the size that `findCandidates` is made for.
std::vector<int> searchFactors(cv::Size const& size, TargetSettings const& settings);

/// Bright blobs of the shape and size of dots: smooths `level.image` in place, binarises it against its
/// surroundings, cleans it up and joins what is left.
/// @throws Cancelled when the observer stops it
std::vector<DotCandidate> findCandidates(ReducedImage& level, TargetSettings const& settings,
                                         Progress const& progress);

} // namespace vorn::mv
