// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>
#include <optional>

namespace vorn::sim {

/// The geometry of a camera, or of a projector seen as an inverse camera: a pinhole with Brown distortion.
///
/// x looks right, y down, z away from the device; pixel centres lie at integer coordinates. The formulas are
/// those of D. C. Brown, "Decentering distortion of lenses", 1966, with coefficients in the customary order
/// k1, k2, p1, p2, k3. Written apart from the library's camera model on purpose, so that one checks the
/// other.
class Device {
public:
  Device() = default;

  /// `focal` and `centre` in pixels. Throws std::invalid_argument for an empty resolution or a focal length
  /// that is not positive.
  Device(cv::Point2d const& focal, cv::Point2d const& centre, std::array<double, 5> const& distortion,
         cv::Size const& resolution);

  /// The same device with thin prism terms s1, s2, s3, s4, by which x and y move by s1 r^2 + s2 r^4 and s3
  /// r^2 + s4 r^4.
  Device withPrism(cv::Vec4d const& prism) const;

  cv::Point2d focal() const { return focal_; }
  cv::Point2d centre() const { return centre_; }
  std::array<double, 5> const& distortion() const { return distortion_; }
  cv::Vec4d const& prism() const { return prism_; }
  cv::Size resolution() const { return resolution_; }

  /// The 3 x 3 camera matrix.
  cv::Matx33d matrix() const { return {focal_.x, 0, centre_.x, 0, focal_.y, centre_.y, 0, 0, 1}; }

  /// The pixel that sees a point of the device's frame. Empty for a point not in front of the device and for
  /// one so far off its axis that the distortion polynomial has turned back there.
  std::optional<cv::Point2d> project(cv::Vec3d const& x_in_device) const;

  /// The ray (x, y, 1) that a pixel looks along: the inverse of `project` to 1e-12.
  cv::Vec3d ray(cv::Point2d const& pixel) const;

  /// Whether a pixel position lies on the device's pixels, half a pixel around the outer centres included.
  bool contains(cv::Point2d const& pixel) const {
    return pixel.x >= -0.5 && pixel.y >= -0.5 && pixel.x < resolution_.width - 0.5 &&
           pixel.y < resolution_.height - 0.5;
  }

private:
  cv::Point2d distort(cv::Point2d const& normalized) const;

  cv::Point2d focal_ = {1, 1};
  cv::Point2d centre_;
  std::array<double, 5> distortion_ = {};
  cv::Vec4d prism_;
  cv::Size resolution_;
  double maxSquaredRadius_ = 0;
};

} // namespace vorn::sim
