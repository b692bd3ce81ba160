// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/sl/plan_patterns.hpp>

#include <algorithm>
#include <cmath>
#include <optional>
#include <sstream>
#include <utility>

#include <vorn/core/text.hpp>

#include "core/error.hpp"
#include "sl/patterns/drawn_share.hpp"
#include "sl/patterns/set_groups.hpp"

namespace vorn::mv {

namespace {

constexpr char const* context = "planPatterns";

/// Share of normal deviates above so many standard deviations.
double tail(double deviations) {
  return 0.5 * std::erfc(deviations / std::sqrt(2.0));
}

double noiseOf(PatternWish const& wish) {
  constexpr double ofRounding = 1.0 / 12.0;
  return std::sqrt(wish.noise * wish.noise + (wish.isRounded ? ofRounding : 0.0));
}

/// A fringe's period and the standard deviation of the coordinate that it gives, projector pixels.
struct Measure {
  double period;
  double sigma;
};

Measure measureOf(sl::Fringe const& fringe, PatternWish const& wish) {
  double const p = fringe.period;
  double const blurred = std::exp(-2.0 * CV_PI * CV_PI * wish.blur * wish.blur / (p * p));
  double const pixels = std::sin(CV_PI / p) * p / CV_PI;
  auto const steps = static_cast<double>(fringe.images.size());
  return {p,
          p / (2.0 * CV_PI) * noiseOf(wish) / (wish.amplitude * blurred * pixels) * std::sqrt(2.0 / steps)};
}

/// An error of a phase: by how much the cost rises with it, per radian, and its amplitude in standard
/// deviations. Its sine times that is a normal deviate.
struct PhaseError {
  double gain;
  double amplitude;
};

/// How many standard deviations the most likely errors are away that cost so much together: a share `tail` of
/// all does (A. M. Hasofer, N. C. Lind, J. Eng. Mech. Div. ASCE 100, 1974). Angles of some ten degrees are
/// reached by less noise than in proportion.
double deviationsTo(double cost, std::vector<PhaseError> const& errors) {
  std::vector<double> deviates(errors.size());
  double distance = 0.0;
  constexpr int mostRounds = 50;
  for (int round = 0; round < mostRounds; ++round) {
    double rest = cost;
    double slopes = 0.0;
    std::vector<double> slope(errors.size());
    for (std::size_t i = 0; i < errors.size(); ++i) {
      constexpr double steepest = 0.98; // sine
      double const sine = std::clamp(deviates[i] / errors[i].amplitude, -steepest, steepest);
      slope[i] = errors[i].gain / (errors[i].amplitude * std::sqrt(1.0 - sine * sine));
      rest += slope[i] * deviates[i] - errors[i].gain * std::asin(sine);
      slopes += slope[i] * slope[i];
    }
    double squares = 0.0;
    for (std::size_t i = 0; i < errors.size(); ++i) {
      deviates[i] = 0.5 * (deviates[i] + rest / slopes * slope[i]); // half of the step, so that it settles
      squares += deviates[i] * deviates[i];
    }
    double const before = distance;
    distance = std::sqrt(squares);
    constexpr double settled = 1e-4;
    if (std::fabs(distance - before) < settled * distance) {
      break;
    }
  }
  return distance;
}

/// Share of pixels that take another order of the finest fringe for the better one.
double searchErrors(std::vector<Measure> const& fringes, int resolution) {
  Measure const& finest = fringes.front();
  double errors = 0.0;
  auto const orders = static_cast<int>(std::ceil(resolution / finest.period));
  for (int order = 1; order < orders; ++order) {
    double cost = 0.0; // of the other order without noise
    std::vector<PhaseError> noise;
    for (Measure const& fringe : fringes) {
      noise.push_back({0.0, fringe.period / (2.0 * CV_PI * fringe.sigma)});
    }
    for (std::size_t i = 1; i < fringes.size(); ++i) {
      Measure const& other = fringes[i];
      double const way = std::remainder(order * finest.period, other.period);
      double const weight = 1.0 / (other.sigma * other.sigma + finest.sigma * finest.sigma);
      cost += weight * way * way;
      // The finest one is in the deviations of all others.
      noise[i].gain += weight * way * other.period / CV_PI;
      noise[0].gain -= weight * way * finest.period / CV_PI;
    }
    // Of the places that the projector shows, so many have that order beside theirs: on both sides.
    double const places = 2.0 * (1.0 - order * finest.period / resolution);
    errors += places * tail(deviationsTo(cost, noise));
  }
  return std::min(1.0, errors);
}

/// Share of pixels that are numbered by a bit which errs.
double bitErrors(PatternSet const& set, std::vector<std::size_t> const& bits, double finest,
                 PatternWish const& wish) {
  auto const has = [&](auto const& isIt) { return std::any_of(set.images.begin(), set.images.end(), isIt); };
  bool const hasInverses =
      std::any_of(bits.begin(), bits.end(), [&](auto i) { return set.images[i].isInverse; });
  bool const hasWhite = has([](PatternImage const& image) { return image.role == PatternRole::White; });
  // How many times the difference about which a bit is decided is its amplitude, and its noise an image's.
  double const ratio = hasInverses ? 2.0 / std::sqrt(2.0) : 1.0 / std::sqrt(hasWhite ? 1.5 : 2.0);
  PatternImage const& first = set.images[bits.front()];
  // In the middle of the narrowest stripes.
  double const faintest = std::erf(0.5 * first.cell / (std::sqrt(2.0) * std::max(wish.blur, 1e-6)));
  bool const isHalf = first.code == BitCode::Gray && first.cell <= 0.5 * finest;
  double errors = 0.0;
  for (std::size_t const i : bits) {
    PatternImage const& image = set.images[i];
    if (image.isInverse) {
      continue;
    }
    // The next stripe, of half a fringe, is that of the same fringe in half of all places.
    double const counted = isHalf ? 1.0 - std::ldexp(0.5, -image.bit) : 1.0;
    double const amplitude = wish.amplitude * (image.bit == 0 ? faintest : 1.0);
    errors += counted * tail(ratio * amplitude / noiseOf(wish));
  }
  return std::min(1.0, errors);
}

void foretellAxis(PatternAxis axis, PatternWish const& wish, PatternPlan& plan) {
  std::vector<sl::Fringe> const fringes = sl::fringesAlong(plan.set, axis);
  std::vector<std::size_t> const bits = sl::bitsAlong(plan.set, axis);
  std::vector<Measure> measures;
  double weights = 0.0;
  for (sl::Fringe const& fringe : fringes) {
    measures.push_back(measureOf(fringe, wish));
    weights += 1.0 / (measures.back().sigma * measures.back().sigma);
  }
  std::sort(measures.begin(), measures.end(),
            [](Measure const& a, Measure const& b) { return a.period < b.period; });
  double const finest = measures.empty() ? 0.0 : measures.front().period;
  double const ofEven = std::sqrt(1.0 / 12.0);
  double const sigma =
      measures.empty() ? ofEven * plan.set.images[bits.front()].cell : 1.0 / std::sqrt(weights);
  double const errors = bits.empty() ? searchErrors(measures, sl::resolutionAlong(plan.set, axis))
                                     : bitErrors(plan.set, bits, finest, wish);
  plan.sigma = std::max(plan.sigma, sigma);
  plan.orderErrors = std::max(plan.orderErrors, errors);
  if (plan.periods.empty()) {
    for (Measure const& measure : measures) {
      plan.periods.push_back(measure.period);
    }
  }
}

/// Every built-in set that may be wanted.
std::vector<std::pair<std::string, PatternSetOptions>> candidates(PatternWish const& wish) {
  static std::vector<int> const steps{3, 4, 5, 6, 7, 8, 10, 12, 16, 24, 32};
  static std::vector<double> const periods{4, 5, 6, 8, 10, 12, 14, 16, 20, 24, 32, 40, 48, 64};
  std::vector<std::pair<std::string, PatternSetOptions>> all;
  PatternSetOptions options;
  options.axes = wish.axes;
  all.emplace_back("xor4", options);
  for (bool const hasInverses : {true, false}) {
    options = {wish.axes, 0, 0.0, hasInverses};
    all.emplace_back("gray", options);
    for (int const step : steps) {
      for (double const period : periods) {
        options = {wish.axes, step, period, hasInverses};
        all.emplace_back("gray-phase", options);
        if (hasInverses) {
          all.emplace_back("multi-frequency", options);
          all.emplace_back("heterodyne", options);
        }
      }
    }
  }
  return all;
}

/// How far a plan is from a wish, 0 where it fulfils it.
double distanceFrom(PatternPlan const& plan, PatternWish const& wish) {
  auto const beyond = [](double value, double most) {
    return most > 0.0 ? std::max(0.0, std::log(value / most)) : 0.0;
  };
  return beyond(plan.sigma, wish.sigma) + beyond(static_cast<double>(plan.set.images.size()), wish.images) +
         0.1 * beyond(plan.orderErrors, wish.orderErrors);
}

bool isBetter(PatternPlan const& a, PatternPlan const& b, PatternWish const& wish) {
  double const first = distanceFrom(a, wish);
  double const second = distanceFrom(b, wish);
  if (first != second) {
    return first < second;
  }
  if (wish.sigma > 0.0 && a.set.images.size() != b.set.images.size()) {
    return a.set.images.size() < b.set.images.size();
  }
  if (a.sigma != b.sigma) {
    return a.sigma < b.sigma;
  }
  return a.orderErrors < b.orderErrors;
}

/// Draws images, which takes time.
void foretellShare(PatternWish const& wish, PatternPlan& plan) {
  plan.decodedAlone = plan.decoded = 1.0;
  for (PatternAxis const axis : {PatternAxis::Column, PatternAxis::Row}) {
    if (plan.set.codes(axis)) {
      sl::DrawnShares const shares = sl::drawnShares(plan.set, axis, wish);
      plan.decodedAlone = std::min(plan.decodedAlone, shares.alone);
      plan.decoded = std::min(plan.decoded, shares.withNeighbours);
    }
  }
}

/// All but the share.
PatternPlan foretellRates(PatternSet const& set, PatternWish const& wish) {
  set.validate();
  PatternPlan plan;
  plan.set = set;
  for (PatternAxis const axis : {PatternAxis::Column, PatternAxis::Row}) {
    if (set.codes(axis)) {
      foretellAxis(axis, wish, plan);
    }
  }
  plan.time = wish.imageTime * static_cast<double>(set.images.size());
  return plan;
}

std::string describe(PatternPlan const& plan) {
  std::ostringstream text;
  text << plan.set.name << " with " << plan.set.images.size() << " images, sigma " << plan.sigma
       << " px, order errors " << plan.orderErrors;
  return text.str();
}

} // namespace

void PatternWish::check() const {
  auto const require = [](bool isMet, char const* name, double value, char const* bound) {
    if (!isMet) {
      throw error("PatternWish: " + std::string(name) + " is " + toString(value) + ", but must be " + bound,
                  context);
    }
  };
  constexpr double largest = 1e6;
  constexpr double mostBlur = 20.0;
  require(blur >= 0.0 && blur <= mostBlur, "blur", blur, "0 to 20 projector pixels");
  require(noise > 0.0 && noise <= largest, "noise", noise, "above 0, at most 1000000");
  require(amplitude > 0.0 && amplitude <= largest, "amplitude", amplitude, "above 0, at most 1000000");
  require(sigma >= 0.0 && sigma <= largest, "sigma", sigma, "0 or more");
  require(images >= 0, "images", images, "0 or more");
  require(orderErrors > 0.0 && orderErrors < 1.0, "orderErrors", orderErrors, "above 0 and below 1");
  require(imageTime > 0.0 && imageTime <= largest, "imageTime", imageTime, "above 0");
}

PatternPlan foretell(PatternSet const& set, PatternWish const& wish) {
  wish.check();
  PatternPlan plan = foretellRates(set, wish);
  foretellShare(wish, plan);
  return plan;
}

std::vector<PatternPlan> planPatterns(PatternWish const& wish) {
  wish.check();
  if (wish.sigma == 0.0 && wish.images == 0) {
    throw error("PatternWish: neither sigma nor images is given, so there is no best set", context);
  }
  std::vector<PatternPlan> best;
  for (auto const& [name, options] : candidates(wish)) {
    std::optional<PatternPlan> plan;
    try {
      plan = foretellRates(PatternSet::builtIn(name, wish.projector, options), wish);
      plan->options = options;
    } catch (Exception const&) { // such as too few fringes: the others may serve
      continue;
    }
    auto const same = std::find_if(best.begin(), best.end(),
                                   [&](PatternPlan const& one) { return one.set.name == plan->set.name; });
    if (same == best.end()) {
      best.push_back(*plan);
    } else if (isBetter(*plan, *same, wish)) {
      *same = *plan;
    }
  }
  if (best.empty()) {
    throw error("There is no pattern set for a projector of " + std::to_string(wish.projector.width) + " x " +
                    std::to_string(wish.projector.height) + " pixels",
                context);
  }
  std::stable_sort(best.begin(), best.end(),
                   [&](PatternPlan const& a, PatternPlan const& b) { return isBetter(a, b, wish); });
  if (distanceFrom(best.front(), wish) > 0.0) {
    throw error("No pattern set does what is wanted; nearest comes " + describe(best.front()), context);
  }
  best.erase(std::remove_if(best.begin(), best.end(),
                            [&](PatternPlan const& plan) { return distanceFrom(plan, wish) > 0.0; }),
             best.end());
  for (PatternPlan& plan : best) {
    foretellShare(wish, plan);
  }
  return best;
}

} // namespace vorn::mv
