// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/mv/sl/scanner_type.hpp>

#include "core/progress.hpp"
#include "sl/coding/stripe_code.hpp"
#include "sl/decode/grey_stack.hpp"
#include "sl/decode/scan_stack.hpp"

namespace vorn::mv {

/// An axis of a projector and how its sequence codes it.
struct ProjectorAxis {
  char const* name;
  scanner::ScannerType::Item type;
  sl::StripeCode code;
  int cv::Size::*extent;
};

extern ProjectorAxis const columnAxis;
extern ProjectorAxis const rowAxis;

/// How a sequence codes an axis.
/// @param projector its pixels; empty for as many as so many images can code
sl::CodedAxis codedAxis(ProjectorAxis const& axis, std::size_t images, cv::Size const& projector);

/// What the camera sees of one axis while the target stands in the light, for `find_projector_points`.
/// @param projector its pixels; empty for as many as the images can code
cv::Mat_<float> decodeAxis(ProjectorAxis const& axis, sl::GreyStack const& stack, cv::Size const& projector,
                           Progress const& progress);

/// What views tell of the projector's pixels along one axis.
struct DecodedExtent {
  float farthest = 0.0F;  ///< all but a few of the decoded coordinates are below
  std::size_t images = 0; ///< of the sequence

  void add(DecodedExtent const& other);
};

/// A value that all but a few of the decoded pixels stay below; 0 for none.
float farthestOf(cv::Mat_<float> const& map);

/// The least usual projector resolution that shows what was decoded and needs as many images, or else the
/// decoded range itself. It bounds the range of valid coordinates; the calibration hardly depends on it.
cv::Size guessProjector(DecodedExtent const& columns, DecodedExtent const& rows);

} // namespace vorn::mv
