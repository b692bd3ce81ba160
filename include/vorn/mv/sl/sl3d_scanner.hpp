// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/core/algorithm.hpp>
#include <vorn/core/export.hpp>
#include <vorn/core/typed_property.hpp>
#include <vorn/mv/sl/encoding_type.hpp>
#include <vorn/mv/sl/scanner_type.hpp>
#include <vorn/mv/sl/sl_pattern_info.hpp>

namespace vorn::mv {

class CameraCalibData;
class CameraModel;
struct CalibrationCovariance;
struct ScannerAccess;

/// A structured-light scanner: one camera and one projector, which is a camera that works backwards.
///
/// `decode` finds for every camera pixel the projector coordinate that it sees, `triangulate` the point in
/// space. Lengths are in the unit of the calibration target, as a rule millimetres; the frame is the
/// camera's, carried on by the pose.
class VORN_API Sl3dScanner : public AlgorithmBase {
public:
  Sl3dScanner();
  Sl3dScanner(Sl3dScanner const&) = default;
  Sl3dScanner(Sl3dScanner&&) = default;
  Sl3dScanner& operator=(Sl3dScanner const&) = default;
  Sl3dScanner& operator=(Sl3dScanner&&) = default;
  ~Sl3dScanner() override;

  /// The projector coordinate that every camera pixel sees.
  ///
  /// Working memory: 19 bytes a pixel, up to 27 where most pixels are dim and noisy, which the scanner keeps
  /// for the next scan; up to 31 with "PhaseBlurRadius".
  ///
  /// @param images CV_8UC1 in the order of `generate_ps4_patterns`: four phase images, reference, code
  ///        planes; at least as many as that function makes for the coded axis
  /// @return H x W: the projector column ("Horizontal") or row ("Vertical") in projector pixels, whose
  ///         centres have whole coordinates; -1 where it is unknown
  /// @throws Exception "Insufficient input patterns!" for too few images; for images that are not CV_8UC1, of
  ///         different sizes or not of the camera's resolution; without a projector resolution; before
  ///         Library::init
  cv::Mat_<float> decode(std::vector<cv::Mat> const& images);

  /// The points in space that camera pixels see, by meeting each pixel's ray with its plane of projected
  /// light.
  ///
  /// A "Horizontal" scanner's points are in the frame of the pose, pixels without a valid coordinate give
  /// (0, 0, -1). A "Vertical" scanner's points are in the camera's frame, the outermost two rows and columns
  /// are (0, 0, 0), and pixels without a valid coordinate give (0, 0, -FLT_MAX).
  ///
  /// Working memory: none that grows with the map; the first call makes the rays of both devices' pixels, 8
  /// bytes each, which the scanner keeps.
  /// @param phase projector coordinates as from `decode`: of the whole image, or exactly of `roi`
  /// @param xyz   takes one point a pixel of `roi`
  /// @param roi   the part of the camera's image to triangulate
  /// @throws Exception "Attempting to use an uncalibrated system.", before Library::init, for a `roi` that is
  ///         not within the camera's image and for a map of another size
  void triangulate(cv::Mat_<float> const& phase, cv::Mat_<cv::Vec3f>& xyz, cv::Rect const& roi);

  /// Calibrates both models and the transform between them, from the same target poses seen by both.
  ///
  /// The projector's image points are the projector coordinates of the target's points. The resolutions of
  /// both models must be set before. Both data get the target's pose in each view. Working memory: 8 bytes a
  /// pixel of both devices, which stay as their rays, and about 100 a dot of all views.
  /// One object as both data collects the camera's poses, then the projector's.
  /// @throws Exception "Insufficient calibration data" for fewer than 3 samples of the camera, "Not enough
  ///         calibration sample." for fewer than 3 of the projector, and when the data hold different
  ///         numbers of samples; nothing is changed then
  void calib(CameraCalibData& camera, CameraCalibData& projector);

  /// The shape of the pattern set that codes the projector's columns or rows.
  /// @throws Exception "Encoding method not implemented." for any "EncodingType" but the first
  scanner::SlPatternInfo getPatternInfo(bool alongWidth) const;

  /// Prepares what `triangulate` needs of both lenses, and writes "DONE" to standard output for each.
  /// Does nothing unless both models are calibrated. `triangulate` does it by itself, silently, when needed.
  /// Working memory: 8 bytes a pixel of both devices, which stay.
  void calcUndistortedMaps();

