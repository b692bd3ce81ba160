// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <opencv2/core/types.hpp>

namespace vorn::tools {

/// The size in a text like "640x400".
/// @param option the option it was given to, for the message
/// @throws Exception when the text is no size
cv::Size2d parseSize(std::string const& text, std::string const& option);

/// The same in whole pixels.
/// @throws Exception also for fractions and for more pixels than any device has
cv::Size parsePixels(std::string const& text, std::string const& option);

/// A size in words: "640 x 480".
std::string sizeText(cv::Size const& size);

} // namespace vorn::tools
