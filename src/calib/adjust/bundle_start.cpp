// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/adjust/bundle_start.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <string>
#include <utility>

#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>

#include <vorn/mv/geometry/transform.hpp>

#include "calib/adjust/bundle_solver.hpp"
#include "calib/target/point_spread.hpp"
#include "core/error.hpp"
#include "core/median.hpp"
#include "geometry/rotation_vector.hpp"

namespace vorn::mv {

namespace {

/// A pose takes four points; two more show that they fit.
constexpr std::size_t fewestDots = 6;
constexpr std::size_t fewestViews = 3;

bool isPoint(cv::Point2f const& p) {
  return std::isfinite(p.x) && std::isfinite(p.y);
}

/// Whether the dots' standard deviations in a device are given.
bool hasSigmas(AdjustmentView const& view, int device) {
  return !view.sigmas.empty() || (device == 1 && !view.sigmas1.empty());
}

/// One dot's, along x and along y.
cv::Vec2d sigmasOf(AdjustmentView const& view, int device, int source) {
  auto const i = static_cast<std::size_t>(source);
  bool const isOwn = device == 1 && !view.sigmas1.empty();
  return isOwn ? cv::Vec2d(view.sigmas1[i].x, view.sigmas1[i].y) : cv::Vec2d(view.sigmas[i], view.sigmas[i]);
}

/// The middle one of those of the dots that a device sees in some views.
double usualSigma(std::vector<BundleView const*> const& bundled,
                  std::vector<AdjustmentView const*> const& views, int device) {
  std::vector<double> sigmas;
  for (std::size_t i = 0; i < views.size(); ++i) {
    for (BundleDot const& dot : bundled[i]->dots) {
      if (device == 0 ? dot.has0 : dot.has1) {
        cv::Vec2d const both = sigmasOf(*views[i], device, dot.source);
        sigmas.insert(sigmas.end(), {both[0], both[1]});
      }
    }
  }
  return medianOf(std::move(sigmas));
}

/// Sets the weights of a device's dots from their standard deviations. Those of views compare where all views
/// have them.
void weigh(Bundle& bundle, std::vector<AdjustmentView> const& views, int device) {
  bool const areAll = std::all_of(views.begin(), views.end(),
                                  [device](AdjustmentView const& view) { return hasSigmas(view, device); });
  std::vector<BundleView const*> bundled;
  std::vector<AdjustmentView const*> given;
  for (std::size_t i = 0; i < views.size() && areAll; ++i) {
    bundled.push_back(&bundle.views[i]);
    given.push_back(&views[i]);
  }
  double const ofAll = usualSigma(bundled, given, device);
  for (std::size_t i = 0; i < views.size(); ++i) {
    if (!hasSigmas(views[i], device)) {
      continue;
    }
    double const usual = areAll ? ofAll : usualSigma({&bundle.views[i]}, {&views[i]}, device);
    for (BundleDot& dot : bundle.views[i].dots) {
      if (device == 0 ? dot.has0 : dot.has1) {
        cv::Vec2d const sigmas = sigmasOf(views[i], device, dot.source);
        dot.weights[device] = {std::pow(usual / sigmas[0], 2), std::pow(usual / sigmas[1], 2)};
      }
    }
  }
}

std::vector<int> freeParametersOf(DeviceStart const& start, AdjustmentSettings const& settings) {
  if (start.isHeld) {
    return {};
  }
  std::vector<int> free{0, 1, 2, 3, 4, 5, 6, 7, 8};
  if (settings.lens == AdjustmentSettings::Lens::ThinPrism) {
    free.insert(free.end(), {12, 13, 14, 15});
  }
  return free;
}

/// One device of a view.
struct SeenDots {
  std::vector<cv::Point3f> onTarget;
  std::vector<cv::Point2f> pixels;
};

SeenDots seenDots(Bundle const& bundle, BundleView const& view) {
  SeenDots seen;
  for (BundleDot const& dot : view.dots) {
    cv::Point2f const& place = bundle.target[static_cast<std::size_t>(dot.target)];
    seen.onTarget.emplace_back(place.x, place.y, 0.0F);
    seen.pixels.emplace_back(cv::Point2d(dot.point0));
  }
  return seen;
}

/// The dots that one device sees, as those of a device 0.
DeviceAlone dotsOfDevice(Bundle const& whole, int device) {
  DeviceAlone alone;
  alone.bundle.target = whole.target;
  alone.indexOf.assign(whole.views.size(), -1);
  for (std::size_t i = 0; i < whole.views.size(); ++i) {
    BundleView view;
    for (BundleDot dot : whole.views[i].dots) {
      if (device == 0 ? dot.has0 : dot.has1) {
        // What a projector's point is off by is mostly the camera's error.
        dot.weights[0] = dot.weights[device == 0 || whole.isRead ? 0 : 1];
        dot.point0 = device == 0 ? dot.point0 : dot.point1;
        dot.has0 = true;
        dot.has1 = false;
        view.dots.push_back(dot);
      }
    }
    if (view.dots.size() >= fewestDots &&
        relativeSpread(seenDots(alone.bundle, view).onTarget) >= thinnestSpread) {
      alone.indexOf[i] = static_cast<int>(alone.viewOf.size());
      alone.viewOf.push_back(static_cast<int>(i));
      alone.bundle.views.push_back(std::move(view));
    }
  }
  return alone;
}

/// How far one transform is from another at some distance from the origin.
double differenceOf(Placement const& a, Placement const& b, double distance) {
  return distance * cv::norm(rotationVector(a.R * b.R.t())) + cv::norm(a.t - b.t);
}

} // namespace

Bundle bundleOf(std::vector<AdjustmentView> const& views, int deviceCount, bool isRead) {
  Bundle bundle;
  bundle.isRead = isRead;
  std::map<std::pair<float, float>, int> numbers;
  for (AdjustmentView const& view : views) {
    bundle.views.emplace_back();
    for (std::size_t i = 0; i < view.objPnts.size(); ++i) {
      BundleDot dot;
      dot.source = static_cast<int>(i);
      dot.has0 = isPoint(view.points0[i]);
      dot.has1 = deviceCount > 1 && isPoint(view.points1[i]) && (dot.has0 || !isRead);
      if (!dot.has0 && !dot.has1) {
        continue;
      }
      dot.point0 = dot.has0 ? cv::Vec2d(view.points0[i].x, view.points0[i].y) : cv::Vec2d();
      dot.point1 = dot.has1 ? cv::Vec2d(view.points1[i].x, view.points1[i].y) : cv::Vec2d();
      cv::Point2f const& place = view.objPnts[i];
      auto const [number, isNew] =
          numbers.try_emplace({place.x, place.y}, static_cast<int>(bundle.target.size()));
      if (isNew) {
        bundle.target.push_back(place);
      }
      dot.target = number->second;
      bundle.views.back().dots.push_back(dot);
    }
  }
  for (int device = 0; device < deviceCount; ++device) {
    weigh(bundle, views, device);
  }
  return bundle;
}

DeviceAlone solveAlone(Bundle const& whole, int device, DeviceStart const& start,
                       AdjustmentSettings const& settings, Progress const& progress) {
  DeviceAlone alone = dotsOfDevice(whole, device);
  std::size_t const fewest = start.isHeld ? 1 : fewestViews;
  if (alone.viewOf.size() < fewest) {
    throw error("Of " + std::to_string(whole.views.size()) + " views, " +
                    std::to_string(alone.viewOf.size()) + " show device " + std::to_string(device) +
                    " at least " + std::to_string(fewestDots) +
                    " dots that do not lie on one line; it takes " + std::to_string(fewest),
                "adjust");
  }
  cv::Mat K = start.model.getK().clone();
  cv::Mat const D = start.model.getD().clone();
  if (K.empty()) {
    std::vector<std::vector<cv::Point3f>> onTarget;
    std::vector<std::vector<cv::Point2f>> pixels;
    for (BundleView const& view : alone.bundle.views) {
      SeenDots seen = seenDots(alone.bundle, view);
      onTarget.push_back(std::move(seen.onTarget));
      pixels.push_back(std::move(seen.pixels));
    }
    K = cv::initCameraMatrix2D(onTarget, pixels, start.model.getResolution());
  }
  for (BundleView& view : alone.bundle.views) {
    SeenDots const seen = seenDots(alone.bundle, view);
    cv::Mat turn;
    cv::Mat shift;
    cv::solvePnP(seen.onTarget, seen.pixels, K, D, turn, shift);
    cv::Mat R;
    cv::Rodrigues(turn, R);
    view.dev0_from_target = {R, shift};
  }
  alone.bundle.devices.push_back({cameraNumbers(K, D), freeParametersOf(start, settings)});
  solveBundle(alone.bundle, settings.maxIterations, progress);
  return alone;
}

void joinSolutions(DeviceAlone const& alone0, DeviceAlone const& alone1, Bundle& whole) {
  whole.devices = {alone0.bundle.devices[0], alone1.bundle.devices[0]};
  std::vector<Placement> transforms;
  double distance = 0;
  for (std::size_t i = 0; i < whole.views.size(); ++i) {
    if (alone0.indexOf[i] >= 0 && alone1.indexOf[i] >= 0) {
      Placement const& pose0 =
          alone0.bundle.views[static_cast<std::size_t>(alone0.indexOf[i])].dev0_from_target;
      Placement const& pose1 =
          alone1.bundle.views[static_cast<std::size_t>(alone1.indexOf[i])].dev0_from_target;
      cv::Matx33d const R = pose0.R * pose1.R.t();
      transforms.push_back({R, pose0.t - R * pose1.t});
      distance = std::max(distance, cv::norm(pose0.t));
    }
  }
  if (transforms.empty()) {
    throw error("No view shows both devices enough dots", "adjust");
  }
  double least = std::numeric_limits<double>::infinity();
  for (Placement const& transform : transforms) {
    double sum = 0;
    for (Placement const& other : transforms) {
      sum += differenceOf(transform, other, distance);
    }
    if (sum < least) {
      least = sum;
      whole.dev0_from_dev1 = transform;
    }
  }
  for (std::size_t i = 0; i < whole.views.size(); ++i) {
    if (alone0.indexOf[i] >= 0) {
      whole.views[i].dev0_from_target =
          alone0.bundle.views[static_cast<std::size_t>(alone0.indexOf[i])].dev0_from_target;
    } else if (alone1.indexOf[i] >= 0) {
      Placement const& pose1 =
          alone1.bundle.views[static_cast<std::size_t>(alone1.indexOf[i])].dev0_from_target;
      Placement const& join = whole.dev0_from_dev1;
      whole.views[i].dev0_from_target = {join.R * pose1.R, join.R * pose1.t + join.t};
    }
  }
}

} // namespace vorn::mv
