// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

namespace vorn::mv {

/// A blurred step, and the variances of its position and contrast for samples of independent noise as large
/// as the residuals.
struct EdgeFit {
  double position;
  double blur;
  double low;
  double contrast;
  double variance;
  double contrastVariance;
};

/// The blurred step of least squares through samples [begin, end) near a start; nothing where none fits.
std::optional<EdgeFit> fitEdge(std::vector<double> const& positions, std::vector<double> const& values,
                               std::size_t begin, std::size_t end, EdgeFit start);

} // namespace vorn::mv
