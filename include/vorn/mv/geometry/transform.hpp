// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/core/export.hpp>

/// Rigid transforms as 4 x 4 matrices (row-major): the rotation in the upper left 3 x 3 block, the
/// translation in the fourth column, the last row (0, 0, 0, 1). A transform M carries a point x to R * x + t.
namespace vorn::mv::math {

/// The 4 x 4 transform of a rotation and a translation.
VORN_API cv::Matx44d createTransform(cv::Matx33d const& R, cv::Vec3d const& t);

/// The rotation block.
VORN_API cv::Matx33d getR3(cv::Matx44d const& M);
/// @overload
VORN_API cv::Matx33f getR3(cv::Matx44f const& M);
/// The translation.
VORN_API cv::Vec3d getT3(cv::Matx44d const& M);
/// @overload
VORN_API cv::Vec3f getT3(cv::Matx44f const& M);
/// The whole fourth column.
VORN_API cv::Vec4d getT4(cv::Matx44d const& M);
/// @overload
VORN_API cv::Vec4f getT4(cv::Matx44f const& M);
/// Writes the rotation block and leaves the rest.
VORN_API void setR3(cv::Matx44d& M, cv::Matx33d const& R);
/// @overload
VORN_API void setR3(cv::Matx44f& M, cv::Matx33f const& R);
/// Writes the translation and leaves the rest.
VORN_API void setT3(cv::Matx44d& M, cv::Vec3d const& t);
/// @overload
VORN_API void setT3(cv::Matx44f& M, cv::Vec3f const& t);

/// One point carried by a rigid transform, reckoned in double.
VORN_API cv::Point3f transform(cv::Point3f const& point, cv::Matx44d const& M);

/// One point of the plane carried by a homography (3 x 3) or an affine map (2 x 3), reckoned in double.
///
/// A point that the homography sends to infinity has non-finite coordinates.
/// @param H 3 x 3 or 2 x 3, one channel, float or double
/// @throws Exception for any other matrix
VORN_API cv::Point2f transform(cv::Point2f const& point, cv::Mat const& H);

/// The points carried by a rigid transform, in their order, reckoned in double.
VORN_API std::vector<cv::Point3f> transformPoints(std::vector<cv::Point3f> const& points,
                                                  cv::Matx44d const& M);

/// Every point of a grid of points carried by a rigid transform, reckoned in double. NaN points stay NaN.
/// @param cloud H x W points, a region of interest too; the result has its size
VORN_API cv::Mat_<cv::Vec3f> transformPointCloud(cv::Matx44d const& M, cv::Mat_<cv::Vec3f> const& cloud);

} // namespace vorn::mv::math
