// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/hole_filling.hpp"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include <opencv2/core.hpp>

#include "core/bits.hpp"
#include "geometry/quadratic_fit.hpp"
#include "sl/decode/absolute_phase.hpp"

namespace vorn::mv::sl {

namespace {

/// Known pixels around a hole that its surface is fitted to.
constexpr int ringWidth = 2;
/// A quadratic surface has six parameters; so many pixels more make the fit a check as well.
constexpr std::size_t leastRing = 12;
/// Largest RMS and largest single residual in radians of pixels that lie on one smooth surface.
constexpr double maxRmsResidual = 0.5;
constexpr double maxResidual = 0.5 * CV_PI;
/// Largest difference in radians of a pixel's own phase from the surface.
constexpr double maxDeviation = 1.0;

/// A hole's bounding box and the chain of its runs.
struct Hole {
  cv::Rect box;
  int lastRun = -1;
};

/// A quadratic surface over pixels, in coordinates that keep the normal equations well conditioned.
struct Surface {
  cv::Point2d centre;
  double scale;
  cv::Vec6d coefficients;

  cv::Vec6d terms(int x, int y) const {
    return quadraticTerms((x - centre.x) * scale, (y - centre.y) * scale);
  }
  double at(int x, int y) const { return terms(x, y).dot(coefficients); }
};

cv::Rect grown(cv::Rect const& box, int by, cv::Size const& limits) {
  return cv::Rect(box.x - by, box.y - by, box.width + 2 * by, box.height + 2 * by) & cv::Rect({0, 0}, limits);
}

/// A pixel that was measured, near a hole.
struct Measured {
  cv::Vec6d terms;
  float phase;
};

using SurfaceFit = QuadraticFit<6, 1>;

/// The measured pixels of a window: a bit for each pixel, row by row, where there are no more than 64.
struct RingShape {
  cv::Size window;
  std::uint64_t bits = 0;

  bool isSmall() const { return window.area() <= 64; }
};

/// The inverses of the rings' normal equations. Most holes are a pixel or two, and their rings alike.
class RingInverses {
public:
  std::optional<SurfaceFit::Square> const& of(RingShape const& shape, std::vector<Measured> const& ring) {
    Entry& entry = entries_[shape.isSmall() ? placeOf(shape) : 0];
    if (!shape.isSmall() || entry.shape.window != shape.window || entry.shape.bits != shape.bits) {
      SurfaceFit places;
      for (Measured const& measured : ring) {
        places.addPlace(measured.terms);
      }
      entry = {shape, places.inverse()};
    }
    return entry.inverse;
  }

private:
  static constexpr unsigned int placeBits = 9;

  struct Entry {
    RingShape shape;
    std::optional<SurfaceFit::Square> inverse;
  };

  static std::size_t placeOf(RingShape const& shape) {
    constexpr std::uint64_t spread = 0x9e3779b97f4a7c15U; // 2^64 over the golden ratio
    auto const columns = static_cast<std::uint64_t>(shape.window.width);
    return static_cast<std::size_t>((shape.bits + columns) * spread >> (64U - placeBits));
  }

  std::vector<Entry> entries_ = std::vector<Entry>(std::size_t{1} << placeBits);
};

/// Memory that is kept from hole to hole.
struct Room {
  std::vector<Measured> measured;
  RingInverses inverses;
};

/// One for each thread, kept from one piece of its work to the next.
class Rooms {
public:
  std::unique_ptr<Room> take() {
    std::lock_guard<std::mutex> const lock(mutex_);
    if (free_.empty()) {
      return std::make_unique<Room>();
    }
    std::unique_ptr<Room> room = std::move(free_.back());
    free_.pop_back();
    return room;
  }

