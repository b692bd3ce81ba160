// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <opencv2/core/mat.hpp>

namespace vorn::test {

/// An SVG document as another program (rsvg-convert of librsvg) draws it, CV_8UC3; fails the test where it
/// cannot.
cv::Mat rasterized(std::string const& svg);

} // namespace vorn::test
