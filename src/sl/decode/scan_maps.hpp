// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <limits>

#include <opencv2/core/mat.hpp>

#include "core/large_pages.hpp"
#include "sl/decode/bit_map.hpp"
#include "sl/decode/pixel_state.hpp"

namespace vorn::mv::sl {

/// A map with some more pixels on every side: neighbours can be read without asking whether they exist.
template <class T>
struct PaddedMap {
  static constexpr int pad = 2;

  cv::Mat_<T> whole;
  cv::Mat_<T> inner;

  /// Keeps the buffer when the size is the same; writes `border` around the inner part.
  void create(cv::Size size, T border) {
    whole.create(size.height + 2 * pad, size.width + 2 * pad);
    inner = whole(cv::Rect(cv::Point(pad, pad), size));
    whole.rowRange(0, pad).setTo(border);
    whole.rowRange(whole.rows - pad, whole.rows).setTo(border);
    whole.colRange(0, pad).setTo(border);
    whole.colRange(whole.cols - pad, whole.cols).setTo(border);
  }
};

/// The wrapped phase of a pixel that is clipped or outside the image.
constexpr float noPhase = -1.0F;
/// The absolute phase of a pixel whose order is not known.
constexpr float unknownPhase = std::numeric_limits<float>::quiet_NaN();
constexpr short noOrder = -1;

/// The maps of one decoding, kept between scans: fresh memory costs more than a pass over it. Each has one
/// meaning throughout.
struct ScanMaps {
  PaddedMap<float> wrapped; ///< phase in [0, 2 pi); `noPhase`: none
  PaddedMap<short>
      order; ///< of the fringe, where `state` is known: the absolute phase is wrapped + 2 pi order
  PaddedMap<uchar> state; ///< as in `pixel_state`
  PaddedMap<int> reading; ///< of the code images of open pixels, as a `CodeReading`; of others anything
  BitMap contrast;        ///< whether the pixel's code images range far enough

  void create(cv::Size size) {
    createWithoutCode(size);
    reading.create(size, 0);
    contrast.create(size);
    wishLargePages(reading.whole.data, reading.whole.total() * reading.whole.elemSize());
  }

  /// For bridging and growth that hold nothing against code images.
  void createWithoutCode(cv::Size size) {
    wrapped.create(size, noPhase);
    order.create(size, noOrder);
    state.create(size, pixel_state::noCode);
    // Growth and bridging jump between rows, each in another page.
    for (cv::Mat const& map : {cv::Mat(wrapped.whole), cv::Mat(order.whole), cv::Mat(state.whole)}) {
      wishLargePages(map.data, map.total() * map.elemSize());
    }
  }

  cv::Size size() const { return state.inner.size(); }
};

} // namespace vorn::mv::sl
