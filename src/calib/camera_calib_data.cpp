// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/calib/camera_calib_data.hpp>

#include <utility>

#include <nlohmann/json.hpp>

#include <vorn/mv/core/matrix_json.hpp>

#include "calib/camera_calib_data_record.hpp"
#include "core/error.hpp"
#include "core/json_member.hpp"

namespace vorn::mv {

CameraCalibData::CameraCalibData() : CameraCalibData(new Private) {}

CameraCalibData::CameraCalibData(ObjectBase::Private* record) {
  adopt(record);
}

CameraCalibData::~CameraCalibData() = default;

void CameraCalibData::add(std::vector<cv::Point2f> const& imgPnts, std::vector<cv::Point2f> const& objPnts) {
  auto& data = static_cast<Private&>(ownRecord());
  data.imgPntss.push_back(imgPnts);
  data.objPntss.push_back(objPnts);
}

void CameraCalibData::addPose(cv::Matx44d const& pose) {
  static_cast<Private&>(ownRecord()).poses.push_back(pose);
}

int CameraCalibData::count() const {
  return static_cast<int>(getImgPntss().size());
}

std::vector<cv::Point2f> const& CameraCalibData::getImgPnts(int i) const {
  return getImgPntss()[static_cast<std::size_t>(i)];
}

std::vector<cv::Point2f> const& CameraCalibData::getObjPnts(int i) const {
  return getObjPntss()[static_cast<std::size_t>(i)];
}

std::vector<std::vector<cv::Point2f>> const& CameraCalibData::getImgPntss() const {
  return static_cast<Private const&>(record()).imgPntss;
}

std::vector<std::vector<cv::Point2f>> const& CameraCalibData::getObjPntss() const {
  return static_cast<Private const&>(record()).objPntss;
}

cv::Matx44d const& CameraCalibData::getPose(int i) const {
  return getPoses()[static_cast<std::size_t>(i)];
}

std::vector<cv::Matx44d> const& CameraCalibData::getPoses() const {
  return static_cast<Private const&>(record()).poses;
}

void CameraCalibData::clear() {
  auto& data = static_cast<Private&>(ownRecord());
  data.imgPntss.clear();
  data.objPntss.clear();
}

void CameraCalibData::removeAt(int i) {
  auto& data = static_cast<Private&>(ownRecord());
  data.imgPntss.erase(data.imgPntss.begin() + i);
  data.objPntss.erase(data.objPntss.begin() + i);
}

void CameraCalibData::removeLast() {
  if (count() > 0) {
    removeAt(count() - 1);
  }
}

std::string const& CameraCalibData::getClassName() const {
  static std::string const name = "vorn::mv::CameraCalibData";
  return name;
}

std::vector<std::string> const& CameraCalibData::getInterfaces() const {
  static std::vector<std::string> const names{"vorn::IObject", "vorn::IJsonSerializable"};
  return names;
}

void CameraCalibData::read(nlohmann::json const& json) {
  auto poses = jsonValue<std::vector<cv::Matx44d>>(json, "Poses", "CameraCalibData");
  auto imgPntss = jsonValue<std::vector<std::vector<cv::Point2f>>>(json, "ImgPntss", "CameraCalibData");
  auto objPntss = jsonValue<std::vector<std::vector<cv::Point2f>>>(json, "ObjPntss", "CameraCalibData");
  if (imgPntss.size() != objPntss.size()) {
    throw error("\"ImgPntss\" holds " + std::to_string(imgPntss.size()) + " views and \"ObjPntss\" " +
                    std::to_string(objPntss.size()),
                "CameraCalibData");
  }
  auto& data = static_cast<Private&>(ownRecord());
  data.poses = std::move(poses);
  data.imgPntss = std::move(imgPntss);
  data.objPntss = std::move(objPntss);
}

void CameraCalibData::write(nlohmann::json& json) const {
  json = {{"Poses", getPoses()}, {"ImgPntss", getImgPntss()}, {"ObjPntss", getObjPntss()}};
}

} // namespace vorn::mv
