// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

#include "core/pi.hpp"
#include "core/progress.hpp"
#include "sl/coding/code_check.hpp"
#include "sl/decode/scan_maps.hpp"

namespace vorn::mv::sl {

/// The maps of a scan as growth sees them: the phase stays wrapped, and pixels get orders.
struct OrderMaps {
  ScanMaps& maps;
  CodeCheck codes;
  bool isChecked;

  cv::Size size() const { return maps.state.whole.size(); }

  struct Row {
    float const* above;
    float const* phases;
    float const* below;
    int const* readings;
    short* orders;
    uchar* states;

    float wrapped(int x) const { return phases[x]; }
    std::uint32_t reading(int x) const { return static_cast<std::uint32_t>(readings[x]); }

    /// As `calc_quality`: the larger, the smaller the largest jump of the phase to a neighbour.
    float quality(int x) const {
      constexpr double perPeriod = 1.0 / CV_2PI;
      float const p = phases[x];
      float const jump = std::max(std::max(std::fabs(p - phases[x - 1]), std::fabs(p - phases[x + 1])),
                                  std::max(std::fabs(p - above[x]), std::fabs(p - below[x])));
      return static_cast<float>(1.0 - static_cast<float>(jump - CV_2PI) * perPeriod);
    }

    uchar state(int x) const {
      uchar const s = states[x];
      return s == pixel_state::waiting ? unwrap_state::waiting
             : s == pixel_state::open  ? unwrap_state::unreached
                                       : unwrap_state::refused;
    }
    float known(int x) const {
      return pixel_state::isKnown(states[x]) ? phases[x] + twoPiFloat * static_cast<float>(orders[x])
                                             : std::numeric_limits<float>::quiet_NaN();
    }
    bool isOpen(int x) const { return states[x] == pixel_state::open; }
    void wait(int x) const { states[x] = pixel_state::waiting; }
    void settle(int x, float absolute, uchar state) const {
      if (state == unwrap_state::unwrapped) {
        orders[x] = static_cast<short>(std::lrint((absolute - phases[x]) / twoPiFloat));
        states[x] = pixel_state::grown;
      } else if (state == unwrap_state::refused) {
        states[x] = pixel_state::noCode;
      }
    }
  };

  Row row(int y) const {
    return {maps.wrapped.whole[y > 0 ? y - 1 : y],
            maps.wrapped.whole[y],
            maps.wrapped.whole[y + 1 < maps.wrapped.whole.rows ? y + 1 : y],
            maps.reading.whole[y],
            maps.order.whole[y],
            maps.state.whole[y]};
  }

  bool accepts(std::uint32_t reading, float absolute) const {
    return absolute >= 0.0F && (!isChecked || codes.fits(reading, absolute));
  }
};

/// Quality-guided unwrapping of what is open beside known pixels: in the order of their quality, pixels take
/// the order that fits a known neighbour best. A pixel whose own code images contradict its order is closed,
/// and nothing grows from it; one that fits no neighbour stays open.
void growOrders(OrderMaps const& maps, Progress const& progress);

} // namespace vorn::mv::sl
