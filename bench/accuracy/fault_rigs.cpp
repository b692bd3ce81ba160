// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "fault_rigs.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include <opencv2/core.hpp>

#include <sim/demo.hpp>
#include <vorn/mv/sl/patterns.hpp>

#include "calib/adjustment_runs.hpp"
#include "scanner/calibration/predicted_error.hpp"
#include "scanner/scan/sight_geometry.hpp"

namespace vorn::bench {

namespace {

sim::Device scaled(sim::Device const& device, int divisor) {
  auto const shrink = [divisor](double centre) { return (centre + 0.5) / divisor - 0.5; };
  return {device.focal() / divisor,
          {shrink(device.centre().x), shrink(device.centre().y)},
          device.distortion(),
          device.resolution() / divisor};
}

sim::Rig scaled(sim::Rig rig, int divisor) {
  rig.camera.device = scaled(rig.camera.device, divisor);
  rig.projector.device = scaled(rig.projector.device, divisor);
  return rig;
}

/// Numbers by chance.
class Chance {
public:
  explicit Chance(std::uint64_t seed) : rng_(seed * 7919 + 1) {}

  double within(double least, double most) { return rng_.uniform(least, most); }
  double about(double middle, double reach) { return within(middle - reach, middle + reach); }

private:
  cv::RNG rng_;
};

sim::Device randomDevice(Chance& chance, cv::Size const& size, double focal) {
  return {{focal, focal * chance.about(1, 0.003)},
          {0.5 * size.width * chance.about(1, 0.04), 0.5 * size.height * chance.about(1, 0.06)},
          {chance.within(-0.25, 0.05), chance.within(-0.05, 0.15), chance.about(0, 1e-3),
           chance.about(0, 1e-3), chance.about(0, 0.03)},
          size};
}

/// The pose of something at a place that looks at a point, turned about its axis.
sim::Pose lookingAt(cv::Vec3d const& place, cv::Vec3d const& point, double rollDegrees) {
  cv::Vec3d const d = cv::normalize(point - place);
  double const yaw = std::atan2(d[0], d[2]) * 180 / CV_PI;
  double const pitch = -std::asin(d[1]) * 180 / CV_PI;
  return sim::Pose::fromDegrees(place, {0, yaw, 0}) * sim::Pose::fromDegrees({0, 0, 0}, {pitch, 0, 0}) *
         sim::Pose::fromDegrees({0, 0, 0}, {0, 0, rollDegrees});
}

std::vector<sim::Pose> randomPoses(Chance& chance, int count, double distance, double width) {
  std::vector<sim::Pose> poses;
  double const first = chance.within(0, 2 * CV_PI);
  for (int i = 0; i < count; ++i) {
    constexpr double golden = 2.399963; // spreads the tilts over all sides
    double const side = first + golden * i;
    double const tilt = chance.within(18, 32);
    poses.push_back(sim::Pose::fromDegrees(
        {chance.about(0, 0.06 * width), chance.about(0, 0.05 * width), distance * chance.about(1, 0.08)},
        {tilt * std::sin(side), tilt * std::cos(side), chance.about(0, 15)}));
  }
  return poses;
}

cv::Point2d projectedFrom(sim::Rig const& rig, sim::Scene const& scene, cv::Point2d const& pixel) {
  constexpr double none = std::numeric_limits<double>::quiet_NaN();
  sim::SurfacePoint point;
  if (!scene.trace({{0, 0, 0}, rig.camera.device.ray(pixel)}, point)) {
    return {none, none};
  }
  auto const seen = rig.projector.device.project(rig.projector.world_from_proj.inverse() * point.x_in_world);
  return seen && rig.projector.device.contains(*seen) ? *seen : cv::Point2d(none, none);
}

/// Places that both devices see in a volume.
std::vector<cv::Vec3d> placesOf(CalibratedRig const& truth, mv::WorkingVolume const& volume,
                                std::size_t count) {
  cv::RNG rng(4711);
  cv::Size const size = truth.rig.camera.device.resolution();
  sim::Projector const& projector = truth.rig.projector;
  std::vector<cv::Vec3d> places;
  while (places.size() < count) {
    cv::Point2d const pixel(rng.uniform(0.0, size.width - 1.0), rng.uniform(0.0, size.height - 1.0));
    cv::Vec3d const place = truth.rig.camera.device.ray(pixel) * rng.uniform(volume.nearest, volume.farthest);
    auto const lit = projector.device.project(projector.world_from_proj.inverse() * place);
    if (lit && projector.device.contains(*lit)) {
      places.push_back(place);
    }
  }
  return places;
}

/// Between the depths of the nearest and the farthest dot that both devices see.
mv::WorkingVolume volumeOf(CalibratedRig const& truth) {
  std::vector<double> depths;
  for (sim::Pose const& pose : truth.poses) {
    for (sim::DotTruth const& dot : dotTruth(truth.target, pose, truth.rig.camera, &truth.rig.projector)) {
      if (dot.camera && dot.projector) {
        depths.push_back(dot.x_in_world[2]);
      }
    }
  }
  auto const [nearest, farthest] = std::minmax_element(depths.begin(), depths.end());
  return {*nearest, *farthest};
}

} // namespace

CalibratedRig plainRig(int divisor) {
  CalibratedRig plain;
  plain.name = "172 mm base";
  sim::Rig rig;
  rig.camera.device =
      sim::Device({1402.3, 1400.9}, {515.2, 380.7}, {-0.12, 0.09, 6e-4, -4e-4, -0.02}, {1024, 768});
  rig.camera.sensor.exposure = 0.54;
  rig.projector.device =
      sim::Device({806.4, 805.1}, {322.5, 207.8}, {-0.05, 0.03, 5e-4, 8e-4, 0}, {640, 400});
  rig.projector.world_from_proj = sim::Pose::fromDegrees({172, -8, 16}, {1.2, -18.4, 0.8});
  rig.projector.focus = rig.projector.referenceDistance = 530;
  plain.rig = scaled(rig, divisor);
  plain.target.grid.pitch = 14;
  auto const pose = sim::Pose::fromDegrees;
  plain.poses = {
      pose({11.3, -11.2, 553.5}, {28.7, 6.8, 2.6}),    pose({-44.4, -29.1, 532.0}, {6.2, 24.4, 2.3}),
      pose({-5.7, -37.5, 550.4}, {-13.8, -2.5, 12.0}), pose({-38.1, -4.4, 520.4}, {-5.0, -11.5, 11.6}),
      pose({15.7, -16.7, 529.5}, {13.7, -3.6, 1.4}),   pose({-62.1, 5.5, 514.8}, {3.0, 23.9, -6.8}),
      pose({-51.5, 2.4, 527.1}, {-25.2, 5.3, -3.3}),   pose({-6.3, -16.6, 526.5}, {7.6, -18.0, -10.4}),
  };
  return plain;
}

CalibratedRig demonstrationRig(int divisor) {
  return {"demonstration rig", sim::demoRig(divisor), sim::demoTarget(), sim::demoTargetPoses()};
}

CalibratedRig randomRig(std::uint64_t seed, int views, int divisor) {
  Chance chance(seed);
  CalibratedRig random;
  random.name = "rig " + std::to_string(seed);
  cv::Size const cameraSize(1280, 960);
  cv::Size const projectorSize(912, 570);
  double const distance = chance.within(400, 700);
  double const focal = cameraSize.width * chance.within(1.05, 1.6);
  double const width = distance * cameraSize.width / focal;
  sim::Rig rig;
  rig.camera.device = randomDevice(chance, cameraSize, focal);
  rig.camera.sensor.exposure = 0.75;
  rig.camera.sensor.fullWell = chance.within(15000, 40000);
  rig.camera.sensor.seed = seed + 1;
  double const wider = chance.within(1.1, 1.2);
  rig.projector.device =
      randomDevice(chance, projectorSize, distance * projectorSize.width / (wider * width));
  double const base = distance * chance.within(0.25, 0.45) * (seed % 2 == 0 ? 1 : -1);
  rig.projector.world_from_proj =
      lookingAt({base, chance.about(0, 15), chance.about(0, 25)}, {0, 0, distance}, chance.about(0, 1.5));
  rig.projector.focus = rig.projector.referenceDistance = distance;
  random.rig = scaled(rig, divisor);
  random.target.grid.pitch = chance.within(0.82, 0.9) * width / (random.target.grid.columns.size() - 1);
  random.poses = randomPoses(chance, views, distance, width);
  return random;
}

mv::ScannerView rendered(sim::Campaign const& campaign, std::size_t view) {
  std::vector<cv::Mat> columns;
  std::vector<cv::Mat> rows;
  cv::Size size = campaign.scanRig.projector.device.resolution();
  mv::generate_ps4_patterns(columns, rows, size);
  // One ray a pixel would do for the dots' edges, but not for the light on them.
  sim::RenderOptions const options;
  constexpr int imagesPerView = 100;
  sim::ViewImages const images =
      taken(campaign.views[view], columns, rows, imagesPerView * static_cast<int>(view), options);
  std::string const number = std::to_string(view);
  return {"pose_" + std::string(number.size() < 2 ? 1 : 0, '0') + number, images.target, images.columns,
          images.rows};
}

std::vector<mv::AdjustmentView> drawnViews(sim::Campaign const& campaign, PointNoise const& noise,
                                           std::uint64_t seed) {
  cv::RNG rng(seed * 104729 + 3);
  std::vector<mv::AdjustmentView> views;
  for (sim::PlannedView const& planned : campaign.views) {
    mv::AdjustmentView view;
    view.name = "pose_" + std::to_string(views.size());
    sim::Scene const atColumns({targetObject(planned.target, planned.atColumns)});
    sim::Scene const atRows({targetObject(planned.target, planned.atRows)});
    for (sim::DotTruth const& dot :
         dotTruth(planned.target, planned.atTarget, planned.rig.camera, &planned.rig.projector)) {
      if (!dot.camera) {
        continue;
      }
      cv::Point2d const pixel =
          *dot.camera + cv::Point2d(rng.gaussian(noise.camera), rng.gaussian(noise.camera));
      cv::Point2d projected(projectedFrom(planned.rig, atColumns, pixel).x + rng.gaussian(noise.projector),
                            projectedFrom(planned.rig, atRows, pixel).y + rng.gaussian(noise.projector));
      if (!dot.projector || !std::isfinite(projected.x) || !std::isfinite(projected.y)) {
        projected.x = projected.y = std::numeric_limits<double>::quiet_NaN();
      }
      if (planned.isProjectorMirrored) {
        projected.x = planned.rig.projector.device.resolution().width - 1 - projected.x;
      }
      constexpr double dirtPixels = 0.5;
      bool const isDirty = rng.uniform(0.0, 1.0) < planned.dirtyShare;
      view.objPnts.emplace_back(dot.pattern);
      view.points0.emplace_back(pixel + cv::Point2d(isDirty ? dirtPixels : 0, 0));
      view.points1.emplace_back(projected);
    }
    views.push_back(std::move(view));
  }
  return views;
}

VolumeErrors errorsOf(mv::Sl3dScanner const& scanner, CalibratedRig const& truth) {
  constexpr std::size_t count = 600;
  mv::WorkingVolume const volume = volumeOf(truth);
  std::vector<cv::Vec3d> const places = placesOf(truth, volume, count);
  mv::Sl3dScanner own = scanner;
  mv::SightGeometry const geometry(own.getCameraModel(), own.getProjectorModel(), own.getTransform(),
                                   mv::MapCoordinate::Column);
  sim::Projector const& projector = truth.rig.projector;
  auto const foundAt = [&](cv::Vec3d const& place) {
    return geometry.pointOf(*truth.rig.camera.device.project(place),
                            projector.device.project(projector.world_from_proj.inverse() * place)->x);
  };
  std::vector<cv::Vec3d> found;
  for (cv::Vec3d const& place : places) {
    found.push_back(foundAt(place));
  }
  test::PlaceErrors const errors = test::errorsOf(found, places);
  double squares = 0;
  int bars = 0;
  cv::RNG rng(17);
  constexpr double length = 100;
  for (cv::Vec3d const& place : places) {
    cv::Vec3d const direction(rng.gaussian(1), rng.gaussian(1), rng.gaussian(0.3));
    cv::Vec3d const end = place + cv::normalize(direction) * length;
    auto const seen = truth.rig.camera.device.project(end);
    auto const lit = projector.device.project(projector.world_from_proj.inverse() * end);
    if (seen && lit && truth.rig.camera.device.contains(*seen) && projector.device.contains(*lit)) {
      squares += std::pow(cv::norm(foundAt(end) - foundAt(place)) - length, 2);
      ++bars;
    }
  }
  constexpr double micrometres = 1000;
  mv::CalibrationCovariance const& covariance = scanner.getCovariance();
  double const foretold =
      covariance.isEmpty() ? 0
                           : predictedError(geometry, mv::wholeMatrix(covariance), volume, places, 0).rigid;
  return {micrometres * std::sqrt(errors.raw2), micrometres * std::sqrt(errors.rigid2),
          bars == 0 ? 0 : micrometres * std::sqrt(squares / bars), micrometres * foretold};
}

} // namespace vorn::bench
