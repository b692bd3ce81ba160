// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <vorn/mv/sl/lookup_tables.hpp>

namespace vorn::mv {

/// Largest difference of two 8-bit intensities; the tables are indexed by differences plus an offset.
constexpr int maxDifference = 255;
constexpr int lutColumns = 2 * maxDifference + 1;
constexpr int lutRowsFourSteps = 2 * maxDifference + 1;
constexpr int lutRowsThreeSteps = 4 * maxDifference + 1;
constexpr int grayLutSize = 8192;

/// The first entry of a decoder's table of `rows` x `lutColumns`.
/// @throws std::logic_error when the table is not built
float const* requireTable(cv::Mat_<float> const& table, int rows);

/// The first entry of a Gray code table.
/// @throws std::logic_error when the table is not built
unsigned short const* requireTable(std::vector<unsigned short> const& table);

} // namespace vorn::mv
