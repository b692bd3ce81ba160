// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>
#include <vector>

#include <opencv2/core.hpp>

#include <vorn/mv/calib/calibration_covariance.hpp>
#include <vorn/mv/core/library.hpp>
#include <vorn/mv/scanner/point_uncertainty.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

#include "calib/adjustment_rig.hpp"
#include "scanner/calibration/predicted_error.hpp"

namespace vorn::test {

/// What many adjustments of one rig scatter by, over what they predict.
struct RunSummary {
  std::vector<double> parameters; ///< ordered
  double raw = 0;                 ///< points over the working volume
  double rigid = 0;               ///< after the rigid motion that fits best
  double scale = 0;
  double bars = 0;   ///< lengths between random places
  double zScore = 0; ///< single lengths over their own sigma
  double pointZ = 0; ///< points with noise of their own, along and across, over their own sigma

  double parameterRatio(double share) const {
    return parameters[static_cast<std::size_t>(share * static_cast<double>(parameters.size() - 1))];
  }
};

/// Places over what camera and projector see, between two depths.
inline std::vector<cv::Vec3d> placesIn(AdjustmentRig const& rig, mv::WorkingVolume const& volume, int count) {
  cv::RNG rng(99);
  std::vector<cv::Vec3d> places;
  while (static_cast<int>(places.size()) < count) {
    double const depth = rng.uniform(volume.nearest, volume.farthest);
    cv::Size const size = rig.camera.resolution;
    cv::Vec3d const place(
        (rng.uniform(0.0, 1.0 * size.width) - rig.camera.K(0, 2)) / rig.camera.K(0, 0) * depth,
        (rng.uniform(0.0, 1.0 * size.height) - rig.camera.K(1, 2)) / rig.camera.K(1, 1) * depth, depth);
    if (AdjustmentRig::isInside(rig.camera, AdjustmentRig::imageOf(rig.camera, place)) &&
        AdjustmentRig::isInside(rig.projector,
                                AdjustmentRig::imageOf(rig.projector, rig.inProjector(place)))) {
      places.push_back(place);
    }
  }
  return places;
}

/// Squares of the errors of found places: as they are, after the best rigid motion (by singular values), and
/// the relative error of their size.
struct PlaceErrors {
  double raw2 = 0;
  double rigid2 = 0;
  double scale = 0;
};

inline PlaceErrors errorsOf(std::vector<cv::Vec3d> const& found, std::vector<cv::Vec3d> const& truth) {
  cv::Vec3d foundMiddle;
  cv::Vec3d middle;
  auto const count = static_cast<double>(truth.size());
  for (std::size_t i = 0; i < truth.size(); ++i) {
    foundMiddle += found[i] / count;
    middle += truth[i] / count;
  }
  cv::Matx33d cross = cv::Matx33d::zeros();
  double size2 = 0;
  for (std::size_t i = 0; i < truth.size(); ++i) {
    cross += (truth[i] - middle) * (found[i] - foundMiddle).t();
    size2 += (truth[i] - middle).dot(truth[i] - middle);
  }
  cv::Matx33d u;
  cv::Matx33d vt;
  cv::Vec3d w;
  cv::SVD::compute(cross, w, u, vt);
  cv::Matx33d const R = u * vt; // truth from found
  PlaceErrors errors;
  double along = 0;
  for (std::size_t i = 0; i < truth.size(); ++i) {
    cv::Vec3d const raw = found[i] - truth[i];
    cv::Vec3d const fitted = R * (found[i] - foundMiddle);
    cv::Vec3d const left = fitted - (truth[i] - middle);
    errors.raw2 += raw.dot(raw) / count;
    errors.rigid2 += left.dot(left) / count;
    along += fitted.dot(truth[i] - middle);
  }
  errors.scale = along / size2 - 1;
  return errors;
}

/// The numbers of an adjustment in the order of its parameters, the transform's as steps from the truth.
inline std::vector<double> numbersOf(mv::Adjustment const& adjustment, AdjustmentRig const& rig) {
  std::vector<double> numbers;
  for (mv::CameraModel const& model : adjustment.models) {
    cv::Mat_<double> const K = model.getK();
    cv::Mat_<double> const D = model.getD().reshape(1, 1);
    numbers.insert(numbers.end(), {K(0, 0), K(1, 1), K(0, 2), K(1, 2)});
    numbers.insert(numbers.end(), D.begin(), D.end());
  }
  // cv::Rodrigues calls a turn of less than 1e-5 none, which is what many of these are.
  cv::Matx33d const turned = mv::math::getR3(adjustment.transform) * mv::math::getR3(rig.cam_from_proj).t();
  cv::Vec3d const turn =
      0.5 * cv::Vec3d(turned(2, 1) - turned(1, 2), turned(0, 2) - turned(2, 0), turned(1, 0) - turned(0, 1));
  cv::Vec3d const shift = mv::math::getT3(adjustment.transform) - mv::math::getT3(rig.cam_from_proj);
  numbers.insert(numbers.end(), {turn[0], turn[1], turn[2], shift[0], shift[1], shift[2]});
  return numbers;
}

/// Calibrates the rig from views with fresh noise, many times, and compares the scatter with the predictions,
/// as means of squares over the runs.
inline RunSummary repeatAdjustments(AdjustmentRig const& rig, int viewCount, int runs) {
  mv::Library::init();
  mv::AdjustmentSettings settings;
  settings.shape = mv::AdjustmentSettings::Shape::Flat;
  auto const truthNumbers = [&] {
    std::vector<double> numbers{rig.camera.K(0, 0), rig.camera.K(1, 1), rig.camera.K(0, 2),
                                rig.camera.K(1, 2)};
    numbers.insert(numbers.end(), rig.camera.D.begin(), rig.camera.D.end());
    numbers.insert(numbers.end(), {rig.projector.K(0, 0), rig.projector.K(1, 1), rig.projector.K(0, 2),
                                   rig.projector.K(1, 2)});
    numbers.insert(numbers.end(), rig.projector.D.begin(), rig.projector.D.end());
    numbers.insert(numbers.end(), 6, 0.0);
    return numbers;
  }();
  std::vector<cv::Vec3d> places;
  mv::WorkingVolume volume;
  std::vector<double> errors2(truthNumbers.size());
  std::vector<double> predicted2(truthNumbers.size());
  PlaceErrors sum;
  double scale2 = 0;
  PlaceErrors predicted;
  double predictedScale2 = 0;
  double bars2 = 0;
  double predictedBars2 = 0;
  double z2 = 0;
  double pointZ2 = 0;
  cv::RNG scanNoise(7);
  int barCount = 0;
  for (int run = 0; run < runs; ++run) {
    auto const views = rig.views(viewCount, 1000 + static_cast<std::uint64_t>(run));
    mv::Adjustment const adjustment =
        adjustScanner(views, rig.sizeOf(rig.camera), rig.sizeOf(rig.projector), settings);
    mv::Sl3dScanner scanner;
    scanner.getCameraModel() = adjustment.models[0];
    scanner.getProjectorModel() = adjustment.models[1];
    scanner.setTransform(adjustment.transform);
    scanner.setCovariance(covarianceOf(adjustment));
    mv::PointUncertainty const uncertainty(scanner);
    if (places.empty()) {
      volume = workingVolume(adjustment, views);
      places = placesIn(rig, volume, 200);
    }
    std::vector<double> const numbers = numbersOf(adjustment, rig);
    for (std::size_t i = 0; i < numbers.size(); ++i) {
      errors2[i] += std::pow(numbers[i] - truthNumbers[i], 2);
      predicted2[i] += std::pow(adjustment.sigmas[i], 2);
    }
    std::vector<mv::ScannerSighting> sightings;
    std::vector<cv::Vec3d> found;
    for (cv::Vec3d const& place : places) {
      cv::Vec2d const pixel = AdjustmentRig::imageOf(rig.camera, place);
      double const column = AdjustmentRig::imageOf(rig.projector, rig.inProjector(place))[0];
      sightings.push_back({{pixel[0], pixel[1]}, column, 0});
      found.emplace_back(uncertainty.at(sightings.back()).point);
    }
    for (std::size_t i = 0; i < places.size(); ++i) {
      constexpr double sigma = 0.01;
      mv::ScannerSighting noisy = sightings[i];
      noisy.coordinate += scanNoise.gaussian(sigma);
      noisy.sigma = sigma;
      mv::UncertainPoint const point = uncertainty.at(noisy);
      cv::Vec3d const error = cv::Vec3d(point.point) - places[i];
      pointZ2 += error.dot(point.covariance().inv() * error) / 3;
    }
    PlaceErrors const own = errorsOf(found, places);
    sum.raw2 += own.raw2;
    sum.rigid2 += own.rigid2;
    scale2 += own.scale * own.scale;
    // At the very places: another spread of them over the volume has another mean.
    mv::SightGeometry const geometry(adjustment.models[0], adjustment.models[1], adjustment.transform,
                                     mv::MapCoordinate::Column);
    mv::PredictedError const expected =
        predictedError(geometry, mv::wholeMatrix(covarianceOf(adjustment)), volume, places, 0);
    predicted.raw2 += expected.raw * expected.raw;
    predicted.rigid2 += expected.rigid * expected.rigid;
    predictedScale2 += expected.scale * expected.scale;
    for (std::size_t i = 0; i + 1 < places.size(); i += 2) {
      double const truth = cv::norm(places[i + 1] - places[i]);
      mv::UncertainLength const length = uncertainty.between(sightings[i], sightings[i + 1]);
      double const error = length.length - truth;
      bars2 += error * error;
      predictedBars2 += length.sigma() * length.sigma();
      z2 += std::pow(error / length.sigma(), 2);
      ++barCount;
    }
  }
  RunSummary summary;
  for (std::size_t i = 0; i < errors2.size(); ++i) {
    summary.parameters.push_back(std::sqrt(errors2[i] / predicted2[i]));
  }
  std::sort(summary.parameters.begin(), summary.parameters.end());
  summary.raw = std::sqrt(sum.raw2 / predicted.raw2);
  summary.rigid = std::sqrt(sum.rigid2 / predicted.rigid2);
  summary.scale = std::sqrt(scale2 / predictedScale2);
  summary.bars = std::sqrt(bars2 / predictedBars2);
  summary.zScore = std::sqrt(z2 / barCount);
  summary.pointZ = std::sqrt(pointZ2 / (static_cast<double>(runs) * static_cast<double>(places.size())));
  return summary;
}

} // namespace vorn::test
