// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/calibration/rig_report.hpp"

#include <iomanip>
#include <sstream>

#include <opencv2/core/cvdef.h>

#include "tools/calibration/calibration_report.hpp"

namespace vorn::tools {

namespace {

constexpr double degrees = 180 / CV_PI;

} // namespace

std::string table(mv::RigCalibration const& rig) {
  std::ostringstream out;
  out << "First camera and projector\n"
      << table(rig.scanner) << "\nSecond camera and projector\n"
      << table(rig.second) << "\nBoth cameras\n"
      << table(rig.pair)
      << "\nEach two by themselves, from the projector to the first camera, the second and "
      << "back: turned by " << std::setprecision(2) << degrees * rig.closure.turn << " degrees, shifted by "
      << rig.closure.shift << " mm. The files hold one rig.\n";
  return out.str();
}

nlohmann::json toJson(mv::RigCalibration const& rig) {
  nlohmann::json json = mv::toJson(rig.scanner);
  json["second"] = mv::toJson(rig.second);
  json["pair"] = mv::toJson(rig.pair);
  json["closure"] = {{"turn", degrees * rig.closure.turn}, {"shift", rig.closure.shift}};
  return json;
}

} // namespace vorn::tools
