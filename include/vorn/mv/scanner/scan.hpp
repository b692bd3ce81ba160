// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include <opencv2/core/mat.hpp>

#include <vorn/core/export.hpp>
#include <vorn/mv/pointcloud/point_cloud.hpp>
#include <vorn/mv/sl/pattern_doubt.hpp>
#include <vorn/mv/sl/pixel_reason.hpp>

namespace vorn {
class Observer;
}

namespace vorn::mv {

class Sl3dScanner;
struct DecodedPatterns;

/// What a scan makes beside the points. What is decoded and how, the scanner's properties say.
struct ScanSettings {
  /// Whether the cloud gets colours: the white level of the phase images, in grey. The scanner's
  /// "EnableTexture" does not matter here.
  bool makeTexture = true;
  /// Whether to make `ScanResult::modulation`, 4 bytes a pixel.
  bool makeModulation = true;
  /// Whether to make `ScanResult::sigma`, 4 bytes a pixel.
  bool makeSigma = true;
  /// Standard deviation of the noise of an image, in the images' levels, for `ScanResult::sigma`; 0 to
  /// estimate it from the images, by grey level.
  double noise = 0.0;
  /// Whether what the squares of a sharp projector's pixels do to the coordinates is measured and taken off,
  /// as by `DecodeSettings::correctsStaircase`. `scanDecoded` does not look at it.
  bool correctsStaircase = false;
  /// Half the window, camera pixels, in which `smoothMap` smooths the coordinates along the surfaces; 0 for
  /// none, at most 5. Edges stay sharp and what is curved keeps its size, other than with "PhaseBlurRadius".
  int smoothRadius = 0;
  /// The level at which the camera's pixels are full, in the images' levels; 0 to find it: 255 for 8 bits, of
  /// deeper images the end of the range of 8, 10, 12, 14 or 16 bits (or 1 of real numbers) that they use, or
  /// a value little below where many pixels pile up. The scanner's properties in grey levels are those of 8
  /// bits, 255 being this level.
  double whiteLevel = 0.0;

  /// @throws Exception that names the setting, its value and the bound
  VORN_API void check() const;
};

/// How many pixels came how far.
struct ScanCounts {
  std::size_t pixels = 0;  ///< of the camera's image
  std::size_t decoded = 0; ///< with a projector coordinate
  std::size_t points = 0;  ///< with a point: those of `PixelReason::Measured`
  /// Of every reason, by its value; together they are `pixels`.
  std::array<std::size_t, pixelReasonCount> reasons{};
  /// With a coordinate that `ScanSettings::smoothRadius` replaced; the other decoded ones stayed as they
  /// were.
  std::size_t smoothed = 0;

