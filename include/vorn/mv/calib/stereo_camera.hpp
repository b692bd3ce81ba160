// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/core/export.hpp>
#include <vorn/core/observer.hpp>
#include <vorn/core/property_set.hpp>
#include <vorn/mv/calib/stereo_points.hpp>
#include <vorn/mv/calib/stereo_rectification.hpp>

namespace vorn::mv {

class CameraCalibData;
struct CalibrationCovariance;

/// Two cameras, or a camera (0) and a projector (1), and the rigid transform between them.
class VORN_API StereoCamera : public PropertySetBase {
public:
  StereoCamera();
  StereoCamera(StereoCamera const&) = default;
  StereoCamera(StereoCamera&&) = default;
  StereoCamera& operator=(StereoCamera const&) = default;
  StereoCamera& operator=(StereoCamera&&) = default;
  ~StereoCamera() override;

  /// Calibrates both cameras from views of the same pattern poses, and the transform from camera 1 to camera
  /// 0 as the mean over all poses that the data sets then hold. The mean of the rotations is taken element by
  /// element and stays as it is: a rotation only as far as the poses agree. Progress goes to standard output.
  /// The undistorted maps are reckoned too when both reprojection errors are below half a pixel. Working
  /// memory: 8 bytes a pixel of both cameras, which stay as the maps, and about 100 a dot of all views.
  /// @param data0 views of camera 0; pose lists are appended to, as CameraModel::calib does
  /// @param data1 views of camera 1, of the same poses in the same order
  /// @throws Exception "Insufficient calibration data" below 3 views in `data0`; when the data sets hold
  ///         different numbers of views or poses; what CameraModel::calib throws. Camera and data are then as
  ///         they were.
  void calib(CameraCalibData& data0, CameraCalibData& data1);

  /// Reckons the viewing ray of every pixel of both cameras, progress to standard output. Takes 8 bytes a
  /// pixel, which stay.
  /// @throws Exception when a camera is not calibrated
  void calcUndistortedMaps();

  /// The rays of each camera's pixels as normalised coordinates, H x W CV_32FC2; empty until they were
  /// reckoned.
  cv::Mat_<cv::Vec2f> const& getUndistortedMap0() const;
  /// The same for camera 1.
  cv::Mat_<cv::Vec2f> const& getUndistortedMap1() const;

  /// The points that pairs of pixels show: those whose images lie nearest to the pixels, by the squared
  /// distances in both images together, which is the best estimate when both are measured equally well. From
  /// a linear start it is refined until it moves no more; lens distortion is taken out exactly. Pairs whose
  /// rays do not meet before both cameras are NaN and counted. Working memory: 16 bytes a pair, the result's.
  /// @param pixels0  of camera 0
  /// @param pixels1  of camera 1, one for each of camera 0
  /// @param observer is told the stage "triangulating" and may stop it
  /// @throws Exception when the lists differ in length, a camera is not calibrated, or the transform holds no
  ///         base; `Cancelled` when the observer stops it
  [[nodiscard]] StereoPoints triangulate(std::vector<cv::Point2f> const& pixels0,
                                         std::vector<cv::Point2f> const& pixels1,
                                         Observer* observer = nullptr) const;

  /// Two cameras that take the place of these: without distortion, side by side (or one above the other, when
  /// the base is nearer to that), so that a point has the same row (column) in both images. Each camera is
  /// turned by half of the angle between them, and both about the base so that they turn least.
  /// Working memory: 8 bytes a pixel of both maps, which stay.
  /// @throws Exception when a camera is not calibrated or has no resolution, when the transform holds no
  ///         base, for a size outside 2 to 32767, and when the cameras look apart so far that no such images
  ///         exist
  [[nodiscard]] StereoRectification rectify(StereoRectificationSettings const& settings = {}) const;

  /// Sets the image sizes of both cameras, pixels, and drops the maps.
  void setResolution(cv::Size const& size0, cv::Size const& size1);
  /// Sets both cameras, such as an adjustment gives them, and drops the maps.
  void setCameraModels(CameraModel const& model0, CameraModel const& model1);
  /// Camera 0, in whose frame the transform's results are.
  CameraModel const& getCameraModel0() const;
  /// Camera 1, or the projector.
  CameraModel const& getCameraModel1() const;

  /// The transform from camera 1 to camera 0; the identity when new.
  cv::Matx44d const& getTransform() const;
  /// Sets the transform from camera 1 to camera 0.
  void setTransform(cv::Matx44d const& cam0_from_cam1);
  /// Where camera 0 stands in a frame of the user's; the identity when new. Kept and stored, used by no call.
  cv::Matx44d const& getPose() const;
  /// Sets where camera 0 stands in the user's frame.
  void setPose(cv::Matx44d const& pose);

  /// Whether both cameras are calibrated.
  bool isCalibrated() const;
  /// How well the calibration is known; empty where it is not. A copy of its own.
  CalibrationCovariance getCovariance() const;
  /// Keeps how well the calibration is known, also in documents, as "Covariance": set it after the numbers
  /// that it is about. `calib` and `setTransform` drop it.
  /// @throws Exception for what is no covariance
  void setCovariance(CalibrationCovariance const& covariance);

  std::string const& getClassName() const override;
  /// Reads "CameraModel0", "CameraModel1", "Hpc" (the transform) and "Hpose" (the pose), and "Covariance"
  /// where it is present. The maps are dropped.
  /// @throws Exception when a transform or a camera holds a number that is not finite, and for a covariance
  ///         that is none
  void read(nlohmann::json const& json) override;
  void write(nlohmann::json& json) const override;

private:
  struct Private;
};

} // namespace vorn::mv
