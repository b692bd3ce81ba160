// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/adjust/agreed_turns.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <optional>
#include <utility>

#include <Eigen/Cholesky>
#include <opencv2/core.hpp>

#include "calib/adjust/bundle_solver.hpp"
#include "calib/adjust/view_statistics.hpp"

namespace vorn::mv {

namespace {

constexpr int quarterTurns = 4;

/// Quarter turns from one way to count to the next.
int stepOf(int readings) {
  return quarterTurns / std::clamp(readings, 1, quarterTurns);
}

std::pair<double, double> cosineAndSine(int turns) {
  constexpr std::array<std::pair<double, double>, quarterTurns> values = {{{1, 0}, {0, 1}, {-1, 0}, {0, -1}}};
  return values[static_cast<std::size_t>(turns % quarterTurns)];
}

cv::Point2d turned(cv::Point2d const& place, cv::Point2d const& middle, int turns) {
  auto const [c, s] = cosineAndSine(turns);
  cv::Point2d const d = place - middle;
  return {middle.x + c * d.x - s * d.y, middle.y + s * d.x + c * d.y};
}

/// The dot that is next to a place.
int nearestDot(std::vector<cv::Point2f> const& dots, cv::Point2d const& place) {
  int nearest = 0;
  double least = std::numeric_limits<double>::infinity();
  for (std::size_t i = 0; i < dots.size(); ++i) {
    cv::Point2d const d = cv::Point2d(dots[i]) - place;
    if (d.dot(d) < least) {
      least = d.dot(d);
      nearest = static_cast<int>(i);
    }
  }
  return nearest;
}

/// Adds the places where a turned target has dots that no view shows there.
void completeTarget(std::vector<cv::Point2f>& dots, cv::Point2d const& middle, int step) {
  double const near = 0.1 * medianPitch(dots);
  std::size_t const given = dots.size();
  for (std::size_t i = 0; i < given; ++i) {
    for (int turns = step; turns < quarterTurns; turns += step) {
      cv::Point2d const place = turned(dots[i], middle, turns);
      cv::Point2d const nearest(dots[static_cast<std::size_t>(nearestDot(dots, place))]);
      if (cv::norm(nearest - place) > near) {
        dots.emplace_back(place);
      }
    }
  }
}

/// A view of a bundle by itself, its dots counted otherwise. What it shows stays the same.
Bundle countedOtherwise(Bundle const& bundle, std::size_t view, cv::Point2d const& middle, int turns) {
  Bundle single = bundle;
  single.views = {bundle.views[view]};
  for (BundleDot& dot : single.views[0].dots) {
    cv::Point2d const place(bundle.target[static_cast<std::size_t>(dot.target)]);
    dot.target = nearestDot(bundle.target, turned(place, middle, turns));
  }
  auto const [c, s] = cosineAndSine(turns);
  cv::Matx33d const back(c, s, 0, -s, c, 0, 0, 0, 1);
  cv::Vec3d const about(middle.x, middle.y, 0);
  Placement& pose = single.views[0].dev0_from_target;
  pose.t += pose.R * (about - back * about);
  pose.R = pose.R * back;
  return single;
}

/// What every view says of the common parameters and the shape, for each way to count it.
class TurnedEquations {
public:
  TurnedEquations(Bundle const& bundle, std::vector<int> const& readings, cv::Point2d const& middle) {
    for (std::size_t i = 0; i < bundle.views.size(); ++i) {
      ways_.emplace_back();
      int const step = stepOf(readings[i]);
      for (int turns = 0; turns < quarterTurns; turns += step) {
        Bundle const single = countedOtherwise(bundle, i, middle, turns);
        auto equations = reduced(normalEquationsOf(single, transfersOf(single)));
        if (equations) {
          ways_.back().push_back({turns, std::move(*equations)});
        }
      }
    }
    Eigen::Index const size = bundle.commonCount();
    sum_ = {Eigen::MatrixXd::Zero(size, size), Eigen::VectorXd::Zero(size)};
  }

  /// Counts the views as they are given, and from several first views on one after another as it fits those
  /// before; then each again as it fits all others. The best of the ends stays.
  void agree() {
    way_.assign(ways_.size(), 0);
    for (std::size_t i = 0; i < ways_.size(); ++i) {
      if (!ways_[i].empty()) {
        add(sum_, ways_[i][0].equations, 1);
      }
    }
    improve();
    std::vector<std::size_t> bestWay = way_;
    ReducedEquations bestSum = sum_;
    double best = gain();
    constexpr std::size_t mostStarts = 12;
    std::size_t const starts = std::min(mostStarts, ways_.size());
    for (std::size_t start = 0; start < starts; ++start) {
      countFrom(start * ways_.size() / starts);
      improve();
      if (gain() > best) {
        best = gain();
        bestWay = way_;
        bestSum = sum_;
      }
    }
    way_ = std::move(bestWay);
    sum_ = std::move(bestSum);
  }

  int turnsOf(std::size_t view) const { return ways_[view].empty() ? 0 : ways_[view][way_[view]].turns; }

