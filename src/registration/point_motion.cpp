// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "registration/point_motion.hpp"

#include <opencv2/core.hpp>

namespace vorn::mv {

cv::Matx44d motionBetween(std::vector<cv::Vec3d> const& from, std::vector<cv::Vec3d> const& to) {
  cv::Vec3d middleFrom;
  cv::Vec3d middleTo;
  double const share = 1.0 / static_cast<double>(from.size());
  for (std::size_t i = 0; i < from.size(); ++i) {
    middleFrom += from[i] * share;
    middleTo += to[i] * share;
  }
  cv::Matx33d products = cv::Matx33d::zeros();
  for (std::size_t i = 0; i < from.size(); ++i) {
    products += (from[i] - middleFrom) * (to[i] - middleTo).t();
  }
  cv::Matx33d u;
  cv::Matx31d w;
  cv::Matx33d vt;
  cv::SVD::compute(products, w, u, vt);
  // The direction of least scatter turns where the best orthogonal matrix is a reflection.
  double const sign = cv::determinant(u * vt) < 0.0 ? -1.0 : 1.0;
  cv::Matx33d const rotation = vt.t() * cv::Matx33d::diag(cv::Matx31d(1.0, 1.0, sign)) * u.t();
  return motionOf(rotation, middleTo - rotation * middleFrom);
}

} // namespace vorn::mv
