// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/calib/adjustment.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <utility>

#include <opencv2/core.hpp>

#include "calib/adjust/adjustment_checks.hpp"
#include "calib/adjust/bundle_solver.hpp"
#include "calib/adjust/bundle_start.hpp"
#include "calib/adjust/correlated_noise.hpp"
#include "calib/adjust/point_noise.hpp"
#include "calib/adjust/shape_choice.hpp"
#include "calib/camera_model_of.hpp"
#include "core/error.hpp"

namespace vorn::mv {

namespace {

/// No coordinate is known better: pixels come as floats.
constexpr double leastNoise = 1e-5;

char const* const lensNames[] = {"fx",  "fy",  "cx",  "cy",  "k1_", "k2_", "p1_", "p2_",
                                 "k3_", "k4_", "k5_", "k6_", "s1_", "s2_", "s3_", "s4_"};

/// Takes dots out of the bundle and notes them. A dot that is wrong in the camera is wrong in the projector
/// too.
void leaveOut(Bundle& bundle, std::vector<std::vector<bool>> const& isOutlier0,
              std::vector<std::vector<bool>> const& isOutlier1, std::vector<ViewAdjustment>& reports) {
  for (std::size_t i = 0; i < bundle.views.size(); ++i) {
    std::vector<BundleDot> kept;
    for (std::size_t j = 0; j < bundle.views[i].dots.size(); ++j) {
      BundleDot dot = bundle.views[i].dots[j];
      dot.has0 = dot.has0 && !isOutlier0[i][j];
      dot.has1 = dot.has1 && !isOutlier1[i][j] && (dot.has0 || !bundle.isRead);
      if (isOutlier0[i][j] || isOutlier1[i][j]) {
        reports[i].leftOut.push_back(dot.source);
      }
      if (dot.has0 || dot.has1) {
        kept.push_back(dot);
      }
    }
    bundle.views[i].dots = std::move(kept);
  }
}

/// The residuals of both devices by themselves, dot by dot of the whole bundle; those of device 1 less what
/// device 0 explains when they were read there.
std::vector<std::vector<DotResidual>> residualsAlone(Bundle const& whole,
                                                     std::vector<DeviceAlone> const& alone) {
  std::vector<std::vector<DotResidual>> residuals(whole.views.size());
  for (std::size_t i = 0; i < whole.views.size(); ++i) {
    residuals[i].resize(whole.views[i].dots.size());
  }
  for (std::size_t device = 0; device < alone.size(); ++device) {
    auto const own = residualsOf(alone[device].bundle, {});
    for (std::size_t k = 0; k < own.size(); ++k) {
      auto const view = static_cast<std::size_t>(alone[device].viewOf[k]);
      std::size_t next = 0;
      for (std::size_t j = 0; j < whole.views[view].dots.size(); ++j) {
        BundleDot const& dot = whole.views[view].dots[j];
        if (device == 0 ? dot.has0 : dot.has1) {
          (device == 0 ? residuals[view][j].in0 : residuals[view][j].in1) = own[k][next++].in0;
        }
      }
    }
  }
  if (whole.isRead) {
    Transfers const transfers = transfersOf(whole);
    for (std::size_t i = 0; i < residuals.size(); ++i) {
      for (std::size_t j = 0; j < residuals[i].size(); ++j) {
        if (whole.views[i].dots[j].has1) {
          residuals[i][j].in1 -= transfers[i][j] * residuals[i][j].in0;
        }
      }
    }
  }
  return residuals;
}

/// The noise in one device before the adjustment: what neighbours do not share, or where dots have too few of
/// them, the residuals of the device by itself.
double noiseBefore(Bundle const& bundle, DotNeighbours const& neighbours,
                   std::vector<std::vector<DotResidual>> const& residuals, int device) {
  double noise = localNoise(bundle, neighbours, residuals, device);
  if (noise == 0) {
    double sum = 0;
    int count = 0;
    for (std::size_t i = 0; i < residuals.size(); ++i) {
      for (std::size_t j = 0; j < residuals[i].size(); ++j) {
        cv::Vec2d const& r = device == 0 ? residuals[i][j].in0 : residuals[i][j].in1;
        BundleDot const& dot = bundle.views[i].dots[j];
        sum += dot.weights[device].dot(r.mul(r));
        count += (device == 0 ? dot.has0 : dot.has1) ? 2 : 0;
      }
    }
    noise = std::sqrt(sum / std::max(1, count));
  }
  return std::max(noise, leastNoise);
}

double s0Of(Bundle const& bundle) {
  Squares const squares = squaresOf(bundle, transfersOf(bundle));
  // Dots by themselves are held by as many priors as they have parameters.
  int const shape = bundle.shape.isByDot() ? 0 : bundle.shape.parameterCount();
  double const freedom = squares.totalCount() - bundle.deviceCount() - bundle.transformCount() - shape -
                         6.0 * static_cast<double>(bundle.views.size());
  return freedom > 0 ? std::sqrt(squares.total() / freedom) : 1;
}

/// Scales the noise of each device to what its residuals show (variance components after Helmert).
void estimateNoise(Bundle& bundle) {
  Transfers const transfers = transfersOf(bundle);
  NormalEquations const whole = normalEquationsOf(bundle, transfers);
  Eigen::MatrixXd const covariance = commonCovarianceOf(whole);
  Squares const squares = squaresOf(bundle, transfers);
  for (int device = 0; device < static_cast<int>(bundle.devices.size()); ++device) {
    double const taken = parametersTakenBy(whole, covariance, normalEquationsOf(bundle, transfers, device));
    double const freedom = squares.count[device] - taken;
    if (freedom > 1) {
      double const factor = std::sqrt(squares.sum[device] / freedom);
      bundle.sigma[device] = std::max(bundle.sigma[device] * factor, leastNoise);
    }
  }
}

/// D with as many coefficients as the model needs.
cv::Mat distortionOf(CameraNumbers const& numbers, CameraModel const& start) {
  Lens const& lens = numbers.lens;
  std::vector<double> D{lens.k1, lens.k2, lens.p1, lens.p2, lens.k3, lens.k4,
                        lens.k5, lens.k6, lens.s1, lens.s2, lens.s3, lens.s4};
  bool const isRational = lens.k4 != 0 || lens.k5 != 0 || lens.k6 != 0;
  bool const isPrism = lens.s1 != 0 || lens.s2 != 0 || lens.s3 != 0 || lens.s4 != 0;
  if (numbers.isTilted) { // which no adjustment changes
    cv::Mat_<double> const given(start.getD().reshape(1, 1));
    D.push_back(given(12));
    D.push_back(given(13));
  } else {
    D.resize(isPrism ? 12 : isRational ? 8 : 5);
  }
  return cv::Mat(D, true).t();
}

class Adjuster {
public:
  Adjuster(std::vector<AdjustmentView> const& views, std::vector<DeviceStart> starts, bool isRead,
           AdjustmentSettings const& settings, Observer* observer)
      : views_(views), starts_(std::move(starts)), settings_(settings), progress_(observer) {
    checkSettings(settings);
    for (std::size_t i = 0; i < views.size(); ++i) {
      checkView(views[i], i, static_cast<int>(starts_.size()));
      result_.views.push_back({views[i].name, 0, {}, 0, 0});
    }
    for (std::size_t i = 0; i < starts_.size(); ++i) {
      checkDevice(starts_[i], i);
    }
    bundle_ = bundleOf(views, static_cast<int>(starts_.size()), isRead);
    result_.isRead = isRead;
  }

