// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "scanner/calibration/adjustment_views.hpp"

#include <cstddef>
#include <limits>
#include <map>

namespace vorn::mv {

namespace {

cv::Point2f const none(std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::quiet_NaN());

AdjustmentView adjustmentView(CalibratedView const& view) {
  ViewPoints const& first = view.devices[0];
  AdjustmentView result{view.name, first.objPnts, first.imgPnts, {}, {}};
  if (view.devices.size() < 2) {
    return result;
  }
  std::map<DotPlace, std::size_t> indexOf;
  for (std::size_t i = 0; i < first.objPnts.size(); ++i) {
    indexOf.emplace(placeOf(first.objPnts[i]), i);
  }
  result.points1.assign(first.objPnts.size(), none);
  ViewPoints const& second = view.devices[1];
  bool const areKnown = !second.sigmas.empty();
  result.sigmas1.assign(areKnown ? first.objPnts.size() : 0, none);
  for (std::size_t i = 0; i < second.objPnts.size(); ++i) {
    auto const [same, isNew] = indexOf.emplace(placeOf(second.objPnts[i]), result.objPnts.size());
    if (isNew) {
      result.objPnts.push_back(second.objPnts[i]);
      result.points0.push_back(none);
      result.points1.push_back(none);
      result.sigmas1.resize(areKnown ? result.objPnts.size() : 0, none);
    }
    result.points1[same->second] = second.imgPnts[i];
    if (areKnown) {
      result.sigmas1[same->second] = second.sigmas[i];
    }
  }
  return result;
}

} // namespace

std::vector<AdjustmentView> adjustmentViews(std::vector<CalibratedView> const& views) {
  std::vector<AdjustmentView> result;
  for (CalibratedView const& view : views) {
    if (view.isUsed()) {
      result.push_back(adjustmentView(view));
    }
  }
  return result;
}

} // namespace vorn::mv
