// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/geometry/transform.hpp>

#include <algorithm>
#include <string>

#include <opencv2/core.hpp>

#include "core/error.hpp"
#include "core/parallel.hpp"

namespace vorn::mv::math {

namespace {

template <class T>
cv::Vec<T, 3> translation(cv::Matx<T, 4, 4> const& M) {
  return {M(0, 3), M(1, 3), M(2, 3)};
}

template <class T>
cv::Vec<T, 4> fourthColumn(cv::Matx<T, 4, 4> const& M) {
  return {M(0, 3), M(1, 3), M(2, 3), M(3, 3)};
}

template <class T>
void assignRotation(cv::Matx<T, 4, 4>& M, cv::Matx<T, 3, 3> const& R) {
  for (int row = 0; row < 3; ++row) {
    std::copy_n(&R.val[3 * row], 3, &M.val[4 * row]);
  }
}

template <class T>
void assignTranslation(cv::Matx<T, 4, 4>& M, cv::Vec<T, 3> const& t) {
  for (int row = 0; row < 3; ++row) {
    M(row, 3) = t[row];
  }
}

/// R * x + t in double, for Point3f and Vec3f alike.
template <class Point>
Point carried(cv::Matx44d const& M, double x, double y, double z) {
  auto const row = [&](int i) {
    return static_cast<float>(M(i, 0) * x + M(i, 1) * y + M(i, 2) * z + M(i, 3));
  };
  return Point(row(0), row(1), row(2));
}

} // namespace

cv::Matx44d createTransform(cv::Matx33d const& R, cv::Vec3d const& t) {
  auto M = cv::Matx44d::eye();
  setR3(M, R);
  setT3(M, t);
  return M;
}

cv::Matx33d getR3(cv::Matx44d const& M) {
  return M.get_minor<3, 3>(0, 0);
}

cv::Matx33f getR3(cv::Matx44f const& M) {
  return M.get_minor<3, 3>(0, 0);
}

cv::Vec3d getT3(cv::Matx44d const& M) {
  return translation(M);
}

cv::Vec3f getT3(cv::Matx44f const& M) {
  return translation(M);
}

cv::Vec4d getT4(cv::Matx44d const& M) {
  return fourthColumn(M);
}

cv::Vec4f getT4(cv::Matx44f const& M) {
  return fourthColumn(M);
}

void setR3(cv::Matx44d& M, cv::Matx33d const& R) {
  assignRotation(M, R);
}

void setR3(cv::Matx44f& M, cv::Matx33f const& R) {
  assignRotation(M, R);
}

void setT3(cv::Matx44d& M, cv::Vec3d const& t) {
  assignTranslation(M, t);
}

void setT3(cv::Matx44f& M, cv::Vec3f const& t) {
  assignTranslation(M, t);
}

cv::Point3f transform(cv::Point3f const& point, cv::Matx44d const& M) {
  return carried<cv::Point3f>(M, point.x, point.y, point.z);
}

cv::Point2f transform(cv::Point2f const& point, cv::Mat const& H) {
  bool const isHomography = H.rows == 3;
  if (H.dims != 2 || H.cols != 3 || (H.rows != 2 && !isHomography) ||
      (H.type() != CV_32F && H.type() != CV_64F)) {
    throw error("Expected a 3 x 3 or 2 x 3 matrix of floats or doubles, not " + std::to_string(H.rows) +
                    " x " + std::to_string(H.cols) + " " + cv::typeToString(H.type()),
                "transform");
  }
  auto rows = cv::Matx33d::eye();
  cv::Mat target(rows, false);
  H.convertTo(target.rowRange(0, H.rows), CV_64F);
  cv::Vec3d const image = rows * cv::Vec3d(point.x, point.y, 1);
  return {static_cast<float>(image[0] / image[2]), static_cast<float>(image[1] / image[2])};
}

std::vector<cv::Point3f> transformPoints(std::vector<cv::Point3f> const& points, cv::Matx44d const& M) {
  std::vector<cv::Point3f> result;
  result.reserve(points.size());
  for (cv::Point3f const& point : points) {
    result.push_back(transform(point, M));
  }
  return result;
}

cv::Mat_<cv::Vec3f> transformPointCloud(cv::Matx44d const& M, cv::Mat_<cv::Vec3f> const& cloud) {
  cv::Mat_<cv::Vec3f> result(cloud.size());
  parallelRows(cloud.rows, [&](int firstRow, int endRow) {
    for (int row = firstRow; row < endRow; ++row) {
      cv::Vec3f const* in = cloud[row];
      cv::Vec3f* out = result[row];
      for (int col = 0; col < cloud.cols; ++col) {
        out[col] = carried<cv::Vec3f>(M, in[col][0], in[col][1], in[col][2]);
      }
    }
  });
  return result;
}

} // namespace vorn::mv::math
