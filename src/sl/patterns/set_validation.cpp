// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <tuple>

#include <opencv2/core/matx.hpp>

#include <vorn/core/text.hpp>
#include <vorn/mv/sl/pattern_set.hpp>

#include "core/error.hpp"
#include "sl/patterns/fringe_equations.hpp"
#include "sl/patterns/set_groups.hpp"

namespace vorn::mv {

namespace {

using sl::nameOf;

constexpr char const* context = "PatternSet";

void require(bool isMet, std::string const& message) {
  if (!isMet) {
    throw error(message, context);
  }
}

char const* wordOf(PatternAxis axis) {
  return axis == PatternAxis::Column ? "columns" : "rows";
}

void checkFringe(std::string const& name, PatternImage const& image, int resolution) {
  constexpr double shortest = 2.0;
  // Orders are numbered with 15 bits.
  constexpr double longest = 1e6;
  constexpr int mostSteps = 1000;
  require(image.period >= shortest && image.period <= longest,
          name + " has the period " + toString(image.period) + " and must have one of 2 to 1000000 pixels");
  require(image.steps >= 1 && image.steps <= mostSteps,
          name + " is one of " + std::to_string(image.steps) + " steps; there must be 1 to 1000");
  require(image.step >= 0 && image.step < image.steps, name + " is step " + std::to_string(image.step) +
                                                           " and must be one from 0 to " +
                                                           std::to_string(image.steps - 1));
  require(std::isfinite(image.offset), name + " has the offset " + toString(image.offset));
  require(std::abs(image.sign) == 1,
          name + " has the sign " + std::to_string(image.sign) + " and must have 1 or -1");
  require(resolution / image.period < 32767.0,
          name + " has more than 32767 fringes over " + std::to_string(resolution) + " pixels");
}

void checkBit(std::string const& name, PatternImage const& image) {
  constexpr int mostBits = 24;
  require(image.bit >= 0 && image.bit < mostBits,
          name + " is bit " + std::to_string(image.bit) + " and must be one from 0 to 23");
  require(std::isfinite(image.cell) && image.cell >= 0.5,
          name + " has stripes of " + toString(image.cell) + " pixels; they must be half a pixel or more");
  require(image.shift >= 0.0 && image.shift <= 1e6,
          name + " has the shift " + toString(image.shift) + "; it must be 0 or more");
}

void checkLines(std::string const& name, PatternImage const& image) {
  constexpr double largest = 1e6;
  auto const checkWhole = [&](double value, double least, double most, char const* what) {
    require(value >= least && value <= most && value == std::floor(value),
            name + " has the " + what + ' ' + toString(value) + " and must have a whole number of " +
                toString(least) + " to " + toString(most));
  };
  checkWhole(image.period, 2.0, largest, "period");
  checkWhole(image.cell, 1.0, image.period - 1.0, "cell");
  checkWhole(image.shift, 0.0, largest, "shift");
}

void checkImage(PatternSet const& set, std::size_t index) {
  PatternImage const& image = set.images[index];
  std::string const name = nameOf(set, index);
  require(std::isfinite(image.exposure) && image.exposure > 0.0,
          name + " has the exposure " + toString(image.exposure) + ", which must be above 0");
  if (image.role == PatternRole::Phase) {
    checkFringe(name, image, sl::resolutionAlong(set, image.axis));
  } else if (image.role == PatternRole::Bit) {
    checkBit(name, image);
  } else if (image.role == PatternRole::Line) {
    checkLines(name, image);
  }
}

/// What tells patterns apart, whatever their exposure.
using Key = std::tuple<PatternRole, PatternAxis, double, double, int, bool>;

Key keyOf(PatternImage const& image) {
  switch (image.role) {
  case PatternRole::Phase: {
    double turns = sl::angleOf(image) / (2 * CV_PI);
    turns -= std::floor(turns);
    constexpr double grid = 1e9;
    return {image.role, image.axis, image.period, std::round(turns * grid), 0, false};
  }
  case PatternRole::Bit:
    return {image.role, image.axis, 0.0, 0.0, image.bit, image.isInverse};
  case PatternRole::Line:
    return {image.role, image.axis, image.period, image.shift, static_cast<int>(image.cell), false};
  default:
    return {image.role, PatternAxis::Column, 0.0, 0.0, 0, false};
  }
}

void checkExposures(PatternSet const& set) {
  std::map<Key, std::vector<std::size_t>> patterns;
  for (std::size_t i = 0; i < set.images.size(); ++i) {
    std::vector<std::size_t>& same = patterns[keyOf(set.images[i])];
    double const exposure = set.images[i].exposure;
    for (std::size_t const other : same) {
      require(set.images[other].exposure != exposure,
              nameOf(set, i) + " is there twice: image " + std::to_string(other) + " shows the same");
      require(set.images[other].exposure < exposure,
              nameOf(set, i) + " comes after the same pattern at exposure " +
                  toString(set.images[other].exposure) + ": exposures must rise");
    }
    same.push_back(i);
  }
  std::set<double> exposures;
  for (PatternImage const& image : set.images) {
    exposures.insert(image.exposure);
  }
  for (auto const& [key, same] : patterns) {
    for (double const exposure : exposures) {
      bool const isThere = std::any_of(same.begin(), same.end(),
                                       [&](std::size_t i) { return set.images[i].exposure == exposure; });
      require(isThere, nameOf(set, same.front()) + " is missing at exposure " + toString(exposure));
    }
  }
}

/// Of each shift of one number of steps, all must be there.
void checkSteps(PatternSet const& set, sl::Fringe const& fringe) {
  std::map<std::tuple<int, int, double>, std::set<int>> shifts;
  for (std::size_t const i : fringe.images) {
    PatternImage const& image = set.images[i];
    shifts[{image.steps, image.sign, image.steps == 1 ? 0.0 : image.offset}].insert(image.step);
  }
  std::string const name =
      "The fringe of period " + toString(fringe.period) + " along " + wordOf(fringe.axis);
  for (auto const& [shift, steps] : shifts) {
    for (int step = 0; step < std::get<0>(shift); ++step) {
      require(steps.count(step) != 0,
              name + " lacks step " + std::to_string(step) + " of " + std::to_string(std::get<0>(shift)));
    }
  }
  require(fringe.images.size() <= sl::FringeEquations::mostImages,
          name + " has " + std::to_string(fringe.images.size()) + " images and may have 32");
  require(sl::FringeEquations(set, fringe).isSolvable(),
          name + " has " + std::to_string(fringe.images.size()) +
              " images whose offsets do not determine a phase: three different ones are needed");
}

void checkBits(PatternSet const& set, PatternAxis axis, std::vector<std::size_t> const& bits) {
  PatternImage const& first = set.images[bits.front()];
  std::set<int> plain;
  std::set<int> inverse;
  for (std::size_t const i : bits) {
    PatternImage const& image = set.images[i];
    require(image.code == first.code && image.cell == first.cell && image.shift == first.shift,
            nameOf(set, i) + " has another code, cell or shift than image " + std::to_string(bits.front()));
    (image.isInverse ? inverse : plain).insert(image.bit);
  }
  std::string const code = std::string("The bits along ") + wordOf(axis);
  int const count = *plain.rbegin() + 1;
  for (int bit = 0; bit < count; ++bit) {
    require(plain.count(bit) != 0,
            code + " lack bit " + std::to_string(bit) + " of " + std::to_string(count));
    require(inverse.empty() || inverse.count(bit) != 0,
            code + " lack the inverse of bit " + std::to_string(bit));
  }
  double const stripes = std::ceil((sl::resolutionAlong(set, axis) + first.shift) / first.cell);
  require(stripes <= std::ldexp(1.0, count), code + " are " + std::to_string(count) + " and tell " +
                                                 toString(std::ldexp(1.0, count)) +
                                                 " stripes apart; the projector shows " + toString(stripes) +
                                                 " of " + toString(first.cell) + " pixels");
  auto const has = [&](PatternRole role) {
    return std::any_of(set.images.begin(), set.images.end(),
                       [&](PatternImage const& image) { return image.role == role; });
  };
  bool const isComparable = !inverse.empty() || has(PatternRole::Phase) || has(PatternRole::Reference) ||
                            (has(PatternRole::White) && has(PatternRole::Black));
  require(isComparable, code + " have nothing to be compared with: their inverses, white and black, a "
                               "reference or fringes");
}

void checkAxis(PatternSet const& set, PatternAxis axis) {
  std::vector<sl::Fringe> const fringes = sl::fringesAlong(set, axis);
  std::vector<std::size_t> const bits = sl::bitsAlong(set, axis);
  for (sl::Fringe const& fringe : fringes) {
    checkSteps(set, fringe);
  }
  bool const hasPlain =
      std::any_of(bits.begin(), bits.end(), [&](std::size_t i) { return !set.images[i].isInverse; });
  require(bits.empty() || hasPlain, std::string("The bits along ") + wordOf(axis) + " are all inverses");
  if (!bits.empty()) {
    checkBits(set, axis, bits);
    double const widest =
        fringes.empty() ? 0.0
                        : std::max_element(fringes.begin(), fringes.end(), [](auto const& a, auto const& b) {
                            return a.period < b.period;
                          })->period;
    double const cell = set.images[bits.front()].cell;
    require(fringes.empty() || cell <= widest,
            nameOf(set, bits.front()) + " has stripes of " + toString(cell) +
                " pixels, which hold several fringes of period " + toString(widest));
  } else if (!fringes.empty()) {
    int const resolution = sl::resolutionAlong(set, axis);
    double const way = sl::firstRepetition(fringes, resolution);
    require(way == 0.0, "The fringes along " + std::string(wordOf(axis)) + " repeat after " + toString(way) +
                            " of " + std::to_string(resolution) +
                            " pixels: bits or another period are needed");
    // Noise carries the phase of one end to that of the other, and blur makes them one.
    constexpr double beyondEnds = 1.02;
    double const period = fringes.front().period;
    require(fringes.size() > 1 || period >= beyondEnds * resolution,
            "The only fringe along " + std::string(wordOf(axis)) + " has the period " + toString(period) +
                " over " + std::to_string(resolution) + " pixels, so that its ends look alike: it must be " +
                toString(beyondEnds * resolution) + " or longer");
  }
}

} // namespace

void PatternSet::validate() const {
  constexpr int largest = 32767;
  require(std::min(projector.width, projector.height) >= 1 &&
              std::max(projector.width, projector.height) <= largest,
          "The projector of a pattern set has " + std::to_string(projector.width) + " x " +
              std::to_string(projector.height) + " pixels and must have 1 to 32767 each way");
  require(codes(PatternAxis::Column) || codes(PatternAxis::Row),
          "The pattern set has neither fringes nor bits among its " + std::to_string(images.size()) +
              " images");
  std::map<std::string, std::size_t> files;
  for (std::size_t i = 0; i < images.size(); ++i) {
    checkImage(*this, i);
    require(images[i].file.empty() == images[0].file.empty(),
            nameOf(*this, i) + ": either all images have a file or none has");
    auto const [known, isNew] = files.insert({images[i].file, i});
    require(images[i].file.empty() || isNew,
            nameOf(*this, i) + " has the file of image " + std::to_string(known->second));
  }
  checkExposures(*this);
  checkAxis(*this, PatternAxis::Column);
  checkAxis(*this, PatternAxis::Row);
}

} // namespace vorn::mv
