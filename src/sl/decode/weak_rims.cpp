// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/weak_rims.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <optional>
#include <vector>

#include "core/pi.hpp"
#include "sl/coding/code_check.hpp"
#include "sl/decode/absolute_phase.hpp"

namespace vorn::mv::sl {

namespace {

/// Pixels of a rim from its first one of too little contrast on. A surface that is dark farther in than this
/// is none that turns away.
constexpr int widestRim = 8;
/// A pixel goes on where it shows this part of the amplitude before it, over all directions from which the
/// surface comes; and this part from each of them.
constexpr float shownPart = 0.65F;
constexpr float leastPart = 0.5F;
/// What the pixel beyond must show of its own amplitude: before nothing, a surface ends within the pixel,
/// whose centre may lie beyond the end.
constexpr float beyondPart = 0.3F;
/// Change of phase from the pixel before, and from what the two before let expect.
constexpr float calmStep = 0.6F * piFloat;
constexpr float calmBend = 0.25F * piFloat;
/// Neighbours that the surface has or gets, of eight: at a straight end of a surface a single pixel that
/// noise brightens has three.
constexpr int leastNeighbours = 4;

std::array<cv::Point, 8> const directions{
    {{-1, -1}, {0, -1}, {1, -1}, {-1, 0}, {1, 0}, {-1, 1}, {0, 1}, {1, 1}}};

class RimGrowth {
public:
  RimGrowth(MagnitudeSource const& magnitudes, ScanDecodingSettings const& settings, ScanMaps& maps)
      : magnitudes_(magnitudes), check_(settings.period), checksCode_(settings.rules.codeCheck), maps_(maps) {
  }

  void findFirst() {
    for (int y = 0; y < maps_.size().height; ++y) {
      uchar const* const state = maps_.state.inner[y];
      uchar const* const end = state + maps_.size().width;
      for (uchar const* at = state; at != end; ++at) {
        at = static_cast<uchar const*>(
            std::memchr(at, pixel_state::lowContrast, static_cast<std::size_t>(end - at)));
        if (at == nullptr) {
          break;
        }
        cv::Point const pixel(static_cast<int>(at - state), y);
        if (knownNeighbours(pixel) > 0) {
          asked_.push_back(pixel);
        }
      }
    }
  }

  /// One pixel farther. What was found has its state and order.
  std::vector<cv::Point> const& grow() {
    found_.clear();
    std::vector<short> orders;
    for (cv::Point const& pixel : asked_) {
      if (std::optional<short> const order = orderAt(pixel)) {
        found_.push_back(pixel);
        orders.push_back(*order);
      }
    }
    // All that was found at once, so that no pixel depends on which one is asked first.
    for (std::size_t i = 0; i < found_.size(); ++i) {
      maps_.order.inner(found_[i]) = orders[i];
      stateOf(found_[i]) = pixel_state::grown;
    }
    auto const alone = std::stable_partition(found_.begin(), found_.end(), [&](cv::Point const& pixel) {
      return knownNeighbours(pixel) >= leastNeighbours;
    });
    std::for_each(alone, found_.end(),
                  [&](cv::Point const& pixel) { stateOf(pixel) = pixel_state::lowContrast; });
    found_.erase(alone, found_.end());
    askAround();
    return found_;
  }

  float phaseAt(cv::Point const& pixel) const {
    return maps_.wrapped.inner(pixel) + twoPiFloat * static_cast<float>(maps_.order.inner(pixel));
  }

private:
  // Two pixels beside the image can be asked, too: the maps are padded.
  uchar& stateOf(cv::Point const& p) const { return maps_.state.inner.ptr(p.y)[p.x]; }
  bool isKnown(cv::Point const& p) const { return pixel_state::isKnown(stateOf(p)); }

  int knownNeighbours(cv::Point const& pixel) const {
    return static_cast<int>(std::count_if(directions.begin(), directions.end(),
                                          [&](cv::Point const& d) { return isKnown(pixel + d); }));
  }

