// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/geometry/line3f.hpp>

#include <algorithm>
#include <iterator>
#include <random>

#include <vorn/mv/geometry/plane3f.hpp>

#include "core/error.hpp"
#include "geometry/point_and_vector.hpp"

namespace vorn::mv {

Line3f::~Line3f() = default;

Line3f::Line3f(cv::Point3f const& p1, cv::Point3f const& p2)
    : point_((cv::Point3d(p1) + cv::Point3d(p2)) * 0.5), direction_(unit(cv::Vec3f(p2 - p1))) {
  // Tested after it was made unit: equal points pass, as NaN.
  if (isZero(direction_)) {
    throw error("Direction vector could not be zero!", "Line3f");
  }
}

Line3f::Line3f(cv::Point3f const& point, cv::Vec3f const& direction) {
  if (isZero(direction)) {
    throw error("Direction vector could not be zero!", "Line3f");
  }
  point_ = point;
  direction_ = unit(direction);
}

Line3f::Line3f(std::vector<cv::Point3f> const& points) {
  if (points.size() < 2) {
    throw error("Not enough data!", "Line3f");
  }
  cv::Mat_<double> rows;
  cv::Mat(static_cast<int>(points.size()), 3, CV_32F, const_cast<cv::Point3f*>(points.data()))
      .convertTo(rows, CV_64F);
  cv::PCA const pca(rows, cv::noArray(), cv::PCA::DATA_AS_ROW);
  point_ = cv::Point3d(pca.mean.at<cv::Vec3d>(0));
  direction_ = pca.eigenvectors.at<cv::Vec3d>(0);
}

Line3f::Line3f(std::vector<cv::Point3f> const& points, float threshold, float ratio, int maxIterations) {
  if (points.size() < 2) {
    throw error("Not enough data!", "Line3f");
  }
  std::mt19937 random; // its own, always seeded alike
  if (std::all_of(points.begin(), points.end(), [&](cv::Point3f const& p) { return p == points.front(); })) {
    return; // no two of them give a line, however often it is tried
  }
  std::vector<cv::Point3f> working = points;
  for (long iteration = 0; iteration <= maxIterations; ++iteration) {
    std::size_t const n = working.size();
    std::size_t const i = random() % n;
    std::size_t const j = (i + 1 + random() % (n - 1)) % n; // any but i
    Line3f const candidate(working[i], working[j]);
    std::vector<cv::Point3f> inliers;
    std::copy_if(working.begin(), working.end(), std::back_inserter(inliers),
                 [&](cv::Point3f const& p) { return candidate.distance(p) < threshold; });
    if (static_cast<double>(inliers.size()) / static_cast<double>(n) > 1 - ratio) {
      *this = Line3f(inliers);
      working.swap(inliers);
    }
  }
}

Line3f::Line3f(Plane3f const& a, Plane3f const& b) : direction_(a.normal().cross(b.normal())) {
  cv::Vec3f const& d = direction_;
  cv::Vec3f const& m = a.normal();
  cv::Vec3f const& n = b.normal();
  cv::Matx33f const rows(d[0], d[1], d[2], m[0], m[1], m[2], n[0], n[1], n[2]);
  cv::Vec3f const pointOfA = a.point();
  cv::Vec3f const pointOfB = b.point();
  cv::Vec3f const common = rows.inv() * cv::Vec3f(d.dot(pointOfA), m.dot(pointOfA), n.dot(pointOfB));
  point_ = common;
}

double Line3f::distance(cv::Point3f const& p) const {
  return cv::norm(cv::Vec3f(p - point_).cross(direction_));
}

std::vector<cv::Point3f> Line3f::intersect3(Line3f const& other) const {
  cv::Vec3f const w = other.point_ - point_;
  float const c = direction_.dot(other.direction_);
  cv::Vec2f const st =
      cv::Matx22f(-1, c, -c, 1).inv() * cv::Vec2f(-w.dot(direction_), -w.dot(other.direction_));
  return {point_ + cv::Point3f(st[0] * direction_), other.point_ + cv::Point3f(st[1] * other.direction_)};
}

cv::Point3f Line3f::intersect(Line3f const& other) const {
  std::vector<cv::Point3f> const closest = intersect3(other);
  return (closest[0] + closest[1]) * 0.5F;
}

cv::Point3f Line3f::intersect(Plane3f const& plane) const {
  return plane.intersect(*this);
}

void Line3f::write(nlohmann::json& json) const {
  writePair(json, point_, "a", direction_);
}

void Line3f::read(nlohmann::json const& json) {
  readPair(json, point_, "a", direction_, "Line3f");
}

void Line3f::write(cv::FileStorage& storage) const {
  cv::write(storage, storage.elname, *this);
}

void Line3f::read(cv::FileNode const& node) {
  readPair(node, point_, "a", direction_, "Line3f");
}

} // namespace vorn::mv

void cv::write(FileStorage& storage, std::string const& name, vorn::mv::Line3f const& line) {
  vorn::mv::writePair(storage, name, line.point(), "a", line.direction());
}

void cv::read(FileNode const& node, vorn::mv::Line3f& line, vorn::mv::Line3f const& fallback) {
  vorn::mv::readOr(node, line, fallback);
}
