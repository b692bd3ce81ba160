// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>
#include <numeric>
#include <optional>
#include <random>
#include <type_traits>
#include <utility>
#include <vector>

#include "measure/shape.hpp"

namespace vorn::mv {

/// As many of the points as are enough to start from, spread over the list, by drawing one of each run.
inline Indices sampleOf(Indices const& all, std::size_t most, std::mt19937& random) {
  if (all.size() <= most) {
    return all;
  }
  Indices sample(most);
  for (std::size_t i = 0; i < most; ++i) {
    std::size_t const first = i * all.size() / most;
    std::size_t const end = (i + 1) * all.size() / most;
    sample[i] = all[first + random() % (end - first)];
  }
  return sample;
}

template <class Shape>
Indices nearShape(Shape const& shape, Points const& points, Indices const& among, double bound) {
  Indices near;
  std::copy_if(among.begin(), among.end(), std::back_inserter(near),
               [&](std::size_t i) { return std::abs(shape.residual(points[i])) <= bound; });
  return near;
}

/// The mean square of the points' distances.
template <class Shape>
double meanSquare(Shape const& shape, Points const& points, Indices const& used) {
  double sum = 0.0;
  for (std::size_t const i : used) {
    sum += std::pow(shape.residual(points[i]), 2);
  }
  return sum / static_cast<double>(used.size());
}

/// Tells points that a plane is as good for as a curved shape, most of them to within the bound, and keeps
/// such planes to tell the next ones at once: a wide enough sphere is near every point of a plane.
class FlatPoints {
public:
  FlatPoints(Points const& points, double bound) : points_(points), bound_(bound) {}

  /// Whether they lie in a plane that was found to hold about as many.
  /// @param share of the points that such planes were found with
  bool areKnown(Indices const& used, double share) const {
    constexpr double about = 0.5;
    double const all = static_cast<double>(used.size()) / share;
    return std::any_of(planes_.begin(), planes_.end(), [&](Held const& held) {
      return static_cast<double>(held.points) > about * all && areMost(nearOf(held.plane, used), used);
    });
  }
  template <class Shape>
  bool areNew(Shape const& shape, Indices const& used) {
    constexpr int rounds = 5;
    constexpr double clearlyBetter = 4.0; // in squares
    auto plane = PlaneShape::start(points_, used);
    for (int i = 0; plane && i < rounds; ++i) {
      Indices const near = nearOf(*plane, used);
      if (areMost(near, used)) {
        PlaneShape const flat = PlaneShape::refined(*plane, points_, near);
        bool const isFlat = meanSquare(flat, points_, near) <
                            clearlyBetter * meanSquare(Shape::refined(shape, points_, near), points_, near);
        if (isFlat) {
          planes_.push_back({flat, near.size()});
        }
        return isFlat;
      }
      plane = near.size() < PlaneShape::unknowns ? std::nullopt : PlaneShape::start(points_, near);
    }
    return false;
  }

private:
  struct Held {
    PlaneShape plane;
    std::size_t points;
  };

  Indices nearOf(PlaneShape const& plane, Indices const& used) const {
    return nearShape(plane, points_, used, bound_);
  }
  static bool areMost(Indices const& near, Indices const& all) {
    constexpr double most = 0.8;
    return static_cast<double>(near.size()) >= most * static_cast<double>(all.size());
  }

  Points const& points_;
  double bound_;
  std::vector<Held> planes_;
};

/// Draws points that may lie on one feature: from everywhere and from around one of them in turn, because
/// those of a small feature are many among their neighbours and few among all.
class FeatureDraws {
public:
  FeatureDraws(Points const& points, Indices pool, std::mt19937& random)
      : points_(points), pool_(std::move(pool)), random_(random), near_(pool_) {}

  void draw(Indices& drawn) {
    constexpr std::size_t drawsAround = 16;
    constexpr std::size_t fewest = 8;
    std::size_t const turn = turn_++;
    if (turn % 2 == 0) {
      std::generate(drawn.begin(), drawn.end(), [&] { return pool_[random_() % pool_.size()]; });
      return;
    }
    if (turn / 2 % drawsAround == 0) {
      moveTo(points_[pool_[random_() % pool_.size()]]);
      reach_ = fewest;
    }
    std::size_t const among = std::min(reach_, neighbours_);
    reach_ = among == neighbours_ ? fewest : 2 * reach_;
    std::generate(drawn.begin(), drawn.end(), [&] { return near_[random_() % among]; });
    drawn.front() = near_.front();
  }

private:
  /// Sorts the nearest points by their distance.
  void moveTo(cv::Point3f const& centre) {
    constexpr std::size_t mostNeighbours = 256;
    neighbours_ = std::min(mostNeighbours, pool_.size());
    std::vector<std::pair<double, std::size_t>> distances(pool_.size());
    std::transform(pool_.begin(), pool_.end(), distances.begin(), [&](std::size_t i) {
      cv::Point3f const d = points_[i] - centre;
      return std::pair(cv::Point3d(d).dot(d), i);
    });
    auto const end = distances.begin() + static_cast<std::ptrdiff_t>(neighbours_);
    std::nth_element(distances.begin(), end - 1, distances.end());
    std::sort(distances.begin(), end);
    std::transform(distances.begin(), end, near_.begin(), [](auto const& pair) { return pair.second; });
  }

