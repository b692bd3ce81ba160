// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/core/export.hpp>

namespace vorn::mv::math {

/// The rigid transform that best carries one list of points onto another, point by point: the sum of the
/// squares of second[i] - (R first[i] + t) is least.
///
/// By the singular value decomposition of the cross covariance (Arun, Huang, Blostein 1987). The result is
/// always a rotation, never a reflection: when the best orthogonal matrix R0 is a reflection, its third
/// column is negated.
/// @param first at least one point
/// @param second as many points or more; those beyond the first list count for its centroid only
/// @throws Exception when a list is empty or the second is shorter than the first
VORN_API cv::Matx44d estimateTransform(std::vector<cv::Point3f> const& first,
                                       std::vector<cv::Point3f> const& second);

/// The surface z = a x^2 + b x + c y^2 + d y + e that fits points best (least squares in z).
/// @return 5 x 1 doubles (a, b, c, d, e); all zero when the points do not determine them, as fewer than 5 or
///         points on one line
VORN_API cv::Mat quadraticFit(std::vector<cv::Point3f> const& points);

} // namespace vorn::mv::math
