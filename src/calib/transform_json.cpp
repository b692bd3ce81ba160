// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/transform_json.hpp"

#include <cmath>
#include <string>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/variant.hpp>
#include <vorn/mv/core/matrix_json.hpp>

#include "core/json_member.hpp"

namespace vorn::mv {

namespace {

/// The mean of rotations, as calibrations are averaged, is a little short of a rotation: by the cosine of
/// their distance from the mean. This is the cosine of 8 degrees; calibrations whose views differ by two
/// degrees are refused before they are written.
constexpr double leastStretch = 0.99;
/// A mean is never longer than what it is of; the rest are the digits of files in single precision.
constexpr double greatestStretch = 1.0001;
constexpr double roundingOfText = 1e-6;

std::string elementPlace(int index) {
  return "data[" + std::to_string(index) + ']';
}

void checkRigid(cv::Matx44d const& transform, char const* context) {
  for (int i = 0; i < 16; ++i) {
    if (!std::isfinite(transform.val[i])) {
      throw JsonRefusal(elementPlace(i), " is not finite", context);
    }
  }
  cv::Vec4d const bottom(0, 0, 0, 1);
  for (int i = 0; i < 4; ++i) {
    if (std::abs(transform(3, i) - bottom[i]) > roundingOfText) {
      throw JsonRefusal(elementPlace(12 + i),
                        " is " + Variant(transform(3, i)).toString() +
                            ", but the last row of a transform is 0 0 0 1",
                        context);
    }
  }
  cv::Matx33d const rotation = transform.get_minor<3, 3>(0, 0);
  cv::Vec3d stretches;
  cv::SVD::compute(rotation, stretches, cv::SVD::NO_UV);
  bool const isRotation = stretches[2] >= leastStretch && stretches[0] <= greatestStretch;
  if (!isRotation || cv::determinant(rotation) < 0) {
    throw JsonRefusal("",
                      " is no rigid motion: its rotation " +
                          (isRotation ? std::string("mirrors")
                                      : "stretches by " + Variant(stretches[2]).toString() + " to " +
                                            Variant(stretches[0]).toString()),
                      context);
  }
}

} // namespace

cv::Matx44d readTransform(nlohmann::json const& json, char const* key, char const* context) {
  auto const transform = jsonValue<cv::Matx44d>(json, key, context);
  atJsonPlace(key, context, [&] { checkRigid(transform, context); });
  return transform;
}

} // namespace vorn::mv
