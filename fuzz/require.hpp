// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>
#include <cstdlib>
#include <iostream>

#include <opencv2/core.hpp>

#include <vorn/core/system.hpp>
#include <vorn/mv/core/library.hpp>

namespace vorn::fuzz {

/// Ends the program, which is how a fuzzer learns of a finding, unless `holds`.
inline void require(bool holds, char const* what) {
  if (!holds) {
    std::fprintf(stderr, "Not so: %s\n", what);
    std::abort();
  }
}

/// The cells of a matrix as they lie in memory.
inline cv::Mat bytesOf(cv::Mat const& matrix) {
  return {matrix.rows, matrix.cols * static_cast<int>(matrix.elemSize()), CV_8UC1, matrix.data, matrix.step};
}

/// Whether two matrices have the same bytes; all empty ones are the same.
inline bool sameBytes(cv::Mat const& a, cv::Mat const& b) {
  if (a.empty() || b.empty()) {
    return a.empty() == b.empty();
  }
  return a.type() == b.type() && a.size() == b.size() && cv::countNonZero(bytesOf(a) != bytesOf(b)) == 0;
}

/// The larger matrix around a region, to see that a function writes to the region alone.
class Surroundings {
public:
  explicit Surroundings(cv::Mat const& region) : whole_(region) {
    if (region.empty()) {
      return;
    }
    cv::Size size;
    cv::Point place;
    region.locateROI(size, place);
    whole_.adjustROI(place.y, size.height, place.x, size.width);
    region_ = cv::Rect(place, region.size());
    before_ = whole_.clone();
  }

  bool areUnchanged() {
    if (before_.empty()) {
      return true;
    }
    whole_(region_).copyTo(before_(region_));
    return sameBytes(whole_, before_);
  }

private:
  cv::Mat whole_;
  cv::Rect region_;
  cv::Mat before_;
};

/// Makes the library ready, mutes what it and OpenCV print, and keeps OpenCV to one thread: a run is short.
inline bool prepare() {
  mv::Library::init();
  System::set("EnableDebugMode", Variant(false));
  std::cout.setstate(std::ios::badbit);
  cv::redirectError([](int, char const*, char const*, char const*, int, void*) { return 0; });
  cv::setNumThreads(1);
  return true;
}

/// What a target gives back for one input, after trying it; before the first one everything is prepared.
template <class TryInput>
int runInput(TryInput const& tryInput) {
  static bool const isReady = prepare();
  if (isReady) {
    tryInput();
  }
  return 0;
}

} // namespace vorn::fuzz
