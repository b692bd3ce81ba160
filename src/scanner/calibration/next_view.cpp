// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/scanner/next_view.hpp>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <optional>
#include <sstream>
#include <string>

#include <Eigen/Cholesky>

#include <vorn/mv/calib/calibration_covariance.hpp>
#include <vorn/mv/geometry/rotation.hpp>
#include <vorn/mv/geometry/transform.hpp>

#include "calib/adjust/bundle_solver.hpp"
#include "calib/adjust/correlated_noise.hpp"
#include "calib/adjust/view_statistics.hpp"
#include "core/error.hpp"
#include "core/progress.hpp"
#include "scanner/calibration/predicted_error.hpp"

namespace vorn::mv {

namespace {

constexpr char const* context = "nextBestView";
constexpr double degrees = 180.0 / CV_PI;

void check(Adjustment const& adjustment, std::vector<AdjustmentView> const& views,
           NextViewSettings const& settings) {
  if (adjustment.models.size() != 2 || !adjustment.isRead) {
    throw error("A next view is found for the adjustment of a scanner only", context);
  }
  if (adjustment.parameters.empty()) {
    throw error("Nothing is free in the adjustment, so no view changes it", context);
  }
  if (views.empty() || views.size() != adjustment.poses.size()) {
    throw error("The adjustment is of " + std::to_string(adjustment.poses.size()) + " views, not of " +
                    std::to_string(views.size()),
                context);
  }
  constexpr double leastTilt = 5;
  constexpr double mostTilt = 60;
  if (!(settings.greatestTilt >= leastTilt && settings.greatestTilt <= mostTilt)) {
    throw error("greatestTilt must be 5 to 60 degrees, not " + std::to_string(settings.greatestTilt),
                context);
  }
  if (!(settings.barLength > 0) || !std::isfinite(settings.barLength)) {
    throw error("barLength must be above 0, not " + std::to_string(settings.barLength), context);
  }
}

/// The middle of the rectangle that holds the target's dots.
cv::Vec3d middleOf(std::vector<cv::Point2f> const& target) {
  cv::Point2f low = target.front();
  cv::Point2f high = target.front();
  for (cv::Point2f const& dot : target) {
    low = {std::min(low.x, dot.x), std::min(low.y, dot.y)};
    high = {std::max(high.x, dot.x), std::max(high.y, dot.y)};
  }
  return {0.5 * static_cast<double>(low.x + high.x), 0.5 * static_cast<double>(low.y + high.y), 0};
}

/// How far the target is turned in its plane in the view that differs least from all others, radians.
double usualRoll(std::vector<cv::Matx44d> const& poses) {
  std::vector<double> rolls;
  for (cv::Matx44d const& pose : poses) {
    rolls.push_back(std::atan2(pose(1, 0), pose(0, 0)));
  }
  auto const sumOfTurns = [&](double roll) {
    double sum = 0;
    for (double const other : rolls) {
      sum += std::abs(std::remainder(roll - other, 2 * CV_PI));
    }
    return sum;
  };
  return *std::min_element(rolls.begin(), rolls.end(),
                           [&](double a, double b) { return sumOfTurns(a) < sumOfTurns(b); });
}

/// The poses that are tried, as far as the middle of the target is within the camera's image.
std::vector<NextView> posesIn(WorkingVolume const& volume, SightGeometry const& geometry,
                              cv::Vec3d const& middle, double roll, double greatestTilt) {
  constexpr int columns = 5;
  constexpr int rows = 4;
  constexpr int depths = 3;
  constexpr int directions = 8;
  constexpr int tilts = 2;
  constexpr double quarterTurn = 90;
  std::vector<NextView> poses;
  auto const add = [&](NextView view) {
    double const across = view.direction / degrees;
    cv::Vec3d const axis(std::sin(across), -std::cos(across), 0); // about which that side goes away
    cv::Matx33d const R = math::rot3(axis, view.tilt / degrees) * math::rotZ(roll + view.roll / degrees);
    cv::Vec3d const place = view.distance * geometry.rayOf(view.pixel);
    view.cam_from_target = math::createTransform(R, place - R * middle);
    poses.push_back(view);
  };
  for (int i = 0; i < columns * rows * depths * 2; ++i) {
    NextView view;
    view.roll = i % 2 == 0 ? 0 : quarterTurn;
    view.pixel = {(i / 2 % columns + 0.5) / columns * (geometry.cameraSize().width - 1),
                  (i / 2 / columns % rows + 0.5) / rows * (geometry.cameraSize().height - 1)};
    double const share = static_cast<double>(i / 2 / columns / rows) / (depths - 1);
    view.distance = volume.nearest + share * (volume.farthest - volume.nearest);
    add(view);
    for (int tilt = 1; tilt <= tilts; ++tilt) {
      for (int direction = 0; direction < directions; ++direction) {
        view.tilt = greatestTilt * tilt / tilts;
        view.direction = 360.0 * direction / directions;
        add(view);
      }
    }
  }
  return poses;
}

/// What a pose shows of the target.
struct Shown {
  double share0 = 0; ///< of its dots, to the camera
  double share1 = 0; ///< to camera and projector
  bool isFacing = false;
};

/// Adds the information of single views to that of an adjustment.
class ViewInformation {
public:
  ViewInformation(Adjustment const& adjustment, std::vector<AdjustmentView> const& views)
      : bundle_(solvedBundle(views, adjustment)), camera_(bundle_.devices[0].numbers),
        projector_(bundle_.devices[1].numbers), sizes_{adjustment.models[0].getResolution(),
                                                       adjustment.models[1].getResolution()} {
    bundle_.sigma[0] = adjustment.noise.camera0;
    bundle_.sigma[1] = adjustment.noise.camera1;
    for (int i = 0; i < static_cast<int>(bundle_.target.size()); ++i) {
      dots_.push_back(bundle_.dotInTarget(i));
    }
    Transfers const transfers = transfersOf(bundle_);
    NormalEquations const normal = normalEquationsOf(bundle_, transfers);
    auto const equations = reduced(normal);
    if (!equations) {
      throw error("The views do not determine the calibration", context);
    }
    equations_ = equations->common;
    wanted_ = static_cast<Eigen::Index>(adjustment.parameters.size());
    before_ = withoutShape(equations_);
    Eigen::MatrixXd covariance(wanted_, wanted_);
    for (Eigen::Index row = 0; row < wanted_; ++row) {
      for (Eigen::Index col = 0; col < wanted_; ++col) {
        covariance(row, col) = adjustment.covariance.at<double>(static_cast<int>(row), static_cast<int>(col));
      }
    }
    information_ = inverseOf(covariance);
    sharePerView_ = independentShare(normal, transfers);
    bundle_.views.clear();
  }

