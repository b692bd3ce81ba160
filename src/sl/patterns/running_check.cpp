// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/patterns/running_check.hpp"

#include <algorithm>
#include <cmath>
#include <map>
#include <string>

#include "core/pi.hpp"

namespace vorn::mv::sl {

namespace {

/// Parts of a turn. Of two surfaces the phases are anything; that of one is even but for noise and gamma.
constexpr double mostUneven = 0.12;
constexpr double longestStep = 0.42; ///< from pixel to pixel: beyond, it may have gone the other way
/// Where the light is not linear, bits that begin to be lit do so elsewhere than those that cease to be.
constexpr double besideBorder = 0.2;
/// So often must a border have been seen.
constexpr int fewestTimes = 5;

/// How often the stripe above a border was the next one, and how often not.
struct Border {
  int right = 0;
  int wrong = 0;
};

class Run {
public:
  Run(Fringe const& fringe, CodeWord const& word, CodeMaps const& code, cv::Mat_<float> const& phase)
      : word_(word), code_(code), phase_(phase), border_(static_cast<double>(word.edge(0)) / fringe.period) {}

  /// From one pixel whose bits are certain to the next one.
  void see(int row, int from, int to) {
    double const end = endOf(row, from, to);
    double const start = turnsAt(row, from);
    double const passed = std::floor(end) - std::floor(start);
    if (std::isnan(end) || std::fabs(passed) != 1.0) {
      return;
    }
    int const first = stripeAt(row, from);
    int const last = stripeAt(row, to);
    int const lower = passed > 0.0 ? first : last;
    int const upper = passed > 0.0 ? last : first;
    if (lower >= 0 && upper >= 0) { // some stripes have no number
      Border& border = borders_[lower];
      ++(upper == lower + 1 ? border.right : border.wrong);
    }
  }

  /// Whether a pixel is well within a stripe.
  bool isInside(int row, int x) const {
    double const turns = turnsAt(row, x);
    return phase_(row, x) >= 0.0F && std::fabs(turns - std::round(turns)) > besideBorder;
  }

  std::map<int, Border> const& borders() const { return borders_; }

private:
  /// Turns of the fringe after a border.
  double turnsAt(int row, int x) const { return static_cast<double>(phase_(row, x)) / (2 * CV_PI) - border_; }
  int stripeAt(int row, int x) const {
    return word_.stripeOf(static_cast<std::uint32_t>(code_.word(row, x)));
  }

  /// The turns at `to`, counted on from `from`; NaN where the fringe does not run on evenly, from the pixel
  /// before to the pixel after.
  double endOf(int row, int from, int to) const {
    double const nothing = std::nan("");
    if (from < 1 || to + 1 >= phase_.cols) {
      return nothing;
    }
    double least = longestStep;
    double most = -longestStep;
    double end = turnsAt(row, from);
    for (int x = from - 1; x <= to; ++x) {
      if (phase_(row, x) < 0.0F || phase_(row, x + 1) < 0.0F) {
        return nothing;
      }
      double const step = std::remainder(turnsAt(row, x + 1) - turnsAt(row, x), 1.0);
      least = std::min(least, step);
      most = std::max(most, step);
      end += x >= from && x < to ? step : 0.0;
    }
    bool const isOneWay = least * most > 0.0;
    bool const isEven = most - least <= mostUneven;
    bool const isShort = std::max(-least, most) < longestStep;
    return isOneWay && isEven && isShort ? end : nothing;
  }

  CodeWord const& word_;
  CodeMaps const& code_;
  cv::Mat_<float> const& phase_;
  double border_;
  std::map<int, Border> borders_; ///< by the stripe below
};

} // namespace

std::vector<PatternDoubt> checkRunning(PatternSet const& set, Fringe const& fringe, CodeWord const& word,
                                       CodeMaps const& code, cv::Mat_<float> const& phase, float certain,
                                       std::vector<std::pair<std::size_t, std::size_t>> const& alike) {
  constexpr int farthest = 6; // pixels from one stripe to the next
  Run run(fringe, word, code, phase);
  for (int y = 0; y < phase.rows; ++y) {
    int last = -farthest - 1;
    for (int x = 0; x < phase.cols; ++x) {
      if (fromShortFloat(code.margin(y, x)) > certain && run.isInside(y, x)) {
        if (x - last <= farthest) {
          run.see(y, last, x);
        }
        last = x;
      }
    }
  }
  int seen = 0;
  int broken = 0;
  for (auto const& [lower, border] : run.borders()) {
    seen += border.right + border.wrong >= fewestTimes ? 1 : 0;
    broken += border.wrong >= fewestTimes && border.wrong > border.right ? 1 : 0;
  }
  // Along the straight edge of a surface one border may look broken by chance.
  constexpr int mostBroken = 1;
  // Where hardly a border is seen, as of coarse fringes at a slant, two may be.
  constexpr int fewestSeen = 4;
  std::vector<PatternDoubt> doubts;
  if (broken > mostBroken && seen >= fewestSeen) {
    PatternDoubt doubt{PatternFault::Stripes,
                       fringe.axis,
                       0.0,
                       bitsAlong(set, fringe.axis),
                       static_cast<double>(broken) / seen,
                       static_cast<double>(mostBroken) / seen,
                       ""};
    doubt.text = "at " + std::to_string(broken) + " of " + std::to_string(seen) +
                 " borders of stripes along " + (fringe.axis == PatternAxis::Column ? "columns" : "rows") +
                 " the fringe runs on and the numbers of the stripes do not";
    if (!alike.empty()) {
      doubt.images = {alike[0].first, alike[0].second};
      doubt.text += ": " + nameWithin(set, alike[0].first) + " and " + nameWithin(set, alike[0].second) +
                    " show the same";
    }
    doubts.push_back(std::move(doubt));
  }
  return doubts;
}

} // namespace vorn::mv::sl
