// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/hole_filling.hpp"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <optional>
#include <utility>

#include <opencv2/core.hpp>

#include "geometry/quadratic_fit.hpp"

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
  cv::Point pixel;
  float phase;
};

/// Memory that is kept from hole to hole.
struct Room {
  std::vector<float> phases;
  std::vector<Measured> measured;
};

/// Lists the measured pixels of a window.
void findMeasured(cv::Rect const& window, KnownPhases const& known, Room& room) {
  std::vector<float>& phases = room.phases;
  std::vector<Measured>& found = room.measured;
  phases.resize(static_cast<std::size_t>(window.width));
  found.clear();
  for (int y = window.y; y < window.br().y; ++y) {
    known({window.x, y}, window.width, phases.data());
    for (int k = 0; k < window.width; ++k) {
      float const phase = phases[static_cast<std::size_t>(k)];
      if (!std::isnan(phase)) {
        found.push_back({{window.x + k, y}, phase});
      }
    }
  }
}

bool fitsWell(Surface const& surface, std::vector<Measured> const& ring) {
  double sum = 0.0;
  for (Measured const& measured : ring) {
    double const residual = measured.phase - surface.at(measured.pixel.x, measured.pixel.y);
    if (std::fabs(residual) > maxResidual) {
      return false;
    }
    sum += residual * residual;
  }
  return sum <= maxRmsResidual * maxRmsResidual * static_cast<double>(ring.size());
}

/// The surface through the measured pixels of `window`, or nothing when they are few or not on one.
std::optional<Surface> fitSurface(cv::Rect const& window, std::vector<Measured> const& ring) {
  if (ring.size() < leastRing) {
    return std::nullopt;
  }
  Surface surface{{window.x + 0.5 * (window.width - 1), window.y + 0.5 * (window.height - 1)},
                  2.0 / std::max(window.width, window.height),
                  {}};
  QuadraticFit<6, 1> fit;
  for (Measured const& measured : ring) {
    fit.add(surface.terms(measured.pixel.x, measured.pixel.y), static_cast<double>(measured.phase));
  }
  auto const fitted = fit.solve();
  if (!fitted) {
    return std::nullopt;
  }
  surface.coefficients = cv::Vec6d(fitted->coefficients.val);
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
  int fill(int number, KnownPhases const& known, OwnPhase const& own, FillPixel const& put,
           Room& room) const {
    Hole const& hole = holes_[static_cast<std::size_t>(number)];
    cv::Rect const& box = hole.box;
    bool const isInside = box.x > 0 && box.y > 0 && box.br().x < size_.width && box.br().y < size_.height;
    if (hole.lastRun < 0 || !isInside || box.width > widest_ || box.height > widest_) {
      return 0;
    }
    cv::Rect const window = grown(box, ringWidth, size_);
    findMeasured(window, known, room);
    auto const surface = fitSurface(window, room.measured);
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

int fillHoles(cv::Size size, std::vector<Run> const& missing, int maxRadius, KnownPhases const& known,
              OwnPhase const& own, FillPixel const& fill, Progress const& progress) {
  HoleFilling const holes(size, missing, maxRadius);
  std::atomic<int> filled = 0;
  constexpr int runsBetweenAskings = 16384;
  parallelRows(holes.count(), runsBetweenAskings, progress, "filling holes", [&](int first, int end) {
    Room room;
    int count = 0;
    for (int number = first; number < end; ++number) {
      count += holes.fill(number, known, own, fill, room);
    }
    filled += count;
  });
  return filled;
}

} // namespace vorn::mv::sl
