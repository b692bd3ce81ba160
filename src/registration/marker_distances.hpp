// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <opencv2/core.hpp>
#include <utility>
#include <vector>

namespace vorn::mv {

using MarkerPlaces = std::vector<cv::Vec3d>;

/// A marker by a number that it is found by.
using SortedMarkers = std::vector<std::pair<double, std::size_t>>;

/// The distances between markers.
class MarkerDistances {
public:
  MarkerDistances(MarkerPlaces const& points, std::vector<std::size_t> const& indices)
      : count_(points.size()), table_(count_ * count_), sorted_(count_) {
    for (std::size_t const i : indices) {
      for (std::size_t const j : indices) {
        table_[i * count_ + j] = cv::norm(points[i] - points[j]);
        if (j != i) {
          sorted_[i].emplace_back(table_[i * count_ + j], j);
        }
      }
      std::sort(sorted_[i].begin(), sorted_[i].end());
    }
  }

  double between(std::size_t i, std::size_t j) const { return table_[i * count_ + j]; }
  /// To the other markers, by rising distance.
  SortedMarkers const& from(std::size_t i) const { return sorted_[i]; }

private:
  std::size_t count_;
  std::vector<double> table_;
  std::vector<SortedMarkers> sorted_;
};

/// Directions across a line, for angles about it.
class AxisFrame {
public:
  AxisFrame(cv::Vec3d const& from, cv::Vec3d const& to) : from_(from), along_(to - from) {
    length_ = cv::norm(along_);
    along_ *= 1.0 / length_;
    int const least = std::abs(along_[0]) < std::abs(along_[1])
                          ? (std::abs(along_[0]) < std::abs(along_[2]) ? 0 : 2)
                          : (std::abs(along_[1]) < std::abs(along_[2]) ? 1 : 2);
    cv::Vec3d helper;
    helper[least] = 1.0;
    first_ = along_.cross(helper);
    first_ *= 1.0 / cv::norm(first_);
    second_ = along_.cross(first_);
  }

  double length() const { return length_; }
  double angleOf(cv::Vec3d const& place) const {
    cv::Vec3d const arm = place - from_;
    return std::atan2(second_.dot(arm), first_.dot(arm));
  }
  double heightOf(cv::Vec3d const& place) const { return cv::norm(along_.cross(place - from_)); }

private:
  cv::Vec3d from_;
  cv::Vec3d along_;
  cv::Vec3d first_;
  cv::Vec3d second_;
  double length_ = 0.0;
};

} // namespace vorn::mv