  std::vector<cv::Point2f> const& target() const { return bundle_.target; }

  Shown shown(cv::Matx44d const& cam_from_target) const {
    Shown shown;
    BundleView const view = viewOf(cam_from_target, 1);
    double const count = static_cast<double>(dots_.size());
    for (BundleDot const& dot : view.dots) {
      shown.share0 += 1 / count;
      shown.share1 += dot.has1 ? 1 / count : 0;
    }
    shown.isFacing =
        isFacing(cam_from_target, cv::Vec3d()) && isFacing(cam_from_target, bundle_.dev0_from_dev1.t);
    return shown;
  }

  /// The dots that both devices see.
  int commonDots(cv::Matx44d const& cam_from_target) const {
    return static_cast<int>(std::lround(shown(cam_from_target).share1 * static_cast<double>(dots_.size())));
  }

  /// The covariance of the adjustment's parameters with one more view.
  /// @param share of the dots that stand for all, more than 0
  /// @return nothing for a view that does not fix its own pose
  std::optional<Eigen::MatrixXd> covarianceWith(cv::Matx44d const& cam_from_target, double share) const {
    Bundle single = bundle_;
    single.views = {viewOf(cam_from_target, share)};
    constexpr std::size_t fewest = 6;
    if (single.views[0].dots.size() < fewest) {
      return std::nullopt;
    }
    NormalEquations equations = normalEquationsOf(single, transfersOf(single));
    for (int i = 0; i < bundle_.shape.parameterCount(); ++i) { // what holds the shape counts but once
      Eigen::Index const place = wanted_ + i;
      equations.common(place, place) -= bundle_.shape.priorWeight(i);
    }
    auto const own = reduced(equations);
    if (!own) {
      return std::nullopt;
    }
    // Only what the view adds is taken from these equations, whose shape may be simpler than the target's.
    return inverseOf(information_ + sharePerView_ * (withoutShape(equations_ + own->common) - before_));
  }

private:
  /// The inverse of a positive definite matrix of parameters whose sizes differ by many powers of ten.
  static Eigen::MatrixXd inverseOf(Eigen::MatrixXd const& matrix) {
    Eigen::VectorXd const scale = matrix.diagonal().cwiseSqrt().cwiseInverse();
    Eigen::Index const n = matrix.rows();
    Eigen::LDLT<Eigen::MatrixXd> const scaled(scale.asDiagonal() * matrix * scale.asDiagonal());
    return scale.asDiagonal() * scaled.solve(Eigen::MatrixXd::Identity(n, n)) * scale.asDiagonal();
  }

