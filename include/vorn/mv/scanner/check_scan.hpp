// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>

#include <vorn/core/export.hpp>

namespace vorn {
class Observer;
}

namespace vorn::mv {

class Sl3dScanner;

/// When a scan contradicts its calibration.
struct ScanCheckSettings {
  /// What the smooth part of the disagreement may be, projector pixels: above 0. A projector that was turned
  /// by 0.005 degrees gives as much.
  double limit = 0.005;
  /// How many pixels are looked at, evenly over the image. At least 1000.
  int mostPixels = 250000;

  /// @throws Exception that names the setting, its value and the bound
  VORN_API void check() const;
};

/// What a scan says of its calibration.
enum class ScanVerdict {
  Good,    ///< columns and rows agree
  Drifted, ///< they disagree by more than the limit, and by more than noise explains
  /// the scan's noise, or too few pixels, would hide a disagreement of the limit; or the scan is torn
  Unclear
};

/// How far one coordinate of a scan is from what the other one and the calibration foretell.
///
/// The smooth part is that of a cubic polynomial over the image: what a device that was moved, or a lens that
/// changed, makes of it, while noise, edges and light between surfaces change from place to place.
struct ScanCheck {
  /// Whether the calibration still holds.
  ScanVerdict verdict = ScanVerdict::Unclear;
  double smooth = 0;        ///< root mean square of the smooth part, projector pixels
  double mean = 0;          ///< its mean
  double limit = 0;         ///< that of the settings
  double smoothSigma = 0;   ///< what noise alone makes of `smooth`
  double noise = 0;         ///< standard deviation of a pixel about the smooth part
  std::size_t pixels = 0;   ///< that counted
  std::size_t outliers = 0; ///< that did not, such as at edges
  /// Whether more than 20 % are outliers: images in a wrong place, or something else than the calibration,
  /// make coordinates that are not those of the pixels, whatever the others agree on. The verdict is
  /// `Unclear`.
  bool isTorn = false;
  double coverage = 0; ///< share of 8 x 6 cells of the image that hold pixels that counted
  /// The turn of the projector about its centre that makes both agree best, a rotation vector in the camera's
  /// frame, radians; 0 where the verdict is not `Drifted`.
  cv::Vec3d turn;
  cv::Vec3d turnSigma; ///< one standard deviation of its parts, from noise alone
  /// `smooth` with the projector turned; where it is not below the limit something else has changed.
  double smoothAfter = 0;
  /// Means of decoded minus foretold coordinate over the pixels that counted, in 18 x 24 cells of the image;
  /// NaN where there are none.
  cv::Mat_<float> map;
};

/// Checks a calibration by a scan that coded the projector's columns and rows.
///
/// Points come from the coordinate that the scanner's "ScannerType" names; the projector must see them where
/// the other one says. Sizes cannot be checked that way: of all calibrations that scale the base, both
/// coordinates agree.
///
/// Working memory: 100 bytes for each of `ScanCheckSettings::mostPixels`.
/// @param scanner calibrated
/// @param columns of the camera's resolution, projector pixels, negative or NaN where there is none
/// @param rows    the same
/// @throws Exception for a scanner that is not calibrated, maps of another size, and when fewer than 1000
///         pixels (or a hundredth of those looked at) have both coordinates and a point
/// @throws Cancelled when the observer stops it
[[nodiscard]] VORN_API ScanCheck checkScan(Sl3dScanner const& scanner, cv::Mat_<float> const& columns,
                                           cv::Mat_<float> const& rows,
                                           ScanCheckSettings const& settings = {},
                                           Observer* observer = nullptr);

/// The scanner with its projector turned as a check found, and without a covariance, which was that of the
/// calibration before.
/// @throws Exception unless the check's verdict is `Drifted` and the turn brings the smooth part below the
///         limit: what is no turn of the projector must not be hidden by one
[[nodiscard]] VORN_API Sl3dScanner repaired(Sl3dScanner const& scanner, ScanCheck const& check);

} // namespace vorn::mv