  /// By how much less the squares fall with the next best count of a view; infinity for a view that has one.
  double leadOf(std::size_t view) {
    std::vector<double> const gains = gainsOf(view, true);
    double lead = std::numeric_limits<double>::infinity();
    for (std::size_t k = 0; k < gains.size(); ++k) {
      if (k != way_[view]) {
        lead = std::min(lead, gains[way_[view]] - gains[k]);
      }
    }
    return lead;
  }

  /// What the squares fall by.
  double gain() const { return gainOf(sum_); }

private:
  struct Way {
    int turns;
    ReducedEquations equations;
  };

  static double gainOf(ReducedEquations const& equations) {
    // Single views leave some of it undetermined.
    Eigen::MatrixXd common = equations.common;
    constexpr double little = 1e-9;
    common.diagonal() *= 1 + little;
    Eigen::LDLT<Eigen::MatrixXd> const decomposition(common);
    return equations.slope.dot(decomposition.solve(equations.slope));
  }

  static void add(ReducedEquations& sum, ReducedEquations const& part, double sign) {
    sum.common += sign * part.common;
    sum.slope += sign * part.slope;
  }

  /// What the squares fall by with each count of a view.
  std::vector<double> gainsOf(std::size_t view, bool isIn) const {
    ReducedEquations others = sum_;
    if (isIn && !ways_[view].empty()) {
      add(others, ways_[view][way_[view]].equations, -1);
    }
    std::vector<double> gains;
    for (Way const& way : ways_[view]) {
      ReducedEquations with = others;
      add(with, way.equations, 1);
      gains.push_back(gainOf(with));
    }
    return gains;
  }

  /// Counts a view as it is given, and those after it, around to the ones before, as it fits.
  void countFrom(std::size_t first) {
    sum_.common.setZero();
    sum_.slope.setZero();
    way_.assign(ways_.size(), 0);
    for (std::size_t i = 0; i < ways_.size(); ++i) {
      chooseFor((first + i) % ways_.size(), false);
    }
  }

  /// Counts views anew until none fits better otherwise.
  void improve() {
    constexpr int mostRounds = 20;
    bool isChanged = true;
    for (int round = 0; isChanged && round < mostRounds; ++round) {
      isChanged = false;
      for (std::size_t i = 0; i < ways_.size(); ++i) {
        std::size_t const before = way_[i];
        chooseFor(i, true);
        isChanged = isChanged || way_[i] != before;
      }
    }
  }

  void chooseFor(std::size_t view, bool isIn) {
    std::vector<double> const gains = gainsOf(view, isIn);
    if (gains.empty()) {
      return;
    }
    if (isIn) {
      add(sum_, ways_[view][way_[view]].equations, -1);
    }
    way_[view] = static_cast<std::size_t>(std::max_element(gains.begin(), gains.end()) - gains.begin());
    add(sum_, ways_[view][way_[view]].equations, 1);
  }

  std::vector<std::vector<Way>> ways_;
  std::vector<std::size_t> way_;
  ReducedEquations sum_;
};

} // namespace

bool AgreedTurns::areAllTold() const {
  return std::all_of(areTold.begin(), areTold.end(), [](bool isTold) { return isTold; });
}

AgreedTurns agreedTurns(std::vector<AdjustmentView> const& views, std::vector<int> const& readings,
                        cv::Point2d const& middle, Adjustment const& flat) {
  Bundle bundle = solvedBundle(views, flat);
  double const squares = squaresOf(bundle, transfersOf(bundle)).total();
  completeTarget(bundle.target, middle, stepOf(*std::max_element(readings.begin(), readings.end())));
  bundle.extendShape(ShapeBasis::Level::Smooth);
  TurnedEquations equations(bundle, readings, middle);
  equations.agree();
  // A shape by chance is worth as many squares as it has terms, each of what other causes leave.
  double const freedom = std::max(1.0, squaresOf(bundle, transfersOf(bundle)).totalCount() -
                                           bundle.commonCount() - 6.0 * static_cast<double>(views.size()));
  double const rest = std::max(1.0, (squares - equations.gain()) / freedom);
  constexpr double leastLead = 60;
  AgreedTurns agreed;
  for (std::size_t i = 0; i < views.size(); ++i) {
    agreed.turns.push_back(equations.turnsOf(i));
    agreed.areTold.push_back(equations.leadOf(i) > leastLead * rest);
  }
  return agreed;
}

std::vector<cv::Point2f> turnedDots(std::vector<cv::Point2f> const& objPnts, cv::Point2d const& middle,
                                    int turns, std::vector<cv::Point2f> const& dots) {
  double const near = 0.1 * medianPitch(dots);
  std::vector<cv::Point2f> result;
  for (cv::Point2f const& dot : objPnts) {
    cv::Point2d const place = turned(dot, middle, turns);
    cv::Point2f const nearest = dots[static_cast<std::size_t>(nearestDot(dots, place))];
    result.push_back(cv::norm(cv::Point2d(nearest) - place) < near ? nearest : cv::Point2f(place));
  }
  return result;
}

} // namespace vorn::mv
