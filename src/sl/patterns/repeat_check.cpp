// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/patterns/repeat_check.hpp"

#include <algorithm>
#include <cmath>
#include <string>

namespace vorn::mv::sl {

namespace {

/// Of neighbouring steps the mean squared difference is the squared amplitude; of one step it is the noise.
constexpr double mostAlike = 0.25;
constexpr std::size_t fewestSamples = 200;

/// How two images differ at the lit places.
struct Difference {
  double squares = 0.0;  ///< mean, in parts of the squared amplitude
  std::size_t equal = 0; ///< to the last level
  std::size_t one = 0;   ///< by one step of the images' levels
  std::size_t count = 0;
};

class Comparison {
public:
  Comparison(Fringe const& fringe, KeptSamples const& samples) : samples_(samples) {
    std::size_t const all = samples.places() * KeptSamples::ofPlace;
    std::vector<double> powers(all);
    double sum = 0.0;
    std::size_t known = 0;
    for (std::size_t i = 0; i < all; ++i) {
      powers[i] = powerAt(fringe, i);
      sum += std::isnan(powers[i]) ? 0.0 : powers[i];
      known += std::isnan(powers[i]) ? 0 : 1;
    }
    double const mean = known > 0 ? sum / static_cast<double>(known) : 0.0;
    for (std::size_t i = 0; i < all; ++i) {
      if (powers[i] > 0.0 && powers[i] >= mean) { // not a NaN
        lit_.push_back(i);
        power_ += powers[i];
      }
    }
    power_ = lit_.empty() ? 0.0 : power_ / static_cast<double>(lit_.size());
  }

  std::size_t samples() const { return lit_.size(); }

  /// Learns from two images how far apart levels lie at least: bits at the upper end of a word, or bytes that
  /// were stretched to it, leave out levels.
  void learnStep(std::size_t one, std::size_t other) {
    for (std::size_t const i : lit_) {
      double const d = std::fabs(static_cast<double>(samples_.at(one, 0)[i]) -
                                 static_cast<double>(samples_.at(other, 0)[i]));
      step_ = d > 0.0 && (step_ == 0.0 || d < step_) ? d : step_; // not a NaN
    }
  }

  Difference between(std::size_t one, std::size_t other) const {
    // Numbers that are not whole have no levels.
    double const step = step_ >= 1.0 && step_ == std::floor(step_) ? step_ : 1.0;
    Difference difference;
    for (std::size_t const i : lit_) {
      auto const d =
          static_cast<double>(samples_.at(one, 0)[i]) - static_cast<double>(samples_.at(other, 0)[i]);
      if (!std::isnan(d)) {
        difference.squares += d * d;
        difference.equal += d == 0.0 ? 1 : 0;
        difference.one += std::fabs(d) == step ? 1 : 0;
        ++difference.count;
      }
    }
    difference.squares /= power_ * static_cast<double>(std::max<std::size_t>(1, difference.count));
    return difference;
  }

private:
  double powerAt(Fringe const& fringe, std::size_t i) const {
    auto const at = [&](std::size_t step) {
      return static_cast<double>(samples_.at(fringe.images[step], 0)[i]);
    };
    double const cosine = at(0) - at(2);
    double const sine = at(1) - at(3);
    return 0.25 * (cosine * cosine + sine * sine);
  }

  KeptSamples const& samples_;
  std::vector<std::size_t> lit_;
  double power_ = 0.0;
  double step_ = 0.0; ///< between levels; 0 as long as no two differ
};

PatternDoubt doubtOf(PatternSet const& set, std::size_t one, std::size_t other, double value, double limit) {
  PatternImage const& image = set.images[one];
  bool const isStep = image.role == PatternRole::Phase;
  return {isStep ? PatternFault::Steps : PatternFault::Stripes,
          image.axis,
          isStep ? image.period : 0.0,
          {one, other},
          value,
          limit,
          nameWithin(set, one) + " and " + nameWithin(set, other) +
              " are the same: one of them was captured twice, or copied over the other"};
}

} // namespace

RepeatCheck checkRepeats(PatternSet const& set, Fringe const& fringe, KeptSamples const& samples) {
  RepeatCheck result;
  Comparison comparison(fringe, samples);
  if (comparison.samples() < fewestSamples) {
    return result;
  }
  for (std::size_t other = 1; other < set.images.size(); ++other) {
    comparison.learnStep(0, other);
  }
  std::vector<std::pair<std::size_t, std::size_t>> equal;
  std::size_t ofOne = 0; // of other bits
  std::size_t ofEqual = 0;
  for (std::size_t one = 0; one < set.images.size(); ++one) {
    for (std::size_t other = one + 1; other < set.images.size(); ++other) {
      Difference const difference = comparison.between(one, other);
      if (difference.count < fewestSamples) {
        continue;
      }
      bool const isStep = set.images[one].role == PatternRole::Phase; // steps come first
      bool const areSteps = set.images[other].role == PatternRole::Phase;
      if (areSteps && difference.squares < mostAlike) {
        result.doubts.push_back(doubtOf(set, one, other, difference.squares, mostAlike));
      } else if (difference.equal == difference.count) {
        equal.emplace_back(one, other);
      } else if (!isStep) {
        ofOne += difference.one;
        ofEqual += difference.equal;
      }
      if (!isStep && difference.squares < mostAlike) {
        result.alike.emplace_back(one, other);
      }
    }
  }
  // With noise about as many pixels that show the same differ by one level, in dim light half as many;
  // without any, a quarter at most, beside the borders of stripes.
  if (3 * ofOne > ofEqual) {
    for (auto const& [one, other] : equal) {
      result.doubts.push_back(doubtOf(set, one, other, 0.0, mostAlike));
    }
  }
  return result;
}

} // namespace vorn::mv::sl
