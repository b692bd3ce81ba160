// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/calib/laser_adjustment.hpp>

#include <algorithm>
#include <cmath>
#include <string>

#include <Eigen/Cholesky>
#include <opencv2/core.hpp>

#include "calib/adjust/bundle_solver.hpp"
#include "calib/adjust/correlated_noise.hpp"
#include "calib/adjust/laser_bundle.hpp"
#include "calib/adjust/view_statistics.hpp"
#include "calib/camera_model_of.hpp"
#include "core/error.hpp"
#include "core/pieces.hpp"
#include "core/progress.hpp"

namespace vorn::mv {

namespace {

/// No place in an image is known better: pixels come as floats.
constexpr double leastNoise = 1e-5;

void checkLines(std::vector<LaserAdjustmentView> const& views) {
  std::size_t const lasers = views.empty() ? 0 : views[0].lines.size();
  std::vector<int> seen(lasers);
  for (std::size_t i = 0; i < views.size(); ++i) {
    LaserAdjustmentView const& view = views[i];
    std::string const name =
        "View " + std::to_string(i) + (view.dots.name.empty() ? "" : " (" + view.dots.name + ")");
    if (view.lines.size() != lasers || lasers == 0) {
      throw error(name + " has " + std::to_string(view.lines.size()) + " laser lines, the first view " +
                      std::to_string(lasers) + "; at least one is wanted",
                  "adjust");
    }
    for (std::size_t p = 0; p < lasers; ++p) {
      seen[p] += view.lines[p].empty() ? 0 : 1;
      if (!std::all_of(view.lines[p].begin(), view.lines[p].end(), [](cv::Point2f const& point) {
            return std::isfinite(point.x) && std::isfinite(point.y);
          })) {
        throw error(name + " holds a point of laser line " + std::to_string(p) + " that is not finite",
                    "adjust");
      }
    }
  }
  for (std::size_t p = 0; p < lasers; ++p) {
    if (seen[p] < 2) {
      throw error("Laser line " + std::to_string(p) + " has points in " + std::to_string(seen[p]) +
                      " views, and a plane takes 2",
                  "adjust");
    }
  }
}

std::vector<AdjustmentView> dotsOf(std::vector<LaserAdjustmentView> const& views) {
  std::vector<AdjustmentView> dots;
  for (LaserAdjustmentView const& view : views) {
    dots.push_back(view.dots);
  }
  return dots;
}

/// The plane of least squares through points.
LaserPlane planeThrough(std::vector<cv::Vec3d> const& points) {
  cv::Vec3d middle;
  for (cv::Vec3d const& point : points) {
    middle += point / static_cast<double>(points.size());
  }
  cv::Matx33d spread = cv::Matx33d::zeros();
  for (cv::Vec3d const& point : points) {
    spread += (point - middle) * (point - middle).t();
  }
  cv::Vec3d values;
  cv::Matx33d vectors;
  cv::eigen(spread, values, vectors);
  constexpr double thinnest = 1e-6; // squares: a line of 100 mm is not a plane of less than 0.1 mm
  if (!(values[1] > thinnest * values[0])) {
    throw error("A laser line lies at one place in all views, which determines no plane", "adjust");
  }
  cv::Vec3d const normal(vectors(2, 0), vectors(2, 1), vectors(2, 2));
  return {normal, normal.dot(middle)};
}

class LaserAdjuster {
public:
  LaserAdjuster(std::vector<LaserAdjustmentView> const& views, Adjustment camera,
                AdjustmentSettings const& settings, Progress const& progress)
      : settings_(settings), progress_(progress) {
    result_.camera = std::move(camera);
    bundle_.dots = solvedBundle(dotsOf(views), result_.camera);
    bundle_.dots.sigma[0] = result_.camera.noise.camera0;
    bundle_.surface = SurfaceHeight(result_.camera.shape, bundle_.dots);
    for (LaserAdjustmentView const& view : views) {
      bundle_.lines.emplace_back();
      for (auto const& line : view.lines) {
        bundle_.lines.back().emplace_back(line.begin(), line.end());
      }
    }
  }

  LaserAdjustment run() {
    startPlanes();
    constexpr int rounds = 2; // after which the noise changes by less than a hundredth
    for (int round = 0; round < rounds; ++round) {
      estimateNoise();
      solve(0.5 * round);
    }
    estimateNoise();
    fillCamera();
    fillCovariance();
    return std::move(result_);
  }

private:
  std::vector<cv::Vec3d> pointsOf(std::size_t plane) const {
    LineRays const rays = raysOf(bundle_);
    std::vector<cv::Vec3d> points;
    for (std::size_t i = 0; i < rays.size(); ++i) {
      for (cv::Point2d const& ray : rays[i][plane]) {
        if (auto const point = onTarget(bundle_, bundle_.dots.views[i], ray)) {
          points.push_back(*point);
        }
      }
    }
    return points;
  }

