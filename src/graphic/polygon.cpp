// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "graphic/polygon.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>

#include <opencv2/core.hpp>

namespace vorn::graphic {
namespace {

/// Twice the signed area of a triangle.
double areaOf(cv::Vec2d const& a, cv::Vec2d const& b, cv::Vec2d const& c) {
  return (b[0] - a[0]) * (c[1] - a[1]) - (b[1] - a[1]) * (c[0] - a[0]);
}

/// A polygon seen along its mean normal, from where it turns left.
class FlatPolygon {
public:
  explicit FlatPolygon(std::vector<cv::Vec3d> const& corners) : places_(corners.size()) {
    cv::Vec3d normal; // Newell's
    for (std::size_t i = 0; i < corners.size(); ++i) {
      normal += (corners[i] - corners[0]).cross(corners[(i + 1) % corners.size()] - corners[0]);
    }
    double const size = cv::norm(normal);
    if (!(size > 0.0) || !std::isfinite(size)) {
      return;
    }
    normal *= 1.0 / size;
    int axis = 0;
    for (int i = 1; i < 3; ++i) {
      axis = std::abs(normal[i]) < std::abs(normal[axis]) ? i : axis;
    }
    cv::Vec3d along;
    along[axis] = 1.0;
    cv::Vec3d const x = cv::normalize(along.cross(normal));
    cv::Vec3d const y = normal.cross(x);
    for (std::size_t i = 0; i < corners.size(); ++i) {
      places_[i] = {x.dot(corners[i] - corners[0]), y.dot(corners[i] - corners[0])};
    }
    for (cv::Vec2d const& place : places_) {
      closeness_ = std::max({closeness_, std::abs(place[0]), std::abs(place[1])});
    }
    closeness_ *= 4e-6; // programs write six digits and more
    hasArea_ = true;
    rounding_ = 1e-6 * size; // of the coordinates, which are floats
  }

  /// Whether the fan about the first corner turns no triangle.
  bool isFanRight() const {
    for (std::size_t i = 2; i < places_.size(); ++i) {
      if (areaOf(places_[0], places_[i - 1], places_[i]) < -rounding_) {
        return false;
      }
    }
    return true;
  }

  /// Triangles of corners; nothing when there is no ear to cut.
  std::vector<cv::Vec3i> ears() const {
    std::vector<int> left(places_.size());
    std::iota(left.begin(), left.end(), 0);
    std::vector<Tip> tips(places_.size());
    for (std::size_t i = 0; hasArea_ && i < left.size(); ++i) {
      tips[i] = tipAt(left, i);
    }
    std::vector<cv::Vec3i> triangles;
    while (hasArea_ && left.size() > 3) {
      std::size_t const ear = earOf(left, tips);
      if (ear == left.size()) {
        return {};
      }
      triangles.push_back(triangleAt(left, ear));
      cutOff(ear, left, tips);
    }
    if (hasArea_) {
      triangles.emplace_back(left[0], left[1], left[2]);
    }
    return triangles;
  }

private:
  cv::Vec2d const& at(int corner) const { return places_[static_cast<std::size_t>(corner)]; }

  static cv::Vec3i triangleAt(std::vector<int> const& left, std::size_t corner) {
    std::size_t const count = left.size();
    return {left[(corner + count - 1) % count], left[corner], left[(corner + 1) % count]};
  }

  static constexpr int none = -1;

  /// What a corner's triangle is: an ear if it has a shape and no other corner in it.
  struct Tip {
    double shape = -1.0; ///< the greater, the wider its smallest angle; below 0 for a corner that turns right
    int holds = none;    ///< another corner
    bool isEar() const { return shape >= 0.0 && holds == none; }
  };

  Tip tipAt(std::vector<int> const& left, std::size_t corner) const {
    cv::Vec3i const t = triangleAt(left, corner);
    double const area = areaOf(at(t[0]), at(t[1]), at(t[2]));
    if (area < -rounding_) {
      return {};
    }
    double const sides = cv::norm(at(t[0]) - at(t[1]), cv::NORM_L2SQR) +
                         cv::norm(at(t[1]) - at(t[2]), cv::NORM_L2SQR) +
                         cv::norm(at(t[2]) - at(t[0]), cv::NORM_L2SQR);
    return {sides > 0.0 ? std::max(area, 0.0) / sides : 0.0, heldBy(left, t)};
  }

