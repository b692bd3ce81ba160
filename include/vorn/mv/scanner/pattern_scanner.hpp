// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <opencv2/core/mat.hpp>

#include <vorn/core/export.hpp>
#include <vorn/mv/scanner/calibrate_scanner.hpp>
#include <vorn/mv/scanner/calibration.hpp>
#include <vorn/mv/scanner/scan.hpp>
#include <vorn/mv/sl/decode_patterns.hpp>
#include <vorn/mv/sl/pattern_set.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

namespace vorn {
class Observer;
}

namespace vorn::mv {

/// One pose of the target under the images of a pattern set.
struct PatternView {
  std::string name; ///< for messages and reports
  /// The target under plain light, CV_8UC1 or CV_8UC3; empty to take the set's white image, of the longest
  /// exposure.
  cv::Mat target;
  std::vector<cv::Mat> images;   ///< as `decode_patterns` takes them
  std::optional<PatternSet> set; ///< what they show, where it is not the scanner's set
};

/// Gives view number i, from any thread, several at a time. An `Exception` that it throws
/// becomes the view's reason.
using PatternViewSource = std::function<PatternView(std::size_t)>;

/// How a `PatternScanner` works.
struct PatternScanSettings {
  DecodeSettings decode; ///< from images to coordinates
  ScanSettings scan;     ///< what is made beside the points; its noise does not matter
  /// A pixel whose column and row are farther than this from a common point of the projector's image is
  /// rejected, projector pixels beyond five standard deviations of what noise makes; infinity rejects none.
  double mostEpipolar = 1.0;

  /// @throws Exception that names the setting, its value and the bound
  VORN_API void check() const;
};

/// How well both coordinates of pixels agree.
struct EpipolarFigures {
  std::size_t pixels = 0;   ///< with both coordinates, those rejected too
  std::size_t rejected = 0; ///< by `PatternScanSettings::mostEpipolar`
  double median = 0.0; ///< of the residuals of those kept, projector pixels; what the calibration is off by
  double rms = 0.0;    ///< of the same; edges of surfaces, where two mix, have their share
  /// Their standard deviation about the median from the middle of their distribution, 1.48 times the median
  /// absolute deviation: edges do not matter.
  double deviation = 0.0;
  double foretold = 0.0; ///< median of what the noise makes of each: what `deviation` should be
};

/// What a `PatternScanner` gives beside what `scan` gives.
struct PatternScanResult : ScanResult {
  /// Distance, with its sign, of the decoded projector point from the line on which the projector sees the
  /// pixel's ray, projector pixels of an image without distortion; NaN where a coordinate is missing. Empty
  /// when the set does not code both.
  cv::Mat_<float> epipolar;
  EpipolarFigures agreement;          ///< of `epipolar`
  double noise = 0.0;                 ///< as `DecodedPatterns::noise`
  std::vector<FringeFigures> fringes; ///< as `DecodedPatterns::fringes`
};

/// A scanner whose projector shows any pattern set: calibrates, decodes and triangulates, with results of the
/// same kinds as `calibrateScanner` and `scan`.
///
/// Points come from the coordinate that the scanner's "ScannerType" names. Where the set codes the other one
/// too, it tells of every pixel whether the two belong together: camera, projector and point lie in one plane
/// (R. I. Hartley, A. Zisserman, Multiple View Geometry in Computer Vision, 2004, chapter 9). That finds
/// wrong orders that no other test finds, and a projector that was moved after calibration.
class VORN_API PatternScanner {
public:
  /// @throws Exception for a set that cannot be decoded, and for settings out of their range
  explicit PatternScanner(PatternSet set, PatternScanSettings const& settings = {});
  /// With a scanner that is calibrated already, by whatever set.
  PatternScanner(PatternSet set, Sl3dScanner scanner, PatternScanSettings const& settings = {});

  /// The set that it was made with.
  PatternSet const& set() const { return set_; }
  /// The settings that it was made with.
  PatternScanSettings const& settings() const { return settings_; }
  /// The calibrated devices, such as to be saved.
  Sl3dScanner const& scanner() const { return scanner_; }

  /// As the `calibrateScanner` of views of the scanner's own sequence; sets must code both coordinates.
  /// Projector points are those of `find_projector_points`, whatever the set. The scanner keeps the result,
  /// its properties stay.
  /// @param settings `CalibrationSettings::projector` may be empty: the set knows it
  /// @throws Exception also where the set codes one coordinate only, or settings name another projector
  ScannerCalibration calibrate(std::vector<PatternView> const& views, CalibrationSettings const& settings,
                               Observer* observer = nullptr);
  /// The same from views that are made when they are needed.
  ScannerCalibration calibrate(std::vector<std::string> const& names, PatternViewSource const& view,
                               CalibrationSettings const& settings, Observer* observer = nullptr);

  /// As `decode_patterns`.
  DecodedPatterns decode(std::vector<cv::Mat> const& images, Observer* observer = nullptr) const;

  /// As `scanDecoded`; pixels whose coordinates contradict each other have no point and
  /// `PixelReason::Contradiction`.
  ///
  /// Working memory: that of `scanDecoded`, and 8 bytes a pixel where both coordinates are coded.
  /// @throws Exception as `scanDecoded`
  PatternScanResult triangulate(DecodedPatterns const& decoded, Observer* observer = nullptr);

  /// Both, from images to points.
  PatternScanResult scan(std::vector<cv::Mat> const& images, Observer* observer = nullptr);

private:
  PatternSet set_;
  PatternScanSettings settings_;
  Sl3dScanner scanner_;
};

} // namespace vorn::mv
