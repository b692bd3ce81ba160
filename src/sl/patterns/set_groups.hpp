// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

#include <vorn/mv/sl/pattern_set.hpp>

namespace vorn::mv::sl {

/// The images of one period along one axis.
struct Fringe {
  PatternAxis axis;
  double period;
  std::vector<std::size_t> images;
};

/// The fringes along an axis, in the order in which they first come.
std::vector<Fringe> fringesAlong(PatternSet const& set, PatternAxis axis);

/// The bits along an axis.
std::vector<std::size_t> bitsAlong(PatternSet const& set, PatternAxis axis);

/// Of the fringes' offset at pixel 0, in radians: the step's and its own.
double angleOf(PatternImage const& image);

/// Pixels of the projector along an axis.
int resolutionAlong(PatternSet const& set, PatternAxis axis);

/// The number that an image's bits spell for a coordinate, each bit in its place.
unsigned wordAt(PatternImage const& image, double coordinate);

/// Whether a place of the projector's image, in projector pixels, looks like that of another order of the
/// shortest fringe. Of those that do, the way to it; 0 when there is none.
double firstRepetition(std::vector<Fringe> const& fringes, int resolution);

/// A fringe in a message: "of period 8 along columns".
std::string ofFringe(Fringe const& fringe);

/// An image in an error message.
std::string nameOf(PatternSet const& set, std::size_t index);

/// The same within a sentence.
std::string nameWithin(PatternSet const& set, std::size_t index);

} // namespace vorn::mv::sl