  float magnitudeAt(cv::Point const& pixel) const {
    float magnitude = 0.0F;
    magnitudes_(pixel.y, pixel.x, 1, &stateOf(pixel), &magnitude);
    return magnitude;
  }

  /// The magnitude of a pixel that may lie beside the image, where surfaces do not end.
  float beyond(cv::Point const& pixel) const {
    bool const isInside = cv::Rect(cv::Point(), maps_.size()).contains(pixel);
    return isInside ? magnitudeAt(pixel) : std::numeric_limits<float>::max();
  }

  /// The order by which a pixel continues the surface beside it.
  std::optional<short> orderAt(cv::Point const& pixel) const {
    float const wrapped = maps_.wrapped.inner(pixel);
    float const own = magnitudeAt(pixel);
    std::optional<float> phase;
    float shown = 0.0F;
    for (cv::Point const& d : directions) {
      if (!isKnown(pixel + d) || !isKnown(pixel + 2 * d)) {
        continue;
      }
      float const before = phaseAt(pixel + d);
      float const expected = 2.0F * before - phaseAt(pixel + 2 * d);
      float const its = wrapped + twoPiFloat * std::round((expected - wrapped) / twoPiFloat);
      float const one = magnitudeAt(pixel + d);
      float const two = magnitudeAt(pixel + 2 * d);
      if ((phase && *phase != its) || std::fabs(its - expected) > calmBend ||
          std::fabs(its - before) > calmStep || own < leastPart * std::max(one, two) ||
          beyond(pixel - d) < beyondPart * own) {
        return std::nullopt;
      }
      phase = its;
      shown += own - shownPart * 0.5F * (one + two);
    }
    if (!phase || shown < 0.0F || isBesideJump(pixel, *phase) ||
        (checksCode_ && !check_.fits(static_cast<CodeReading>(maps_.reading.inner(pixel)), *phase))) {
      return std::nullopt;
    }
    return static_cast<short>(std::lround((*phase - wrapped) / twoPiFloat));
  }

  bool isBesideJump(cv::Point const& pixel, float phase) const {
    return std::any_of(directions.begin(), directions.end(), [&](cv::Point const& d) {
      return isKnown(pixel + d) && std::fabs(phaseAt(pixel + d) - phase) > surfaceJump;
    });
  }

  /// Next are those for which what was found may change the answer.
  void askAround() {
    asked_.clear();
    constexpr int reach = 2;
    for (cv::Point const& pixel : found_) {
      for (int dy = -reach; dy <= reach; ++dy) {
        for (int dx = -reach; dx <= reach; ++dx) {
          cv::Point const next = pixel + cv::Point(dx, dy);
          bool const isInside = cv::Rect(cv::Point(), maps_.size()).contains(next);
          if (isInside && stateOf(next) == pixel_state::lowContrast) {
            asked_.push_back(next);
          }
        }
      }
    }
    auto const isBefore = [](cv::Point const& a, cv::Point const& b) {
      return a.y != b.y ? a.y < b.y : a.x < b.x;
    };
    std::sort(asked_.begin(), asked_.end(), isBefore);
    asked_.erase(std::unique(asked_.begin(), asked_.end()), asked_.end());
  }

  MagnitudeSource const& magnitudes_;
  CodeCheck check_;
  bool checksCode_;
  ScanMaps& maps_;
  std::vector<cv::Point> asked_;
  std::vector<cv::Point> found_;
};

} // namespace

void carryOnOverRims(MagnitudeSource const& magnitudes, ScanDecodingSettings const& settings, ScanMaps& maps,
                     cv::Mat_<float>& coordinates) {
  RimGrowth growth(magnitudes, settings, maps);
  auto const pixelsPerRadian = static_cast<float>(settings.period / CV_2PI);
  growth.findFirst();
  for (int step = 0; step < widestRim; ++step) {
    for (cv::Point const& pixel : growth.grow()) {
      coordinates(pixel) = growth.phaseAt(pixel) * pixelsPerRadian;
    }
  }
}

} // namespace vorn::mv::sl
