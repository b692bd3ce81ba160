// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "measure/bounds_canvas.hpp"

#include <opencv2/core.hpp>

namespace vorn::mv {

namespace {

/// Ink fades out over a pixel.
double roomOf(Pen const& pen) {
  return 0.5 * pen.width + pen.halo + 1.0;
}

} // namespace

void BoundsCanvas::clip(cv::Rect const& rectangle) {
  clip_ = rectangle & cv::Rect(cv::Point(), size_);
  reached_ = {};
}

void BoundsCanvas::reach(cv::Rect const& box) {
  reached_ |= box & clip_; // what is empty adds nothing
}

void BoundsCanvas::stroke(Outline const& line, Pen const& pen) {
  if (!line.empty()) {
    reach(boxOf(line, roomOf(pen)));
  }
}

void BoundsCanvas::circle(cv::Point2d centre, double radius, Pen const& pen) {
  reach(boxOf({centre}, radius + roomOf(pen)));
}

void BoundsCanvas::fill(Outline const& outline, cv::Vec3b const& /*color*/, double /*opacity*/) {
  if (!outline.empty()) {
    reach(boxOf(outline, 1.0));
  }
}

void BoundsCanvas::picture(cv::Mat const& image, cv::Point corner) {
  reach({corner, image.size()});
}

void BoundsCanvas::stamp(cv::Mat_<uchar> const& ink, cv::Point corner, cv::Vec3b const& /*color*/,
                         std::string_view /*words*/) {
  reach({corner, ink.size()});
}

} // namespace vorn::mv
