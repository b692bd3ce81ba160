// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/core/export.hpp>
#include <vorn/core/object.hpp>

namespace vorn::mv {

class CameraCalibData;
class Plane3f;
struct CalibrationCovariance;

/// A pinhole camera with lens distortion (OpenCV's model), calibrated from views of a plane pattern.
///
/// Pixel centres have whole coordinates. A pose carries pattern points to the camera's frame, whose z axis is
/// the viewing direction. Lens distortion is taken out exactly: the inverse of the model is iterated until it
/// is exact, and a pixel for which the model has no inverse (beyond the radius where a strong distortion
/// folds over) gives NaN coordinates. Calls that need the camera matrix throw an Exception while there is
/// none.
class VORN_API CameraModel : public virtual ObjectBase, public virtual IJsonSerializable {
public:
  CameraModel();
  CameraModel(CameraModel const&) = default;
  CameraModel(CameraModel&&) = default;
  CameraModel& operator=(CameraModel const&) = default;
  CameraModel& operator=(CameraModel&&) = default;
  ~CameraModel() override;

  /// Calibrates the camera by cv::calibrateCamera (five distortion coefficients) and appends the pose of
  /// every view to `data`, whose pose list is not emptied first. The resolution must be set before. Working
  /// memory: about 100 bytes a dot of all views.
  /// @param maxIterations limit of the optimiser's rounds
  /// @return the root mean square reprojection error in pixels, which is also kept
  /// @throws Exception "Not enough calibration sample." below 3 views; when there is no resolution; before
  ///         Library::init
  /// @throws cv::Exception when a view's lists differ in length or are too short. Model and data are as they
  ///         were whenever it throws.
  double calib(CameraCalibData& data, int maxIterations);

  /// The pose of the pattern in one view.
  /// @param imgPnts pixels, at least 4
  /// @param objPnts points of the pattern's plane, one for each image point
  /// @throws cv::Exception when the lists differ in length or are too short
  cv::Matx44d estimate(std::vector<cv::Point2f> const& imgPnts,
                       std::vector<cv::Point2f> const& objPnts) const;

  /// The pixels to which points in the pattern's frame are imaged.
  std::vector<cv::Point2f> calcImagePoints(std::vector<cv::Point3f> const& objPnts,
                                           cv::Matx44d const& pose) const;
  /// The pixels to which points of the pattern's plane are imaged.
  std::vector<cv::Point2f> calcImagePoints(std::vector<cv::Point2f> const& objPnts,
                                           cv::Matx44d const& pose) const;

  /// Pixels carried back onto the pattern's plane, in the pattern's frame (z is 0 but for rounding).
  std::vector<cv::Point3f> calcObjectPoints(std::vector<cv::Point2f> const& imgPnts,
                                            cv::Matx44d const& pose) const;

  /// The points of a plane that pixels see, in the camera's frame. A ray parallel to the plane gives a point
  /// that is not finite.
  /// @param plane in the camera's frame
  /// @param offset added to every pixel first: the origin of a region of interest that they were measured in
  std::vector<cv::Point3f> triangulate(std::vector<cv::Point2f> const& imgPnts, Plane3f const& plane,
                                       cv::Point2f const& offset) const;

  /// The viewing rays of pixels in normalised coordinates: the ray is (x, y, 1).
  std::vector<cv::Point2f> undistortPoints(std::vector<cv::Point2f> const& points) const;

  /// Draws the pattern's axes: x in (255, 0, 0), y in (0, 255, 0), z in (0, 0, 255).
  /// @param length of each axis, in pattern units
  /// @param thickness of the lines, in pixels
  void drawPose(cv::Mat& image, cv::Matx44d const& pose, float length, int thickness) const;

  /// The camera matrix, 3 x 3 double; empty before calibration. Who changes its elements changes this model,
  /// and no copy of it.
  cv::Mat const& getK() const;
  /// The distortion coefficients, double; empty before calibration.
  cv::Mat const& getD() const;
  /// Width and height of the images; 0 x 0 when new.
  cv::Size const& getResolution() const;
  /// Sets the size of the camera's images, pixels.
  void setResolution(cv::Size const& resolution);
  /// The root mean square reprojection error in pixels; -1 before calibration.
  double getCalibError() const;
  /// Whether the calibration error lies between 0 and half a pixel, both excluded.
  bool isCalibrated() const;
  /// How well the calibration is known; empty where it is not. A copy of its own.
  CalibrationCovariance getCovariance() const;
  /// Keeps how well the calibration is known, also in documents, as "Covariance": set it after the numbers
  /// that it is about. `calib` drops it.
  /// @throws Exception for what is no covariance, and for parameters other than those of device 0
  void setCovariance(CalibrationCovariance const& covariance);

  std::string const& getClassName() const override;
  /// "vorn::IObject" and "vorn::IJsonSerializable".
  std::vector<std::string> const& getInterfaces() const override;
  /// Reads "Resolution", "K", "D" and "Error", and "Covariance" where it is present. K and D may be of any
  /// element type, or both be left out.
  void read(nlohmann::json const& json) override;
  /// Writes "Resolution", "K", "D", "Error" and "Covariance"; what the model has not is left out.
  void write(nlohmann::json& json) const override;

private:
  struct Private;
};

} // namespace vorn::mv