  /// The camera.
  CameraModel const& getCameraModel() const;
  /// The camera, to change: its resolution before calibration.
  CameraModel& getCameraModel();
  /// The projector as an inverse camera.
  CameraModel const& getProjectorModel() const;
  /// The projector, to change: its resolution before calibration.
  CameraModel& getProjectorModel();

  /// The transform from the projector's frame to the camera's.
  cv::Matx44d getTransform() const;
  /// Sets the transform from the projector's frame to the camera's.
  void setTransform(cv::Matx44d const& camFromProj);
  /// The transform from the camera's frame to that of the points.
  cv::Matx44d getPose() const;
  /// Sets the transform from the camera's frame to that of the points.
  void setPose(cv::Matx44d const& poseFromCam);

  /// The white level of the phase images of the last scan that was decoded with "EnableTexture" on, their
  /// mean plus the fringe amplitude: CV_8UC1 of the camera's size. Empty before.
  cv::Mat getTexture() const;

  /// Whether both models are calibrated.
  bool isCalibrated() const;
  /// How well the calibration is known; empty where it is not. A copy of its own.
  CalibrationCovariance getCovariance() const;
  /// Keeps how well the calibration is known, also in documents, as "Covariance": set it after the numbers
  /// that it is about. `calib` and `setTransform` drop it.
  /// @throws Exception for what is no covariance
  void setCovariance(CalibrationCovariance const& covariance);

  std::string const& getClassName() const override;
  std::string toString() const override;
  /// Takes "CameraModel", "ProjectorModel" and "Hpose", and "Hpc", "Properties" and "Covariance" where they
  /// are present. Without "Hpc" the transform stays, but counts as unknown: `triangulate` and `scan` refuse
  /// the scanner until it is set.
  /// @throws Exception that names the member, such as "CameraModel.K.data[0]", for what is missing or not of
  ///         its kind, a transform that is no rigid motion, a camera that cannot be and a covariance that is
  ///         none; nothing is changed then
  void read(nlohmann::json const& json) override;
  /// Writes the members that `read` takes.
  void write(nlohmann::json& json) const override;

  /// The projector axis that is coded.
  VORN_PROPERTY(scanner::ScannerType, scannerType, ScannerType, scanner::ScannerType());

  /// The pattern set.
  VORN_PROPERTY(scanner::EncodingType, encodingType, EncodingType, scanner::EncodingType());

  /// Whether `decode` also makes a texture.
  VORN_PROPERTY(bool, enableTexture, EnableTexture, false);

  /// For the host, which captures the texture.
  VORN_PROPERTY(int, textureExposure, TextureExposure, 12000, 1000, 100000);

  /// Largest mean of a pixel's phase images; pixels above, and pixels that are clipped at 255 in any phase
  /// image, count as saturated and are dropped.
  VORN_PROPERTY(int, maxGrayLevel, MaxGrayLevel, 150, 100, 200);

  /// Least range, in grey levels, of a pixel's code images.
  VORN_PROPERTY(int, blackWhiteSensitivity, BlackWhiteSensitivity, 15, 5, 100);

  /// Least phase confidence m / (m + r), m twice the fringe amplitude and r = |P0 - P1 + P2 - P3| / 2, which
  /// is zero for a sinusoid.
  VORN_PROPERTY(double, minPhaseConfident, MinPhaseConfident, 0.5, 0.5, 0.95);

  /// Least fringe amplitude in grey levels.
  VORN_PROPERTY(int, sensitivity, Sensitivity, 3, 0, 20);

  /// Smooths the phase over 2 r + 1 pixels in square, which shrinks what is curved; 0 leaves it.
  VORN_PROPERTY(int, phaseBlurRadius, PhaseBlurRadius, 0, 0, 10);

  /// Gaussian blur of the points over 2 r + 1 pixels in square; 0 leaves them. Invalid points take part: use
  /// it on maps without holes.
  VORN_PROPERTY(int, pointcloudBlurRadius, PointcloudBlurRadius, 0, 0, 10);

  /// Smaller connected pieces of surface, in pixels, are dropped.
  VORN_PROPERTY(int, minSegmentSize, MinSegmentSize, 100, 0, 10000);

  /// Holes within one smooth surface that fit into a square of 2 r + 1 pixels are closed; 0 fills nothing.
  VORN_PROPERTY(int, maxFillRadius, MaxFillRadius, 9, 0, 21);

  /// Logs the number of decoded pixels, while diagnostics are on.
  VORN_PROPERTY(bool, enableDebug, EnableDebug, false);

private:
  friend struct ScannerAccess; // whole jobs, inside the library
  struct Private;
};

} // namespace vorn::mv
