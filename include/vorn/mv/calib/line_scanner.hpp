// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <opencv2/core/types.hpp>

#include <vorn/core/export.hpp>
#include <vorn/core/property_set.hpp>
#include <vorn/core/typed_property.hpp>

namespace vorn::mv {

class CameraModel;
class LineScannerCalibData;
class Plane3f;

/// Turns image points of laser lines into points in space: a camera and one plane for each laser line.
class VORN_API LineScanner : public PropertySetBase {
public:
  LineScanner();
  LineScanner(LineScanner const&) = default;
  LineScanner(LineScanner&&) = default;
  LineScanner& operator=(LineScanner const&) = default;
  LineScanner& operator=(LineScanner&&) = default;
  ~LineScanner() override;

  /// Calibrates the camera from the views of the pattern, and each laser plane from where its line lies on
  /// the pattern in all views. The camera's resolution must be set before, see `setCameraModel`. Fills in the
  /// data's poses and plane points. Working memory: up to 100 bytes a dot, 27 a line point of all views.
  /// @throws Exception "Insufficient calibration data!" below 3 views; "Invalid calibration input data!" when
  ///         a view does not hold "PlaneCount" lines; "Not enough line data" when a line lies on the pattern
  ///         in fewer than two views, which determine no plane, and another message when it lies at one place
  ///         in all of them; what CameraModel::calib and Plane3f::estimate throw. Scanner and data are then
  ///         as they were.
  void calib(LineScannerCalibData& data);

  /// The points that the image points of one laser line see, in the camera's frame. Working memory: 49 bytes
  /// a point.
  /// @param offset added to every image point first: the origin of a region of interest
  /// @throws Exception when there is no such plane or the camera is not calibrated
  std::vector<cv::Point3f> triangulate(std::vector<cv::Point2f> const& points, int planeId,
                                       cv::Point2f const& offset) const;
  /// The same for a list of image points of each laser line, in the order of the planes.
  /// @throws Exception when there are more lists than planes
  std::vector<std::vector<cv::Point3f>> triangulate(std::vector<std::vector<cv::Point2f>> const& lines,
                                                    cv::Point2f const& offset) const;

  /// The camera; in its frame are the planes and the points.
  CameraModel const& getCameraModel() const;
  /// Takes a camera, calibrated or with its resolution alone.
  void setCameraModel(CameraModel const& model);
  /// The laser planes in the camera's frame; none before calibration.
  std::vector<Plane3f> const& getPlanes() const;
  /// Takes planes in the camera's frame; "PlaneCount" becomes their number.
  /// @throws Exception for no planes or more than 64, and for one that is not finite or has no normal
  void setPlanes(std::vector<Plane3f> const& planes);
  /// Whether the camera is calibrated and there are "PlaneCount" planes.
  bool isCalibrated() const;

  std::string const& getClassName() const override;
  /// Reads "CameraModel", "Plane_0", "Plane_1" and so on. "PlaneCount" becomes the number of planes, if any.
  /// @throws Exception for a camera or plane that holds a number that is not finite, a plane without a
  /// normal,
  ///         and the file of a structured-light scanner, which has a "ProjectorModel"
  void read(nlohmann::json const& json) override;
  void write(nlohmann::json& json) const override;

  /// The number of laser lines.
  VORN_PROPERTY(int, planeCount, PlaneCount, 1, 1, 64);

private:
  struct Private;
};

} // namespace vorn::mv
