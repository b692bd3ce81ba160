// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>

#include "core/progress.hpp"
#include "scanner/scan/triangulation.hpp"

namespace vorn::mv {

class Sl3dScanner;

/// Which of the projector's axes a map has coordinates of.
enum class MapCoordinate { Column, Row };

/// Which one a scanner decodes, by its "ScannerType".
MapCoordinate coordinateOf(Sl3dScanner const& scanner);

/// The points of a whole map in the camera's frame; NaN where there is none in front of the camera.
/// @param setup its pose is passed over
cv::Mat_<cv::Vec3f> pointsInCamera(sl::TriangulationSetup setup, cv::Mat_<float> const& map,
                                   MapCoordinate coordinate, Progress const& progress);

/// Puts NaN in place of points of a greater depth.
void dropBeyond(cv::Mat_<cv::Vec3f>& xyz, double farthest, Progress const& progress);

/// Gaussian blur over 2 r + 1 pixels in square, weighted with what is measured: a point becomes the mean of
/// the points around it, and NaN stays NaN.
void blurMeasured(cv::Mat_<cv::Vec3f>& xyz, int radius, Progress const& progress);

/// Moves the points by a rigid transform; NaN stays NaN.
void movePoints(cv::Mat_<cv::Vec3f>& xyz, cv::Matx44d const& transform, Progress const& progress);

} // namespace vorn::mv
