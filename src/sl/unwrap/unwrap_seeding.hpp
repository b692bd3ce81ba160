// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <vector>

#include <opencv2/core/mat.hpp>

namespace vorn::mv {

/// The states of a pixel in phase unwrapping.
namespace unwrap_state {
constexpr uchar unreached = 0;
constexpr uchar waiting = 95;
constexpr uchar unwrapped = 255;
} // namespace unwrap_state

/// A pixel that growth may give a phase, with all that growth asks of its surroundings.
struct GrowthPixel {
  float phase; ///< wrapped, then absolute or -1
  float quality;
  std::array<float, 4>
      known;           ///< absolute phases of the left, right, upper and lower neighbour; NaN: none yet
  std::uint32_t upper; ///< index; `noGrowthPixel`: closed to growth
  std::uint32_t lower;
  bool hasLeft; ///< the left neighbour is the pixel before
  bool hasRight;
  uchar state; ///< as in `unwrap_state`
};

/// The maps of one unwrapping, all of one size; the mask may be empty.
struct UnwrapMaps {
  cv::Mat_<float>& phase;
  cv::Mat_<float> const& quality;
  cv::Mat& state;
  cv::Mat const& code;
  cv::Mat const& mask;

  cv::Size size() const { return phase.size(); }

  /// A row as growth sees it.
  struct Row {
    float* phases;
    float const* qualities;
    uchar* states;
    uchar const* mask; ///< null: none

    float wrapped(int x) const { return phases[x]; }
    float quality(int x) const { return qualities[x]; }
    uchar state(int x) const { return states[x]; }
    /// The absolute phase; NaN where the pixel is not unwrapped.
    float known(int x) const {
      return states[x] == unwrap_state::unwrapped ? phases[x] : std::numeric_limits<float>::quiet_NaN();
    }
    bool isOpen(int x) const {
      return states[x] == unwrap_state::unreached && (mask == nullptr || mask[x] != 0);
    }
    void wait(int x) const { states[x] = unwrap_state::waiting; }
    void settle(int x, float absolute, uchar state) const {
      phases[x] = absolute;
      states[x] = state;
    }
  };
  Row row(int y) const {
    return {phase[y], quality[y], state.ptr<uchar>(y), mask.empty() ? nullptr : mask.ptr<uchar>(y)};
  }
};

/// The first half of phase unwrapping, row after row from the second to the last but one: trusted pixels get
/// their fringe order, and those beside them that growth is to start from become waiting.
class UnwrapSeeding {
public:
  explicit UnwrapSeeding(UnwrapMaps const& maps);

  /// Settles the next row and returns a byte per column: 1 where growth may give the pixel a phase.
  std::vector<uchar> const& nextRow();

private:
  uchar const* maskRow(int row) const;
  void findSources(int row, std::vector<uchar>& sources) const;

  UnwrapMaps maps_;
  int row_ = 0;
  std::vector<uchar> everything_; ///< the row of an empty mask
  /// 1 where a pixel is trusted, has a code and is not masked out: growth starts beside it. Of the row above,
  /// the row itself and the row below.
  std::vector<uchar> upper_;
  std::vector<uchar> own_;
  std::vector<uchar> lower_;
  std::vector<uchar> open_; ///< a multiple of eight bytes long
};

} // namespace vorn::mv
