// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/geometry/line2f.hpp>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iterator>

#include <opencv2/imgproc.hpp>

#include "core/error.hpp"
#include "geometry/point_and_vector.hpp"

namespace vorn::mv {

namespace {

/// A float kept away from zero, with its own sign (plus for zero).
float awayFromZero(float value, float least) {
  return std::abs(value) > least ? value : std::copysign(least, value == 0 ? 0.0F : value);
}

/// Rounded for drawing; far outside of any image the exact place no longer matters.
int drawingCoordinate(float value) {
  constexpr float farOutside = 1e9F;
  return static_cast<int>(std::lround(std::clamp(value, -farOutside, farOutside)));
}

} // namespace

Line2f::~Line2f() = default;

Line2f::Line2f(cv::Point2f const& p1, cv::Point2f const& p2) {
  cv::Vec2f const difference = p2 - p1;
  if (isZero(difference)) {
    throw error("Direction vector could not be zero!", "Line2f");
  }
  direction_ = unit(difference);
  point_ = (p1 + p2) / 2;
}

Line2f::Line2f(std::vector<cv::Point2f> const& points) {
  if (points.size() < 2) {
    throw error("Not enough point to estimate 2D line", "Line2f");
  }
  // The normal equations of the rows (x, y) against ones.
  cv::Matx22d AtA;
  cv::Vec2d Atb;
  cv::Point2f sum;
  for (cv::Point2f const& p : points) {
    cv::Vec2d const row(p.x, p.y);
    AtA += row * row.t();
    Atb += row;
    sum += p;
  }
  cv::Vec2d const s = AtA.inv() * Atb;
  cv::Vec2d const along(-s[1], s[0]);
  direction_ = along * (1 / cv::norm(along));
  point_ = sum / static_cast<float>(points.size());
}

Line2f::Line2f(std::vector<cv::Point2f> const& points, float threshold, float ratio, int maxIterations) {
  if (points.size() < 2) {
    throw error("Not enough data point!", "Line2f");
  }
  std::vector<cv::Point2f> working = points;
  for (long iteration = 0; iteration <= maxIterations; ++iteration) {
    auto const draw = [&working] { return static_cast<std::size_t>(std::rand()) % working.size(); };
    std::size_t const i = draw();
    std::size_t j = draw();
    while (j == i) {
      j = draw();
    }
    Line2f const candidate(working[i], working[j]);
    std::vector<cv::Point2f> inliers;
    std::copy_if(working.begin(), working.end(), std::back_inserter(inliers),
                 [&](cv::Point2f const& p) { return candidate.distance(p) < threshold; });
    if (static_cast<double>(inliers.size()) / static_cast<double>(working.size()) > 1 - ratio) {
      *this = Line2f(inliers);
      working.swap(inliers);
    }
  }
}

double Line2f::distance(cv::Point2f const& p) const {
  return std::abs(direction_[1] * (p.x - point_.x) - direction_[0] * (p.y - point_.y));
}

cv::Point2f Line2f::intersect(Line2f const& other) const {
  constexpr float parallel = 2.220446e-16F;
  cv::Vec2f const& d = other.direction_;
  float const denominator = awayFromZero(d[1] * direction_[0] - d[0] * direction_[1], parallel);
  float const t = (d[1] * (other.point_.x - point_.x) - d[0] * (other.point_.y - point_.y)) / denominator;
  return point_ + t * cv::Point2f(direction_);
}

void Line2f::draw(cv::Mat& image, cv::Scalar const& color, float thickness) const {
  float const dx = direction_[0];
  float const dy = direction_[1];
  if (image.empty() || !std::isfinite(dx + dy + point_.x + point_.y)) {
    return;
  }
  constexpr float diagonal = 0.7853982F;
  bool const isFlat = dx != 0 && std::abs(std::atan(dy / dx)) <= diagonal;
  cv::Point start;
  cv::Point end;
  if (isFlat) {
    float const slope = dy / awayFromZero(dx, FLT_EPSILON);
    auto const yAt = [&](int x) {
      return drawingCoordinate(point_.y - (point_.x - static_cast<float>(x)) * slope);
    };
    start = {0, yAt(0)};
    end = {image.cols, yAt(image.cols)};
  } else {
    float const slope = dx / awayFromZero(dy, FLT_EPSILON);
    auto const xAt = [&](int y) {
      return drawingCoordinate(point_.x - (point_.y - static_cast<float>(y)) * slope);
    };
    start = {xAt(0), 0};
    end = {xAt(image.rows), image.rows};
  }
  constexpr float thickest = 32767.0F; // that OpenCV draws
  float const width = thickness >= 1.0F ? std::min(thickness, thickest) : 1.0F;
  cv::line(image, start, end, color, static_cast<int>(width), cv::LINE_8, 0);
}

void Line2f::write(nlohmann::json& json) const {
  writePair(json, point_, "a", direction_);
}

void Line2f::read(nlohmann::json const& json) {
  readPair(json, point_, "a", direction_, "Line2f");
}

void Line2f::write(cv::FileStorage& storage) const {
  cv::write(storage, storage.elname, *this);
}

void Line2f::read(cv::FileNode const& node) {
  readPair(node, point_, "a", direction_, "Line2f");
}

} // namespace vorn::mv

void cv::write(FileStorage& storage, std::string const& name, vorn::mv::Line2f const& line) {
  vorn::mv::writePair(storage, name, line.point(), "a", line.direction());
}

void cv::read(FileNode const& node, vorn::mv::Line2f& line, vorn::mv::Line2f const& fallback) {
  vorn::mv::readOr(node, line, fallback);
}
