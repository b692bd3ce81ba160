// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/adjust/lens_changes.hpp"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <numeric>
#include <utility>

#include <Eigen/Cholesky>

#include <vorn/core/exception.hpp>

#include "calib/adjust/bundle_solver.hpp"
#include "calib/adjust/normal_equations.hpp"

namespace vorn::mv {

namespace {

/// Of which one, or two on each side, may differ.
constexpr std::size_t fewestViews = 4;
constexpr std::size_t fewestOnASide = 2;

constexpr int mostRounds = 30;

/// What each view by itself says of the lens, its pose eliminated; none where a pose is not determined.
std::vector<ReducedEquations> equationsOfViews(Bundle const& solved) {
  std::vector<ReducedEquations> equations;
  Bundle single = solved;
  for (BundleView const& view : solved.views) {
    single.views = {view};
    auto own = reduced(normalEquationsOf(single, {}));
    if (!own) {
      return {};
    }
    equations.push_back(std::move(*own));
  }
  return equations;
}

/// The sum over views from some view on.
ReducedEquations sumFrom(std::vector<ReducedEquations> const& views, std::size_t first) {
  ReducedEquations sum = views[first];
  for (std::size_t i = first + 1; i < views.size(); ++i) {
    sum.common += views[i].common;
    sum.slope += views[i].slope;
  }
  return sum;
}

/// What the squares of all views fall by, to first order, when those from some view on have another focal
/// length and principal point.
double gainOfChange(ReducedEquations const& all, ReducedEquations const& after, CameraNumbers const& lens) {
  Eigen::Index const m = all.slope.size();
  constexpr Eigen::Index ways = 3;
  Eigen::MatrixXd change = Eigen::MatrixXd::Zero(m, ways);
  change(0, 0) = lens.fx;
  change(1, 0) = lens.fy;
  change(2, 1) = change(3, 2) = 1;
  Eigen::MatrixXd equations(m + ways, m + ways);
  equations << all.common, after.common * change, change.transpose() * after.common,
      change.transpose() * after.common * change;
  Eigen::VectorXd slope(m + ways);
  slope << all.slope, change.transpose() * after.slope;
  Eigen::LLT<Eigen::MatrixXd> const decomposition(equations);
  return decomposition.info() == Eigen::Success ? slope.dot(decomposition.solve(slope)) : 0;
}

/// The weighted squares and what they have in freedom.
struct Solution {
  double squares = 0;
  double freedom = 0;
};

/// @return nothing when there is no solution
std::optional<Solution> solve(Bundle& bundle) {
  try {
    solveBundle(bundle, mostRounds);
  } catch (Exception const&) {
    return std::nullopt;
  }
  Squares const squares = squaresOf(bundle, {});
  return Solution{squares.total(), squares.totalCount() - bundle.commonCount() -
                                       6.0 * static_cast<double>(bundle.views.size())};
}

double meanFocal(Bundle const& bundle) {
  CameraNumbers const& numbers = bundle.devices[0].numbers;
  return (numbers.fx + numbers.fy) / 2;
}

std::optional<LensChange> changeAt(Bundle const& solved, std::size_t first) {
  auto const at = solved.views.begin() + static_cast<std::ptrdiff_t>(first);
  Bundle before = solved;
  before.views.assign(solved.views.begin(), at);
  Bundle after = solved;
  after.views.assign(at, solved.views.end());
  auto const own = solve(before);
  auto const other = solve(after);
  if (!own || !other || !(own->freedom + other->freedom > 0)) {
    return std::nullopt;
  }
  double const s0 = std::sqrt((own->squares + other->squares) / (own->freedom + other->freedom));
  return LensChange{first, s0, meanFocal(before), meanFocal(after)};
}

/// What each view would have for one parameter of the lens by itself beside the others, to first order; none
/// when the views do not determine it.
std::vector<double> ownStepsOf(std::vector<ReducedEquations> const& views, Eigen::Index parameter) {
  Eigen::Index const m = views[0].slope.size();
  auto const n = static_cast<Eigen::Index>(views.size());
  Eigen::MatrixXd equations = Eigen::MatrixXd::Zero(m - 1 + n, m - 1 + n);
  Eigen::VectorXd slope = Eigen::VectorXd::Zero(m - 1 + n);
  for (Eigen::Index i = 0; i < n; ++i) {
    ReducedEquations const& view = views[static_cast<std::size_t>(i)];
    auto const placeOf = [&](Eigen::Index k) {
      return k == parameter ? m - 1 + i : k < parameter ? k : k - 1;
    };
    for (Eigen::Index k = 0; k < m; ++k) {
      slope(placeOf(k)) += view.slope(k);
      for (Eigen::Index l = 0; l < m; ++l) {
        equations(placeOf(k), placeOf(l)) += view.common(k, l);
      }
    }
  }
  Eigen::LLT<Eigen::MatrixXd> const decomposition(equations);
  if (decomposition.info() != Eigen::Success) {
    return {};
  }
  Eigen::VectorXd const step = decomposition.solve(slope);
  return {step.data() + (m - 1), step.data() + (m - 1 + n)};
}

/// Turns a view's image back that was mirrored along an axis. A target read in it is one seen from behind:
/// the same place before the camera, with the other side of each of its dots.
void unmirror(BundleView& view, int axis, cv::Size const& size, int dotCount) {
  double const last = (axis == 0 ? size.width : size.height) - 1;
  for (BundleDot& dot : view.dots) {
    dot.point0[axis] = last - dot.point0[axis];
    dot.target += dotCount;
  }
  for (int column = 0; column < 3; ++column) {
    view.dev0_from_target.R(axis, column) *= -1;
  }
  view.dev0_from_target.t[axis] *= -1;
  for (int row = 0; row < 3; ++row) {
    view.dev0_from_target.R(row, 1) *= -1;
  }
}

/// How many of the first views in an order may be apart from the others: those with the widest gaps after
/// them, at most half of all and not too many to try.
std::vector<std::size_t> likelyCounts(std::vector<double> const& ordered) {
  constexpr std::size_t most = 8;
  std::vector<std::size_t> counts;
  for (std::size_t i = 1; 2 * i <= ordered.size(); ++i) {
    counts.push_back(i);
  }
  std::stable_sort(counts.begin(), counts.end(), [&](std::size_t a, std::size_t b) {
    return std::abs(ordered[a] - ordered[a - 1]) > std::abs(ordered[b] - ordered[b - 1]);
  });
  counts.resize(std::min(most, counts.size()));
  return counts;
}

/// The target's dots, and after them the same seen from behind.
std::vector<cv::Point2f> withBackOf(std::vector<cv::Point2f> const& target) {
  std::vector<cv::Point2f> both = target;
  for (cv::Point2f const& dot : target) {
    both.emplace_back(dot.x, -dot.y);
  }
  return both;
}

/// What is left of the residuals once some views' images are turned back; nothing without a solution.
std::optional<double> s0Unmirrored(Bundle const& solved, std::vector<std::size_t> const& views, int axis,
                                   cv::Size const& size) {
  Bundle turned = solved;
  turned.target = withBackOf(solved.target);
  for (std::size_t const view : views) {
    unmirror(turned.views[view], axis, size, static_cast<int>(solved.target.size()));
  }
  auto const solution = solve(turned);
  return solution && solution->freedom > 0 ? std::optional(std::sqrt(solution->squares / solution->freedom))
                                           : std::nullopt;
}

} // namespace

Bundle flattened(Bundle const& solved, Progress const& progress) {
  Bundle flat = solved;
  if (solved.shape.parameterCount() > 0 || !solved.knownDeviations.empty()) {
    flat.shape = ShapeBasis();
    flat.shapeParameters.resize(0);
    flat.knownDeviations.clear();
    solveBundle(flat, mostRounds, progress);
  }
  return flat;
}

double lensChangeAt(Bundle const& solved, std::size_t first) {
  std::vector<ReducedEquations> const views = equationsOfViews(solved);
  constexpr double unknowns = 3;
  return views.empty()
             ? 0
             : gainOfChange(sumFrom(views, 0), sumFrom(views, first), solved.devices[0].numbers) / unknowns;
}

std::optional<LensChange> bestLensChange(Bundle const& solved, Progress const& progress) {
  std::size_t const count = solved.views.size();
  std::vector<ReducedEquations> const views =
      count < fewestViews ? std::vector<ReducedEquations>() : equationsOfViews(solved);
  if (views.empty()) {
    return std::nullopt;
  }
  ReducedEquations const all = sumFrom(views, 0);
  std::size_t likely = fewestOnASide;
  double greatest = -std::numeric_limits<double>::infinity();
  for (std::size_t first = fewestOnASide; first + fewestOnASide <= count; ++first) {
    double const gain = gainOfChange(all, sumFrom(views, first), solved.devices[0].numbers);
    if (gain > greatest) {
      greatest = gain;
      likely = first;
    }
  }
  std::optional<LensChange> best;
  for (std::size_t first = std::max(likely, fewestOnASide + 1) - 1;
       first <= std::min(likely + 1, count - fewestOnASide); ++first) {
    progress.at("diagnosing", 0.5);
    auto const change = changeAt(solved, first);
    if (change && (!best || change->s0 < best->s0)) {
      best = change;
    }
  }
  return best;
}

std::optional<MirroredImages> bestMirroredImages(Bundle const& solved, cv::Size const& size,
                                                 Progress const& progress) {
  std::size_t const count = solved.views.size();
  std::vector<ReducedEquations> const views =
      count < fewestViews ? std::vector<ReducedEquations>() : equationsOfViews(solved);
  std::optional<MirroredImages> best;
  for (int axis = 0; axis < 2 && !views.empty(); ++axis) {
    constexpr Eigen::Index principalPoint = 2; // and its y after its x
    std::vector<double> const steps = ownStepsOf(views, principalPoint + axis);
    if (steps.empty()) {
      break;
    }
    std::vector<std::size_t> order(count);
    std::iota(order.begin(), order.end(), std::size_t());
    std::stable_sort(order.begin(), order.end(), [&](auto a, auto b) { return steps[a] < steps[b]; });
    for (bool const isFromEnd : {false, true}) {
      if (isFromEnd) {
        std::reverse(order.begin(), order.end());
      }
      std::vector<double> ordered;
      std::transform(order.begin(), order.end(), std::back_inserter(ordered),
                     [&](std::size_t view) { return steps[view]; });
      for (std::size_t const taken : likelyCounts(ordered)) {
        progress.at("diagnosing", 0.5);
        MirroredImages tried{{order.begin(), order.begin() + static_cast<std::ptrdiff_t>(taken)}};
        auto const s0 = s0Unmirrored(solved, tried.views, axis, size);
        if (s0 && (!best || *s0 < best->s0)) {
          tried.s0 = *s0;
          std::sort(tried.views.begin(), tried.views.end());
          best = std::move(tried);
        }
      }
    }
  }
  return best;
}

} // namespace vorn::mv
