// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/patterns/level_check.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <tuple>

#include <opencv2/core.hpp>

namespace vorn::mv::sl {

namespace {

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
constexpr double fewestPlaces = 50.0;

} // namespace

std::vector<LevelGroup> levelGroups(PatternSet const& set, ReadingPlan const& plan) {
  std::vector<LevelGroup> groups;
  for (FringeDesign const& design : plan.fringes) {
    groups.push_back({design.fringe.images, &design, 1.0});
  }
  double longest = 0.0;
  using Kind = std::tuple<double, int, int, int>; // exposure, role, axis, bit
  std::map<Kind, std::vector<std::size_t>> others;
  for (std::size_t i = 0; i < set.images.size(); ++i) {
    PatternImage const& image = set.images[i];
    longest = std::max(longest, image.exposure);
    if (image.role == PatternRole::Bit) {
      others[{image.exposure, 0, static_cast<int>(image.axis), image.bit}].push_back(i);
    } else if (image.role == PatternRole::White || image.role == PatternRole::Black) {
      others[{image.exposure, 1, 0, 0}].push_back(i);
    } else if (image.role == PatternRole::Reference) {
      others[{image.exposure, 2, 0, 0}].push_back(i);
    }
  }
  for (auto const& [kind, images] : others) {
    bool const isWhole = images.size() == 2 || std::get<1>(kind) == 2;
    if (isWhole) {
      groups.push_back({images, nullptr, std::get<0>(kind) / longest});
    }
  }
  return groups;
}

Levels::Levels(std::vector<LevelGroup> const& groups, KeptSamples const& samples,
               Assignment const& assignment) {
  for (LevelGroup const& group : groups) {
    std::vector<Pixel> levels(samples.places() * KeptSamples::ofPlace);
    if (group.fringe != nullptr) {
      FringeMisfit fringe(*group.fringe, samples);
      fringe.fit(assignment);
      for (std::size_t i = 0; i < levels.size(); ++i) {
        auto const [mean, amplitude] = fringe.levelAt(i / KeptSamples::ofPlace, i % KeptSamples::ofPlace);
        levels[i] = {mean, amplitude};
      }
    } else {
      float const* const first = samples.at(assignment[group.images.front()], 0);
      float const* const last = samples.at(assignment[group.images.back()], 0);
      for (std::size_t i = 0; i < levels.size(); ++i) {
        auto const a = static_cast<double>(first[i]) / group.gain;
        auto const b = static_cast<double>(last[i]) / group.gain;
        levels[i] = {0.5 * (a + b), 0.5 * std::fabs(a - b)};
      }
    }
    levels_.push_back(std::move(levels));
  }
}

double Levels::misfit(std::size_t group, std::size_t by) const {
  std::vector<Pixel> const& own = levels_[group];
  std::vector<Pixel> const& other = levels_[by];
  cv::Matx33d normal = cv::Matx33d::zeros();
  cv::Vec3d right;
  double power = 0.0;
  double count = 0.0;
  auto const isKnown = [&](std::size_t i) { return !std::isnan(own[i].level + other[i].level); };
  auto const rowOf = [&](std::size_t i) { return cv::Vec3d(other[i].level, other[i].amplitude, 1.0); };
  for (std::size_t i = 0; i < own.size(); i += KeptSamples::ofPlace) {
    if (isKnown(i)) {
      normal += rowOf(i) * rowOf(i).t();
      right += own[i].level * rowOf(i);
      power += other[i].amplitude * other[i].amplitude;
      ++count;
    }
  }
  if (count < fewestPlaces || power <= 0.0) {
    return notANumber;
  }
  // Level and amplitude may be in one proportion everywhere.
  constexpr double ridge = 1e-9;
  normal += ridge * cv::trace(normal) * cv::Matx33d::eye();
  cv::Vec3d const shares = normal.solve(right, cv::DECOMP_CHOLESKY);
  auto const restOf = [&](std::size_t i) { return own[i].level - shares.dot(rowOf(i)); };
  double most = 0.0;
  for (std::size_t const neighbour : {1U, 2U}) {
    SharedPower shared;
    for (std::size_t i = 0; i < own.size(); i += KeptSamples::ofPlace) {
      if (isKnown(i) && isKnown(i + neighbour)) {
        shared.add(restOf(i) * restOf(i + neighbour));
      }
    }
    most = std::max(most, shared.beyondChance());
  }
  return std::sqrt(most / (0.5 * power));
}

double Levels::misfit(std::size_t group) const {
  std::vector<double> found;
  for (std::size_t by = 0; by < levels_.size(); ++by) {
    double const own = by != group ? misfit(group, by) : notANumber;
    if (!std::isnan(own)) {
      found.push_back(own);
    }
  }
  std::sort(found.begin(), found.end());
  return found.empty() ? notANumber : found[std::min<std::size_t>(1, found.size() - 1)];
}

} // namespace vorn::mv::sl