  void startPlanes() {
    for (std::size_t p = 0; p < bundle_.lines[0].size(); ++p) {
      bundle_.planes.push_back(planeThrough(pointsOf(p)));
    }
  }

  void estimateNoise() {
    LaserSquares const squares = squaresOf(bundle_);
    for (std::size_t p = 0; p < bundle_.planes.size(); ++p) {
      bundle_.planes[p].sigma =
          std::max(std::sqrt(squares.lines[p] / std::max(1, squares.counts[p] - 3)), leastNoise);
    }
  }

  /// Gauss and Newton's method with shorter steps where one leads too far: the start is near.
  void solve(double done) {
    double squares = squaresOf(bundle_).total;
    constexpr double rounding = 1e-11;
    for (int round = 0; round < settings_.maxIterations; ++round) {
      progress_.at("adjusting", done + 0.5 * round / settings_.maxIterations);
      NormalEquations const normal = normalEquationsOf(bundle_);
      auto const equations = reduced(normal);
      Eigen::LLT<Eigen::MatrixXd> decomposition;
      if (!equations || decomposition.compute(equations->common).info() != Eigen::Success) {
        throw error("The views do not determine the laser planes", "adjust");
      }
      Eigen::VectorXd const step = decomposition.solve(equations->slope);
      LaserBundle const before = bundle_;
      double share = 1;
      double reached = movedBy(normal, step, before, share);
      constexpr double leastShare = 1e-3;
      while (!(reached <= squares * (1 + rounding)) && share > leastShare) {
        share /= 2;
        reached = movedBy(normal, step, before, share);
      }
      // By the first-order gain the squares fall by no more than this; scales of residuals change as well.
      constexpr double lastGain = 1e-8;
      bool const isDone = squares - reached < lastGain * std::max(1.0, squares * rounding);
      squares = reached;
      if (isDone) {
        return;
      }
    }
    throw error("The adjustment of the laser planes found no minimum within " +
                    std::to_string(settings_.maxIterations) + " rounds",
                "adjust");
  }

  /// Moves the unknowns from where they were. Returns the squares.
  double movedBy(NormalEquations const& normal, Eigen::VectorXd const& step, LaserBundle const& before,
                 double share) {
    bundle_ = before;
    Eigen::VectorXd const common = step * share;
    bundle_.dots.devices[0].move(common.data());
    if (int const shape = bundle_.dots.shape.parameterCount(); shape > 0) {
      bundle_.dots.shapeParameters += common.segment(bundle_.cameraCount(), shape);
      bundle_.surface.reshape(bundle_.dots.shapeParameters);
    }
    for (std::size_t p = 0; p < bundle_.planes.size(); ++p) {
      bundle_.planes[p] = before.planes[p].moved(common.data() + bundle_.dotsCount() + 3 * p);
    }
    for (std::size_t i = 0; i < normal.pose.size(); ++i) {
      PoseVector const slope = normal.poseSlope[i] - normal.mixed[i].transpose() * step;
      PoseVector const pose = share * normal.pose[i].llt().solve(slope);
      bundle_.dots.views[i].dev0_from_target = before.dots.views[i].dev0_from_target.moved(
          {pose[0], pose[1], pose[2]}, {pose[3], pose[4], pose[5]});
    }
    return squaresOf(bundle_).total;
  }

  void fillCamera() {
    Adjustment& camera = result_.camera;
    CameraModel const& start = camera.models[0];
    CameraNumbers const& numbers = bundle_.dots.devices[0].numbers;
    if (bundle_.cameraCount() > 0) {
      Lens const& lens = numbers.lens;
      double const all[] = {lens.k1, lens.k2, lens.p1, lens.p2, lens.k3, lens.k4,
                            lens.k5, lens.k6, lens.s1, lens.s2, lens.s3, lens.s4};
      cv::Mat_<double> D(start.getD().reshape(1, 1).clone());
      for (int i = 0; i < std::min(D.cols, 12); ++i) {
        D(i) = all[i];
      }
      cv::Matx33d const K(numbers.fx, 0, numbers.cx, 0, numbers.fy, numbers.cy, 0, 0, 1);
      camera.models[0] = cameraModelOf(cv::Mat(K), D, start.getResolution(), start.getCalibError());
    }
    for (std::size_t dot = 0; dot < camera.shape.deviations.size() && bundle_.dots.shapeParameters.size() > 0;
         ++dot) {
      camera.shape.deviations[dot] +=
          cv::Point3d(bundle_.dots.shape.deviation(static_cast<int>(dot), bundle_.dots.shapeParameters));
    }
    for (std::size_t i = 0; i < camera.poses.size(); ++i) {
      camera.poses[i] = bundle_.dots.views[i].dev0_from_target.matrix();
    }
  }

