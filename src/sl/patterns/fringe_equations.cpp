// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/patterns/fringe_equations.hpp"

#include <algorithm>
#include <cmath>

#include <opencv2/core.hpp>

namespace vorn::mv::sl {

namespace {

/// Offsets that nearly repeat make the phase as good as all noise: five times that of even steps.
bool isDetermined(cv::Matx33d const& normal, int images) {
  constexpr double leastDeterminant = 0.01;
  double const energy = normal(0, 0);
  double const ofEvenSteps = energy * energy * energy / 4.0;
  return images >= 3 && energy > 0.0 && cv::determinant(normal) > leastDeterminant * ofEvenSteps;
}

} // namespace

FringeEquations::FringeEquations(PatternSet const& set, Fringe const& fringe) {
  double longest = 0.0;
  for (PatternImage const& image : set.images) {
    longest = std::max(longest, image.exposure);
  }
  for (std::size_t const i : fringe.images) {
    double const gain = set.images[i].exposure / longest;
    double const angle = angleOf(set.images[i]);
    rows_.push_back({static_cast<float>(gain), static_cast<float>(gain * std::cos(angle)),
                     static_cast<float>(gain * std::sin(angle))});
  }
}

FringeEquations::Inverse FringeEquations::inverse(std::uint32_t lost) const {
  cv::Matx33d normal = cv::Matx33d::zeros();
  int images = 0;
  std::vector<Row> kept;
  for (std::size_t k = 0; k < rows_.size(); ++k) {
    if ((lost >> k & 1U) == 0) {
      kept.push_back(rows_[k]);
    }
  }
  // Those of short exposures alone may do: what else is there cannot make them worse, bright as it may be.
  std::stable_sort(kept.begin(), kept.end(), [](Row const& a, Row const& b) { return a.gain < b.gain; });
  bool isSolvable = false;
  for (Row const& row : kept) {
    cv::Vec3d const r(row.gain, row.cosine, row.sine);
    normal += r * r.t();
    ++images;
    isSolvable = isSolvable || isDetermined(normal, images);
  }
  cv::Matx33d const matrix = isSolvable ? normal.inv(cv::DECOMP_CHOLESKY) : cv::Matx33d::zeros();
  return {cv::Matx33f(matrix), isSolvable, images};
}

} // namespace vorn::mv::sl
