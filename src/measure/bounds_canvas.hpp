// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "measure/canvas.hpp"

namespace vorn::mv {

/// A canvas that draws nothing and tells what a drawing would reach.
class BoundsCanvas : public Canvas {
public:
  explicit BoundsCanvas(cv::Size size) : size_(size), clip_(cv::Point(), size) {}

  /// The pixels that what was drawn since the last call of `clip` may change; empty for none.
  cv::Rect const& reached() const { return reached_; }

  cv::Size size() const override { return size_; }
  void clip(cv::Rect const& rectangle) override;
  using Canvas::fill;
  void stroke(Outline const& line, Pen const& pen) override;
  void circle(cv::Point2d centre, double radius, Pen const& pen) override;
  void fill(Outline const& outline, cv::Vec3b const& color, double opacity) override;
  void picture(cv::Mat const& image, cv::Point corner) override;

protected:
  void stamp(cv::Mat_<uchar> const& ink, cv::Point corner, cv::Vec3b const& color,
             std::string_view words) override;

private:
  void reach(cv::Rect const& box);

  cv::Size size_;
  cv::Rect clip_;
  cv::Rect reached_;
};

} // namespace vorn::mv
