// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <opencv2/core/mat.hpp>

#include <vorn/core/observer.hpp>

namespace vorn::tools {

/// The files of a sequence that has names of its own: names and patterns ("img_*.png") in a folder, in the
/// order that they are given in, and what one pattern matches in the order of its numbers.
/// @throws Exception when nothing matches a pattern
std::vector<std::string> namedFiles(std::string const& folder, std::vector<std::string> const& names);

/// Reads images of one size and type in their full depth; a single TIFF file of several pages is a sequence.
/// @throws Exception as `readMeasuredImage`, and that names the picture of another size or type than the
/// first
std::vector<cv::Mat> readNamedImages(std::vector<std::string> const& files, Observer* observer = nullptr);

/// Whether an image of one channel looks like the raw pixels of a colour sensor: two of the four in every
/// square of two by two, on a diagonal, are alike over the image, and the others are not.
bool isLikeMosaic(cv::Mat const& image);

} // namespace vorn::tools