  /// The pixels of one reason.
  std::size_t of(PixelReason reason) const { return reasons[static_cast<std::size_t>(reason)]; }
};

/// How long the stages took, ms.
struct ScanTimes {
  double decode = 0.0;      ///< from the images to the map
  double triangulate = 0.0; ///< from the map to the points
  double rest = 0.0;        ///< texture, modulation, sigma, cloud
};

/// What a scan gives. The matrices are as large as the camera's image and belong to the result alone.
struct ScanResult {
  cv::Mat_<float> map;     ///< projector coordinate in projector pixels; -1 where there is none
  cv::Mat_<cv::Vec3f> xyz; ///< points in the frame of the scanner's pose, mm; NaN where there is none
  PointCloud cloud;        ///< the same points, organized, those that are NaN removed for good
  cv::Mat_<uchar> mask;    ///< a `PixelReason` a pixel
  /// Standard deviation that the images' noise gives a pixel's coordinate in `map`, projector pixels; NaN
  /// where there is none; after `ScanSettings::smoothRadius` what that leaves of it. What "PhaseBlurRadius"
  /// smooths is better than that.
  cv::Mat_<float> sigma;
  cv::Mat_<float> modulation; ///< fringe amplitude, in the images' levels, at every pixel
  ScanCounts counts;          ///< how many pixels came how far
  ScanTimes times;            ///< how long the stages took
  /// Largest error that `ScanSettings::correctsStaircase` took off, projector pixels, over the whole
  /// image; 0 for none.
  double staircase = 0.0;
  /// `ScanSettings::whiteLevel`, or what was found; of sets that of `DecodedPatterns`; 0 of `scanDecoded`.
  double whiteLevel = 0.0;
  /// In what the images contradict the sequence that the scanner decodes, as `DecodedPatterns::doubts`, by
  /// samples of them: "xor4" of the one axis is their set. Where nothing of that is found, that coordinates
  /// run against the calibration or most of them have no point (`PatternFault::Mirrored`), or what may be the
  /// cause when not a single pixel has a point (`PatternFault::Level`). None of `scanDecoded`; of a
  /// `PatternScanner` those of its set.
  std::vector<PatternDoubt> doubts;
};

/// From the images of a scan to its cloud: decoding, triangulation, texture.
///
/// A pixel has a point when it was decoded and its ray meets the light in front of the camera, wherever the
/// pose puts it, not so far away that half a projector pixel more or less would put it at infinity. All
/// points are in the frame of the pose, those of a "Vertical" scanner too. "PointcloudBlurRadius" averages
/// over measured pixels only, so neither holes nor borders pull at points, and none is made where none was
/// measured.
///
/// The noise is taken from what four phase images have in excess of a sinusoid, P0 - P1 + P2 - P3, whose
/// standard deviation is twice that of an image; its median over the measured pixels of like brightness
/// counts. A pixel's coordinate then has sigma = u / (2 pi) * noise / (sqrt(2) * amplitude), u the projector
/// pixels of a fringe.
///
/// Working memory: what `Sl3dScanner::decode` and the first `triangulate` take, which the scanner keeps;
/// 35 bytes a pixel more with "PointcloudBlurRadius", 8 with `ScanSettings::smoothRadius`. The result takes
/// 37 bytes a pixel with all its parts.
/// @param scanner  calibrated; keeps its working memory and the rays of both devices for the next scan
/// @param images   in the order that `Sl3dScanner::decode` takes them in, no more than the projector's
/// stripes
///                 need; all of one type, with 8- or 16-bit
///                 unsigned or floating-point pixels of one channel or three in blue, green and red, which
///                 are decoded as their grey levels. Full depth is used: nothing is rounded to 8 bits
/// @param observer asked between bands of rows; not within the smoothing of the phase, the search for small
///        pieces and the filling of holes
/// @throws Exception for a scanner that is not calibrated, or whose calibration leaves no base between camera
///         and projector or gives one of them a field of view below 1 or above 170 degrees; for settings out
///         of their range; what `Sl3dScanner::decode` throws
/// @throws Cancelled when the observer stops it; the scanner is as it was
VORN_API ScanResult scan(Sl3dScanner& scanner, std::vector<cv::Mat> const& images,
                         ScanSettings const& settings = {}, Observer* observer = nullptr);

/// The same with a scanner that stays as it is: several threads may scan with one, and nothing is kept for
/// the next scan.
VORN_API ScanResult scan(Sl3dScanner const& scanner, std::vector<cv::Mat> const& images,
                         ScanSettings const& settings = {}, Observer* observer = nullptr);

/// The points of what `decode_patterns` has decoded, from images of any pattern set, with the same scanner:
/// its properties of decoding do not matter. The cloud's grey is the modulation, white what one pixel in a
/// hundred exceeds; `ScanSettings::noise` does not matter.
///
/// Working memory: that of the first `Sl3dScanner::triangulate`, which the scanner keeps; the result as
/// above.
/// @param decoded of the camera's resolution, with the coordinate that "ScannerType" asks for, mask and
///        modulation; its sigmas may be missing
/// @throws Exception for a scanner as above, and for maps of another size or coordinate; Cancelled when the
///         observer stops it
VORN_API ScanResult scanDecoded(Sl3dScanner& scanner, DecodedPatterns const& decoded,
                                ScanSettings const& settings = {}, Observer* observer = nullptr);

} // namespace vorn::mv
