// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/patterns/kept_samples.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "sl/patterns/fringe_sums.hpp"
#include "sl/patterns/pixel_rows.hpp"

namespace vorn::mv::sl {

namespace {

/// So many places along the longer side. It has no factor with the periods that are usual.
constexpr double mostAlong = 53.0;

std::vector<int> spread(int length, double apart) {
  std::vector<int> places;
  for (double at = 0.5 * apart; at < length - 1; at += apart) {
    places.push_back(static_cast<int>(at));
  }
  return places;
}

} // namespace

KeptSamples::KeptSamples(cv::Size size, std::size_t images) {
  double const apart = std::max(2.0, std::max(size.width, size.height) / mostAlong);
  columns_ = spread(size.width, apart);
  rows_ = spread(size.height, apart);
  places_ = columns_.size() * rows_.size();
  samples_.resize(images * places_ * ofPlace);
}

KeptSamples KeptSamples::thinned(std::size_t places) const {
  std::size_t const apart = std::max<std::size_t>(1, places_ / std::max<std::size_t>(1, places));
  KeptSamples fewer = *this;
  fewer.places_ = (places_ + apart - 1) / apart;
  fewer.samples_.clear();
  std::size_t const images = places_ == 0 ? 0 : samples_.size() / (places_ * ofPlace);
  for (std::size_t image = 0; image < images; ++image) {
    for (std::size_t place = 0; place < places_; place += apart) {
      fewer.samples_.insert(fewer.samples_.end(), at(image, place), at(image, place) + ofPlace);
    }
  }
  return fewer;
}

float KeptSamples::brightest() const {
  float most = 0.0F;
  for (float const sample : samples_) {
    most = sample > most ? sample : most; // not a NaN
  }
  return most;
}

void KeptSamples::take(std::size_t image, cv::Mat const& from, SampleRange const& range, int firstRow,
                       int endRow) {
  std::vector<float> row(static_cast<std::size_t>(from.cols));
  auto const keep = [&](int x) {
    float const v = row[static_cast<std::size_t>(x)];
    return v < range.white ? v : std::numeric_limits<float>::quiet_NaN();
  };
  for (std::size_t r = 0; r < rows_.size(); ++r) {
    for (int below = 0; below < 2; ++below) {
      int const y = rows_[r] + below;
      if (y < firstRow || y >= endRow) {
        continue;
      }
      loadRow(from, y, range.black, row.data());
      for (std::size_t c = 0; c < columns_.size(); ++c) {
        float* const place = samples_.data() + (image * places_ + r * columns_.size() + c) * ofPlace;
        if (below == 1) {
          place[2] = keep(columns_[c]);
        } else {
          place[0] = keep(columns_[c]);
          place[1] = keep(columns_[c] + 1);
        }
      }
    }
  }
}

} // namespace vorn::mv::sl
