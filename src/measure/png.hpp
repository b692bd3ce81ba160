// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <opencv2/core/mat.hpp>

namespace vorn::mv {

/// An image as a PNG file whose data are stored, not compressed: the library brings no codec with it.
/// @param image CV_8UC3, blue, green, red
std::string storedPng(cv::Mat const& image);

/// Bytes as letters, as data links want them (RFC 4648).
std::string base64(std::string const& bytes);

} // namespace vorn::mv
