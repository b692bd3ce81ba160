// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>

/// How ink is mixed with what a picture shows: rows of pictures of three channels and any depth.
namespace vorn::mv {

/// A pen in the units of the picture.
struct InkedPen {
  cv::Vec3d color;
  cv::Vec3d halo;
  float inkReach;  ///< the distance from which on there is no ink
  float haloReach; ///< and no rim; 0 without one
};

/// Inks pixels of a row by their distances from a line.
/// @param at the first of `columns` pixels
void inkRow(cv::Mat& picture, cv::Point at, float const* distances, int columns, InkedPen const& pen);

/// Covers pixels of a row by shares from 0 to 1.
void blendRow(cv::Mat& picture, cv::Point at, float const* coverage, int columns, cv::Vec3d const& color);

} // namespace vorn::mv