  Adjustment run() {
    start();
    solveBundle(bundle_, settings_.maxIterations, progress_.part(0.3, 0.5));
    double const flatS0 = s0Of(bundle_);
    result_.shapeLimit = chooseShape(bundle_, settings_, progress_.part(0.5, 0.75));
    if (bundle_.shape.level() != ShapeBasis::Level::Flat) {
      takeBack(progress_.part(0.75, 0.8));
    }
    result_.s0 = s0Of(bundle_);
    constexpr int rounds = 2; // after which the components change by less than a thousandth
    for (int round = 0; round < rounds; ++round) {
      estimateNoise(bundle_);
      solveBundle(bundle_, settings_.maxIterations, progress_.part(0.8 + 0.1 * round, 0.9 + 0.1 * round));
    }
    fillCovariance(flatS0);
    fillModels();
    return result_;
  }

private:
  /// Takes dots back that are no outliers by the shape that was found: the ends of a target that is bent look
  /// wrong where it is taken for flat. Others are not judged again: a fault of a view may pass for a shape.
  void takeBack(Progress const& progress) {
    Bundle all = bundle_;
    std::vector<std::vector<int>> before;
    for (std::size_t i = 0; i < all.views.size(); ++i) {
      all.views[i].dots = allDots_[i];
      before.push_back(std::exchange(result_.views[i].leftOut, {}));
    }
    auto const residuals = residualsOf(all, transfersOf(all));
    auto isOutlier0 = outliersOf(all, residuals, 0, settings_.outlierLimit);
    auto isOutlier1 = outliersOf(all, residuals, 1, settings_.outlierLimit);
    for (std::size_t i = 0; i < all.views.size(); ++i) {
      for (std::size_t j = 0; j < all.views[i].dots.size(); ++j) {
        bool const wasOut =
            std::find(before[i].begin(), before[i].end(), all.views[i].dots[j].source) != before[i].end();
        isOutlier0[i][j] = isOutlier0[i][j] && wasOut;
        isOutlier1[i][j] = isOutlier1[i][j] && wasOut;
      }
    }
    leaveOut(all, isOutlier0, isOutlier1, result_.views);
    bool isSame = true;
    for (std::size_t i = 0; i < before.size(); ++i) {
      isSame = isSame && result_.views[i].leftOut == before[i];
    }
    if (!isSame) {
      bundle_ = std::move(all);
      solveBundle(bundle_, settings_.maxIterations, progress);
    }
  }

