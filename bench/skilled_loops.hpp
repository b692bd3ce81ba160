// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core.hpp>

/// The loops that a skilled user would write for a scan of columns whose surface, light and calibration are
/// kind: vectorised, one thread, nothing masked, nothing mended. What the library takes beyond them is the
/// price of its masks, checks and growth.
namespace vorn::bench {

/// Four steps by an arctangent that vectorises (polynomial, 1e-5 radians): phase in [0, 2 pi), amplitude in
/// grey levels.
/// @param phase,amplitude allocated
void skilledPhase(std::vector<cv::Mat> const& phaseImages, cv::Mat_<float>& phase,
                  cv::Mat_<float>& amplitude);

/// The projector column of every pixel: bits by the mean of two opposite steps, exclusive-or with the
/// reference, the order by the code alone.
/// @param columns allocated
void skilledCode(std::vector<cv::Mat> const& phaseImages, std::vector<cv::Mat> const& codeImages,
                 cv::Mat_<float> const& phase, cv::Mat_<float>& columns);

/// A projector without distortion, in the camera's frame.
struct PlainProjector {
  float focal;          ///< pixels
  float centre;         ///< column of the principal point
  cv::Matx33f rotation; ///< from the projector's frame to the camera's
  cv::Vec3f translation;
};

/// Meets every pixel's ray with the plane of light of its column.
/// @param points allocated
void skilledRayPlane(cv::Mat_<float> const& columns, cv::Mat_<cv::Vec2f> const& cameraRays,
                     PlainProjector const& projector, cv::Mat_<cv::Vec3f>& points);

} // namespace vorn::bench
