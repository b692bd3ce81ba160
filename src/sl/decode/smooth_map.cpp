// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/sl/smooth_map.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <optional>
#include <sstream>
#include <vector>

#include "core/error.hpp"
#include "core/median.hpp"
#include "core/parallel.hpp"
#include "core/progress.hpp"
#include "sl/decode/full_windows.hpp"
#include "sl/decode/surface_window.hpp"

namespace vorn::mv {

namespace {

constexpr int largestRadius = 5;
constexpr char const* stage = "smoothing";

void checkSmoothing(cv::Mat_<float> const& map, cv::Mat_<float> const& sigma, int radius) {
  std::ostringstream message;
  if (radius < 1 || radius > largestRadius) {
    message << "The radius of smoothing is " << radius << ", but must be 1 to " << largestRadius;
  } else if (map.empty()) {
    message << "The map to be smoothed is empty";
  } else if (sigma.size() != map.size()) {
    message << "The standard deviations are " << sigma.cols << " x " << sigma.rows << ", but the map is "
            << map.cols << " x " << map.rows;
  }
  if (message.tellp() > 0) {
    throw error(message.str(), "smoothMap");
  }
}

/// The coordinates whose noise is known.
cv::Mat_<float> weighable(cv::Mat_<float> const& map, cv::Mat_<float> const& sigma) {
  cv::Mat_<float> usable = map.clone();
  parallelRows(map.rows, [&](int first, int end) {
    for (int y = first; y < end; ++y) {
      for (int x = 0; x < map.cols; ++x) {
        if (!(sigma(y, x) > 0.0F && std::isfinite(sigma(y, x)))) {
          usable(y, x) = -1.0F;
        }
      }
    }
  });
  return usable;
}

/// Whether noise alone explains the residuals: up to the chi-squared distribution's three standard
/// deviations, after Wilson and Hilferty.
bool isNoise(sl::WindowFit const& fit, double spread) {
  double const part = 2.0 / (9.0 * fit.freedom);
  return fit.excess <= spread * fit.freedom * std::pow(1.0 - part + 3.0 * std::sqrt(part), 3);
}

/// By how much the squared residuals of the map exceed the squared sigmas, in rows far apart.
double spreadOf(cv::Mat_<float> const& map, cv::Mat_<float> const& sigma, int radius,
                Progress const& progress) {
  constexpr int stride = 8;
  sl::FullWindows windows(map, sigma, radius);
  std::vector<double> ratios;
  for (int y = 0; y < map.rows; y += stride) {
    progress.at(stage, static_cast<double>(y) / map.rows);
    windows.read(y);
    for (int x = 0; x < map.cols; x += stride) {
      if (std::optional<sl::WindowFit> const fit = windows.fit(x)) {
        ratios.push_back(fit->excess / fit->freedom);
      }
    }
  }
  constexpr double most = 9.0;
  return std::clamp(medianAmong(ratios), 1.0, most);
}

/// The radius to try after one that did not fit; 0 for none.
int smaller(int radius) {
  return radius - std::max(1, radius / 2);
}

/// Smooths a row; returns how many of its pixels got the value of a fit.
std::size_t smoothRow(SmoothedMap& result, cv::Mat_<float> const& map, int y, int radius, double spread,
                      sl::FullWindows& windows, sl::SurfaceWindow& window) {
  windows.read(y);
  std::size_t smoothed = 0;
  for (int x = 0; x < map.cols; ++x) {
    if (!(map(y, x) >= 0.0F)) {
      continue;
    }
    std::optional<sl::WindowFit> fit = windows.fit(x);
    bool const wasWhole = fit.has_value();
    if (wasWhole && !isNoise(*fit, spread)) {
      fit.reset();
    }
    for (int r = wasWhole ? smaller(radius) : radius; !fit && r >= 1; r = smaller(r)) {
      fit = window.fit(x, y, r);
      if (fit && !isNoise(*fit, spread)) {
        fit.reset();
      }
    }
    if (fit) {
      result.map(y, x) = static_cast<float>(std::max(0.0, fit->value));
      result.sigma(y, x) = static_cast<float>(std::sqrt(fit->variance));
      ++smoothed;
    }
  }
  return smoothed;
}

} // namespace

SmoothedMap smoothMap(cv::Mat_<float> const& map, cv::Mat_<float> const& sigma, int radius,
                      Observer* observer) {
  checkSmoothing(map, sigma, radius);
  Progress const progress(observer);
  SmoothedMap result;
  result.map = map.clone();
  result.sigma = sigma.clone();
  result.sigma.setTo(std::numeric_limits<float>::quiet_NaN(), map < 0.0F);
  cv::Mat_<float> const usable = weighable(map, sigma);
  double const spread = spreadOf(usable, sigma, radius, progress.part(0.0, 0.1));
  std::vector<std::size_t> smoothed(static_cast<std::size_t>(map.rows));
  constexpr int bandRows = 32;
  parallelRows(map.rows, bandRows, progress.part(0.1, 1.0), stage, [&](int first, int end) {
    sl::FullWindows windows(usable, sigma, radius);
    sl::SurfaceWindow window(usable, sigma, radius);
    for (int y = first; y < end; ++y) {
      smoothed[static_cast<std::size_t>(y)] = smoothRow(result, usable, y, radius, spread, windows, window);
    }
  });
  result.smoothed = std::accumulate(smoothed.begin(), smoothed.end(), std::size_t{0});
  result.kept = static_cast<std::size_t>(cv::countNonZero(map >= 0.0F)) - result.smoothed;
  progress.at(stage, 1.0);
  return result;
}

} // namespace vorn::mv
