// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/calib/line_scanner_calib_data.hpp>

#include <utility>

#include <nlohmann/json.hpp>

#include <vorn/mv/core/matrix_json.hpp>

#include "calib/camera_calib_data_record.hpp"
#include "core/error.hpp"
#include "core/json_member.hpp"

namespace vorn::mv {

struct LineScannerCalibData::Private : Record<LineScannerCalibData::Private, CameraCalibData::Private> {
  std::vector<std::vector<std::vector<cv::Point2f>>> linePntsss;
  std::vector<std::vector<cv::Point3f>> planePntss;
};

LineScannerCalibData::LineScannerCalibData() : CameraCalibData(new Private) {}

LineScannerCalibData::~LineScannerCalibData() = default;

void LineScannerCalibData::add(std::vector<cv::Point2f> const& imgPnts,
                               std::vector<cv::Point2f> const& objPnts,
                               std::vector<std::vector<cv::Point2f>> const& linePntss) {
  CameraCalibData::add(imgPnts, objPnts);
  auto& lines = static_cast<Private&>(ownRecord()).linePntsss;
  lines.resize(static_cast<std::size_t>(count()) - 1); // views added through the base class have none
  lines.push_back(linePntss);
}

std::vector<std::vector<cv::Point2f>> const& LineScannerCalibData::getLinePntss(int sample) const {
  return getLinePntsss()[static_cast<std::size_t>(sample)];
}

std::vector<std::vector<std::vector<cv::Point2f>>> const& LineScannerCalibData::getLinePntsss() const {
  return static_cast<Private const&>(record()).linePntsss;
}

std::vector<cv::Point3f> const& LineScannerCalibData::getPlanePnts(int plane) const {
  return getPlanePntss()[static_cast<std::size_t>(plane)];
}

std::vector<std::vector<cv::Point3f>> const& LineScannerCalibData::getPlanePntss() const {
  return static_cast<Private const&>(record()).planePntss;
}

void LineScannerCalibData::setPlanePntss(std::vector<std::vector<cv::Point3f>> const& planePntss) {
  static_cast<Private&>(ownRecord()).planePntss = planePntss;
}

void LineScannerCalibData::clear() {
  CameraCalibData::clear();
  static_cast<Private&>(ownRecord()).linePntsss.clear();
}

void LineScannerCalibData::removeAt(int i) {
  CameraCalibData::removeAt(i);
  auto& lines = static_cast<Private&>(ownRecord()).linePntsss;
  if (static_cast<std::size_t>(i) < lines.size()) { // a view added through the base class has none
    lines.erase(lines.begin() + i);
  }
}

std::string const& LineScannerCalibData::getClassName() const {
  static std::string const name = "vorn::mv::LineScannerCalibData";
  return name;
}

void LineScannerCalibData::read(nlohmann::json const& json) {
  auto linePntsss = jsonValue<std::vector<std::vector<std::vector<cv::Point2f>>>>(json, "LinePntsss",
                                                                                  "LineScannerCalibData");
  std::size_t const viewCount = jsonMember(json, "ImgPntss", "LineScannerCalibData").size();
  if (linePntsss.size() != viewCount) {
    throw error("\"LinePntsss\" holds " + std::to_string(linePntsss.size()) + " views and \"ImgPntss\" " +
                    std::to_string(viewCount),
                "LineScannerCalibData");
  }
  CameraCalibData::read(json);
  auto& data = static_cast<Private&>(ownRecord());
  data.linePntsss = std::move(linePntsss);
  data.planePntss.clear();
}

void LineScannerCalibData::write(nlohmann::json& json) const {
  CameraCalibData::write(json);
  json["LinePntsss"] = getLinePntsss();
}

} // namespace vorn::mv
