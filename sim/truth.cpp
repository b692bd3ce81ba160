// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sim/truth.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/imgproc.hpp>

#include "core/parallel.hpp"
#include "sim/light.hpp"

namespace vorn::sim {
namespace {

constexpr float nan = std::numeric_limits<float>::quiet_NaN();

/// Edges between neighbouring pixels, before they are widened.
class EdgeFinder {
public:
  EdgeFinder(Truth const& truth, cv::Mat_<cv::Vec3f> const& seen, cv::Mat_<float> const& albedo,
             cv::Mat_<std::uint8_t> const& lit, double pixelAngle, double albedoStep)
      : truth_(truth), seen_(seen), albedo_(albedo), lit_(lit), pixelAngle_(pixelAngle),
        albedoStep_(albedoStep) {}

  bool operator()(cv::Point const& a, cv::Point const& b) const {
    if (truth_.label(a) != truth_.label(b) || lit_(a) != lit_(b)) {
      return true;
    }
    if (truth_.label(a) == 0) {
      return false;
    }
    // A surface steeper than this is an edge for every purpose: 83 degrees from the line of sight's normal.
    constexpr double steep = 8.0;
    cv::Vec3f const gap = seen_(a) - seen_(b);
    double const pixelWidth = pixelAngle_ * static_cast<double>(seen_(a)[2]);
    if (std::sqrt(static_cast<double>(gap.dot(gap))) > steep * pixelWidth) {
      return true;
    }
    double const step = std::abs(static_cast<double>(albedo_(a)) - static_cast<double>(albedo_(b)));
    return step > albedoStep_ * static_cast<double>(std::max(albedo_(a), albedo_(b)));
  }

private:
  Truth const& truth_;
  cv::Mat_<cv::Vec3f> const& seen_;
  cv::Mat_<float> const& albedo_;
  cv::Mat_<std::uint8_t> const& lit_;
  double pixelAngle_;
  double albedoStep_;
};

} // namespace

Truth truth(Camera const& camera, Projector const& projector, Scene const& scene,
            TruthOptions const& options) {
  cv::Size const size = camera.device.resolution();
  Truth result;
  result.x_in_cam = cv::Mat_<cv::Vec3f>(size, cv::Vec3f(nan, nan, nan));
  result.projector = cv::Mat_<cv::Vec2f>(size, cv::Vec2f(nan, nan));
  result.label = cv::Mat_<std::uint8_t>(size, std::uint8_t{0});
  result.edge = cv::Mat_<std::uint8_t>(size, std::uint8_t{0});
  cv::Mat_<cv::Vec3f> seen(size, cv::Vec3f());
  cv::Mat_<float> albedos(size, 0.0F);
  cv::Mat_<std::uint8_t> lit(size, std::uint8_t{0});

  Pose const world_from_cam = camera.cam_from_world.inverse();
  Pose const proj_from_world = projector.world_from_proj.inverse();
  parallelRows(size.height, [&](int firstRow, int endRow) {
    CameraSample sample;
    for (int y = firstRow; y < endRow; ++y) {
      for (int x = 0; x < size.width; ++x) {
        if (!look(camera, world_from_cam, scene, cv::Point2d(x, y), 1.0, sample)) {
          continue;
        }
        result.label(y, x) = static_cast<std::uint8_t>(sample.point.object->label);
        albedos(y, x) = static_cast<float>(sample.albedo);
        seen(y, x) = cv::Vec3f(camera.cam_from_world * sample.point.x_in_world);
        ProjectorLight const light =
            lightFrom(projector, proj_from_world, scene, sample, world_from_cam.translation, 0.5);
        if (light.gain > 0.0) {
          lit(y, x) = 255;
          result.x_in_cam(y, x) = seen(y, x);
          result.projector(y, x) = {static_cast<float>(light.pixel.x), static_cast<float>(light.pixel.y)};
        }
      }
    }
  });

  EdgeFinder const isEdge(result, seen, albedos, lit, 1.0 / camera.device.focal().x, options.albedoStep);
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) {
      for (cv::Point const& next : {cv::Point(x + 1, y), cv::Point(x, y + 1)}) {
        if (next.x < size.width && next.y < size.height && isEdge(cv::Point(x, y), next)) {
          result.edge(y, x) = 255;
          result.edge(next) = 255;
        }
      }
    }
  }
  if (options.edgeRadius > 0) {
    int const side = 2 * options.edgeRadius + 1;
    cv::dilate(result.edge, result.edge, cv::getStructuringElement(cv::MORPH_RECT, {side, side}));
  }
  return result;
}

Signal signal(Sensor const& sensor, std::vector<cv::Mat> const& fourSteps) {
  CV_Assert(fourSteps.size() >= 4);
  cv::Size const size = fourSteps[0].size();
  Signal result = {cv::Mat_<float>(size), cv::Mat_<float>(size), cv::Mat_<std::uint8_t>(size)};
  // Rounding adds the variance of an even spread over one grey level.
  constexpr double rounding = 1.0 / 12.0;
  parallelRows(size.height, [&](int firstRow, int endRow) {
    for (int y = firstRow; y < endRow; ++y) {
      for (int x = 0; x < size.width; ++x) {
        double level[4];
        for (int k = 0; k < 4; ++k) {
          level[k] = static_cast<double>(fourSteps[static_cast<std::size_t>(k)].at<float>(y, x));
        }
        double const mean = (level[0] + level[1] + level[2] + level[3]) / 4.0;
        double const brightest = std::max({level[0], level[1], level[2], level[3]});
        result.amplitude(y, x) =
            static_cast<float>(0.5 * std::hypot(level[0] - level[2], level[1] - level[3]));
        result.noise(y, x) = static_cast<float>(std::hypot(noiseSigma(sensor, mean), std::sqrt(rounding)));
        result.clipped(y, x) = brightest > 255.0 ? 255 : 0;
      }
    }
  });
  return result;
}

cv::Mat_<std::uint8_t> truthMask(Truth const& truth, Signal const& signal, double minAmplitude) {
  cv::Mat_<std::uint8_t> mask(truth.label.size());
  for (int y = 0; y < mask.rows; ++y) {
    for (int x = 0; x < mask.cols; ++x) {
      TruthMask code = TruthMask::Clean;
      if (std::isnan(truth.projector(y, x)[0])) {
        code = TruthMask::None;
      } else if (signal.clipped(y, x) != 0 || static_cast<double>(signal.amplitude(y, x)) < minAmplitude) {
        code = TruthMask::Unusable;
      } else if (truth.edge(y, x) != 0) {
        code = TruthMask::Edge;
      }
      mask(y, x) = static_cast<std::uint8_t>(code);
    }
  }
  return mask;
}

} // namespace vorn::sim
