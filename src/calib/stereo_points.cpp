// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/calib/stereo_camera.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

#include <opencv2/core.hpp>

#include <vorn/mv/geometry/transform.hpp>

#include "calib/projection.hpp"
#include "core/error.hpp"
#include "core/progress.hpp"

namespace vorn::mv {

namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

/// Rays that meet at fewer radians are parallel: a ten-thousandth of a pixel, at which float pixels are
/// rounded, is more for any lens.
constexpr double leastAngle = 1e-7;

enum class PairState : unsigned char { Meets, Behind, Parallel, Rayless };

/// A ray of camera 0 and how far along it the point lies: (x, y, 1) / inverseDepth. Unlike the point itself
/// it behaves well however far away the point is.
using InverseDepthPoint = cv::Vec3d;

/// The least-squares intersection of pairs of rays.
class PairTriangulation {
public:
  PairTriangulation(CameraModel const& camera0, CameraModel const& camera1, cv::Matx44d const& cam1_from_cam0)
      : undistortion0_(camera0.getK(), camera0.getD()), undistortion1_(camera1.getK(), camera1.getD()),
        projection0_(cameraNumbers(camera0.getK(), camera0.getD())),
        projection1_(cameraNumbers(camera1.getK(), camera1.getD())), R_(math::getR3(cam1_from_cam0)),
        t_(math::getT3(cam1_from_cam0)) {}

  PairState triangulate(cv::Point2f const& pixel0, cv::Point2f const& pixel1, cv::Point3f& point,
                        float& residual) const {
    cv::Vec2d const ray0 = rayOf(undistortion0_, pixel0);
    cv::Vec2d const ray1 = rayOf(undistortion1_, pixel1);
    if (!std::isfinite(ray0[0] + ray1[0])) {
      return PairState::Rayless;
    }
    InverseDepthPoint estimate = linearStart(ray0, ray1);
    cv::Vec4d const pixels(pixel0.x, pixel0.y, pixel1.x, pixel1.y);
    double const squares = refine(pixels, estimate);
    double const depth1 = inCamera1(estimate)[2];
    if (!(std::abs(estimate[2]) * cv::norm(t_) > leastAngle)) {
      return PairState::Parallel;
    }
    if (!(estimate[2] > 0 && depth1 > 0)) {
      return PairState::Behind;
    }
    point = cv::Point3d(estimate[0], estimate[1], 1) / estimate[2];
    residual = static_cast<float>(std::sqrt(squares / 2));
    return PairState::Meets;
  }

private:
  static cv::Vec2d rayOf(Undistortion const& undistortion, cv::Point2f const& pixel) {
    double x = pixel.x;
    double y = pixel.y;
    if (!std::isfinite(x) || !std::isfinite(y)) {
      return {nan, nan};
    }
    undistortion.toRays(&x, &y, 1);
    return {x, y};
  }

  /// In camera 1's frame, times the inverse depth.
  cv::Vec3d inCamera1(InverseDepthPoint const& p) const { return R_ * cv::Vec3d(p[0], p[1], 1) + t_ * p[2]; }

  /// The point of ray 0 nearest to where ray 1 is, by the cross product of the two, which is linear.
  InverseDepthPoint linearStart(cv::Vec2d const& ray0, cv::Vec2d const& ray1) const {
    cv::Vec3d const direction1(ray1[0], ray1[1], 1);
    cv::Vec3d const turn = direction1.cross(R_ * cv::Vec3d(ray0[0], ray0[1], 1));
    cv::Vec3d const base = direction1.cross(t_);
    double const base2 = base.dot(base);
    return {ray0[0], ray0[1], base2 > 0 ? -turn.dot(base) / base2 : 0};
  }

