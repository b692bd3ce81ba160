// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>

#include <vorn/core/export.hpp>
#include <vorn/mv/calib/laser_color.hpp>
#include <vorn/mv/calib/laser_line.hpp>
#include <vorn/mv/pointcloud/point_cloud.hpp>

namespace vorn {
class Observer;
}

namespace vorn::mv {

class LineScanner;

/// How a linear stage moves the scene under a laser line scanner.
struct Stage {
  /// Motion of the scene from one position to the next, camera frame, mm. With `places` its direction counts
  /// alone. It may be zero when there is one position.
  cv::Vec3d step;
  /// The stage's places along the step, mm, one a position or one an image; empty for even steps.
  std::vector<double> places;
};

/// What a laser scan is done with.
struct LaserScanSettings {
  /// How the lines are looked for; the direction is taken from the laser planes, and of each image one line
  /// counts, whatever `maxPeaks` says.
  LaserLineOptions line = overexposedToo();
  /// What of colour images counts; none to find it in some of them, by `findLaserColor`.
  std::optional<LaserColor> color;
  /// The level at which the camera's pixels are full, in the images' levels; 0 to find it, as
  /// `ScanSettings::whiteLevel`. Grey levels in `line` are those of 8 bits, 255 being this level.
  double whiteLevel = 0.0;

  /// @throws Exception that names the setting, its value and the bound
  VORN_API void check() const;
};

/// What a laser scan gives.
struct LaserScanResult {
  /// Points in one row, mm, image by image; where they lay in the camera's frame in the first image.
  PointCloud cloud;
  std::size_t images = 0;       ///< all that were given
  std::size_t emptyImages = 0;  ///< images without a line
  std::size_t points = 0;       ///< of the cloud
  double readTime = 0.0;        ///< ms of all threads, to get the images
  double extractTime = 0.0;     ///< ms of all threads, to find the lines
  double triangulateTime = 0.0; ///< ms of all threads
  LaserColor color;             ///< `LaserScanSettings::color`, or what was found
  double whiteLevel = 0.0;      ///< `LaserScanSettings::whiteLevel`, or what was found
  /// Images that were refused, of the empty ones: in which two stripes ran side by side.
  std::size_t ambiguousImages = 0;
  std::size_t overexposed = 0; ///< stripes that were measured by their flanks
  /// Standard deviation of each point's place in its image that noise of one grey level gives, pixels, in the
  /// order of the cloud; see `LaserPeak::sigma`.
  std::vector<float> sigma;
};

/// From images of laser lines and the motion of a stage to a cloud. Images are worked on in parallel, with
/// the same result to the bit whatever the number of threads.
/// @param scanner  calibrated
/// @param images   at each position of the stage an image a laser line, in the order of the scanner's planes;
///                 CV_8UC1 or CV_8UC3, of the camera's size
/// @param observer asked between images and within them
/// @throws Exception when the scanner is not calibrated; when the images are no multiple of its planes or of
///         another size, naming the image; when the stage's places do not go with the images, or it moves by
///         more than a kilometre, or not at all; what `extract_laser_line` throws
/// @throws Cancelled when the observer stops it
VORN_API LaserScanResult scanLaser(LineScanner const& scanner, std::vector<cv::Mat> const& images,
                                   Stage const& stage, LaserScanSettings const& settings = {},
                                   Observer* observer = nullptr);

/// Gives image number i, from any thread, several at a time.
using LaserImageSource = std::function<cv::Mat(std::size_t)>;

/// The same from images that are made when they are needed, such as read from files: only as many as there
/// are threads are in memory at a time.
VORN_API LaserScanResult scanLaser(LineScanner const& scanner, std::size_t imageCount,
                                   LaserImageSource const& image, Stage const& stage,
                                   LaserScanSettings const& settings = {}, Observer* observer = nullptr);

} // namespace vorn::mv