  /// Both devices by themselves, then together, and without outliers.
  void start() {
    for (BundleView const& view : bundle_.views) {
      allDots_.push_back(view.dots);
    }
    std::vector<DeviceAlone> alone = solveDevices(0);
    auto residuals = residualsAlone(bundle_, alone);
    auto isOutlier0 = outliersOf(bundle_, residuals, 0, settings_.outlierLimit);
    auto isOutlier1 = outliersOf(bundle_, residuals, 1, settings_.outlierLimit);
    leaveOut(bundle_, isOutlier0, isOutlier1, result_.views);
    bool const isAnyOut = std::any_of(result_.views.begin(), result_.views.end(),
                                      [](ViewAdjustment const& view) { return !view.leftOut.empty(); });
    if (isAnyOut) {
      alone = solveDevices(0.15);
      residuals = residualsAlone(bundle_, alone);
    }
    DotNeighbours const neighbours = neighboursOf(bundle_.target);
    for (int device = 0; device < static_cast<int>(starts_.size()); ++device) {
      bundle_.sigma[device] = noiseBefore(bundle_, neighbours, residuals, device);
      (device == 0 ? result_.localNoise.camera0 : result_.localNoise.camera1) = bundle_.sigma[device];
    }
  }

  std::vector<DeviceAlone> solveDevices(double done) {
    std::vector<DeviceAlone> alone;
    Bundle whole = bundle_;
    for (int device = 0; device < static_cast<int>(starts_.size()); ++device) {
      double const from = done + 0.07 * device;
      alone.push_back(solveAlone(whole, device, starts_[static_cast<std::size_t>(device)], settings_,
                                 progress_.part(from, from + 0.07)));
    }
    if (alone.size() > 1) {
      joinSolutions(alone[0], alone[1], bundle_);
    } else {
      bundle_.devices = alone[0].bundle.devices;
      for (std::size_t i = 0; i < alone[0].viewOf.size(); ++i) {
        bundle_.views[static_cast<std::size_t>(alone[0].viewOf[i])].dev0_from_target =
            alone[0].bundle.views[i].dev0_from_target;
      }
    }
    for (std::size_t i = 0; i < bundle_.views.size(); ++i) { // of which no device sees enough
      bool const isSeen = std::any_of(alone.begin(), alone.end(),
                                      [i](DeviceAlone const& device) { return device.indexOf[i] >= 0; });
      if (!isSeen) {
        throw error("View " + std::to_string(i) + " (" + views_[i].name +
                        ") shows too few dots, or dots on one line",
                    "adjust");
      }
    }
    return alone;
  }

