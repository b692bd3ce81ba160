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

struct Box {
  cv::Vec3d low = cv::Vec3d::all(std::numeric_limits<double>::infinity());
  cv::Vec3d high = -low;
  bool hasInexact = false; ///< of coordinates that no float is

  void add(cv::Vec3d const& place) {
    for (int axis = 0; axis < 3; ++axis) {
      low[axis] = std::min(low[axis], place[axis]);
      high[axis] = std::max(high[axis], place[axis]);
      hasInexact = hasInexact || static_cast<double>(static_cast<float>(place[axis])) != place[axis];
    }
  }
};

cv::Vec3d offsetFor(std::vector<cv::Vec3d> const& places) {
  Box box;
  for (cv::Vec3d const& place : places) {
    if (isFinite(place)) {
      box.add(place);
    }
  }
  if (!box.hasInexact) {
    return {};
  }
  double extent = 0;
  double farthest = 0;
  for (int axis = 0; axis < 3; ++axis) {
    extent = std::max(extent, box.high[axis] - box.low[axis]);
    farthest = std::max({farthest, std::abs(box.low[axis]), std::abs(box.high[axis])});
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
    double const middle = box.low[axis] + (box.high[axis] - box.low[axis]) / 2;
    // Powers of ten below one are no doubles, their inverses are.
    offset[axis] = exponent < 0 ? std::round(middle * power) / power : std::round(middle / power) * power;
    offset[axis] += 0.0; // no negative zero
  }
  return offset;
}

} // namespace

void setPlaces(GraphicObject& object, std::vector<cv::Vec3d> const& places) {
  object.offset() = offsetFor(places);
  object.vertices().clear();
  reserveLarge(object.vertices(), places.size());
  for (cv::Vec3d const& place : places) {
    object.vertices().push_back(static_cast<cv::Vec3f>(place - object.offset()));
  }
}

} // namespace vorn::graphic
