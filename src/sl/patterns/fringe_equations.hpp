// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <opencv2/core/matx.hpp>

#include "sl/patterns/set_groups.hpp"

namespace vorn::mv::sl {

/// The least-squares equations of a fringe's images. Image k shows
///
///   I = e (a + s cos(o) + c sin(o)),   s = B sin(phase), c = B cos(phase),
///
/// with its exposure e, relative to the longest, and its offset o: linear in the mean level a, and in s and
/// c.
class FringeEquations {
public:
  static constexpr std::size_t mostImages = 32;

  /// What image k contributes to a sum.
  struct Row {
    float gain, cosine, sine; ///< e, e cos(o), e sin(o)
  };

  /// The inverse of the normal equations of some of the images.
  struct Inverse {
    cv::Matx33f matrix;
    bool isSolvable;
    int images; ///< how many there are
  };

  FringeEquations(PatternSet const& set, Fringe const& fringe);

  Row const& row(std::size_t image) const { return rows_[image]; }
  std::size_t size() const { return rows_.size(); }

  /// @param lost bit k: image k of the fringe is left out
  Inverse inverse(std::uint32_t lost) const;

  bool isSolvable() const { return inverse(0).isSolvable; }

private:
  std::vector<Row> rows_;
};

} // namespace vorn::mv::sl
