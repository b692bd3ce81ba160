// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace vorn::tools {

/// What the ends of the colours stand for where values lie on both sides of nought: far enough to show how
/// the bulk of them varies, whatever a few stray ones are.
/// @return three times the robust standard deviation about nought (1.4826 medians of the sizes), at most the
///         largest size; above 0
double deviationReach(std::vector<float> const& values);

/// How many values are beyond the ends of the colours.
std::size_t countBeyond(std::vector<float> const& values, double low, double high);

/// "2.3 % lie beyond", or nothing where none do.
std::string beyondInWords(std::size_t beyond, std::size_t count);

} // namespace vorn::tools