  /// What of the information that views would hold, were errors of dots independent, is left where dots share
  /// them with their neighbours; that of one more view is taken to be as much.
  double independentShare(NormalEquations const& normal, Transfers const& transfers) const {
    if (bundle_.shape.isByDot()) { // which such errors are a part of
      return 1;
    }
    Eigen::MatrixXd const independent = commonCovarianceOf(normal);
    Eigen::MatrixXd const shared = correlatedCovarianceOf(bundle_, transfers, normal, independent);
    Eigen::MatrixXd const growth =
        inverseOf(independent.topLeftCorner(wanted_, wanted_)) * shared.topLeftCorner(wanted_, wanted_);
    return std::min(1.0, static_cast<double>(wanted_) / growth.trace());
  }

  /// The information on the devices and their transform, with the target's shape unknown.
  Eigen::MatrixXd withoutShape(Eigen::MatrixXd const& equations) const {
    Eigen::Index const shape = equations.rows() - wanted_;
    if (shape == 0) {
      return equations;
    }
    Eigen::MatrixXd const mixed = equations.topRightCorner(wanted_, shape);
    return equations.topLeftCorner(wanted_, wanted_) -
           mixed * equations.bottomRightCorner(shape, shape).ldlt().solve(mixed.transpose());
  }

  /// Whether a dot about a pixel lies within an image, with some room: hands do not hold a target exactly.
  static bool isInside(cv::Size const& size, cv::Vec2d const& pixel) {
    constexpr double share = 0.01;
    double const margin = share * std::max(size.width, size.height);
    return pixel[0] >= margin && pixel[1] >= margin && pixel[0] <= size.width - 1 - margin &&
           pixel[1] <= size.height - 1 - margin;
  }

  /// Whether a device sees the front of the target, not too flat.
  bool isFacing(cv::Matx44d const& cam_from_target, cv::Vec3d const& device) const {
    cv::Vec3d const away(cam_from_target(0, 2), cam_from_target(1, 2), cam_from_target(2, 2));
    cv::Vec3d const place =
        math::getR3(cam_from_target) * middleOf(bundle_.target) + math::getT3(cam_from_target);
    constexpr double leastSine = 0.5; // of the angle between the plane and the line of sight
    return away.dot(cv::normalize(place - device)) >= leastSine;
  }

  /// The dots that the camera sees, with those among them that the projector lights; some of them, spread
  /// over the target and weighted to stand for the others, when `share` is less than 1.
  BundleView viewOf(cv::Matx44d const& cam_from_target, double share) const {
    constexpr double golden = 0.6180339887498949; // whose multiples fall on no line of a grid
    BundleView view;
    view.dev0_from_target = Placement::of(cam_from_target);
    cv::Matx33d const proj_from_cam = bundle_.dev0_from_dev1.R.t();
    for (std::size_t i = 0; i < dots_.size(); ++i) {
      double const turn = golden * static_cast<double>(i);
      cv::Vec3d const point = view.dev0_from_target.R * dots_[i] + view.dev0_from_target.t;
      if (turn - std::floor(turn) >= share || !(point[2] > 0) || !isInside(sizes_[0], camera_(point))) {
        continue;
      }
      cv::Vec3d const inProjector = proj_from_cam * (point - bundle_.dev0_from_dev1.t);
      BundleDot dot;
      dot.target = static_cast<int>(i);
      dot.has0 = true;
      dot.has1 = inProjector[2] > 0 && isInside(sizes_[1], projector_(inProjector));
      dot.weights[0] = dot.weights[1] = cv::Vec2d::all(1 / share);
      view.dots.push_back(dot);
    }
    return view;
  }

