// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/adjust/laser_bundle.hpp"

#include <algorithm>
#include <cmath>

#include <Eigen/QR>
#include <opencv2/core.hpp>

#include "calib/projection.hpp"
#include "calib/undistortion.hpp"

namespace vorn::mv {

namespace {

/// What a point of a line says, and by what it changes.
class LinePoint {
public:
  /// @param scene a point that its ray meets the target in
  LinePoint(LaserBundle const& bundle, BundleView const& view, LaserPlane const& plane,
            Projection const& projection, cv::Point2d const& ray, cv::Vec3d const& scene)
      : bundle_(bundle), view_(view), plane_(plane), ray_(ray.x, ray.y, 1), scene_(scene) {
    cv::Matx33d const& R = view.dev0_from_target.R;
    facing_ = {R(0, 2), R(1, 2), R(2, 2)};
    along_ = plane.normal.dot(ray_) / facing_.dot(ray_);
    // By the ray's first two numbers: it moves the point, and the target catches it elsewhere.
    cv::Vec3d const byRay = scene[2] * (plane.normal - along_ * facing_);
    Projection::ByPoint byPoint;
    projection(ray_, &byPoint, &byParameters_);
    cv::Matx22d const pixelByRay(byPoint(0, 0), byPoint(0, 1), byPoint(1, 0), byPoint(1, 1));
    byPixel_ = pixelByRay.inv().t() * cv::Vec2d(byRay[0], byRay[1]);
    scale_ = 1 / cv::norm(byPixel_);
  }

  /// How far the pixel lies off the line that the plane draws on the target, pixels.
  double residual() const { return (plane_.distance - plane_.normal.dot(scene_)) * scale_; }

