// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/adjust/bundle.hpp"

#include <opencv2/calib3d.hpp>

#include <vorn/mv/geometry/transform.hpp>

namespace vorn::mv {

Placement Placement::of(cv::Matx44d const& M) {
  return {math::getR3(M), math::getT3(M)};
}

cv::Matx44d Placement::matrix() const {
  return math::createTransform(R, t);
}

Placement Placement::moved(cv::Vec3d const& turn, cv::Vec3d const& shift) const {
  cv::Matx33d turned;
  cv::Rodrigues(turn, turned);
  return {turned * R, t + shift};
}

void BundleDevice::move(double const* steps) {
  Lens& lens = numbers.lens;
  double* const all[] = {&numbers.fx, &numbers.fy, &numbers.cx, &numbers.cy, &lens.k1, &lens.k2,
                         &lens.p1,    &lens.p2,    &lens.k3,    &lens.k4,    &lens.k5, &lens.k6,
                         &lens.s1,    &lens.s2,    &lens.s3,    &lens.s4};
  for (std::size_t i = 0; i < freeParameters.size(); ++i) {
    *all[freeParameters[i]] += steps[i];
  }
}

int Bundle::deviceCount() const {
  std::size_t count = 0;
  for (BundleDevice const& device : devices) {
    count += device.freeParameters.size();
  }
  return static_cast<int>(count);
}

cv::Vec3d Bundle::dotInTarget(int dot) const {
  cv::Point2f const& place = target[static_cast<std::size_t>(dot)];
  cv::Vec3d const known =
      knownDeviations.empty() ? cv::Vec3d() : knownDeviations[static_cast<std::size_t>(dot)];
  return cv::Vec3d(place.x, place.y, 0) + known + shape.deviation(dot, shapeParameters);
}

void Bundle::extendShape(ShapeBasis::Level level) {
  ShapeBasis const extended(level, target);
  Eigen::VectorXd parameters = Eigen::VectorXd::Zero(extended.parameterCount());
  if (extended.isByDot()) {
    for (int dot = 0; dot < static_cast<int>(target.size()); ++dot) {
      cv::Vec3d const deviation = shape.deviation(dot, shapeParameters);
      parameters.segment<3>(3 * dot) = Eigen::Vector3d(deviation.val);
    }
  } else {
    // The polynomials of a lower degree come first.
    parameters.head(shape.parameterCount()) = shapeParameters;
  }
  shape = extended;
  shapeParameters = parameters;
}

} // namespace vorn::mv
