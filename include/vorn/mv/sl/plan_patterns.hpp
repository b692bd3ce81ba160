// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/types.hpp>

#include <vorn/core/export.hpp>
#include <vorn/mv/sl/pattern_set.hpp>

namespace vorn::mv {

/// What patterns are wanted for. One of `sigma` and `images` must be given, or both.
struct PatternWish {
  cv::Size projector;                   ///< pixels
  PatternAxes axes = PatternAxes::Both; ///< what to code
  /// Sharpness of the projector as the camera sees it: standard deviation of the image of a point, projector
  /// pixels. 0 to 20.
  double blur = 0.6;
  double noise = 1.0; ///< standard deviation of an image, grey levels, without its rounding; above 0
  /// Half of the difference of lit and dark, grey levels, on the surface that matters; above 0.
  double amplitude = 50.0;
  double sigma = 0.0;        ///< wanted standard deviation of coordinates, projector pixels; 0: the least
  int images = 0;            ///< most images; 0: any number
  double orderErrors = 1e-6; ///< most pixels whose fringe is numbered wrongly, of all; below 1
  double imageTime = 0.05;   ///< seconds for an image
  bool isRounded = true;     ///< whether grey levels are whole numbers

  /// @throws Exception that names the member, its value and the bound
  VORN_API void check() const;
};

/// A built-in set, and what can be foretold of it.
struct PatternPlan {
  PatternSet set;              ///< the set
  PatternSetOptions options;   ///< that `PatternSet::builtIn` made it with
  std::vector<double> periods; ///< of the fringes along columns, or rows where there are no columns; rising
  double sigma = 0.0;          ///< standard deviation of a coordinate, the worse of both, projector pixels
  /// Share of pixels that would number their fringe wrongly by themselves, the worse of both coordinates.
  /// Decoding leaves most of them open and asks their neighbours.
  double orderErrors = 0.0;
  /// Share of pixels that get a coordinate by themselves, the lesser of both: noise that makes few wrong
  /// orders may leave most of them open. Drawn from images, so to about a hundredth.
  double decodedAlone = 0.0;
  /// Likewise of a smooth surface, neighbours asked, to some hundredths; where few have one by themselves, it
  /// depends on the surface.
  double decoded = 0.0;
  double time = 0.0; ///< seconds for all images
};

/// What can be foretold of a set under a wish, of which only light and noise matter.
///
/// Fringes of period p have the amplitude B = A exp(-2 pi^2 blur^2 / p^2) sinc(1 / p), the last for the
/// projector's pixels. N steps give the coordinate with p / (2 pi) * noise / B * sqrt(2 / N) (J. E.
/// Greivenkamp, Optical Engineering 23, 1984), and several periods are combined by their weights.
///
/// Without bits, the order is the one whose other periods deviate least. Another order is taken when noise
/// makes up for the difference of its squared deviations: for a longer period p2 that numbers a shorter one
/// p1 with probability erfc(p1 / (2 sqrt 2 s)), s^2 = s1^2 + s2^2 (H. O. Saldner, J. M. Huntley, Applied
/// Optics 36, 1997), and likewise for close periods (C. E. Towers, D. P. Towers, J. D. C. Jones, Optics
/// Letters 28, 2003). It is summed over all orders. Bits err with the probability that noise turns their
/// difference from the inverse, from the mean of white and black, or from a reference.
/// @throws Exception for a set that cannot be decoded, and as `PatternWish::check`
VORN_API PatternPlan foretell(PatternSet const& set, PatternWish const& wish);

/// The built-in sets that fulfil a wish, the best of each kind, the best first: that with the fewest images
/// where a sigma is wanted, else that with the least sigma.
/// @throws Exception when none does, naming the one that comes nearest; and as `PatternWish::check`
VORN_API std::vector<PatternPlan> planPatterns(PatternWish const& wish);

} // namespace vorn::mv
