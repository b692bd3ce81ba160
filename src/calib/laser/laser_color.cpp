// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/calib/laser_color.hpp>

#include <algorithm>
#include <cmath>
#include <sstream>

#include <opencv2/core.hpp>

#include <vorn/mv/imaging/white_level.hpp>

#include "calib/laser/laser_color_search.hpp"
#include "calib/laser/laser_search.hpp"
#include "core/error.hpp"
#include "core/median.hpp"

namespace vorn::mv {

namespace {

/// How well a line shows.
struct Showing {
  double length = 0; ///< sum of the squared lengths of pieces of line over the square of the longest possible
  double height = 0; ///< of the stripes over the differences of neighbouring pixels
};

std::vector<LaserColor> colorsToTry() {
  std::vector<LaserColor> colors{{}};
  for (std::size_t own = 0; own < 3; ++own) {
    LaserColor alone;
    alone.weights[own] = 1;
    LaserColor two;
    two.weights = {0.5, 0.5, 0.5};
    two.weights[own] = 0;
    LaserColor lessOthers;
    lessOthers.weights = {-0.5, -0.5, -0.5};
    lessOthers.weights[own] = 1;
    LaserColor twoLessThird = two;
    twoLessThird.weights[own] = -1;
    colors.insert(colors.end(), {alone, two, lessOthers, twoLessThird});
  }
  return colors;
}

/// The mean difference of neighbouring pixels, grey levels: noise and what the room has of structure.
double roughness(LaserGrey const& image, bool perColumn) {
  cv::Mat const& levels = image.levels;
  cv::Rect const all({0, 0}, levels.size());
  cv::Rect const less =
      perColumn ? cv::Rect(0, 0, levels.cols, levels.rows - 1) : cv::Rect(0, 0, levels.cols - 1, levels.rows);
  cv::Rect const shifted = less + (perColumn ? cv::Point(0, 1) : cv::Point(1, 0));
  double const sum = cv::norm(levels(less), levels(shifted & all), cv::NORM_L1);
  constexpr double least = 0.05; // of images without noise
  return std::max(least, sum / static_cast<double>(less.area()) / image.perGrey);
}

Showing showingOf(std::vector<cv::Mat> const& images, LaserColor const& color, double white,
                  LaserLineOptions const& options) {
  bool const perColumn = options.direction == LaserLineOptions::Direction::PerColumn;
  Showing showing;
  std::vector<double> heights;
  for (cv::Mat const& image : images) {
    LaserGrey const grey = laserGrey(image, color, white);
    std::vector<LaserSample> const samples = findLaserSamples(grey, options, Progress());
    double const lines = perColumn ? image.cols : image.rows;
    double const rough = roughness(grey, perColumn);
    for (auto const& chain : chainsOf(samples)) {
      auto const length = static_cast<double>(chain.size());
      showing.length += length * length / (lines * lines * static_cast<double>(images.size()));
      constexpr std::size_t fewest = 5;
      for (std::size_t i = 0; chain.size() >= fewest && i < chain.size(); ++i) {
        heights.push_back(samples[chain[i]].peak.contrast / rough);
      }
    }
  }
  showing.height = heights.empty() ? 0.0 : medianAmong(heights);
  return showing;
}

} // namespace

void LaserColor::check() const {
  bool const isFinite =
      std::all_of(weights.begin(), weights.end(), [](double weight) { return std::isfinite(weight); });
  bool const isAnyAbove =
      std::any_of(weights.begin(), weights.end(), [](double weight) { return weight > 0; });
  if (!isFinite || (!isAnyAbove && !isBrightest())) {
    std::ostringstream message;
    message << "LaserColor: weights are " << weights[0] << ", " << weights[1] << ", " << weights[2]
            << ", but must be numbers of which one is above 0, or all 0";
    throw error(message.str(), "LaserColor");
  }
}

LaserLineOptions overexposedToo() {
  LaserLineOptions options;
  options.maxOverexposed = 20;
  return options;
}

LaserColor findLaserColor(std::vector<cv::Mat> const& images, LaserLineOptions const& options) {
  return findLaserColor(images, options, {options.direction}, findWhiteLevel(images));
}

LaserColor findLaserColor(std::vector<cv::Mat> const& images, LaserLineOptions const& given,
                          std::vector<LaserLineOptions::Direction> const& directions, double white) {
  given.check();
  LaserLineOptions options = given;
  options.maxPeaks = 1;
  if (std::all_of(images.begin(), images.end(), [](cv::Mat const& image) { return image.channels() == 1; })) {
    return {};
  }
  std::vector<LaserColor> const colors = colorsToTry();
  std::vector<Showing> showings;
  for (LaserColor const& color : colors) {
    Showing best;
    for (auto const direction : directions) {
      options.direction = direction;
      Showing const showing = showingOf(images, color, white, options);
      best = showing.length > best.length ? showing : best;
    }
    showings.push_back(best);
  }
  double const longest =
      std::max_element(showings.begin(), showings.end(), [](Showing const& a, Showing const& b) {
        return a.length < b.length;
      })->length;
  constexpr double nearly = 0.9;
  std::size_t best = 0;
  double height = -1;
  for (std::size_t i = 0; i < colors.size(); ++i) {
    // The brightest channel, the first, is what there was before anybody looked.
    constexpr double ofBrightest = 1.25;
    double const own = showings[i].height * (i == 0 ? ofBrightest : 1.0);
    if (showings[i].length >= nearly * longest && own > height) {
      best = i;
      height = own;
    }
  }
  return longest > 0 ? colors[best] : LaserColor();
}

} // namespace vorn::mv
