// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/target/measured_grid.hpp"

#include <algorithm>
#include <cmath>
#include <opencv2/core/cvdef.h>
#include <utility>

namespace vorn::mv {

std::optional<TargetMap> const& MeasuredGrid::map() {
  if (!isMapCurrent_) {
    map_ = TargetMap::fit(targetDots());
    isMapCurrent_ = true;
  }
  return map_;
}

void MeasuredGrid::replace(std::vector<MeasuredDot> dots) {
  for (MeasuredDot const& dot : dots_) {
    places_.set(dot.index, GridIndex::none);
  }
  dots_.clear();
  add(dots);
}

void MeasuredGrid::add(std::vector<MeasuredDot> const& dots) {
  for (MeasuredDot const& dot : dots) {
    places_.set(dot.index, static_cast<int>(dots_.size()));
    dots_.push_back(dot);
  }
  isMapCurrent_ = false;
}

std::vector<TargetDot> MeasuredGrid::targetDots() const {
  std::vector<TargetDot> list;
  list.reserve(dots_.size());
  for (MeasuredDot const& dot : dots_) {
    list.push_back({dot.index, dot.measured.centre, std::sqrt(std::max(dot.measured.area, 0.0) / CV_PI)});
  }
  return list;
}

} // namespace vorn::mv