  Points const& points_;
  Indices pool_;
  std::mt19937& random_;
  Indices near_;
  std::size_t neighbours_ = 0;
  std::size_t reach_ = 0;
  std::size_t turn_ = 0;
};

/// The search for the shape that most points are within a bound of, and nearest to.
template <class Shape>
class FeatureSearch {
public:
  /// @param mayBeFlat whether the points of a curved shape may lie in one plane to within the bound
  FeatureSearch(Points const& points, Indices const& used, double bound, bool mayBeFlat)
      : points_(points), bound_(bound), refusesFlat_(!mayBeFlat && !std::is_same_v<Shape, PlaneShape>),
        judges_(sampleOf(used, mostJudges, random_)), few_(sampleOf(judges_, fewJudges, random_)),
        draws_(points, sampleOf(used, poolSize, random_), random_), flat_(points, bound) {}

  /// As many draws as find such a shape with certainty 0.999 by those from everywhere alone, where that takes
  /// no more than the most; nothing where the points near no shape determine it.
  std::optional<Shape> best() {
    constexpr int fewestDraws = 200;
    constexpr int mostRefused = 1000;
    if (auto const all = Shape::start(points_, judges_)) {
      consider(*all);
    }
    Indices drawn(Shape::unknowns);
    for (int i = 0; (i < fewestDraws || i < drawsNeeded()) && refused_ < mostRefused; ++i) {
      draws_.draw(drawn);
      if (auto const candidate = Shape::start(points_, drawn)) {
        consider(*candidate);
      }
    }
    return best_;
  }

private:
  static constexpr std::size_t mostJudges = 8000;
  static constexpr std::size_t fewJudges = 500;
  static constexpr std::size_t poolSize = 4000;

  double drawsNeeded() const {
    constexpr double mostDraws = 50000;
    double const hit = std::pow(static_cast<double>(most_) / static_cast<double>(judges_.size()),
                                static_cast<double>(Shape::unknowns));
    // Half of the draws are from everywhere.
    return best_ ? std::min(mostDraws, 2.0 * std::log(1e-3) / std::log1p(-std::min(hit, 0.999))) : mostDraws;
  }

  void consider(Shape candidate) {
    double const share = static_cast<double>(few_.size()) / static_cast<double>(judges_.size());
    double const expected = static_cast<double>(most_) * share;
    Indices const first = nearShape(candidate, points_, few_, bound_);
    if (static_cast<double>(first.size()) < expected - 2.0 * std::sqrt(expected) ||
        (refusesFlat_ && flat_.areKnown(first, share))) {
      return;
    }
    Indices near = nearShape(candidate, points_, judges_, bound_);
    double gain = gainOf(candidate, near);
    while (near.size() >= Shape::unknowns && gain > gain_) {
      if (!isDetermined(candidate, near)) {
        ++refused_;
        return;
      }
      best_ = candidate;
      most_ = near.size();
      gain_ = gain;
      // A shape through a few points is off by their noise.
      candidate = Shape::refined(candidate, points_, near);
      near = nearShape(candidate, points_, judges_, bound_);
      gain = gainOf(candidate, near);
    }
  }

  /// The points near the shape, each counted the less the farther it is (Torr and Zisserman 2000): else a
  /// shape in whose bound others lie as well would be as good.
  double gainOf(Shape const& shape, Indices const& near) const {
    return near.empty() ? 0.0
                        : static_cast<double>(near.size()) *
                              (1.0 - meanSquare(shape, points_, near) / (bound_ * bound_));
  }

  bool isDetermined(Shape const& shape, Indices const& near) {
    if (refusesFlat_ && flat_.areNew(shape, near)) {
      return false;
    }
    return shape.weakness(points_, near, meanSquare(shape, points_, near)).empty();
  }

  Points const& points_;
  double bound_;
  bool refusesFlat_;
  std::mt19937 random_{1};
  Indices judges_;
  Indices few_;
  FeatureDraws draws_;
  FlatPoints flat_;
  std::optional<Shape> best_;
  std::size_t most_ = 0; ///< near it
  double gain_ = 0.0;
  int refused_ = 0;
};

} // namespace vorn::mv
