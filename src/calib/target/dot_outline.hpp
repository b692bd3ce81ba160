// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>
#include <utility>

namespace vorn::mv {

/// An ellipse by its half axes.
struct Ellipse {
  double longAxis;
  double shortAxis;
  double cosine; ///< of the long axis' direction
  double sine;

  explicit Ellipse(cv::Matx22d const& outline) {
    cv::Matx22d const q = outline * outline.t();
    double const middle = 0.5 * (q(0, 0) + q(1, 1));
    double const spread = std::hypot(0.5 * (q(0, 0) - q(1, 1)), q(0, 1));
    longAxis = std::sqrt(middle + spread);
    shortAxis = std::sqrt(std::max(middle - spread, 0.0));
    double const angle = 0.5 * std::atan2(2.0 * q(0, 1), q(0, 0) - q(1, 1));
    cosine = std::cos(angle);
    sine = std::sin(angle);
  }

  Ellipse grownBy(double margin) const {
    Ellipse grown = *this;
    grown.longAxis = std::max(longAxis + margin, 0.0);
    grown.shortAxis = std::max(shortAxis + margin, 0.0);
    return grown;
  }
  Ellipse scaledBy(double factor) const {
    Ellipse scaled = *this;
    scaled.longAxis *= factor;
    scaled.shortAxis *= factor;
    return scaled;
  }
  double halfWidth() const { return std::hypot(longAxis * cosine, shortAxis * sine); }
  double halfHeight() const { return std::hypot(longAxis * sine, shortAxis * cosine); }
  cv::Point2d rim(double angle) const {
    double const u = longAxis * std::cos(angle);
    double const v = shortAxis * std::sin(angle);
    return {u * cosine - v * sine, u * sine + v * cosine};
  }
};

/// The pixels inside an ellipse, row by row.
class EllipseRows {
public:
  EllipseRows(cv::Point2d const& centre, Ellipse const& e) : centre_(centre) {
    if (e.shortAxis < 0.3) {
      top_ = 0;
      bottom_ = 0;
      return;
    }
    double const l = 1.0 / (e.longAxis * e.longAxis);
    double const s = 1.0 / (e.shortAxis * e.shortAxis);
    xx_ = l * e.cosine * e.cosine + s * e.sine * e.sine;
    xy_ = (l - s) * e.cosine * e.sine;
    yy_ = l * e.sine * e.sine + s * e.cosine * e.cosine;
    double const height = e.halfHeight();
    top_ = static_cast<int>(std::ceil(centre.y - height));
    bottom_ = static_cast<int>(std::floor(centre.y + height)) + 1;
  }

  int top() const { return top_; }
  int bottom() const { return bottom_; }

  /// Columns [first, second) of a row; empty outside.
  std::pair<int, int> columns(int y) const {
    if (y < top_ || y >= bottom_) {
      return {0, 0};
    }
    double const dy = y - centre_.y;
    double const discriminant = xy_ * xy_ * dy * dy - xx_ * (yy_ * dy * dy - 1.0);
    if (discriminant < 0) {
      return {0, 0};
    }
    double const root = std::sqrt(discriminant);
    double const middle = centre_.x - xy_ * dy / xx_;
    return {static_cast<int>(std::ceil(middle - root / xx_)),
            static_cast<int>(std::floor(middle + root / xx_)) + 1};
  }

private:
  cv::Point2d centre_;
  double xx_ = 1;
  double xy_ = 0;
  double yy_ = 1;
  int top_;
  int bottom_;
};

} // namespace vorn::mv
