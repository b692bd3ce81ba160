// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/geometry/plane3f.hpp>

#include <algorithm>
#include <cmath>

#include <vorn/mv/geometry/line3f.hpp>

#include "core/error.hpp"
#include "geometry/point_and_vector.hpp"

namespace vorn::mv {

namespace {

/// The least-squares plane of the form n p = 1, with the mean of the points as its point.
Plane3f leastSquaresPlane(std::vector<cv::Point3f> const& points) {
  cv::Matx33d AtA;
  cv::Vec3d sum;
  for (cv::Point3f const& p : points) {
    cv::Vec3d const row(p.x, p.y, p.z);
    AtA += row * row.t();
    sum += row;
  }
  cv::Vec3d const s = AtA.inv() * sum;
  double const length = cv::norm(s);
  if (length < FLT_EPSILON) {
    throw error("Normal vector could not be zero!", "Plane3f");
  }
  return {cv::Point3d(sum * (1.0 / static_cast<double>(points.size()))), cv::Vec3f(s * (1 / length))};
}

} // namespace

Plane3f::~Plane3f() = default;

Plane3f::Plane3f(cv::Point3f const& p1, cv::Point3f const& p2, cv::Point3f const& p3) {
  cv::Vec3f const across = cv::Vec3f(p2 - p1).cross(p3 - p1);
  if (isZero(across)) {
    throw error("Normal vector could not be zero!", "Plane3f");
  }
  point_ = (p1 + p2 + p3) * 0.33333334F;
  normal_ = unit(across);
}

Plane3f::Plane3f(cv::Point3f const& point, cv::Vec3f const& normal) {
  if (isZero(normal)) {
    throw error("Normal vector could not be zero!", "Plane3f");
  }
  point_ = point;
  normal_ = unit(normal);
}

Plane3f Plane3f::estimate(std::vector<cv::Point3f> const& points, double maxMeanDistance) {
  if (points.size() < 3) {
    throw error("Not enough point to estimate 3d plane!", "estimate");
  }
  std::vector<cv::Point3f> working = points;
  while (true) {
    std::size_t const n = working.size();
    Plane3f const plane = leastSquaresPlane(working);
    double sum = 0;
    for (cv::Point3f const& p : working) {
      sum += plane.distance(p);
    }
    double const mean = sum / static_cast<double>(n);
    if (mean < maxMeanDistance) {
      return plane;
    }
    working.erase(std::remove_if(working.begin(), working.end(),
                                 [&](cv::Point3f const& p) { return !(plane.distance(p) <= mean); }),
                  working.end());
    if (working.size() < 3 ||
        working.size() == n) { // the same points again would give the same plane for ever
      throw error("Not enough point to estimate 3d plane due to outliner removal", "estimate");
    }
  }
}

double Plane3f::distance(cv::Point3f const& p) const {
  return std::abs(cv::Vec3f(p - point_).dot(normal_));
}

cv::Point3f Plane3f::intersect(Line3f const& line) const {
  float const t = cv::Vec3f(point_ - line.point()).dot(normal_) / line.direction().dot(normal_);
  return line.point() + cv::Point3f(t * line.direction());
}

Line3f Plane3f::intersect(Plane3f const& other) const {
  return {*this, other};
}

void Plane3f::write(nlohmann::json& json) const {
  writePair(json, point_, "n", normal_);
}

void Plane3f::read(nlohmann::json const& json) {
  readPair(json, point_, "n", normal_, "Plane3f");
}

void Plane3f::write(cv::FileStorage& storage) const {
  cv::write(storage, storage.elname, *this);
}

void Plane3f::read(cv::FileNode const& node) {
  readPair(node, point_, "n", normal_, "Plane3f");
}

} // namespace vorn::mv

void cv::write(FileStorage& storage, std::string const& name, vorn::mv::Plane3f const& plane) {
  vorn::mv::writePair(storage, name, plane.point(), "n", plane.normal());
}

void cv::read(FileNode const& node, vorn::mv::Plane3f& plane, vorn::mv::Plane3f const& fallback) {
  vorn::mv::readOr(node, plane, fallback);
}
