// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

#include <opencv2/core/types.hpp>

namespace vorn::tools {

/// What is wrong with the number of images of a sequence: that there are fewer than a projector takes, how
/// many there are and how many it takes; empty for nothing.
/// @param prefix    "columns" or "rows"
/// @param count     of its images
/// @param projector its pixels; empty when they are to be found from the images
std::string missingImages(std::string const& prefix, std::size_t count, cv::Size const& projector);

/// The same where there are more than a projector's code has: pictures of something else are among them.
std::string extraImages(std::string const& prefix, std::size_t count, cv::Size const& projector);

/// @param folder where the images lie; empty where the message stands beside its name
/// @throws Exception that says what is wrong with the number of images
void requireImageCount(std::string const& prefix, std::size_t count, cv::Size const& projector,
                       std::string const& folder, char const* context);

} // namespace vorn::tools
