// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/laser/laser_profile.hpp"

#include <algorithm>
#include <array>
#include <cmath>

#include <opencv2/core.hpp>

namespace vorn::mv {

namespace {

/// Some pixels of a profile in grey levels.
struct Levels {
  double const* first;
  int count;

  double operator[](int i) const { return first[i]; }
};

/// Grey level after smoothing with (1, 2, 1) / 4: keeps the search from noise and adds 1/2 to the squared
/// width.
double smoothed(Levels const& profile, int i) {
  return (profile[i - 1] + 2 * profile[i] + profile[i + 1]) / 4.0;
}
constexpr double smoothingWidth2 = 0.5;

/// The distance of a Gaussian's half height from its middle, in widths.
constexpr double halfHeight = 1.17741;

/// No stripe is wider than this, in pixels.
constexpr double widestStripe = 10;

/// A stripe ends within so many widths of its middle.
constexpr double stripeEnd = 3.5;

/// A stripe's flanks and what lies beyond them.
struct Stripe {
  double place = 0;
  double background = 0;
  double contrast = 0;
  double width = 0;
};

/// The last pixel for which `smoothed` is defined, in one direction.
int lastPixel(Levels const& profile, int direction) {
  return direction > 0 ? profile.count - 2 : 1;
}

/// The lowest level on one side of the top, within reach of the widest stripe allowed.
double lowestLevel(Levels const& profile, int top, int direction, int reach) {
  double lowest = smoothed(profile, top);
  for (int i = top, n = 0; n < reach && i != lastPixel(profile, direction); ++n) {
    i += direction;
    lowest = std::min(lowest, smoothed(profile, i));
  }
  return lowest;
}

/// The distance from the top to where the profile falls below a level.
std::optional<double> distanceToLevel(Levels const& profile, int top, int direction, int reach,
                                      double level) {
  double previous = smoothed(profile, top);
  for (int i = top, n = 0; n < reach && i != lastPixel(profile, direction); ++n) {
    i += direction;
    double const current = smoothed(profile, i);
    if (current < level) {
      return n + (previous - level) / (previous - current);
    }
    previous = current;
  }
  return std::nullopt;
}

std::optional<Stripe> findStripe(Levels const& profile, int top, LaserLineOptions const& options) {
  int const reach = static_cast<int>(std::ceil(stripeEnd * options.maxWidth));
  Stripe stripe;
  stripe.place = top;
  // The higher side counts, so that a step is no stripe.
  stripe.background = std::max(lowestLevel(profile, top, -1, reach), lowestLevel(profile, top, 1, reach));
  stripe.contrast = smoothed(profile, top) - stripe.background;
  double const half = stripe.background + stripe.contrast / 2;
  auto const before = distanceToLevel(profile, top, -1, reach, half);
  auto const after = distanceToLevel(profile, top, 1, reach, half);
  if (!before || !after) {
    return std::nullopt;
  }
  double const width = (*before + *after) / (2 * halfHeight);
  stripe.width = std::sqrt(std::max(width * width - smoothingWidth2, 0.01));
  return stripe;
}

bool isSaturated(Levels const& profile, Stripe const& stripe, LaserLineOptions const& options) {
  int const reach = static_cast<int>(std::ceil(stripeEnd * stripe.width));
  int run = 0;
  int const top = static_cast<int>(std::lround(stripe.place));
  for (int i = std::max(top - reach, 0); i < std::min(top + reach + 1, profile.count); ++i) {
    run = profile[i] >= options.saturation ? run + 1 : 0;
    if (run > options.maxSaturated) {
      return true;
    }
  }
  return false;
}

/// The pixels within a stripe's reach of its middle; they move along only when the middle has moved by a good
/// part of a pixel, so that a place between two pixels is not found and lost in turns.
class Window {
public:
  Window(Levels const& profile, double place, double width)
      : count_(profile.count), reach_(static_cast<int>(std::ceil(stripeEnd * width))) {
    follow(place);
  }

