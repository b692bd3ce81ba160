// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <vector>

#include <opencv2/core/types.hpp>

#include "grid_finders.hpp"

namespace vorn::bench {

/// What one finder made of a set's pictures.
struct FoundSet {
  std::vector<FoundPoints> pictures;
  std::vector<double> times; ///< ms, one a picture
  cv::Size imageSize;
};

int foundCount(FoundSet const& found);
int pointCount(FoundSet const& found);

/// Root mean square distance of points from where a lens of five coefficients, calibrated with all pictures
/// by `cv::calibrateCamera`, images them, px; none when fewer than three pictures serve.
std::optional<double> calibrationError(FoundSet const& found);

/// The same of every third picture, whose points the calibration did not see; poses are fitted. None when
/// fewer than three others serve.
std::optional<double> heldOutError(FoundSet const& found);

/// Both with only those points, of those pictures, that the other one has too: nearer than 3 px.
FoundSet shared(FoundSet const& found, FoundSet const& other);

} // namespace vorn::bench
