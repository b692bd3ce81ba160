// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/adjust/bundle_solver.hpp"

#include <algorithm>
#include <cmath>
#include <string>

#include <Eigen/Cholesky>

#include "core/error.hpp"

namespace vorn::mv {

namespace {

/// A step of all unknowns.
struct BundleStep {
  Eigen::VectorXd common;
  std::vector<PoseVector> pose;
  double predictedGain = 0; ///< of the sum of squares
};

/// @param damping added to the diagonal, as a share of it
std::optional<BundleStep> stepOf(NormalEquations const& normal, double damping) {
  NormalEquations damped = normal;
  damped.common.diagonal() *= 1 + damping;
  for (PoseMatrix& pose : damped.pose) {
    pose.diagonal() *= 1 + damping;
  }
  auto const equations = reduced(damped);
  if (!equations) {
    return std::nullopt;
  }
  BundleStep step;
  if (equations->common.size() > 0) {
    Eigen::LLT<Eigen::MatrixXd> const decomposition(equations->common);
    if (decomposition.info() != Eigen::Success) {
      return std::nullopt;
    }
    step.common = decomposition.solve(equations->slope);
  } else {
    step.common.resize(0);
  }
  // Of the quadratic model: g' x - x' N x / 2, twice, with N x = g - damping * diagonal(N) x.
  double gain =
      step.common.dot(normal.commonSlope) + damping * step.common.cwiseAbs2().dot(normal.common.diagonal());
  for (std::size_t i = 0; i < damped.pose.size(); ++i) {
    PoseVector const slope = normal.poseSlope[i] - normal.mixed[i].transpose() * step.common;
    step.pose.push_back(damped.pose[i].llt().solve(slope));
    gain += step.pose.back().dot(normal.poseSlope[i]) +
            damping * step.pose.back().cwiseAbs2().dot(normal.pose[i].diagonal());
  }
  step.predictedGain = gain;
  return std::isfinite(gain) ? std::optional(std::move(step)) : std::nullopt;
}

cv::Vec3d vectorOf(double const* values) {
  return {values[0], values[1], values[2]};
}

void move(Bundle& bundle, BundleStep const& step) {
  double const* values = step.common.data();
  for (BundleDevice& device : bundle.devices) {
    device.move(values);
    values += device.freeParameters.size();
  }
  if (bundle.transformCount() > 0) {
    bundle.dev0_from_dev1 = bundle.dev0_from_dev1.moved(vectorOf(values), vectorOf(values + 3));
    values += 6;
    for (Placement& station : bundle.otherStations) {
      station = station.moved(vectorOf(values), vectorOf(values + 3));
      values += 6;
    }
  }
  bundle.shapeParameters += Eigen::Map<Eigen::VectorXd const>(values, bundle.shape.parameterCount());
  for (std::size_t i = 0; i < bundle.views.size(); ++i) {
    Placement& pose = bundle.views[i].dev0_from_target;
    pose = pose.moved(vectorOf(step.pose[i].data()), vectorOf(step.pose[i].data() + 3));
  }
}

/// The undamped step of the common unknowns and what the squares fall by with it; empty and 0 when they are
/// not determined.
struct FreeStep {
  Eigen::VectorXd common;
  double gain = 0;
};

FreeStep freeStepOf(Bundle const& bundle, Transfers const& transfers) {
  auto const equations = reduced(normalEquationsOf(bundle, transfers));
  if (!equations) {
    return {};
  }
  Eigen::LLT<Eigen::MatrixXd> const decomposition(equations->common);
  if (decomposition.info() != Eigen::Success) {
    return {};
  }
  FreeStep step{decomposition.solve(equations->slope), 0};
  step.gain = equations->slope.dot(step.common);
  return step;
}

} // namespace

std::optional<ReducedEquations> reduced(NormalEquations const& normal) {
  ReducedEquations equations{normal.common, normal.commonSlope};
  for (std::size_t i = 0; i < normal.pose.size(); ++i) {
    Eigen::LLT<PoseMatrix> const pose(normal.pose[i]);
    if (pose.info() != Eigen::Success) {
      return std::nullopt;
    }
    // With the root L of the pose's matrix, B D^-1 B' = W W' for W = B L'^-1.
    Eigen::MatrixXd const W = pose.matrixL().solve(normal.mixed[i].transpose()).transpose();
    equations.common.selfadjointView<Eigen::Lower>().rankUpdate(W, -1);
    equations.slope -= normal.mixed[i] * pose.solve(normal.poseSlope[i]);
  }
  equations.common = Eigen::MatrixXd(equations.common.selfadjointView<Eigen::Lower>());
  return equations;
}

namespace {

/// The damping of the next round, after a step that was taken.
/// @param ratio of what the squares fell by to what their quadratic model foretold
double dampingAfter(double damping, double ratio) {
  constexpr double asForetold = 0.75;
  constexpr double poor = 0.25;
  if (ratio > asForetold) {
    return std::max(damping / 30, 1e-15);
  }
  // The squares bend more than their model does, which knows slopes alone: without this much damping steps
  // go too far, to and fro over the minimum.
  return ratio < poor ? std::max(damping, 1e-9) * 3 : damping;
}

} // namespace

void solveBundle(Bundle& bundle, int maxIterations, Progress const& progress) {
  // A gain of the squares by so much moves no parameter by more than a millionth of its standard deviation,
  // and the last step goes beyond that.
  constexpr double lastGain = 1e-12;
  // What rounding makes of the squares, as a share of them.
  constexpr double rounding = 1e-11;
  constexpr double mostDamping = 1e12;
  double damping = 1e-4;
  for (int round = 0; round < maxIterations; ++round) {
    progress.at("adjusting", static_cast<double>(round) / maxIterations);
    Transfers const transfers = transfersOf(bundle);
    NormalEquations const normal = normalEquationsOf(bundle, transfers);
    double const squares = squaresOf(bundle, transfers).total();
    double const least = std::max(lastGain, rounding * squares);
    bool isBetter = false;
    bool isFreeRefused = false;
    while (!isBetter) {
      auto step = stepOf(normal, damping);
      bool const isEnd = step && step->predictedGain < least;
      if (isEnd && isFreeRefused) {
        return; // of no step that foretells more than rounding does it come true
      }
      if (isEnd) {
        // Damping holds back what is hard to tell apart; without it the end shows.
        auto free = stepOf(normal, 0);
        if (free && free->predictedGain < least) {
          move(bundle, *free);
          return;
        }
        step = free ? std::move(free) : std::move(step);
      }
      double gain = 0;
      if (step) {
        Bundle tried = bundle;
        move(tried, *step);
        gain = squares - squaresOf(tried, transfers).total();
        isBetter = gain >= -rounding * squares;
        if (isBetter) {
          bundle = std::move(tried);
        }
      }
      if (isEnd && !isBetter) {
        isFreeRefused = true;
        damping = 0; // from here up, each by itself
      }
      damping = isBetter ? dampingAfter(damping, gain / step->predictedGain) : std::max(damping, 1e-9) * 10;
      if (damping > mostDamping) {
        throw error("The views do not determine the calibration", "adjust");
      }
    }
  }
  throw error("The adjustment found no minimum within " + std::to_string(maxIterations) + " rounds",
              "adjust");
}

Eigen::MatrixXd commonCovarianceOf(NormalEquations const& normal) {
  auto const equations = reduced(normal);
  if (equations && equations->common.size() == 0) {
    return {};
  }
  if (equations) {
    // Scaled to a diagonal of ones, so that the test for rank does not depend on units.
    Eigen::VectorXd const scale = equations->common.diagonal().cwiseSqrt().cwiseInverse();
    Eigen::LDLT<Eigen::MatrixXd> const decomposition(scale.asDiagonal() * equations->common *
                                                     scale.asDiagonal());
    constexpr double leastPivot = 1e-13;
    if (decomposition.info() == Eigen::Success && decomposition.vectorD().minCoeff() > leastPivot) {
      Eigen::Index const n = equations->common.rows();
      return scale.asDiagonal() * decomposition.solve(Eigen::MatrixXd::Identity(n, n)) * scale.asDiagonal();
    }
  }
  throw error("The views do not determine the calibration", "adjust");
}

double parametersTakenBy(NormalEquations const& whole, Eigen::MatrixXd const& commonCovariance,
                         NormalEquations const& ofDevice) {
  double taken = commonCovariance.size() > 0 ? commonCovariance.cwiseProduct(ofDevice.common).sum() : 0;
  for (std::size_t i = 0; i < whole.pose.size(); ++i) {
    PoseMatrix const inverse = whole.pose[i].llt().solve(PoseMatrix::Identity());
    PoseMatrix pose = inverse;
    if (commonCovariance.size() > 0) {
      Eigen::MatrixXd const carried = whole.mixed[i] * inverse;
      Eigen::MatrixXd const mixed = -commonCovariance * carried;
      taken += 2 * mixed.cwiseProduct(ofDevice.mixed[i]).sum();
      pose -= carried.transpose() * mixed;
    }
    taken += pose.cwiseProduct(ofDevice.pose[i]).sum();
  }
  return taken;
}

double gainOf(Bundle const& solved, ShapeBasis::Level level) {
  Bundle extended = solved;
  extended.extendShape(level);
  return gainOf(solved, extended);
}

double gainOf(Bundle const& solved, Bundle const& extended) {
  Transfers const transfers = transfersOf(extended);
  double const gain = freeStepOf(extended, transfers).gain;
  return gain == 0 ? 0 : gain + squaresOf(solved, transfers).total() - squaresOf(extended, transfers).total();
}

namespace {

/// What one view of a solved bundle would have for a transform of its own: the equations of all views, with
/// those of this one taken out and put in again.
/// @param gainOfAll what the squares would fall by without that, as weights have changed
OwnTransform ownTransformOf(Bundle const& solved, Transfers const& transfers, std::size_t view,
                            ReducedEquations const& whole, double gainOfAll) {
  Bundle single = solved;
  single.views = {solved.views[view]};
  Transfers const own = transfers.empty() ? Transfers() : Transfers{transfers[view]};
  auto const common = reduced(normalEquationsOf(single, own));
  single.otherStations = {single.dev0_from_dev1};
  single.views[0].station = 1;
  auto const apart = reduced(normalEquationsOf(single, own));
  if (!common || !apart) {
    return {};
  }
  // The columns of the second transform stand before those of the shape.
  Eigen::Index const first = solved.deviceCount() + solved.transformCount();
  auto const placeOf = [&](Eigen::Index k) { return k < first ? k : k + 6; };
  Eigen::MatrixXd equations = apart->common;
  Eigen::VectorXd slope = apart->slope;
  for (Eigen::Index k = 0; k < whole.slope.size(); ++k) {
    slope(placeOf(k)) += whole.slope(k) - common->slope(k);
    for (Eigen::Index l = 0; l < whole.slope.size(); ++l) {
      equations(placeOf(k), placeOf(l)) += whole.common(k, l) - common->common(k, l);
    }
  }
  Eigen::LLT<Eigen::MatrixXd> const decomposition(equations);
  if (decomposition.info() != Eigen::Success) {
    return {};
  }
  Eigen::VectorXd const step = decomposition.solve(slope);
  double const* const shared = step.data() + solved.deviceCount();
  double const* const ownPart = shared + 6;
  return {vectorOf(ownPart) - vectorOf(shared), vectorOf(ownPart + 3) - vectorOf(shared + 3),
          slope.dot(step) - gainOfAll};
}

/// Whether both devices see enough dots of a view for a pose each.
bool showsBoth(BundleView const& view) {
  constexpr std::ptrdiff_t fewest = 6;
  auto const seen0 =
      std::count_if(view.dots.begin(), view.dots.end(), [](auto const& dot) { return dot.has0; });
  auto const seen1 =
      std::count_if(view.dots.begin(), view.dots.end(), [](auto const& dot) { return dot.has1; });
  return std::min(seen0, seen1) >= fewest;
}

} // namespace

std::vector<OwnTransform> ownTransformsOf(Bundle const& solved) {
  Transfers const transfers = transfersOf(solved);
  auto const whole = reduced(normalEquationsOf(solved, transfers));
  if (!whole) {
    return {};
  }
  Eigen::LLT<Eigen::MatrixXd> const decomposition(whole->common);
  if (decomposition.info() != Eigen::Success) {
    return {};
  }
  double const gainOfAll = whole->slope.dot(decomposition.solve(whole->slope));
  std::vector<OwnTransform> result;
  for (std::size_t i = 0; i < solved.views.size(); ++i) {
    result.push_back(showsBoth(solved.views[i]) ? ownTransformOf(solved, transfers, i, *whole, gainOfAll)
                                                : OwnTransform());
  }
  return result;
}

} // namespace vorn::mv