  void fillCovariance(double flatS0) {
    Transfers const transfers = transfersOf(bundle_);
    NormalEquations const normal = normalEquationsOf(bundle_, transfers);
    Eigen::MatrixXd const independent = commonCovarianceOf(normal);
    Eigen::MatrixXd const covariance = correlatedCovarianceOf(bundle_, transfers, normal, independent);
    int const count = bundle_.deviceCount() + bundle_.transformCount();
    result_.covariance.create(count, count, CV_64F);
    for (int row = 0; row < count; ++row) {
      for (int col = 0; col < count; ++col) {
        result_.covariance.at<double>(row, col) = covariance(row, col);
      }
      result_.sigmas.push_back(std::sqrt(covariance(row, row)));
    }
    for (std::size_t device = 0; device < bundle_.devices.size(); ++device) {
      for (int parameter : bundle_.devices[device].freeParameters) {
        result_.parameters.push_back(lensNames[parameter] + std::to_string(device));
      }
    }
    if (bundle_.transformCount() > 0) {
      result_.parameters.insert(result_.parameters.end(), {"rx", "ry", "rz", "tx", "ty", "tz"});
    }
    double significance = 0;
    for (int i = 0; i < bundle_.shape.parameterCount(); ++i) {
      double const sigma = std::sqrt(independent(count + i, count + i));
      significance = std::max(significance, std::abs(bundle_.shapeParameters[i]) / sigma);
    }
    result_.shape = targetShapeOf(bundle_, significance, flatS0);
  }

  void fillModels() {
    auto const residuals = residualsOf(bundle_, transfersOf(bundle_));
    std::array<double, 2> sums{};
    std::array<int, 2> counts{};
    for (std::size_t i = 0; i < residuals.size(); ++i) {
      std::array<double, 2> own{};
      std::array<int, 2> ownCounts{};
      for (std::size_t j = 0; j < residuals[i].size(); ++j) {
        DotResidual const& residual = residuals[i][j];
        own[0] += residual.in0.dot(residual.in0);
        own[1] += residual.in1.dot(residual.in1);
        ownCounts[0] += bundle_.views[i].dots[j].has0 ? 1 : 0;
        ownCounts[1] += bundle_.views[i].dots[j].has1 ? 1 : 0;
      }
      ViewAdjustment& view = result_.views[i];
      view.dotCount = static_cast<int>(residuals[i].size());
      view.rms0 = std::sqrt(own[0] / std::max(1, ownCounts[0]));
      view.rms1 = std::sqrt(own[1] / std::max(1, ownCounts[1]));
      for (std::size_t device = 0; device < 2; ++device) {
        sums[device] += own[device];
        counts[device] += ownCounts[device];
      }
      result_.poses.push_back(bundle_.views[i].dev0_from_target.matrix());
    }
    for (std::size_t device = 0; device < bundle_.devices.size(); ++device) {
      CameraNumbers const& numbers = bundle_.devices[device].numbers;
      cv::Matx33d const K(numbers.fx, 0, numbers.cx, 0, numbers.fy, numbers.cy, 0, 0, 1);
      CameraModel const& given = starts_[device].model;
      double const rms = std::sqrt(sums[device] / std::max(1, counts[device]));
      result_.models.push_back(
          starts_[device].isHeld
              ? given
              : cameraModelOf(cv::Mat(K), distortionOf(numbers, given), given.getResolution(), rms));
    }
    result_.noise.camera0 = bundle_.sigma[0];
    result_.noise.camera1 = bundle_.devices.size() > 1 ? bundle_.sigma[1] : 0;
    result_.transform = bundle_.dev0_from_dev1.matrix();
  }

  std::vector<AdjustmentView> const& views_;
  std::vector<DeviceStart> starts_;
  AdjustmentSettings settings_;
  Progress progress_;
  Bundle bundle_;
  std::vector<std::vector<BundleDot>> allDots_; ///< of each view, with those that were left out
  Adjustment result_;
};

} // namespace

Adjustment adjustCamera(std::vector<AdjustmentView> const& views, CameraModel const& camera,
                        AdjustmentSettings const& settings, Observer* observer) {
  return Adjuster(views, {{camera, settings.holdCamera0}}, false, settings, observer).run();
}

Adjustment adjustStereo(std::vector<AdjustmentView> const& views, CameraModel const& camera0,
                        CameraModel const& camera1, AdjustmentSettings const& settings, Observer* observer) {
  return Adjuster(views, {{camera0, settings.holdCamera0}, {camera1, settings.holdCamera1}}, false, settings,
                  observer)
      .run();
}

Adjustment adjustScanner(std::vector<AdjustmentView> const& views, CameraModel const& camera,
                         CameraModel const& projector, AdjustmentSettings const& settings,
                         Observer* observer) {
  return Adjuster(views, {{camera, settings.holdCamera0}, {projector, settings.holdCamera1}}, true, settings,
                  observer)
      .run();
}

} // namespace vorn::mv