  void giveBack(std::unique_ptr<Room> room) {
    std::lock_guard<std::mutex> const lock(mutex_);
    free_.push_back(std::move(room));
  }

private:
  std::mutex mutex_;
  std::vector<std::unique_ptr<Room>> free_;
};

/// Tells the processor that a part of a row some holes farther on is read soon: it lies in memory that was
/// last seen long ago, a little here and a little there.
template <class T>
void foresee(T const* pixels) {
  constexpr std::ptrdiff_t ahead = 128;
  constexpr std::ptrdiff_t covered = 64;
  constexpr std::ptrdiff_t linePixels = 64 / sizeof(T);
  for (std::ptrdiff_t x = ahead; x < ahead + covered; x += linePixels) {
    prefetch(pixels + x);
  }
}

/// Lists the measured pixels of a window.
RingShape findMeasured(cv::Rect const& window, Surface const& surface, ScanMaps const& maps,
                       std::vector<Measured>& found) {
  RingShape shape{window.size()};
  found.clear();
  for (int y = window.y; y < window.br().y; ++y) {
    float const* const wrapped = maps.wrapped.inner[y];
    short const* const order = maps.order.inner[y];
    uchar const* const state = maps.state.inner[y];
    foresee(wrapped + window.x);
    foresee(order + window.x);
    foresee(state + window.x);
    for (int x = window.x; x < window.br().x; ++x) {
      bool const isMeasured = pixel_state::isKnown(state[x]);
      shape.bits = shape.bits << 1U | (isMeasured ? 1U : 0U);
      if (isMeasured) {
        found.push_back({surface.terms(x, y), absolutePhase(wrapped[x], order[x])});
      }
    }
  }
  return shape;
}

bool fitsWell(Surface const& surface, std::vector<Measured> const& ring) {
  double sum = 0.0;
  for (Measured const& measured : ring) {
    double const residual = measured.phase - measured.terms.dot(surface.coefficients);
    if (std::fabs(residual) > maxResidual) {
      return false;
    }
    sum += residual * residual;
  }
  return sum <= maxRmsResidual * maxRmsResidual * static_cast<double>(ring.size());
}

/// The surface through the measured pixels of `window`, or nothing when they are few or not on one.
std::optional<Surface> fitSurface(cv::Rect const& window, ScanMaps const& maps, Room& room) {
  Surface surface{{window.x + 0.5 * (window.width - 1), window.y + 0.5 * (window.height - 1)},
                  2.0 / std::max(window.width, window.height),
                  {}};
  RingShape const shape = findMeasured(window, surface, maps, room.measured);
  std::vector<Measured> const& ring = room.measured;
  if (ring.size() < leastRing) {
    return std::nullopt;
  }
  auto const& inverse = room.inverses.of(shape, ring);
  if (!inverse) {
    return std::nullopt;
  }
  SurfaceFit fit;
  for (Measured const& measured : ring) {
    fit.addValues(measured.terms, static_cast<double>(measured.phase));
  }
  surface.coefficients = cv::Vec6d(fit.surfaces(*inverse).coefficients.val);
  return fitsWell(surface, ring) ? std::optional<Surface>(surface) : std::nullopt;
}

/// What to put at a pixel where the surface has phase `expected`: that, or the pixel's own phase brought near
/// to it; nothing when the own phase contradicts.
std::optional<float> filling(float own, double expected) {
  if (own < 0.0F) {
    return static_cast<float>(expected);
  }
  double const absolute = own + CV_2PI * std::floor((expected - own) / CV_2PI + 0.5);
  return std::fabs(absolute - expected) < maxDeviation ? std::optional<float>(static_cast<float>(absolute))
                                                       : std::nullopt;
}

/// Fills the holes of a map one by one. Each depends on what was measured alone, so their order is free.
class HoleFilling {
public:
  HoleFilling(cv::Size size, std::vector<Run> const& missing, int maxRadius)
      : size_(size), missing_(missing), widest_(2 * maxRadius + 1), holes_(missing.size()),
        previousRun_(missing.size(), -1) {
    for (std::size_t i = 0; i < missing.size(); ++i) {
      Run const& run = missing[i];
      Hole& hole = holes_[static_cast<std::size_t>(run.segment)];
      hole.box |= cv::Rect(run.begin, run.row, run.end - run.begin, 1);
      previousRun_[i] = std::exchange(hole.lastRun, static_cast<int>(i));
    }
  }

  /// One for each run, of which the first of a hole stands for it.
  int count() const { return static_cast<int>(holes_.size()); }

  /// @return the number of pixels closed
  int fill(int number, ScanMaps const& maps, OwnPhase const& own, FillPixel const& put, Room& room) const {
    Hole const& hole = holes_[static_cast<std::size_t>(number)];
    cv::Rect const& box = hole.box;
    bool const isInside = box.x > 0 && box.y > 0 && box.br().x < size_.width && box.br().y < size_.height;
    if (hole.lastRun < 0 || !isInside || box.width > widest_ || box.height > widest_) {
      return 0;
    }
    cv::Rect const window = grown(box, ringWidth, size_);
    auto const surface = fitSurface(window, maps, room);
    int filled = 0;
    for (int i = surface ? hole.lastRun : -1; i >= 0; i = previousRun_[static_cast<std::size_t>(i)]) {
      Run const& run = missing_[static_cast<std::size_t>(i)];
      for (int x = run.begin; x < run.end; ++x) {
        auto const value = filling(own({x, run.row}), surface->at(x, run.row));
        if (value) {
          put({x, run.row}, *value);
          ++filled;
        }
      }
    }
    return filled;
  }

private:
  cv::Size size_;
  std::vector<Run> const& missing_;
  int widest_;
  std::vector<Hole> holes_; ///< at the first run of each; the others are empty
  std::vector<int> previousRun_;
};

} // namespace

int fillHoles(ScanMaps const& maps, std::vector<Run> const& missing, int maxRadius, OwnPhase const& own,
              FillPixel const& fill, Progress const& progress) {
  HoleFilling const holes(maps.size(), missing, maxRadius);
  Rooms rooms;
  std::atomic<int> filled = 0;
  constexpr int runsBetweenAskings = 16384;
  parallelRows(holes.count(), runsBetweenAskings, progress, "filling holes", [&](int first, int end) {
    std::unique_ptr<Room> room = rooms.take();
    int count = 0;
    for (int number = first; number < end; ++number) {
      count += holes.fill(number, maps, own, fill, *room);
    }
    rooms.giveBack(std::move(room));
    filled += count;
  });
  return filled;
}

} // namespace vorn::mv::sl