  /// Images of the point minus pixels, and their derivatives.
  cv::Vec4d errorsAt(InverseDepthPoint const& p, cv::Vec4d const& pixels, cv::Matx43d& slope) const {
    Projection::ByPoint by0;
    Projection::ByPoint by1;
    cv::Vec2d const image0 = projection0_({p[0], p[1], 1}, &by0);
    cv::Vec2d const image1 = projection1_(inCamera1(p), &by1);
    cv::Matx33d const inCamera1ByPoint(R_(0, 0), R_(0, 1), t_[0], R_(1, 0), R_(1, 1), t_[1], R_(2, 0),
                                       R_(2, 1), t_[2]);
    cv::Matx23d const slope1 = by1 * inCamera1ByPoint;
    slope = {by0(0, 0),    by0(0, 1),    0,
             by0(1, 0),    by0(1, 1),    0,
             slope1(0, 0), slope1(0, 1), slope1(0, 2),
             slope1(1, 0), slope1(1, 1), slope1(1, 2)};
    return cv::Vec4d(image0[0], image0[1], image1[0], image1[1]) - pixels;
  }

  /// Gauss and Newton's method, with steps halved that do not help.
  /// @return the sum of squares at the end
  double refine(cv::Vec4d const& pixels, InverseDepthPoint& estimate) const {
    constexpr int rounds = 20;
    constexpr double lastGain = 1e-12; // of the sum of squares
    constexpr double exact = 1e-16;    // squared pixels
    cv::Matx43d slope;
    cv::Vec4d errors = errorsAt(estimate, pixels, slope);
    double squares = errors.dot(errors);
    for (int round = 0; round < rounds && squares > exact; ++round) {
      bool isRegular = false;
      cv::Matx33d const inverse = (slope.t() * slope).inv(cv::DECOMP_CHOLESKY, &isRegular);
      if (!isRegular) {
        break;
      }
      cv::Vec3d step = inverse * (slope.t() * errors);
      double const before = squares;
      for (int halving = 0; halving < 8; ++halving, step *= 0.5) {
        cv::Matx43d triedSlope;
        InverseDepthPoint const tried = estimate - step;
        cv::Vec4d const triedErrors = errorsAt(tried, pixels, triedSlope);
        double const triedSquares = triedErrors.dot(triedErrors);
        if (triedSquares < squares) {
          estimate = tried;
          errors = triedErrors;
          slope = triedSlope;
          squares = triedSquares;
          break;
        }
      }
      if (!(before - squares > lastGain * before)) {
        break;
      }
    }
    return squares;
  }

  Undistortion undistortion0_;
  Undistortion undistortion1_;
  Projection projection0_;
  Projection projection1_;
  cv::Matx33d R_;
  cv::Vec3d t_;
};

} // namespace

StereoPoints StereoCamera::triangulate(std::vector<cv::Point2f> const& pixels0,
                                       std::vector<cv::Point2f> const& pixels1, Observer* observer) const {
  if (pixels0.size() != pixels1.size()) {
    throw error("There are " + std::to_string(pixels0.size()) + " pixels of camera 0 and " +
                    std::to_string(pixels1.size()) + " of camera 1",
                "triangulate");
  }
  cv::Matx44d const cam1_from_cam0 = getTransform().inv();
  if (!(cv::norm(math::getT3(cam1_from_cam0)) > 0)) {
    throw error("The cameras stand at one place: their transform has no base", "triangulate");
  }
  PairTriangulation const triangulation(getCameraModel0(), getCameraModel1(), cam1_from_cam0);
  constexpr float none = std::numeric_limits<float>::quiet_NaN();
  StereoPoints result;
  result.points.resize(pixels0.size(), {none, none, none});
  result.residuals.resize(pixels0.size(), none);
  std::vector<PairState> states(pixels0.size());
  constexpr int pairsAtOnce = 16384; // some milliseconds between two questions to the observer
  parallelRows(static_cast<int>(pixels0.size()), pairsAtOnce, Progress(observer), "triangulating",
               [&](int first, int end) {
                 for (auto i = static_cast<std::size_t>(first); i < static_cast<std::size_t>(end); ++i) {
                   states[i] = triangulation.triangulate(pixels0[i], pixels1[i], result.points[i],
                                                         result.residuals[i]);
                 }
               });
  auto const countOf = [&](PairState state) {
    return static_cast<int>(std::count(states.begin(), states.end(), state));
  };
  result.behindCount = countOf(PairState::Behind);
  result.parallelCount = countOf(PairState::Parallel);
  result.raylessCount = countOf(PairState::Rayless);
  return result;
}

} // namespace vorn::mv