  /// The ear of the widest smallest angle, so that slivers come last; a corner on a straight line counts when
  /// there is no other.
  static std::size_t earOf(std::vector<int> const& left, std::vector<Tip> const& tips) {
    std::size_t best = left.size();
    double bestShape = -1.0;
    for (std::size_t i = 0; i < left.size(); ++i) {
      Tip const& tip = tips[static_cast<std::size_t>(left[i])];
      if (tip.isEar() && tip.shape > bestShape) {
        bestShape = tip.shape;
        best = i;
      }
    }
    return best;
  }

  /// Takes a corner away. Only its neighbours' triangles change, and what those hold that held it.
  void cutOff(std::size_t ear, std::vector<int>& left, std::vector<Tip>& tips) const {
    int const gone = left[ear];
    left.erase(left.begin() + static_cast<std::ptrdiff_t>(ear));
    std::size_t const next = ear % left.size();
    std::size_t const last = (ear + left.size() - 1) % left.size();
    for (std::size_t i = 0; i < left.size(); ++i) {
      Tip& tip = tips[static_cast<std::size_t>(left[i])];
      if (i == next || i == last || tip.holds == gone) {
        tip = tipAt(left, i);
      }
    }
  }

  /// Whether two corners are one place but for rounding.
  bool isOne(cv::Vec2d const& a, cv::Vec2d const& b) const {
    cv::Vec2d const way = a - b;
    return way.dot(way) <= closeness_ * closeness_;
  }

  /// A corner that a triangle holds. Those on the border count, but not those at the triangle's own, where
  /// holes are joined to the rim.
  int heldBy(std::vector<int> const& left, cv::Vec3i const& t) const {
    auto const held = std::find_if(left.begin(), left.end(), [&](int corner) {
      cv::Vec2d const& p = at(corner);
      bool const isOwn = isOne(p, at(t[0])) || isOne(p, at(t[1])) || isOne(p, at(t[2]));
      return !isOwn && areaOf(at(t[0]), at(t[1]), p) >= 0.0 && areaOf(at(t[1]), at(t[2]), p) >= 0.0 &&
             areaOf(at(t[2]), at(t[0]), p) >= 0.0;
    });
    return held == left.end() ? none : *held;
  }

  std::vector<cv::Vec2d> places_;
  double rounding_ = 0.0;
  double closeness_ = 0.0;
  bool hasArea_ = false;
};

} // namespace

void PolygonFans::add(std::vector<int> const& corners, std::vector<cv::Vec3i>& triangles) {
  if (corners.size() > 3) {
    fans_.push_back({triangles.size(), corners.size() - 2});
  }
  for (std::size_t corner = 2; corner < corners.size(); ++corner) {
    triangles.emplace_back(corners[0], corners[corner - 1], corners[corner]);
  }
}

void PolygonFans::cutConcave(std::vector<cv::Vec3f> const& vertices,
                             std::vector<cv::Vec3i>& triangles) const {
  constexpr std::size_t mostCorners = 5000; // the time rises by its square as a rule
  std::vector<cv::Vec3d> places;
  std::vector<int> corners;
  for (Fan const& fan : fans_) {
    auto const from = triangles.begin() + static_cast<std::ptrdiff_t>(fan.first);
    corners.assign({(*from)[0], (*from)[1]});
    for (std::size_t i = 0; i < fan.count; ++i) {
      corners.push_back(from[static_cast<std::ptrdiff_t>(i)][2]);
    }
    places.clear();
    for (int const corner : corners) {
      places.emplace_back(vertices[static_cast<std::size_t>(corner)]);
    }
    FlatPolygon const polygon(places);
    if (polygon.isFanRight() || corners.size() > mostCorners) {
      continue;
    }
    std::vector<cv::Vec3i> const ears = polygon.ears();
    for (std::size_t i = 0; i < ears.size(); ++i) {
      for (int k = 0; k < 3; ++k) {
        from[static_cast<std::ptrdiff_t>(i)][k] = corners[static_cast<std::size_t>(ears[i][k])];
      }
    }
  }
}

} // namespace vorn::graphic