  void follow(double place) {
    if (std::abs(place - middle_) > 0.75) {
      middle_ = static_cast<int>(std::lround(place));
    }
  }
  bool isInside() const { return first() >= 0 && last() < count_; }
  int first() const { return middle_ - reach_; }
  int last() const { return middle_ + reach_; }

private:
  int count_;
  int reach_;
  int middle_ = -1;
};

/// Newton's method for the place where the correlation with the derivative of a Gaussian is zero.
std::optional<double> derivativeZero(Levels const& profile, Stripe const& stripe, double width) {
  constexpr int rounds = 12;
  constexpr double lastStep = 1e-5;
  double place = stripe.place;
  Window window(profile, place, width);
  for (int round = 0; round < rounds && window.isInside(); ++round) {
    double correlation = 0;
    double slope = 0;
    for (int i = window.first(); i <= window.last(); ++i) {
      double const u = (i - place) / width;
      double const weighted = (profile[i] - stripe.background) * std::exp(-u * u / 2);
      correlation += weighted * u;
      slope += weighted * (1 - u * u);
    }
    double const step = correlation / slope * width;
    if (!(slope > 0) || !(std::abs(place + step - stripe.place) < 2 * width + 1)) {
      return std::nullopt;
    }
    place += step;
    window.follow(place);
    if (std::abs(step) < lastStep) {
      return place;
    }
  }
  return std::nullopt;
}

/// Gauss and Newton's method for background, height and width of a Gaussian at a known place.
bool fitShape(Levels const& profile, Stripe& stripe) {
  constexpr int rounds = 3;
  for (int round = 0; round < rounds; ++round) {
    Window const window(profile, stripe.place, stripe.width);
    if (!window.isInside()) {
      return false;
    }
    cv::Matx33d normal;
    cv::Vec3d right;
    for (int i = window.first(); i <= window.last(); ++i) {
      double const u = (i - stripe.place) / stripe.width;
      double const g = std::exp(-u * u / 2);
      cv::Vec3d const row(1, g, stripe.contrast * u * u * g / stripe.width);
      normal += row * row.t();
      right += row * (profile[i] - stripe.background - stripe.contrast * g);
    }
    cv::Vec3d const step = normal.inv() * right;
    stripe.background += step[0];
    stripe.contrast += step[1];
    stripe.width *= std::clamp(1 + step[2] / stripe.width, 0.5, 2.0);
    if (!(stripe.contrast > 0 && stripe.width < 2 * widestStripe)) {
      return false;
    }
  }
  return true;
}

/// The odd parts of what the fit leaves. Hermite functions are orthogonal to each other: neither the fitted
/// shape nor a small error of the place is in these.
std::array<double, 2> oddParts(Levels const& profile, Stripe const& stripe) {
  Window const window(profile, stripe.place, stripe.width);
  std::array<double, 2> moments{};
  std::array<double, 2> squares{};
  for (int i = std::max(window.first(), 0); i <= std::min(window.last(), profile.count - 1); ++i) {
    double const u = (i - stripe.place) / stripe.width;
    double const u2 = u * u;
    double const g = std::exp(-u2 / 2);
    double const rest = profile[i] - stripe.background - stripe.contrast * g;
    std::array<double, 2> const hermite{u * (2 * u2 - 3) * g, u * ((4 * u2 - 20) * u2 + 15) * g};
    for (std::size_t k = 0; k < hermite.size(); ++k) {
      moments[k] += rest * hermite[k];
      squares[k] += hermite[k] * hermite[k];
    }
  }
  std::array<double, 2> odd{};
  for (std::size_t k = 0; k < odd.size(); ++k) {
    // A stripe much narrower than a pixel leaves nothing of its functions at the pixels' middles.
    odd[k] = squares[k] > 0 ? moments[k] / std::sqrt(squares[k]) : 0.0;
  }
  return odd;
}

/// The centre of gravity over a window that follows it, so that the window's ends do not pull it back.
std::optional<double> centreOfGravity(Levels const& profile, Stripe const& stripe, double width) {
  constexpr int rounds = 20;
  constexpr double lastStep = 1e-4;
  double const reach = 2.5 * width;
  double place = stripe.place;
  for (int round = 0; round < rounds; ++round) {
    int const first = static_cast<int>(std::floor(place - reach));
    int const last = static_cast<int>(std::ceil(place + reach));
    if (first < 0 || last >= profile.count) {
      return std::nullopt;
    }
    double sum = 0;
    double moment = 0;
    for (int i = first; i <= last; ++i) {
      // The pixels at the ends count with the part of them that lies in the window.
      double const share = std::clamp(reach + 0.5 - std::abs(i - place), 0.0, 1.0);
      double const light = share * (profile[i] - stripe.background);
      sum += light;
      moment += light * (i - place);
    }
    double const step = moment / sum;
    if (!(sum > 0) || !(std::abs(place + step - stripe.place) < 2 * width + 1)) {
      return std::nullopt;
    }
    place += step;
    if (std::abs(step) < lastStep) {
      return place;
    }
  }
  return place;
}

} // namespace

std::optional<ProfilePeak> measurePeak(LaserProfile const& whole, int wholeTop,
                                       LaserLineOptions const& options) {
  if (wholeTop < 2 || wholeTop > whole.count - 3) {
    return std::nullopt;
  }
  // Every pixel is read many times below, and down a column of an image each would be a row apart.
  constexpr int longestReach = 2 * static_cast<int>(stripeEnd * widestStripe) + 4;
  std::array<double, 2 * longestReach + 1> levels;
  int const reach =
      2 * static_cast<int>(std::ceil(stripeEnd * std::max(options.maxWidth, options.width))) + 4;
  int const first = std::max(0, wholeTop - reach);
  int const end = std::min(whole.count, wholeTop + reach + 1);
  for (int i = first; i < end; ++i) {
    levels[static_cast<std::size_t>(i - first)] = whole[i];
  }
  Levels const profile{levels.data(), end - first};
  int const top = wholeTop - first;

  auto stripe = findStripe(profile, top, options);
  if (!stripe || stripe->contrast < options.minContrast / 2) { // a sampled top is lower than the stripe
    return std::nullopt;
  }
  auto const place = [&] {
    double const width = options.width > 0 ? options.width : stripe->width;
    return options.method == LaserLineOptions::Method::DerivativeZero
               ? derivativeZero(profile, *stripe, width)
               : centreOfGravity(profile, *stripe, width);
  };
  // The shape is measured at the place and the place with the shape; the second time nothing changes much.
  for (int round = 0; round < 2; ++round) {
    auto const found = place();
    if (!found) {
      return std::nullopt;
    }
    stripe->place = *found;
    if (round == 0 && !fitShape(profile, *stripe)) {
      return std::nullopt;
    }
  }
  if (stripe->contrast < options.minContrast || stripe->width < options.minWidth ||
      stripe->width > options.maxWidth || isSaturated(profile, *stripe, options)) {
    return std::nullopt;
  }
  double const sigma = std::sqrt(2 * stripe->width / std::sqrt(CV_PI)) / stripe->contrast;
  return ProfilePeak{first + stripe->place, stripe->contrast, stripe->width, oddParts(profile, *stripe),
                     sigma};
}

namespace {

/// Where a flank passes a level, and how steeply: grey levels a pixel.
struct Crossing {
  double place;
  double slope;
};

/// Walks from a full pixel outwards.
std::optional<Crossing> crossingOf(LaserProfile const& profile, int full, int direction, int reach,
                                   double level) {
  double before = profile[full];
  for (int n = 1; n <= reach; ++n) {
    int const i = full + n * direction;
    if (i < 0 || i >= profile.count) {
      return std::nullopt;
    }
    double const now = profile[i];
    if (now < level) {
      double const slope = before - now;
      return Crossing{i - direction * (level - now) / slope, slope};
    }
    before = now;
  }
  return std::nullopt;
}

/// The lowest level within reach of a full pixel on one side.
double lowestBeside(LaserProfile const& profile, int full, int direction, int reach) {
  double lowest = profile[full];
  for (int n = 1; n <= reach; ++n) {
    int const i = full + n * direction;
    if (i < 0 || i >= profile.count) {
      break;
    }
    lowest = std::min(lowest, profile[i]);
  }
  return lowest;
}

} // namespace

Flanks measureFlanks(LaserProfile const& profile, FullRun const& full, LaserLineOptions const& options) {
  int const reach = static_cast<int>(std::ceil(stripeEnd * options.maxWidth));
  int const last = full.end - 1;
  // The higher side counts, so that a step is no stripe.
  double const background =
      std::max(lowestBeside(profile, full.first, -1, reach), lowestBeside(profile, last, 1, reach));
  double const contrast = options.saturation - background;
  Flanks flanks{contrast, std::nullopt};
  if (contrast < options.minContrast) {
    return flanks;
  }
  constexpr std::array<double, 3> heights{0.3, 0.5, 0.7};
  std::array<double, heights.size()> middles{};
  double variance = 0; // of noise of one grey level
  double width = 0;
  for (std::size_t k = 0; k < heights.size(); ++k) {
    double const level = background + heights[k] * contrast;
    auto const before = crossingOf(profile, full.first, -1, reach, level);
    auto const after = crossingOf(profile, last, 1, reach, level);
    if (!before || !after) {
      return flanks;
    }
    middles[k] = 0.5 * (before->place + after->place);
    // Neighbouring levels are mostly crossed between the same pixels, whose noise they share.
    variance +=
        0.25 * (1 / (before->slope * before->slope) + 1 / (after->slope * after->slope)) / heights.size();
    width = std::max(width, after->place - before->place);
  }
  double place = 0;
  for (double const middle : middles) {
    place += middle / static_cast<double>(middles.size());
  }
  double const disagreement =
      *std::max_element(middles.begin(), middles.end()) - *std::min_element(middles.begin(), middles.end());
  double const length = full.end - full.first;
  // Light that spreads on one side only comes from an edge or another surface.
  constexpr double mostShare = 0.1; // of the stripe's width
  if (disagreement > 0.5 + mostShare * length) {
    return flanks;
  }
  // A flank's blooming and the surface's light differ from side to side by some share of what they spread
  // over.
  constexpr double unseen = 0.01;
  double const sigma = std::sqrt(variance + disagreement * disagreement + unseen * unseen * length * length);
  flanks.peak = ProfilePeak{place, contrast, width / (2 * halfHeight), {}, sigma, true};
  return flanks;
}

} // namespace vorn::mv
