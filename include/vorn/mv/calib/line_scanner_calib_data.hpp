// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <opencv2/core/types.hpp>

#include <vorn/core/export.hpp>
#include <vorn/mv/calib/camera_calib_data.hpp>

namespace vorn::mv {

/// The calibration samples of a laser line scanner: the views of a plane pattern and, in each, the image
/// points of every laser line on the pattern.
class VORN_API LineScannerCalibData : public CameraCalibData {
public:
  LineScannerCalibData();
  LineScannerCalibData(LineScannerCalibData const&) = default;
  LineScannerCalibData(LineScannerCalibData&&) = default;
  LineScannerCalibData& operator=(LineScannerCalibData const&) = default;
  LineScannerCalibData& operator=(LineScannerCalibData&&) = default;
  ~LineScannerCalibData() override;

  /// Appends one view.
  /// @param imgPnts, objPnts pixels and pattern points, as CameraCalibData::add
  /// @param linePntss the pixels of each laser line, in the order of the scanner's planes; may be empty where
  ///        a line misses the pattern
  void add(std::vector<cv::Point2f> const& imgPnts, std::vector<cv::Point2f> const& objPnts,
           std::vector<std::vector<cv::Point2f>> const& linePntss);

  /// The pixels of every laser line in one view, which is not checked.
  std::vector<std::vector<cv::Point2f>> const& getLinePntss(int sample) const;
  /// The pixels of every laser line in all views.
  std::vector<std::vector<std::vector<cv::Point2f>>> const& getLinePntsss() const;

  /// The points on one laser plane, in the camera's frame, as calibration collected them from all views; the
  /// index is not checked.
  std::vector<cv::Point3f> const& getPlanePnts(int plane) const;
  /// The points on all laser planes, in the camera's frame.
  std::vector<std::vector<cv::Point3f>> const& getPlanePntss() const;
  /// Replaces the points on the laser planes; calibration does so.
  void setPlanePntss(std::vector<std::vector<cv::Point3f>> const& planePntss);

  /// Removes all points of the views. Poses and plane points stay.
  void clear() override;
  /// Removes view i, which is not checked. Poses and plane points stay.
  void removeAt(int i) override;

  std::string const& getClassName() const override;
  /// Reads what CameraCalibData reads, and "LinePntsss".
  void read(nlohmann::json const& json) override;
  void write(nlohmann::json& json) const override;

private:
  struct Private;
};

} // namespace vorn::mv
