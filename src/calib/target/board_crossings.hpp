// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

namespace vorn::mv {

/// Where four squares of a board meet, and how it lies there: a square along its x and along its y, pixels.
struct Crossing {
  cv::Point2d centre;
  cv::Point2d right;
  cv::Point2d down;
};

/// By how many grey levels the darker bright square at a crossing outshines the brighter dark one: above 0
/// where the dark ones are at the upper left and lower right, below 0 where they are the others, and 0 where
/// the squares do not alternate.
/// @param smooth CV_8UC1
double crossingContrast(cv::Mat const& smooth, Crossing const& crossing);

/// Places where two dark and two bright corners meet, whatever they belong to.
/// @param image CV_8UC1
std::vector<cv::Point2f> findCrossings(cv::Mat const& image);

} // namespace vorn::mv
