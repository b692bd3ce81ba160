// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "registration/view_agreement.hpp"

#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>

#include "registration/point_motion.hpp"
#include "registration/small_motion.hpp"

namespace vorn::mv {

namespace {

/// What a missed point counts beside one in the way.
constexpr double missedWeight = 0.3;
constexpr double leastCosine = 0.8;
/// A surface this steep to the line of sight, or steeper, may be missed.
constexpr double leastFacing = 0.35;
constexpr double farthest = 2.0; ///< edges beside a point of the other view
constexpr int improvingSteps = 5;
/// What a motion is held with that the points do not hold, over the mean of what they hold.
constexpr double hold = 0.02;

/// The figures of one view's points on the other view.
AgreementFigures figuresOn(std::vector<OrientedPoint> const& points, SightedPoints const& other,
                           NearestGrid const& grid, cv::Matx44d const& otherFromOwn, std::size_t most,
                           double edge, double reach) {
  cv::Matx33d const rotation = otherFromOwn.get_minor<3, 3>(0, 0);
  AgreementFigures figures;
  std::size_t const count = std::min(most, points.size());
  for (std::size_t i = 0; i < count; ++i) {
    OrientedPoint const& point = points[i * points.size() / count];
    cv::Vec3d const place = moved(otherFromOwn, point.place);
    cv::Vec3d const normal = rotation * point.normal;
    OrientedPoint const* const near = grid.near(place);
    if (near != nullptr && near->normal.dot(normal) > leastCosine) {
      cv::Vec3d const way = place - near->place;
      if (way.dot(way) < farthest * farthest * edge * edge &&
          std::abs(way.dot(near->normal)) < reach * edge) {
        figures.matched += 1.0;
        continue;
      }
    }
    tellBySight(place, normal, other, figures);
  }
  double const share = 1.0 / static_cast<double>(std::max<std::size_t>(1, count));
  return {figures.matched * share, figures.before * share, figures.missed * share};
}

} // namespace

void tellBySight(cv::Vec3d const& place, cv::Vec3d const& normal, SightedPoints const& other,
                 AgreementFigures& figures) {
  if (other.sight == nullptr) {
    return;
  }
  Sight const sight = other.sight->of(cv::Vec3f(place));
  if (sight == Sight::SeenThrough) {
    figures.before += 1.0;
  } else if (sight == Sight::Nothing) {
    cv::Vec3d const back = other.viewpoint - place;
    figures.missed += back.dot(normal) > leastFacing * std::sqrt(back.dot(back)) ? 1.0 : 0.0;
  }
}

double AgreementFigures::score(double mostAgainst) const {
  double const against = before + missedWeight * missed;
  double const all = matched + against;
  return all > 0.0 ? matched * std::exp(-against / (all * mostAgainst)) : 0.0;
}

ViewAgreement::ViewAgreement(SightedPoints const& source, SightedPoints const& target, double edge)
    : source_(source), target_(target), edge_(edge), sourceGrid_(source.points, edge),
      targetGrid_(target.points, edge) {}

AgreementFigures ViewAgreement::of(cv::Matx44d const& targetFromSource, std::size_t most,
                                   double reach) const {
  AgreementFigures const one =
      figuresOn(source_.points, target_, targetGrid_, targetFromSource, most, edge_, reach);
  AgreementFigures const other =
      figuresOn(target_.points, source_, sourceGrid_, rigidInverse(targetFromSource), most, edge_, reach);
  return {0.5 * (one.matched + other.matched), 0.5 * (one.before + other.before),
          0.5 * (one.missed + other.missed)};
}

cv::Matx44d ViewAgreement::improved(cv::Matx44d const& targetFromSource, std::size_t most) const {
  cv::Matx44d motion = targetFromSource;
  std::size_t const count = std::min(most, source_.points.size());
  double const size = 10.0 * edge_;
  for (int step = 0; step < improvingSteps; ++step) {
    cv::Matx33d const rotation = motion.get_minor<3, 3>(0, 0);
    cv::Vec3d const pivot = moved(motion, source_.points[source_.points.size() / 2].place);
    cv::Matx66d normal = cv::Matx66d::zeros();
    cv::Vec6d gradient;
    for (std::size_t i = 0; i < count; ++i) {
      OrientedPoint const& point = source_.points[i * source_.points.size() / count];
      cv::Vec3d const place = moved(motion, point.place);
      OrientedPoint const* const near = targetGrid_.near(place);
      if (near == nullptr || near->normal.dot(rotation * point.normal) < leastCosine) {
        continue;
      }
      cv::Vec3d const way = place - near->place;
      double const rest = 1.0 - way.dot(way) / (farthest * farthest * edge_ * edge_);
      if (rest > 0.0) {
        cv::Vec3d const turn = ((place - pivot) * (1.0 / size)).cross(near->normal);
        cv::Vec6d const row(turn[0], turn[1], turn[2], near->normal[0], near->normal[1], near->normal[2]);
        normal += row * row.t() * (rest * rest);
        gradient += row * (rest * rest * way.dot(near->normal));
      }
    }
    double const trace = cv::trace(normal);
    if (!(trace > 0.0)) {
      break;
    }
    normal += cv::Matx66d::eye() * (hold * trace / 6.0);
    cv::Vec6d const small = normal.solve(gradient * -1.0, cv::DECOMP_CHOLESKY);
    motion = movedBySmall(motion, small, pivot, size);
  }
  return motion;
}

} // namespace vorn::mv