  void fillCovariance() {
    NormalEquations const normal = normalEquationsOf(bundle_);
    Eigen::MatrixXd const own =
        correlatedCovarianceOf(bundle_.dots, transfersOf(bundle_.dots), normal, commonCovarianceOf(normal));
    int const camera = bundle_.cameraCount();
    auto const planes = static_cast<int>(bundle_.planes.size());
    int const shape = bundle_.dots.shape.parameterCount();
    // Three numbers of a plane to four, and none of the shape.
    Eigen::MatrixXd expand = Eigen::MatrixXd::Zero(camera + 4 * planes, camera + shape + 3 * planes);
    expand.topLeftCorner(camera, camera).setIdentity();
    result_.parameters = result_.camera.parameters;
    for (int p = 0; p < planes; ++p) {
      cv::Matx<double, 3, 2> const tangents = bundle_.planes[static_cast<std::size_t>(p)].tangents();
      for (int k = 0; k < 3; ++k) {
        expand(camera + 4 * p + k, camera + shape + 3 * p) = tangents(k, 0);
        expand(camera + 4 * p + k, camera + shape + 3 * p + 1) = tangents(k, 1);
      }
      expand(camera + 4 * p + 3, camera + shape + 3 * p + 2) = 1;
      for (char const* name : {"nx_", "ny_", "nz_", "d_"}) {
        result_.parameters.push_back(name + std::to_string(p));
      }
    }
    Eigen::MatrixXd const whole = expand * own * expand.transpose();
    result_.covariance.create(static_cast<int>(whole.rows()), static_cast<int>(whole.cols()), CV_64F);
    for (int row = 0; row < whole.rows(); ++row) {
      for (int col = 0; col < whole.cols(); ++col) {
        result_.covariance.at<double>(row, col) = whole(row, col);
      }
    }
    Adjustment& lens = result_.camera;
    lens.covariance = result_.covariance(cv::Rect(0, 0, camera, camera)).clone();
    lens.sigmas.clear();
    for (int row = 0; row < camera; ++row) {
      lens.sigmas.push_back(std::sqrt(whole(row, row)));
    }
    for (int p = 0; p < planes; ++p) {
      fillPlane(static_cast<std::size_t>(p), whole.block<4, 4>(camera + 4 * p, camera + 4 * p));
    }
  }

  void fillPlane(std::size_t number, Eigen::Matrix4d const& covariance) {
    LaserPlane const& plane = bundle_.planes[number];
    std::vector<cv::Vec3d> const points = pointsOf(number);
    cv::Vec3d middle;
    double squares = 0;
    for (cv::Vec3d const& point : points) {
      Eigen::Vector4d const by(point[0], point[1], point[2], -1);
      squares += by.dot(covariance * by);
      middle += point / static_cast<double>(points.size());
    }
    // The point of the plane in the middle of its lines.
    cv::Vec3d const foot = middle - plane.normal * (plane.normal.dot(middle) - plane.distance);
    cv::Vec3f const normal(plane.normal);
    AdjustedPlane adjusted;
    adjusted.plane = Plane3f(cv::Point3f(cv::Point3d(foot)), normal);
    adjusted.pointCount = static_cast<int>(points.size());
    adjusted.rms = std::sqrt(squaresOf(bundle_).lines[number] / static_cast<double>(points.size()));
    adjusted.sigma = std::sqrt(squares / static_cast<double>(points.size()));
    result_.planes.push_back(adjusted);
  }

  AdjustmentSettings settings_;
  Progress progress_;
  LaserBundle bundle_;
  LaserAdjustment result_;
};

} // namespace

LaserAdjustment adjustLasers(std::vector<LaserAdjustmentView> const& views, CameraModel const& camera,
                             AdjustmentSettings const& settings, Observer* observer) {
  checkLines(views);
  Progress const progress(observer);
  constexpr double dotsShare = 0.7;
  PartObserver part(progress.part(0, dotsShare));
  Adjustment dots = adjustCamera(dotsOf(views), camera, settings, part.ifWatched());
  return LaserAdjuster(views, std::move(dots), settings, progress.part(dotsShare, 1)).run();
}

} // namespace vorn::mv
