// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "graphic/far_coordinates.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "core/large_array.hpp"

namespace vorn::graphic {
namespace {

bool isFinite(cv::Vec3d const& place) {
  // Beyond the range of floats a coordinate becomes infinite.
  constexpr double largest = std::numeric_limits<float>::max();
  return std::abs(place[0]) <= largest && std::abs(place[1]) <= largest && std::abs(place[2]) <= largest;
}

} // namespace

void OffsetFinder::add(cv::Vec3d const& place) {
  if (!isFinite(place)) {
    return;
  }
  for (int axis = 0; axis < 3; ++axis) {
    low_[axis] = std::min(low_[axis], place[axis]);
    high_[axis] = std::max(high_[axis], place[axis]);
    hasInexact_ = hasInexact_ || static_cast<double>(static_cast<float>(place[axis])) != place[axis];
  }
}

cv::Vec3d OffsetFinder::offset() const {
  if (!hasInexact_) {
    return {};
  }
  double extent = 0;
  double farthest = 0;
  for (int axis = 0; axis < 3; ++axis) {
    extent = std::max(extent, high_[axis] - low_[axis]);
    farthest = std::max({farthest, std::abs(low_[axis]), std::abs(high_[axis])});
  }
  constexpr double halfStep = 1.0 / (1 << 24); // of floats, relative
  constexpr double bearable = 1e-5;
  constexpr double least = std::numeric_limits<float>::min();
  if (farthest < least || extent <= 0 || farthest * halfStep <= bearable * extent) {
    return {};
  }
  int const exponent = static_cast<int>(std::floor(std::log10(std::max(extent, farthest * bearable))));
  double const power = std::pow(10.0, std::abs(exponent));
  cv::Vec3d offset;
  for (int axis = 0; axis < 3; ++axis) {
    double const middle = low_[axis] + (high_[axis] - low_[axis]) / 2;
    // Powers of ten below one are no doubles, their inverses are.
    offset[axis] = exponent < 0 ? std::round(middle * power) / power : std::round(middle / power) * power;
    offset[axis] += 0.0; // no negative zero
  }
  return offset;
}

void setPlaces(GraphicObject& object, std::vector<cv::Vec3d> const& places) {
  OffsetFinder finder;
  for (cv::Vec3d const& place : places) {
    finder.add(place);
  }
  object.offset() = finder.offset();
  object.vertices().clear();
  reserveLarge(object.vertices(), places.size());
  for (cv::Vec3d const& place : places) {
    object.vertices().push_back(static_cast<cv::Vec3f>(place - object.offset()));
  }
}

} // namespace vorn::graphic
