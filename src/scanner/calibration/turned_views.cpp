// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "scanner/calibration/turned_views.hpp"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "calib/adjust/agreed_turns.hpp"
#include "scanner/calibration/adjustment_views.hpp"
#include "scanner/calibration/target_turns.hpp"

namespace vorn::mv {

namespace {

/// The dots that any device shows in any used view.
std::vector<cv::Point2f> shownDots(std::vector<CalibratedView> const& views) {
  std::vector<cv::Point2f> dots;
  for (CalibratedView const& view : views) {
    if (view.isUsed()) {
      for (ViewPoints const& device : view.devices) {
        dots.insert(dots.end(), device.objPnts.begin(), device.objPnts.end());
      }
    }
  }
  auto const isBefore = [](cv::Point2f const& a, cv::Point2f const& b) {
    return a.y != b.y ? a.y < b.y : a.x < b.x;
  };
  std::sort(dots.begin(), dots.end(), isBefore);
  dots.erase(std::unique(dots.begin(), dots.end()), dots.end());
  return dots;
}

std::string namesOf(std::vector<CalibratedView*> const& used, std::vector<bool> const& areTold) {
  std::string names;
  for (std::size_t i = 0; i < used.size(); ++i) {
    if (!areTold[i]) {
      names += (names.empty() ? "" : ", ") + used[i]->name;
    }
  }
  return names;
}

/// What turning by a way to count leaves as it is.
KnownTurns limited(bool isHalfTurn, std::string const& where) {
  return {isHalfTurn ? AdjustmentSettings::Shape::Bent : AdjustmentSettings::Shape::Flat,
          "The target looks the same turned, and its shape does not tell how it is turned in " + where +
              ": it is taken to be " + (isHalfTurn ? "flat, or evenly bent" : "flat") +
              ", which is right of a flat one. Mark a dot where it may be uneven",
          false};
}

} // namespace

KnownTurns countByShape(Calibration& calibration, CalibrationSettings const& calibrationSettings,
                        AdjustmentSettings const& settings, ViewAdjuster const& adjuster,
                        Observer* observer) {
  std::vector<CalibratedView*> used;
  std::vector<int> readings;
  for (CalibratedView& view : calibration.views) {
    if (view.isUsed()) {
      used.push_back(&view);
      readings.push_back(view.readings);
    }
  }
  int const most = readings.empty() ? 1 : *std::max_element(readings.begin(), readings.end());
  if (most < 2 || !calibrationSettings.target || settings.shape == AdjustmentSettings::Shape::Flat) {
    return {settings.shape, "", false};
  }
  cv::Point2d const middle = middleOf(*calibrationSettings.target);
  std::vector<AdjustmentView> const views = adjustmentViews(calibration.views);
  AgreedTurns agreed;
  try {
    AdjustmentSettings flat = settings;
    flat.shape = AdjustmentSettings::Shape::Flat;
    agreed = agreedTurns(views, readings, middle, adjuster.adjust(views, flat, observer));
  } catch (Cancelled const&) {
    throw;
  } catch (Exception const&) { // what is wrong with the views, the adjustment that is wanted says
    return limited(most == 2, "them");
  }
  if (!agreed.areAllTold()) {
    return limited(most == 2, namesOf(used, agreed.areTold));
  }
  KnownTurns known{settings.shape, "", false};
  std::vector<cv::Point2f> const dots = shownDots(calibration.views);
  for (std::size_t i = 0; i < used.size(); ++i) {
    if (agreed.turns[i] != 0) {
      known.areChanged = true;
      for (ViewPoints& device : used[i]->devices) {
        device.objPnts = turnedDots(device.objPnts, middle, agreed.turns[i], dots);
      }
    }
  }
  return known;
}

} // namespace vorn::mv
