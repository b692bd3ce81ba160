// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/patterns/set_groups.hpp"

#include <algorithm>
#include <cmath>

#include <vorn/core/text.hpp>
#include <vorn/mv/sl/gray_code.hpp>

#include "sl/coding/stripe_cells.hpp"
#include "sl/coding/stripe_code.hpp"

namespace vorn::mv::sl {

std::vector<Fringe> fringesAlong(PatternSet const& set, PatternAxis axis) {
  std::vector<Fringe> fringes;
  for (std::size_t i = 0; i < set.images.size(); ++i) {
    PatternImage const& image = set.images[i];
    if (image.role != PatternRole::Phase || image.axis != axis) {
      continue;
    }
    auto found = std::find_if(fringes.begin(), fringes.end(),
                              [&](Fringe const& f) { return f.period == image.period; });
    if (found == fringes.end()) {
      found = fringes.insert(fringes.end(), {axis, image.period, {}});
    }
    found->images.push_back(i);
  }
  return fringes;
}

std::vector<std::size_t> bitsAlong(PatternSet const& set, PatternAxis axis) {
  std::vector<std::size_t> bits;
  for (std::size_t i = 0; i < set.images.size(); ++i) {
    if (set.images[i].role == PatternRole::Bit && set.images[i].axis == axis) {
      bits.push_back(i);
    }
  }
  return bits;
}

double angleOf(PatternImage const& image) {
  constexpr double degrees = 360.0;
  double const turns = static_cast<double>(image.sign * image.step) / image.steps + image.offset / degrees;
  return turns * 2 * CV_PI;
}

int resolutionAlong(PatternSet const& set, PatternAxis axis) {
  return axis == PatternAxis::Column ? set.projector.width : set.projector.height;
}

unsigned wordAt(PatternImage const& image, double coordinate) {
  int const stripe = StripeCells{image.cell, image.shift}.stripeOf(coordinate);
  switch (image.code) {
  case BitCode::Gray:
    return bin2Gray(static_cast<unsigned>(stripe));
  case BitCode::Xor:
    return StripeCode::shownWord(stripe);
  case BitCode::Binary:
    break;
  }
  return static_cast<unsigned>(stripe);
}

double firstRepetition(std::vector<Fringe> const& fringes, int resolution) {
  double const shortest =
      std::min_element(fringes.begin(), fringes.end(), [](Fringe const& a, Fringe const& b) {
        return a.period < b.period;
      })->period;
  // Closer than that no camera tells two places apart.
  constexpr double leastDifference = 0.01;
  // Whole numbers of periods that fill the image are not exactly that in binary.
  double const end = resolution * (1.0 - 1e-9);
  for (double way = shortest; way < end; way += shortest) {
    bool const looksAlike = std::all_of(fringes.begin(), fringes.end(), [&](Fringe const& f) {
      double const turns = way / f.period;
      return std::fabs(turns - std::round(turns)) < leastDifference;
    });
    if (looksAlike) {
      return way;
    }
  }
  return 0.0;
}

std::string ofFringe(Fringe const& fringe) {
  return "of period " + toString(fringe.period) + " along " +
         (fringe.axis == PatternAxis::Column ? "columns" : "rows");
}

std::string nameOf(PatternSet const& set, std::size_t index) {
  PatternImage const& image = set.images[index];
  std::string const file = image.file.empty() ? "" : image.file + ", ";
  return "Image " + std::to_string(index) + " (" + file + image.describe() + ")";
}

std::string nameWithin(PatternSet const& set, std::size_t index) {
  std::string name = nameOf(set, index);
  name[0] = 'i';
  return name;
}

} // namespace vorn::mv::sl
