// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "surface/texture/brightness.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <numeric>
#include <opencv2/core.hpp>
#include <utility>

#include "core/median.hpp"
#include "surface/texture/image_color.hpp"

namespace vorn::mv {

namespace {

/// Levels outside are dark, where a step is much, or may be overexposed.
constexpr double darkest = 8.0;
constexpr double brightest = 247.0;
/// Fewer common places say nothing.
constexpr std::size_t fewestPlaces = 30;
constexpr std::size_t mostPlaces = 20000;

/// The group of each view, numbered from 0.
std::vector<int> groupsOf(std::vector<TextureView> const& views) {
  std::map<int, int> numbers;
  std::vector<int> groups;
  int next = 0;
  for (TextureView const& view : views) {
    bool const isNew = view.brightnessGroup < 0 || numbers.count(view.brightnessGroup) == 0;
    groups.push_back(isNew ? next : numbers[view.brightnessGroup]);
    if (isNew && view.brightnessGroup >= 0) {
      numbers[view.brightnessGroup] = next;
    }
    next += isNew ? 1 : 0;
  }
  return groups;
}

/// The vertices that several groups see, thinned.
std::vector<std::size_t> commonPlaces(std::vector<int> const& groups, std::vector<MeshView> const& seen) {
  std::vector<std::size_t> places;
  for (std::size_t i = 0; i < seen.front().cosines.size(); ++i) {
    int first = -1;
    bool isCommon = false;
    for (std::size_t view = 0; view < seen.size() && !isCommon; ++view) {
      if (seen[view].cosines[i] > 0.0F) {
        isCommon = first >= 0 && groups[view] != first;
        first = groups[view];
      }
    }
    if (isCommon) {
      places.push_back(i);
    }
  }
  std::size_t const stride = std::max<std::size_t>(1, places.size() / mostPlaces);
  std::size_t kept = 0;
  for (std::size_t i = 0; i < places.size(); i += stride) {
    places[kept++] = places[i];
  }
  places.resize(kept);
  return places;
}

bool isMeasured(cv::Vec3d const& color) {
  return std::all_of(std::begin(color.val), std::end(color.val),
                     [](double level) { return level >= darkest && level <= brightest; });
}

cv::Vec3d logOf(cv::Vec3d const& color) {
  return {std::log(color[0]), std::log(color[1]), std::log(color[2])};
}

/// How much brighter one group shows places than another, as logarithms, for each channel.
using Ratios = std::map<std::pair<int, int>, std::array<std::vector<double>, 3>>;

Ratios ratiosOf(std::vector<TextureView> const& views, std::vector<MeshView> const& seen,
                std::vector<int> const& groups) {
  Ratios ratios;
  std::vector<std::pair<int, cv::Vec3d>> levels;
  for (std::size_t const place : commonPlaces(groups, seen)) {
    levels.clear();
    for (std::size_t view = 0; view < views.size(); ++view) {
      if (seen[view].cosines[place] > 0.0F) {
        cv::Vec3d const color = colorAt(views[view].image, seen[view].pixels[place]);
        if (isMeasured(color)) {
          levels.emplace_back(groups[view], logOf(color));
        }
      }
    }
    for (auto const& [first, a] : levels) {
      for (auto const& [second, b] : levels) {
        if (first < second) {
          std::array<std::vector<double>, 3>& lists = ratios[{first, second}];
          for (int channel = 0; channel < 3; ++channel) {
            lists[static_cast<std::size_t>(channel)].push_back(a[channel] - b[channel]);
          }
        }
      }
    }
  }
  return ratios;
}

/// The lowest group that each is tied to.
std::vector<int> setsOf(int count, Ratios const& ratios) {
  std::vector<int> sets(static_cast<std::size_t>(count));
  std::iota(sets.begin(), sets.end(), 0);
  for (auto const& [pair, lists] : ratios) {
    int const a = sets[static_cast<std::size_t>(pair.first)];
    int const b = sets[static_cast<std::size_t>(pair.second)];
    std::replace(sets.begin(), sets.end(), std::max(a, b), std::min(a, b));
  }
  return sets;
}

/// The logarithms of the groups' gains: those that level the ratios by least squares, of mean 0 in each set.
cv::Mat_<double> levelled(int count, Ratios& ratios, std::vector<int> const& sets) {
  cv::Mat_<double> normal(count, count, 0.0);
  cv::Mat_<double> right(count, 3, 0.0);
  for (auto& [pair, lists] : ratios) {
    auto const [a, b] = pair;
    auto const weight = static_cast<double>(lists[0].size());
    normal(a, a) += weight;
    normal(b, b) += weight;
    normal(a, b) -= weight;
    normal(b, a) -= weight;
    for (int channel = 0; channel < 3; ++channel) {
      double const ratio = medianAmong(lists[static_cast<std::size_t>(channel)]);
      right(a, channel) -= weight * ratio;
      right(b, channel) += weight * ratio;
    }
  }
  for (int a = 0; a < count; ++a) {
    for (int b = 0; b < count; ++b) {
      normal(a, b) += sets[static_cast<std::size_t>(a)] == sets[static_cast<std::size_t>(b)] ? 1.0 : 0.0;
    }
  }
  cv::Mat_<double> logs;
  cv::solve(normal, right, logs, cv::DECOMP_CHOLESKY);
  return logs;
}

} // namespace

BrightnessMatch matchBrightness(std::vector<TextureView> const& views, std::vector<MeshView> const& seen) {
  std::vector<int> const groups = groupsOf(views);
  int const count = 1 + *std::max_element(groups.begin(), groups.end());
  BrightnessMatch match;
  match.gains.assign(views.size(), cv::Vec3d::all(1.0));
  if (count == 1) {
    return match;
  }
  Ratios ratios = ratiosOf(views, seen, groups);
  for (auto pair = ratios.begin(); pair != ratios.end();) {
    pair = pair->second[0].size() < fewestPlaces ? ratios.erase(pair) : std::next(pair);
  }
  std::vector<int> const sets = setsOf(count, ratios);
  cv::Mat_<double> const logs = levelled(count, ratios, sets);
  for (std::size_t view = 0; view < views.size(); ++view) {
    for (int channel = 0; channel < 3; ++channel) {
      match.gains[view][channel] = std::exp(logs(groups[view], channel));
    }
  }
  match.sets = 0;
  for (int group = 0; group < count; ++group) {
    match.sets += sets[static_cast<std::size_t>(group)] == group ? 1 : 0;
  }
  return match;
}

} // namespace vorn::mv
