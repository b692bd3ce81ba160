// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "scanner/calibration/taken_adjustment.hpp"

#include <algorithm>
#include <map>
#include <utility>

#include "calib/camera_model_of.hpp"
#include "scanner/calibration/adjustment_views.hpp"
#include "scanner/calibration/target_views.hpp"

namespace vorn::mv {

namespace {

std::vector<CalibratedView*> usedViews(std::vector<CalibratedView>& views) {
  std::vector<CalibratedView*> used;
  for (CalibratedView& view : views) {
    if (view.isUsed()) {
      used.push_back(&view);
    }
  }
  return used;
}

/// The target's dots as they truly lie.
std::vector<cv::Point3f> trueDots(std::vector<cv::Point2f> const& objPnts, TargetShape const& shape) {
  std::map<DotPlace, cv::Point3d> deviationOf;
  for (std::size_t i = 0; i < shape.objPnts.size(); ++i) {
    deviationOf.emplace(placeOf(shape.objPnts[i]), shape.deviations[i]);
  }
  std::vector<cv::Point3f> dots;
  for (cv::Point2f const& dot : objPnts) {
    auto const known = deviationOf.find(placeOf(dot));
    cv::Point3d const deviation = known == deviationOf.end() ? cv::Point3d() : known->second;
    dots.emplace_back(cv::Point3d(dot.x, dot.y, 0) + deviation);
  }
  return dots;
}

/// Takes the dots out of a device's points whose places are among those left out.
void dropStrays(ViewPoints& points, std::vector<cv::Point2f> const& leftOut) {
  ViewPoints kept;
  for (std::size_t i = 0; i < points.imgPnts.size(); ++i) {
    bool const isStray = std::find(leftOut.begin(), leftOut.end(), points.objPnts[i]) != leftOut.end();
    if (isStray) {
      kept.strayPnts.push_back(points.imgPnts[i]);
    } else {
      kept.imgPnts.push_back(points.imgPnts[i]);
      kept.objPnts.push_back(points.objPnts[i]);
      if (!points.sigmas.empty()) {
        kept.sigmas.push_back(points.sigmas[i]);
      }
    }
  }
  points = std::move(kept);
}

/// Model minus measurement where the target truly lies.
std::vector<cv::Point2f> residualsOf(ViewPoints const& points, std::size_t device, cv::Matx44d const& pose,
                                     Adjustment const& adjustment) {
  std::vector<cv::Point2f> residuals =
      adjustment.models[device].calcImagePoints(trueDots(points.objPnts, adjustment.shape), pose);
  for (std::size_t i = 0; i < residuals.size(); ++i) {
    residuals[i] -= points.imgPnts[i];
  }
  return residuals;
}

/// The residuals of both cameras, with the pose that the other one alone sees.
void fillJoint(std::vector<CalibratedView*> const& used, Adjustment const& adjustment) {
  cv::Matx44d const from_1_to_0 = adjustment.transform;
  cv::Matx44d const from_0_to_1 = adjustment.transform.inv();
  for (CalibratedView* view : used) {
    ViewPoints& first = view->devices[0];
    ViewPoints& second = view->devices[1];
    cv::Matx44d const pose0 = adjustment.models[0].estimate(first.imgPnts, first.objPnts);
    cv::Matx44d const pose1 = adjustment.models[1].estimate(second.imgPnts, second.objPnts);
    first.jointResiduals = residualsOf(first, 0, from_1_to_0 * pose1, adjustment);
    second.jointResiduals = residualsOf(second, 1, from_0_to_1 * pose0, adjustment);
  }
}

/// The residuals of one device from the common poses.
void fillAdjusted(std::vector<CalibratedView*> const& used, std::size_t device,
                  Adjustment const& adjustment) {
  cv::Matx44d const device_from_dev0 =
      device == 0 ? cv::Matx44d::eye() : cv::Matx44d(adjustment.transform.inv());
  for (std::size_t i = 0; i < used.size(); ++i) {
    ViewPoints& points = used[i]->devices[device];
    points.residuals = residualsOf(points, device, device_from_dev0 * adjustment.poses[i], adjustment);
  }
}

double rmsOf(std::vector<CalibratedView*> const& used, std::size_t device) {
  std::vector<cv::Point2f> all;
  for (CalibratedView const* view : used) {
    auto const& residuals = view->devices[device].residuals;
    all.insert(all.end(), residuals.begin(), residuals.end());
  }
  return rms(all);
}

} // namespace

void takeAdjustment(Calibration& calibration, std::vector<AdjustmentView> const& views, Adjustment adjustment,
                    ViewAdjuster const& adjuster) {
  std::vector<CalibratedView*> const used = usedViews(calibration.views);
  for (std::size_t i = 0; i < used.size(); ++i) {
    std::vector<cv::Point2f> leftOut;
    for (int const dot : adjustment.views[i].leftOut) {
      leftOut.push_back(views[i].objPnts[static_cast<std::size_t>(dot)]);
    }
    for (ViewPoints& device : used[i]->devices) {
      dropStrays(device, leftOut);
    }
  }
  for (std::size_t device = 0; device < adjustment.models.size(); ++device) {
    fillAdjusted(used, device, adjustment);
    // The error of the points as they were read, as without an adjustment.
    CameraModel const& model = adjustment.models[device];
    adjustment.models[device] =
        cameraModelOf(model.getK(), model.getD(), model.getResolution(), rmsOf(used, device));
  }
  if (adjustment.models.size() > 1 && !adjustment.isRead) {
    fillJoint(used, adjustment);
  }
  calibration.report.deviations = transformDeviations(views, adjustment);
  adjuster.take(adjustment, views);
  calibration.report.adjustment = std::move(adjustment);
}

} // namespace vorn::mv
