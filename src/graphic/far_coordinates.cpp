// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "graphic/far_coordinates.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

#include <vorn/core/system.hpp>

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
};

double nth(std::vector<double>& values, std::size_t index) {
  auto const found = values.begin() + static_cast<std::ptrdiff_t>(index);
  std::nth_element(values.begin(), found, values.end());
  return *found;
}

/// The box of the places that lie within some median deviations of the median, by the widest axis; of all
/// where half of them share their coordinates in every axis.
Box bulkOf(std::vector<cv::Vec3d> const& places) {
  cv::Vec3d middle;
  double widest = 0;
  std::vector<double> values(places.size());
  for (int axis = 0; axis < 3; ++axis) {
    std::transform(places.begin(), places.end(), values.begin(),
                   [axis](cv::Vec3d const& place) { return place[axis]; });
    middle[axis] = nth(values, (values.size() - 1) / 2);
    for (double& value : values) {
      value = std::abs(value - middle[axis]);
    }
    widest = std::max(widest, nth(values, values.size() / 2));
  }
  constexpr double deviations = 8;
  double const reach = widest > 0 ? deviations * widest : std::numeric_limits<double>::infinity();
  Box box;
  for (cv::Vec3d const& place : places) {
    cv::Vec3d const away = place - middle;
    if (std::max({std::abs(away[0]), std::abs(away[1]), std::abs(away[2])}) > reach) {
      continue;
    }
    for (int axis = 0; axis < 3; ++axis) {
      box.low[axis] = std::min(box.low[axis], place[axis]);
      box.high[axis] = std::max(box.high[axis], place[axis]);
    }
  }
  return box;
}

} // namespace

void OffsetFinder::add(cv::Vec3d const& place) {
  // Many scanners write zeros where they saw nothing.
  if (!isFinite(place) || place == cv::Vec3d()) {
    return;
  }
  for (double const value : place.val) {
    hasInexact_ = hasInexact_ || static_cast<double>(static_cast<float>(value)) != value;
  }
  // Places that differ by rounding are meant to be one.
  constexpr double rounding = 1e-12; // of their distance from zero
  bool const isMerged = count_ > 0 && cv::norm(place - last_) > rounding * cv::norm(place) &&
                        static_cast<cv::Vec3f>(place - taken_) == static_cast<cv::Vec3f>(last_ - taken_);
  mergedCount_ += isMerged ? 1 : 0;
  last_ = place;
  if (count_++ % stride_ != 0) {
    return;
  }
  samples_.push_back(place);
  if (samples_.size() == mostSamples) {
    for (std::size_t i = 0; i < mostSamples / 2; ++i) {
      samples_[i] = samples_[2 * i];
    }
    samples_.resize(mostSamples / 2);
    stride_ *= 2;
  }
}

void OffsetFinder::sayWhatFloatsMerge() const {
  constexpr std::size_t bearable = 20; // one of as many
  if (mergedCount_ > 0 && mergedCount_ * bearable >= count_) {
    System::message(std::to_string(mergedCount_) + " of " + std::to_string(count_) +
                    " places lie nearer to the one before than floats tell from each other so far from most "
                    "places: take parts that lie far apart into files of their own\n");
  }
}

cv::Vec3d OffsetFinder::offset() const {
  if (!hasInexact_) {
    return {};
  }
  Box const bulk = bulkOf(samples_);
  double extent = 0;
  double farthest = 0;
  for (int axis = 0; axis < 3; ++axis) {
    extent = std::max(extent, bulk.high[axis] - bulk.low[axis]);
    farthest = std::max({farthest, std::abs(bulk.low[axis]), std::abs(bulk.high[axis])});
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
    double const middle = bulk.low[axis] + (bulk.high[axis] - bulk.low[axis]) / 2;
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
  OffsetFinder rounded(object.offset());
  object.vertices().clear();
  reserveLarge(object.vertices(), places.size());
  for (cv::Vec3d const& place : places) {
    object.vertices().push_back(static_cast<cv::Vec3f>(place - object.offset()));
    rounded.add(place);
  }
  rounded.sayWhatFloatsMerge();
}

} // namespace vorn::graphic