  Bundle bundle_;
  Projection camera_;
  Projection projector_;
  cv::Size sizes_[2];
  std::vector<cv::Vec3d> dots_;
  Eigen::MatrixXd equations_;   ///< of the adjusted views, poses eliminated
  Eigen::Index wanted_ = 0;     ///< parameters before those of the shape
  Eigen::MatrixXd before_;      ///< the same without the shape
  Eigen::MatrixXd information_; ///< the inverse of the adjustment's covariance
  double sharePerView_ = 1;     ///< of a view's information, beside that of independent errors
};

/// A covariance by the adjustment's parameters as one by all that there are.
CalibrationMatrix wholeMatrix(Adjustment const& adjustment, Eigen::MatrixXd const& covariance) {
  CalibrationCovariance named{adjustment.parameters, cv::Mat(), 0};
  auto const count = static_cast<int>(covariance.rows());
  named.matrix.create(count, count, CV_64F);
  for (int row = 0; row < count; ++row) {
    for (int col = 0; col < count; ++col) {
      named.matrix.at<double>(row, col) = covariance(row, col);
    }
  }
  return wholeMatrix(named);
}

/// Those that show as much of the target as the poorest of the views that were adjusted, or where none does,
/// a little less.
/// @throws Exception where none shows enough, with the most that any does
std::vector<NextView> servingOf(std::vector<NextView> const& poses, ViewInformation const& information,
                                std::vector<cv::Matx44d> const& adjusted) {
  double least0 = 1;
  double least1 = 1;
  for (cv::Matx44d const& pose : adjusted) {
    Shown const shown = information.shown(pose);
    least0 = std::min(least0, shown.share0);
    least1 = std::min(least1, shown.share1);
  }
  std::vector<Shown> shown;
  double most = 0; // of what the views show, by the device that sees less of it
  for (NextView const& pose : poses) {
    shown.push_back(information.shown(pose.cam_from_target));
    Shown const& own = shown.back();
    if (own.isFacing && least0 > 0 && least1 > 0) {
      most = std::max(most, std::min(own.share0 / least0, own.share1 / least1));
    }
  }
  constexpr double enough = 0.7;
  if (most < enough) {
    std::ostringstream message;
    message
        << "No pose within the volume shows camera and projector as much of the target as the views did: of "
        << poses.size() << " tried, none more than " << std::lround(100 * most)
        << " % of that. Was the target larger than what both see?";
    throw error(message.str(), context);
  }
  constexpr double rounding = 1e-9;
  double const share = std::min(1.0, most) - rounding;
  std::vector<NextView> serving;
  for (std::size_t i = 0; i < poses.size(); ++i) {
    if (shown[i].isFacing && shown[i].share0 >= share * least0 && shown[i].share1 >= share * least1) {
      serving.push_back(poses[i]);
    }
  }
  return serving;
}

} // namespace

NextView nextBestView(Adjustment const& adjustment, std::vector<AdjustmentView> const& views,
                      NextViewSettings const& settings, Observer* observer) {
  check(adjustment, views, settings);
  bool const isAnywhere = settings.volume.nearest == 0 && settings.volume.farthest == 0;
  WorkingVolume const volume = isAnywhere ? workingVolume(adjustment, views) : settings.volume;
  checkVolume(volume, context);
  bool const isColumn = settings.scannerType.getIndex() == scanner::ScannerType::Horizontal;
  SightGeometry const geometry(adjustment.models[0], adjustment.models[1], adjustment.transform,
                               isColumn ? MapCoordinate::Column : MapCoordinate::Row);
  std::vector<cv::Vec3d> const points = pointsIn(volume, geometry);
  if (points.empty()) {
    std::ostringstream message;
    message << "Camera and projector do not both see anything between the depths " << volume.nearest
            << " and " << volume.farthest;
    throw error(message.str(), context);
  }
  ViewInformation const information(adjustment, views);
  std::vector<NextView> const poses = servingOf(posesIn(volume, geometry, middleOf(information.target()),
                                                        usualRoll(adjustment.poses), settings.greatestTilt),
                                                information, adjustment.poses);
  constexpr double enough = 120; // dots, to tell which pose is better
  double const share = std::min(1.0, enough / static_cast<double>(information.target().size()));
  CalibrationMatrix const weight = shapeWeightOf(geometry, points);
  std::vector<double> errors2(poses.size(), std::numeric_limits<double>::infinity());
  constexpr int band = 64;
  parallelRows(static_cast<int>(poses.size()), band, Progress(observer), "looking for the next view",
               [&](int first, int end) {
                 for (auto i = static_cast<std::size_t>(first); i < static_cast<std::size_t>(end); ++i) {
                   auto const covariance = information.covarianceWith(poses[i].cam_from_target, share);
                   if (covariance) {
                     errors2[i] = weight.cwiseProduct(wholeMatrix(adjustment, *covariance)).sum();
                   }
                 }
               });
  auto const best = static_cast<std::size_t>(
      std::distance(errors2.begin(), std::min_element(errors2.begin(), errors2.end())));
  auto const covariance = information.covarianceWith(poses[best].cam_from_target, 1);
  if (!covariance) {
    throw error("No pose within the volume shows enough dots", context);
  }
  NextView result = poses[best];
  result.dotCount = information.commonDots(result.cam_from_target);
  result.triedCount = static_cast<int>(poses.size());
  result.before =
      predictedError(geometry, wholeMatrix(covarianceOf(adjustment)), volume, points, settings.barLength);
  result.after =
      predictedError(geometry, wholeMatrix(adjustment, *covariance), volume, points, settings.barLength);
  return result;
}

} // namespace vorn::mv
