// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/core/export.hpp>
#include <vorn/core/object.hpp>

namespace vorn::mv {

/// The calibration samples of one camera: for each view of a plane pattern its image points and pattern
/// points, and after calibration the pose of the pattern in each view.
class VORN_API CameraCalibData : public virtual ObjectBase, public virtual IJsonSerializable {
public:
  CameraCalibData();
  CameraCalibData(CameraCalibData const&) = default;
  CameraCalibData(CameraCalibData&&) = default;
  CameraCalibData& operator=(CameraCalibData const&) = default;
  CameraCalibData& operator=(CameraCalibData&&) = default;
  ~CameraCalibData() override;

  /// Appends one view. The sizes of the lists are not compared here; calibration does.
  /// @param imgPnts pixels
  /// @param objPnts points of the pattern's plane z = 0, in pattern units, one for each image point
  void add(std::vector<cv::Point2f> const& imgPnts, std::vector<cv::Point2f> const& objPnts);
  /// Appends the pose of a view, from the pattern's frame to the camera's; calibration does so for every
  /// view.
  void addPose(cv::Matx44d const& pose);

  /// The number of views.
  int count() const;
  /// The points of view i, which is not checked.
  std::vector<cv::Point2f> const& getImgPnts(int i) const;
  /// The pattern points of view i, which is not checked.
  std::vector<cv::Point2f> const& getObjPnts(int i) const;
  /// The image points of all views.
  std::vector<std::vector<cv::Point2f>> const& getImgPntss() const;
  /// The pattern points of all views.
  std::vector<std::vector<cv::Point2f>> const& getObjPntss() const;
  /// Pose i, which is not checked.
  cv::Matx44d const& getPose(int i) const;
  /// All poses; empty before calibration.
  std::vector<cv::Matx44d> const& getPoses() const;

  /// Removes all points. Poses stay.
  virtual void clear();
  /// Removes the points of view i, which is not checked. Poses stay.
  virtual void removeAt(int i);
  /// Removes the points of the last view, if there is one. Poses stay.
  virtual void removeLast();

  std::string const& getClassName() const override;
  /// "vorn::IObject" and "vorn::IJsonSerializable".
  std::vector<std::string> const& getInterfaces() const override;
  /// Reads "Poses", "ImgPntss" and "ObjPntss".
  void read(nlohmann::json const& json) override;
  void write(nlohmann::json& json) const override;

protected:
  struct Private;
  /// For derived classes: takes over a record derived from `CameraCalibData::Private`.
  explicit CameraCalibData(ObjectBase::Private* record);
};

} // namespace vorn::mv
