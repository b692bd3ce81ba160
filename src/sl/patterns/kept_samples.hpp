// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

namespace vorn::mv::sl {

struct SampleRange;

/// The samples of all images of a set at some places of the camera's image, and right of and below each:
/// what neighbours have in common is no noise.
class KeptSamples {
public:
  static constexpr int ofPlace = 3; ///< itself, to the right, below

  KeptSamples(cv::Size size, std::size_t images);

  /// Keeps what lies in some rows of an image; rows may come at the same time.
  void take(std::size_t image, cv::Mat const& from, SampleRange const& range, int firstRow, int endRow);

  /// So many places in place of all, as far as there are as many.
  KeptSamples thinned(std::size_t places) const;

  std::size_t places() const { return places_; }

  /// The brightest sample of all; 0 for none.
  float brightest() const;

  /// @return the samples of a place, with black taken off; NaN: clipped
  float const* at(std::size_t image, std::size_t place) const {
    return samples_.data() + (image * places_ + place) * ofPlace;
  }

private:
  std::vector<int> columns_, rows_;
  std::size_t places_;
  std::vector<float> samples_;
};

} // namespace vorn::mv::sl
