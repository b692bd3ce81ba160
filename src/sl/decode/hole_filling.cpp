// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/hole_filling.hpp"

#include <algorithm>
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

std::vector<Measured> measuredIn(cv::Rect const& window, KnownPhase const& known) {
  std::vector<Measured> found;
  for (int y = window.y; y < window.br().y; ++y) {
    for (int x = window.x; x < window.br().x; ++x) {
      float const phase = known({x, y});
      if (!std::isnan(phase)) {
        found.push_back({{x, y}, phase});
      }
    }
  }
  return found;
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

/// The surface through the known pixels of `window`, or nothing when they are few or not on one.
std::optional<Surface> fitSurface(cv::Rect const& window, KnownPhase const& known) {
  std::vector<Measured> const ring = measuredIn(window, known);
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

} // namespace

int fillHoles(cv::Size size, std::vector<Run> const& missing, int maxRadius, KnownPhase const& known,
              OwnPhase const& own, FillPixel const& fill, Progress const& progress) {
  std::vector<Hole> holes(missing.size());
  std::vector<int> previousRun(missing.size(), -1);
  for (std::size_t i = 0; i < missing.size(); ++i) {
    Run const& run = missing[i];
    Hole& hole = holes[static_cast<std::size_t>(run.segment)];
    hole.box |= cv::Rect(run.begin, run.row, run.end - run.begin, 1);
    previousRun[i] = std::exchange(hole.lastRun, static_cast<int>(i));
  }
  int const widest = 2 * maxRadius + 1;
  int filled = 0;
  for (std::size_t k = 0; k < holes.size(); ++k) {
    constexpr std::size_t holesBetweenAskings = 256;
    if (k % holesBetweenAskings == 0) {
      progress.at("filling holes", static_cast<double>(k) / static_cast<double>(holes.size()));
    }
    Hole const& hole = holes[k];
    bool const inside =
        hole.box.x > 0 && hole.box.y > 0 && hole.box.br().x < size.width && hole.box.br().y < size.height;
    if (hole.lastRun < 0 || !inside || hole.box.width > widest || hole.box.height > widest) {
      continue;
    }
    auto const surface = fitSurface(grown(hole.box, ringWidth, size), known);
    for (int i = surface ? hole.lastRun : -1; i >= 0; i = previousRun[static_cast<std::size_t>(i)]) {
      Run const& run = missing[static_cast<std::size_t>(i)];
      for (int x = run.begin; x < run.end; ++x) {
        auto const value = filling(own({x, run.row}), surface->at(x, run.row));
        if (value) {
          fill({x, run.row}, *value);
          ++filled;
        }
      }
    }
  }
  return filled;
}

} // namespace vorn::mv::sl