  /// What the place on the plane changes by, less what the plane moves by.
  /// @param plane the first column of the plane's parameters
  template <class Row>
  void fill(int plane, Row&& row) const {
    std::vector<int> const& freeParameters = bundle_.dots.devices[0].freeParameters;
    cv::Vec2d const byPixel = byPixel_ * scale_;
    for (std::size_t i = 0; i < freeParameters.size(); ++i) {
      // A pixel that stays sees along another ray.
      row[static_cast<Eigen::Index>(i)] = -(byPixel[0] * byParameters_(0, freeParameters[i]) +
                                            byPixel[1] * byParameters_(1, freeParameters[i]));
    }
    cv::Vec2d const turns = plane_.tangents().t() * scene_;
    row[plane] = turns[0] * scale_;
    row[plane + 1] = turns[1] * scale_;
    row[plane + 2] = -scale_;
    cv::Vec3d const turn = facing_.cross(view_.dev0_from_target.t - scene_) * (along_ * scale_);
    cv::Vec3d const shift = facing_ * (along_ * scale_);
    if (int const shape = bundle_.dots.shape.parameterCount(); shape > 0) {
      cv::Vec3d const onTarget = view_.dev0_from_target.R.t() * (scene_ - view_.dev0_from_target.t);
      row.segment(bundle_.cameraCount(), shape) =
          bundle_.surface.byShape(onTarget[0], onTarget[1]) * (along_ * scale_);
    }
    Eigen::Index const pose = row.size() - 6;
    for (int k = 0; k < 3; ++k) {
      row[pose + k] = turn[k];
      row[pose + 3 + k] = shift[k];
    }
  }

private:
  LaserBundle const& bundle_;
  BundleView const& view_;
  LaserPlane const& plane_;
  cv::Vec3d ray_;
  cv::Vec3d scene_;
  cv::Vec3d facing_;  ///< the target's normal, camera frame
  double along_ = 0;  ///< what the plane's normal sees of a step along the ray, over what the target's does
  cv::Vec2d byPixel_; ///< by what the distance changes with the pixel
  double scale_ = 1;  ///< from distances to pixels
  Projection::ByParameters byParameters_;
};

/// Calls `body(view, plane, LinePoint)` for all points of lines that see the target.
template <class Body>
void forEachPoint(LaserBundle const& bundle, Body const& body) {
  Projection const projection(bundle.dots.devices[0].numbers);
  LineRays const rays = raysOf(bundle);
  for (std::size_t i = 0; i < rays.size(); ++i) {
    BundleView const& view = bundle.dots.views[i];
    for (std::size_t p = 0; p < rays[i].size(); ++p) {
      for (cv::Point2d const& ray : rays[i][p]) {
        if (auto const scene = onTarget(bundle, view, ray)) {
          body(i, p, LinePoint(bundle, view, bundle.planes[p], projection, ray, *scene));
        }
      }
    }
  }
}

cv::Mat cameraMatrix(CameraNumbers const& numbers) {
  return cv::Mat(cv::Matx33d(numbers.fx, 0, numbers.cx, 0, numbers.fy, numbers.cy, 0, 0, 1));
}

cv::Mat coefficients(Lens const& lens) {
  return (cv::Mat_<double>(1, 12) << lens.k1, lens.k2, lens.p1, lens.p2, lens.k3, lens.k4, lens.k5, lens.k6,
          lens.s1, lens.s2, lens.s3, lens.s4);
}

} // namespace

SurfaceHeight::SurfaceHeight(TargetShape const& shape, Bundle const& dots) {
  if (shape.kind == TargetShape::Kind::Flat || shape.objPnts.empty()) {
    return;
  }
  for (cv::Point2f const& dot : shape.objPnts) {
    middle_ += cv::Point2d(dot) / static_cast<double>(shape.objPnts.size());
  }
  double farthest = 0;
  for (cv::Point2f const& dot : shape.objPnts) {
    farthest = std::max(farthest, cv::norm(cv::Point2d(dot) - middle_));
  }
  size_ = farthest > 0 ? farthest : 1;
  // That of a smooth shape; of dots by themselves what is smooth in them.
  constexpr int highest = 6;
  constexpr std::size_t dotsATerm = 3;
  degree_ = highest;
  while (degree_ > 2 &&
         dotsATerm * static_cast<std::size_t>((degree_ + 1) * (degree_ + 2) / 2) > shape.objPnts.size()) {
    --degree_;
  }
  auto const count = static_cast<Eigen::Index>(shape.objPnts.size());
  Eigen::MatrixXd rows(count, (degree_ + 1) * (degree_ + 2) / 2);
  Eigen::MatrixXd heights(count, 1 + dots.shape.parameterCount());
  for (Eigen::Index i = 0; i < count; ++i) {
    auto const dot = static_cast<std::size_t>(i);
    rows.row(i) = terms(shape.objPnts[dot].x, shape.objPnts[dot].y).transpose();
    heights(i, 0) = shape.deviations[dot].z;
    heights.row(i).tail(dots.shape.parameterCount()) = dots.shape.ofDot(static_cast<int>(i)).row(2);
  }
  Eigen::MatrixXd const solved = rows.colPivHouseholderQr().solve(heights);
  known_ = solved.col(0);
  byShape_ = solved.rightCols(dots.shape.parameterCount());
  coefficients_ = known_;
}

Eigen::VectorXd SurfaceHeight::terms(double x, double y) const {
  Eigen::VectorXd result((degree_ + 1) * (degree_ + 2) / 2);
  double const u = (x - middle_.x) / size_;
  double const v = (y - middle_.y) / size_;
  Eigen::Index k = 0;
  for (int i = 0; i <= degree_; ++i) {
    for (int j = 0; i + j <= degree_; ++j) {
      result[k++] = std::pow(u, i) * std::pow(v, j);
    }
  }
  return result;
}

double SurfaceHeight::at(double x, double y) const {
  return degree_ < 0 ? 0 : coefficients_.dot(terms(x, y));
}

cv::Matx<double, 3, 2> LaserPlane::tangents() const {
  cv::Vec3d least(1, 0, 0);
  for (int k = 1; k < 3; ++k) {
    if (std::abs(normal[k]) < std::abs(normal.dot(least))) {
      least = cv::Vec3d();
      least[k] = 1;
    }
  }
  cv::Vec3d const a = cv::normalize(normal.cross(least));
  cv::Vec3d const b = normal.cross(a);
  return {a[0], b[0], a[1], b[1], a[2], b[2]};
}

LaserPlane LaserPlane::moved(double const* step) const {
  cv::Vec3d const turned = normal + tangents() * cv::Vec2d(step[0], step[1]);
  double const length = cv::norm(turned);
  return {turned / length, (distance + step[2]) / length, sigma};
}

LineRays raysOf(LaserBundle const& bundle) {
  CameraNumbers const& numbers = bundle.dots.devices[0].numbers;
  Undistortion const rays(cameraMatrix(numbers), coefficients(numbers.lens));
  LineRays result = bundle.lines;
  for (auto& view : result) {
    for (auto& line : view) {
      for (cv::Point2d& point : line) {
        rays.toRays(&point.x, &point.y, 1);
      }
    }
  }
  return result;
}

std::optional<cv::Vec3d> onTarget(LaserBundle const& bundle, BundleView const& view, cv::Point2d const& ray) {
  Placement const& pose = view.dev0_from_target;
  cv::Vec3d const direction(ray.x, ray.y, 1);
  cv::Vec3d const facing(pose.R(0, 2), pose.R(1, 2), pose.R(2, 2));
  cv::Vec3d scene;
  double height = 0;
  constexpr int rounds = 4; // the surface is all but flat
  for (int round = 0; round < rounds; ++round) {
    scene = direction * ((facing.dot(pose.t) + height) / facing.dot(direction));
    cv::Vec3d const inTarget = pose.R.t() * (scene - pose.t);
    height = bundle.surface.at(inTarget[0], inTarget[1]);
  }
  bool const isSeen = std::isfinite(scene[0]) && std::isfinite(scene[1]) && scene[2] > 0;
  return isSeen ? std::optional(scene) : std::nullopt;
}

LaserSquares squaresOf(LaserBundle const& bundle) {
  LaserSquares squares;
  squares.lines.assign(bundle.planes.size(), 0);
  squares.counts.assign(bundle.planes.size(), 0);
  forEachPoint(bundle, [&](std::size_t /*view*/, std::size_t plane, LinePoint const& point) {
    squares.lines[plane] += point.residual() * point.residual();
    ++squares.counts[plane];
  });
  squares.total = squaresOf(bundle.dots, {}).total();
  for (std::size_t p = 0; p < bundle.planes.size(); ++p) {
    squares.total += squares.lines[p] / (bundle.planes[p].sigma * bundle.planes[p].sigma);
  }
  return squares;
}

NormalEquations normalEquationsOf(LaserBundle const& bundle) {
  NormalEquations const dots = normalEquationsOf(bundle.dots, {});
  int const ofDots = bundle.dotsCount();
  int const all = bundle.commonCount();
  NormalEquations normal = dots;
  normal.common.setZero(all, all);
  normal.common.topLeftCorner(ofDots, ofDots) = dots.common;
  normal.commonSlope.setZero(all);
  normal.commonSlope.head(ofDots) = dots.commonSlope;
  for (std::size_t i = 0; i < dots.mixed.size(); ++i) {
    normal.mixed[i].setZero(all, 6);
    normal.mixed[i].topRows(ofDots) = dots.mixed[i];
  }
  Eigen::VectorXd row(all + 6);
  forEachPoint(bundle, [&](std::size_t view, std::size_t plane, LinePoint const& point) {
    int const first = ofDots + 3 * static_cast<int>(plane);
    row.setZero();
    point.fill(first, row);
    double const weight = 1 / bundle.planes[plane].sigma;
    row *= weight;
    double const residual = point.residual() * weight;
    auto const ofCamera = row.head(ofDots); // and of the shape
    auto const ofPlane = row.segment<3>(first);
    auto const ofPose = row.tail<6>();
    normal.common.topLeftCorner(ofDots, ofDots) += ofCamera * ofCamera.transpose();
    normal.common.block(first, 0, 3, ofDots) += ofPlane * ofCamera.transpose();
    normal.common.block(0, first, ofDots, 3) += ofCamera * ofPlane.transpose();
    normal.common.block<3, 3>(first, first) += ofPlane * ofPlane.transpose();
    normal.commonSlope += row.head(all) * residual;
    normal.mixed[view].topRows(ofDots) += ofCamera * ofPose.transpose();
    normal.mixed[view].middleRows<3>(first) += ofPlane * ofPose.transpose();
    normal.pose[view] += ofPose * ofPose.transpose();
    normal.poseSlope[view] += ofPose * residual;
  });
  return normal;
}

} // namespace vorn::mv
