// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/measure/profile.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <string>

#include <opencv2/core.hpp>

#include "core/error.hpp"
#include "core/median.hpp"
#include "measure/edge_fit.hpp"

namespace vorn::mv {

namespace {

constexpr char const* function = "calcProfile";
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

void checkRange(char const* name, double value, double low, double high) {
  if (!(value >= low && value <= high)) {
    throw error(std::string(name) + " must be " + std::to_string(low) + " to " + std::to_string(high) +
                    ", not " + std::to_string(value),
                function);
  }
}

void check(cv::Mat const& image, std::vector<cv::Point2d> const& path, ProfileSettings const& settings) {
  if (image.empty()) {
    throw error("The image is empty", function);
  }
  if (image.dims > 2 || image.channels() != 1 || image.depth() > CV_64F) {
    throw error("The image must have one channel of 8, 16 or 32 bits or double, not " +
                    std::to_string(image.channels()),
                function);
  }
  if (path.size() < 2) {
    throw error("A path takes 2 points or more, there are " + std::to_string(path.size()), function);
  }
  constexpr double farthest = 1e6;
  for (std::size_t i = 0; i < path.size(); ++i) {
    if (!(std::abs(path[i].x) < farthest && std::abs(path[i].y) < farthest)) {
      throw error("Point " + std::to_string(i) +
                      " of the path is not finite or farther than a million pixels: (" +
                      std::to_string(path[i].x) + ", " + std::to_string(path[i].y) + ")",
                  function);
    }
  }
  constexpr int widest = 1000;
  checkRange("width", settings.width, 1, widest);
  checkRange("step", settings.step, 0.05, 100.0);
  checkRange("smoothing", settings.smoothing, 0.5, 50.0);
  checkRange("leastContrast", settings.leastContrast, 0.0, std::numeric_limits<double>::max());
}

/// Weights of the four pixels around a place by cubic convolution (Keys 1981, a = -1/2).
std::array<double, 4> cubicWeights(double f) {
  return {((-0.5 * f + 1.0) * f - 0.5) * f, (1.5 * f - 2.5) * f * f + 1.0, ((-1.5 * f + 2.0) * f + 0.5) * f,
          (0.5 * f - 0.5) * f * f};
}

template <class T>
double valueAt(cv::Mat const& image, cv::Point2d const& p) {
  if (!(p.x >= -0.5 && p.y >= -0.5 && p.x <= image.cols - 0.5 && p.y <= image.rows - 0.5)) {
    return notANumber;
  }
  int const x0 = static_cast<int>(std::floor(p.x));
  int const y0 = static_cast<int>(std::floor(p.y));
  auto const wx = cubicWeights(p.x - x0);
  auto const wy = cubicWeights(p.y - y0);
  double sum = 0.0;
  for (int j = 0; j < 4; ++j) {
    T const* row = image.ptr<T>(std::clamp(y0 + j - 1, 0, image.rows - 1));
    double ofRow = 0.0;
    for (int i = 0; i < 4; ++i) {
      ofRow += wx[static_cast<std::size_t>(i)] *
               static_cast<double>(row[std::clamp(x0 + i - 1, 0, image.cols - 1)]);
    }
    sum += wy[static_cast<std::size_t>(j)] * ofRow;
  }
  return sum;
}

double valueAt(cv::Mat const& image, cv::Point2d const& p) {
  switch (image.depth()) {
  case CV_8U:
    return valueAt<uchar>(image, p);
  case CV_8S:
    return valueAt<schar>(image, p);
  case CV_16U:
    return valueAt<ushort>(image, p);
  case CV_16S:
    return valueAt<short>(image, p);
  case CV_32S:
    return valueAt<int>(image, p);
  case CV_32F:
    return valueAt<float>(image, p);
  default:
    return valueAt<double>(image, p);
  }
}

/// Where a sample lies, and which way its path runs.
struct Place {
  double position;
  cv::Point2d point;
  cv::Point2d direction;
};

std::vector<Place> placesOn(std::vector<cv::Point2d> const& path, double step) {
  constexpr double mostSamples = 1e7;
  std::vector<double> at{0.0};
  for (std::size_t i = 1; i < path.size(); ++i) {
    at.push_back(at.back() + cv::norm(path[i] - path[i - 1]));
  }
  if (!(at.back() > 0.0)) {
    throw error("The points of the path are all the same", function);
  }
  if (at.back() / step > mostSamples) {
    throw error("The path would take more than 10 million samples", function);
  }
  std::vector<Place> places;
  std::size_t piece = 1;
  auto const count = static_cast<std::size_t>(std::floor(at.back() / step + 1e-9)) + 1;
  for (std::size_t i = 0; i < count; ++i) {
    double const position = std::min(static_cast<double>(i) * step, at.back());
    while (piece + 1 < path.size() && (position > at[piece] || at[piece] == at[piece - 1])) {
      ++piece;
    }
    double const length = at[piece] - at[piece - 1];
    cv::Point2d const along =
        length > 0.0 ? (path[piece] - path[piece - 1]) * (1.0 / length) : places.back().direction;
    places.push_back({position, path[piece - 1] + along * (position - at[piece - 1]), along});
  }
  return places;
}

double sampleAt(cv::Mat const& image, Place const& place, int width) {
  cv::Point2d const across(-place.direction.y, place.direction.x);
  double sum = 0.0;
  for (int i = 0; i < width; ++i) {
    sum += valueAt(image, place.point + across * (i - 0.5 * (width - 1)));
  }
  return sum / width;
}

/// By how much a sample's noise variance falls short of what counts over many samples: interpolation mixes
/// pixels, so neighbouring samples share their noise.
double noiseShortfall(Place const& place, ProfileSettings const& settings) {
  constexpr int side = 9;
  cv::Point2d const across(-place.direction.y, place.direction.x);
  // Samples across lie a pixel apart; a few of them show what all do.
  int const width = std::min(settings.width, side - 4);
  cv::Mat_<double> weights(2 * side, 2 * side, 0.0);
  cv::Point2d const origin(std::floor(place.point.x) - side, std::floor(place.point.y) - side);
  for (int k = 0; k < width; ++k) {
    cv::Point2d const p = place.point + across * (k - 0.5 * (width - 1)) - origin;
    int const x0 = static_cast<int>(std::floor(p.x));
    int const y0 = static_cast<int>(std::floor(p.y));
    auto const wx = cubicWeights(p.x - x0);
    auto const wy = cubicWeights(p.y - y0);
    for (int j = 0; j < 4; ++j) {
      for (int i = 0; i < 4; ++i) {
        weights(y0 + j - 1, x0 + i - 1) +=
            wx[static_cast<std::size_t>(i)] * wy[static_cast<std::size_t>(j)] / width;
      }
    }
  }
  return 1.0 / (width * settings.step * weights.dot(weights));
}

/// The standard deviation of noise from third differences, which smooth profiles hardly have.
double noiseOf(std::vector<double> const& values, double step) {
  // A pixel apart or more, where samples are independent.
  auto const apart = static_cast<std::size_t>(std::max(1.0, std::ceil(1.0 / step)));
  std::vector<double> sizes;
  for (std::size_t i = 0; i + 3 * apart < values.size(); ++i) {
    double const third =
        values[i] - 3.0 * values[i + apart] + 3.0 * values[i + 2 * apart] - values[i + 3 * apart];
    if (std::isfinite(third)) {
      sizes.push_back(std::abs(third));
    }
  }
  constexpr double sigmasPerMedian = 1.4826;
  return sigmasPerMedian * medianOf(std::move(sizes)) / std::sqrt(20.0);
}

/// The slope of the smoothed values, per px; NaN where values around are.
std::vector<double> slopes(std::vector<double> const& values, double step, double smoothing) {
  int const reach = static_cast<int>(std::ceil(4.0 * smoothing / step));
  std::vector<double> result(values.size(), notANumber);
  for (int i = reach; i + reach < static_cast<int>(values.size()); ++i) {
    double sum = 0.0;
    double moment = 0.0;
    for (int k = -reach; k <= reach; ++k) {
      double const s = k * step;
      double const weight = s * std::exp(-0.5 * s * s / (smoothing * smoothing));
      sum += weight * values[static_cast<std::size_t>(i + k)];
      moment += weight * s; // a slope of one gives one
    }
    result[static_cast<std::size_t>(i)] = sum / moment;
  }
  return result;
}

/// The crests of the slope, high enough, and none that is a ripple beside a higher one.
std::vector<std::size_t> crests(std::vector<double> const& slope, double least, double step,
                                double smoothing) {
  std::vector<std::size_t> found;
  for (std::size_t i = 1; i + 1 < slope.size(); ++i) {
    double const here = std::abs(slope[i]);
    if (!(here >= least) || !(here >= std::abs(slope[i - 1])) || !(here > std::abs(slope[i + 1]))) {
      continue;
    }
    bool const isRipple = !found.empty() && (slope[found.back()] > 0.0) == (slope[i] > 0.0) &&
                          static_cast<double>(i - found.back()) * step < 2.0 * smoothing;
    if (!isRipple) {
      found.push_back(i);
    } else if (here > std::abs(slope[found.back()])) {
      found.back() = i;
    }
  }
  return found;
}

double leastContrast(Profile const& profile, ProfileSettings const& settings) {
  if (settings.leastContrast > 0.0) {
    return settings.leastContrast;
  }
  // Without noise there is still rounding: a fiftieth of the profile's range is no edge either.
  constexpr double timesNoise = 6.0;
  constexpr double shareOfRange = 0.02;
  double low = std::numeric_limits<double>::infinity();
  double high = -low;
  for (double const value : profile.values) {
    low = std::fmin(low, value);
    high = std::fmax(high, value);
  }
  return std::max({timesNoise * profile.noise, shareOfRange * (high - low), 1e-9});
}

/// Whether a fitted step is one: high enough, for certain, and not made up by its tails beyond the samples.
bool isEdge(EdgeFit const& fit, double contrast, double covered) {
  constexpr double timesSigma = 5.0;
  double const height = std::abs(fit.contrast);
  return height >= contrast && height >= timesSigma * std::sqrt(fit.contrastVariance) &&
         2.0 * fit.blur <= covered;
}

void findEdges(std::vector<Place> const& places, ProfileSettings const& settings, Profile& profile) {
  double const step = settings.step;
  double const contrast = leastContrast(profile, settings);
  // A step's slope is 0.4 contrast / sqrt(smoothing^2 + blur^2): this takes blurs up to four times the
  // smoothing.
  double const ofStep = 0.1 * contrast / settings.smoothing;
  // The slope's own noise; by chance it hardly ever gets beyond 4.5 times.
  double const perPixel =
      profile.noise * std::sqrt(noiseShortfall(places[places.size() / 2], settings) * step);
  double const ofNoise = 4.5 * 0.375 * perPixel / std::pow(settings.smoothing, 1.5);
  double const least = std::max(ofStep, ofNoise);
  std::vector<double> const slope = slopes(profile.values, step, settings.smoothing);
  std::vector<std::size_t> const found = crests(slope, least, step, settings.smoothing);
  for (std::size_t k = 0; k < found.size(); ++k) {
    // Half way to the neighbours, and not farther than the step's own tails and some ground.
    std::size_t const from = k == 0 ? 0 : (found[k - 1] + found[k] + 1) / 2;
    std::size_t const to = k + 1 == found.size() ? profile.values.size() : (found[k] + found[k + 1]) / 2 + 1;
    auto const most = static_cast<std::size_t>(std::ceil(12.0 * std::max(1.0, settings.smoothing) / step));
    std::size_t begin = std::max(from, found[k] > most ? found[k] - most : 0);
    std::size_t end = std::min(to, found[k] + most + 1);
    while (begin < found[k] && !std::isfinite(profile.values[begin])) {
      ++begin;
    }
    while (end > found[k] + 1 && !std::isfinite(profile.values[end - 1])) {
      --end;
    }
    EdgeFit start{profile.positions[found[k]],
                  settings.smoothing,
                  profile.values[begin],
                  profile.values[end - 1] - profile.values[begin],
                  0.0,
                  0.0};
    auto const fit = fitEdge(profile.positions, profile.values, begin, end, start);
    if (!fit || !isEdge(*fit, contrast, step * static_cast<double>(end - begin))) {
      continue;
    }
    auto const nearest = static_cast<std::size_t>(
        std::clamp(std::lround(fit->position / step), 0L, static_cast<long>(places.size()) - 1));
    Place const& place = places[nearest];
    profile.edges.push_back({fit->position, place.point + place.direction * (fit->position - place.position),
                             place.direction, fit->contrast, fit->blur,
                             std::sqrt(fit->variance * noiseShortfall(place, settings))});
  }
}

} // namespace

Profile calcProfile(cv::Mat const& image, std::vector<cv::Point2d> const& path,
                    ProfileSettings const& settings) {
  check(image, path, settings);
  std::vector<Place> const places = placesOn(path, settings.step);
  Profile profile;
  bool isAny = false;
  for (Place const& place : places) {
    profile.positions.push_back(place.position);
    profile.points.push_back(place.point);
    profile.values.push_back(sampleAt(image, place, settings.width));
    isAny = isAny || std::isfinite(profile.values.back());
  }
  if (!isAny) {
    throw error("The path lies outside the image of " + std::to_string(image.cols) + " x " +
                    std::to_string(image.rows) + ", or nothing on it is finite",
                function);
  }
  profile.noise = noiseOf(profile.values, settings.step);
  if (settings.step <= 1.0) {
    findEdges(places, settings, profile);
  }
  return profile;
}

std::vector<cv::Point2d> arcPath(cv::Point2d center, double radius, double from, double to) {
  if (!(radius > 0.0) || !std::isfinite(radius + from + to + center.x + center.y)) {
    throw error("An arc takes a positive radius and finite numbers, not the radius " +
                    std::to_string(radius) + " from " + std::to_string(from) + " to " + std::to_string(to),
                "arcPath");
  }
  constexpr double stray = 0.005; // px
  constexpr double degree = CV_PI / 180.0;
  double const piece = 2.0 * std::acos(1.0 - std::min(stray / radius, 0.5));
  auto const pieces = static_cast<int>(std::clamp(std::ceil(std::abs(to - from) * degree / piece), 1.0, 1e6));
  std::vector<cv::Point2d> path;
  for (int i = 0; i <= pieces; ++i) {
    double const turn = (from + (to - from) * i / pieces) * degree;
    path.push_back(center + radius * cv::Point2d(std::cos(turn), std::sin(turn)));
  }
  return path;
}

} // namespace vorn::mv
