// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <functional>
#include <utility>

#include <vorn/core/text.hpp>
#include <vorn/mv/sl/pattern_set.hpp>

#include "core/error.hpp"
#include "core/nearest_word.hpp"
#include "sl/coding/stripe_code.hpp"

namespace vorn::mv {

namespace {

constexpr char const* context = "PatternSet::builtIn";
constexpr int usualSteps = 4;

/// What the images of one axis are made of.
struct Plan {
  PatternAxis axis;
  int resolution;
  int steps;
  double period; ///< 0: the set's own
  bool hasInverses;
};

using Images = std::vector<PatternImage>;

PatternImage phaseImage(Plan const& plan, double period, int step) {
  PatternImage image;
  image.role = PatternRole::Phase;
  image.axis = plan.axis;
  image.period = period;
  image.step = step;
  image.steps = plan.steps;
  return image;
}

void addFringe(Plan const& plan, double period, Images& images) {
  for (int step = 0; step < plan.steps; ++step) {
    images.push_back(phaseImage(plan, period, step));
  }
}

PatternImage bitImage(Plan const& plan, BitCode code, int bit, double cell) {
  PatternImage image;
  image.role = PatternRole::Bit;
  image.axis = plan.axis;
  image.code = code;
  image.bit = bit;
  image.cell = cell;
  return image;
}

/// Most significant bit first.
void addGray(Plan const& plan, double cell, Images& images) {
  int bits = 1;
  while (std::ldexp(cell, bits) < plan.resolution) {
    ++bits;
  }
  for (int bit = bits - 1; bit >= 0; --bit) {
    images.push_back(bitImage(plan, BitCode::Gray, bit, cell));
    if (plan.hasInverses) {
      images.push_back(images.back());
      images.back().isInverse = true;
    }
  }
}

Images xor4(Plan const& plan) {
  sl::StripeCode const& code = plan.axis == PatternAxis::Column ? sl::columnCode : sl::rowCode;
  if (plan.steps != sl::StripeCode::phaseImages || plan.period > 0.0) {
    throw error("The set xor4 has 4 steps of " + std::to_string(code.period) +
                    " pixels: \"steps\" and \"period\" are not taken",
                context);
  }
  Images images;
  addFringe(plan, code.period, images);
  for (int bit = 0; bit <= code.generatedPlanes(plan.resolution); ++bit) {
    images.push_back(bitImage(plan, BitCode::Xor, bit, code.period));
  }
  return images;
}

Images gray(Plan const& plan) {
  if (plan.period > 0.0) {
    throw error("The set gray has no fringes: \"period\" is not taken", context);
  }
  Images images;
  addGray(plan, 1.0, images);
  return images;
}

Images grayPhase(Plan const& plan) {
  constexpr double usualPeriod = 8.0;
  double const period = plan.period > 0.0 ? plan.period : usualPeriod;
  Images images;
  addFringe(plan, period, images);
  // Stripes of half a fringe leave a quarter of a period on either side for what is uncertain at their edges.
  addGray(plan, 0.5 * period, images);
  return images;
}

constexpr double usualFinePeriod = 16.0;
/// By how much the longest period is longer than the image, so that noise does not carry one end to the
/// other.
constexpr double beyondEnds = 1.05;

Images multiFrequency(Plan const& plan) {
  double const fine = plan.period > 0.0 ? plan.period : usualFinePeriod;
  double const longest = std::max(beyondEnds * plan.resolution, fine);
  // The order of a period comes from the one before it, whose noise grows with the ratio of the two.
  constexpr double largestRatio = 8.0;
  int const levels = static_cast<int>(std::ceil(std::log(longest / fine) / std::log(largestRatio) - 1e-9));
  Images images;
  for (int level = 0; level <= levels; ++level) {
    double const share = levels == 0 ? 1.0 : static_cast<double>(level) / levels;
    double const period = level == levels ? fine : longest * std::pow(fine / longest, share);
    constexpr double grid = 64.0;
    addFringe(plan, level == levels ? fine : std::round(period * grid) / grid, images);
  }
  return images;
}

Images heterodyne(Plan const& plan) {
  double const fine = plan.period > 0.0 ? plan.period : usualFinePeriod;
  auto const fringes = static_cast<int>(std::ceil(beyondEnds * plan.resolution / fine));
  auto const apart = static_cast<int>(std::lround(std::sqrt(fringes)));
  constexpr int fewest = 4;
  if (fringes < fewest) {
    throw error("The set heterodyne needs 4 fringes or more over " + std::to_string(plan.resolution) +
                    " pixels; of period " + toString(fine) + " there are " + std::to_string(fringes),
                context);
  }
  double const range = fringes * fine;
  Images images;
  for (int const count : {fringes, fringes - 1, fringes - apart}) {
    addFringe(plan, range / count, images);
  }
  return images;
}

struct BuiltIn {
  char const* name;
  std::function<Images(Plan const&)> make;
};

std::vector<BuiltIn> const& builtIns() {
  static std::vector<BuiltIn> const all{{"xor4", xor4},
                                        {"gray", gray},
                                        {"gray-phase", grayPhase},
                                        {"multi-frequency", multiFrequency},
                                        {"heterodyne", heterodyne}};
  return all;
}

BuiltIn const& builtInOf(std::string const& name) {
  auto const& all = builtIns();
  auto const found = std::find_if(all.begin(), all.end(), [&](auto const& one) { return name == one.name; });
  if (found != all.end()) {
    return *found;
  }
  std::string const meant = nearestWord(name, PatternSet::builtInNames());
  std::string names;
  for (BuiltIn const& one : all) {
    names += (names.empty() ? "" : ", ") + std::string(one.name);
  }
  throw error("There is no pattern set \"" + name + "\"" +
                  (meant.empty() ? "; there are " + names : "; did you mean \"" + meant + "\"?"),
              context);
}

void checkOptions(PatternSetOptions const& options) {
  constexpr int fewestSteps = 3;
  constexpr int mostSteps = 32;
  if (options.steps != 0 && (options.steps < fewestSteps || options.steps > mostSteps)) {
    throw error("\"steps\" of a pattern set is " + std::to_string(options.steps) + " and must be 3 to 32",
                context);
  }
  if (!(options.period == 0.0 || (options.period >= 2.0 && options.period <= 1e4))) {
    throw error("\"period\" of a pattern set is " + toString(options.period) +
                    " and must be 2 to 10000 projector pixels",
                context);
  }
}

} // namespace

std::vector<std::string> const& PatternSet::builtInNames() {
  static std::vector<std::string> const names = [] {
    std::vector<std::string> all;
    for (BuiltIn const& one : builtIns()) {
      all.emplace_back(one.name);
    }
    return all;
  }();
  return names;
}

PatternSet PatternSet::builtIn(std::string const& name, cv::Size projector,
                               PatternSetOptions const& options) {
  BuiltIn const& set = builtInOf(name);
  checkOptions(options);
  PatternSet made;
  made.name = name;
  made.projector = projector;
  bool const comparesWithWhite = !options.hasInverses && (name == "gray" || name == "gray-phase");
  if (comparesWithWhite) {
    made.images.resize(2);
    made.images[1].role = PatternRole::Black;
  }
  for (PatternAxis const axis : {PatternAxis::Column, PatternAxis::Row}) {
    PatternAxes const other = axis == PatternAxis::Column ? PatternAxes::Rows : PatternAxes::Columns;
    if (options.axes == other) {
      continue;
    }
    int const resolution = axis == PatternAxis::Column ? projector.width : projector.height;
    Images const images =
        set.make({axis, std::max(1, resolution), options.steps == 0 ? usualSteps : options.steps,
                  options.period, options.hasInverses});
    made.images.insert(made.images.end(), images.begin(), images.end());
  }
  made.validate();
  return made;
}

} // namespace vorn::mv
