// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

#include <opencv2/core/mat.hpp>

#include <vorn/core/export.hpp>
#include <vorn/core/filter_chain.hpp>
#include <vorn/mv/imaging/image_filter.hpp>

namespace vorn::mv {

/// All image filters of the library, by class name. With it a chain of filters is read from JSON:
/// `readFilterChain(json, imageFilters())`.
VORN_API Registry<IImageFilter> const& imageFilters();

/// A filter with default settings, by its class name: "vorn::mv::GaussianFilter", "GaussianFilter" or
/// "Gaussian".
/// @throws Exception when there is no filter of this name
VORN_API std::unique_ptr<IImageFilter> createImageFilter(std::string const& name);

/// What the last filter of the chain makes when each is given what the one before it made; a copy of the
/// input when there is none.
/// @throws what the filters throw
VORN_API cv::Mat applyFilters(FilterChain<IImageFilter> const& chain, cv::Mat const& input);

} // namespace vorn::mv
