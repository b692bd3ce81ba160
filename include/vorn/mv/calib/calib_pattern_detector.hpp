// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/core/algorithm.hpp>
#include <vorn/core/export.hpp>
#include <vorn/core/typed_property.hpp>
#include <vorn/mv/calib/calib_key_point.hpp>
#include <vorn/mv/calib/calib_pattern_type.hpp>

namespace vorn {
class Observer;
}

namespace vorn::mv {

/// Finds the dots of a circle-grid calibration target in an image and tells which dot each one is.
///
/// The target is a square grid of dots from 0.2 to 0.8 of the pitch in diameter. Three marker dots half as
/// large again stand at the grid positions (0, 0), (1, 0) and (0, 1); seen from the front, x runs to the
/// right and y down. They give every dot its index however the target is turned and however much of it is
/// outside the image, as long as the three are in view. Where no markers are seen, indices count from the dot
/// nearest the middle of the visible grid, with x along the image's columns; see `Result::isOriginMarked`.
///
/// The position of a key point is the image of the dot's centre. That is not the centre of the dot's image:
/// perspective shifts one against the other by up to tenths of a pixel, which is corrected.
///
/// Dots that are cut by the image border, by the edge of the light or by something in front of the target are
/// left out, and so are dots that do not stand where those around them say.
class VORN_API CalibPatternDetector : public AlgorithmBase {
public:
  class Result;

  CalibPatternDetector();

  /// Searches an image.
  ///
  /// Working memory: 3 bytes a pixel, one more for a colour image or dark dots; up to 11 in an image full of
  /// noise. "QuadraticFit" takes about 14 megabytes for the dots of a whole target.
  /// @param image H x W CV_8UC1, or CV_8UC3 in blue, green, red
  /// @return the dots by rows of the grid; an empty result when there is no target in view
  /// @throws Exception "Invalid input image type" for any other image, and before `Library::init`
  Result detect(cv::Mat const& image) const;

  /// The same, watched.
  /// @param observer may be null
  /// @throws Cancelled when the observer stops it
  Result detect(cv::Mat const& image, Observer* observer) const;

  std::string const& getClassName() const override;

  /// Polarity of the dots.
  VORN_PROPERTY(CalibPatternType, patternType, PatternType,
                CalibPatternType(CalibPatternType::CircleGridWhiteOnGray));

  /// The pitch; the unit of the positions on the target.
  VORN_PROPERTY(double, patternDim, PatternDim, 20.0, 1.0, 100.0);

  /// First column of the grid.
  VORN_PROPERTY(int, xMin, XMin, -10, -30, -1);

  /// Last column of the grid.
  VORN_PROPERTY(int, xMax, XMax, 10, 1, 30);

  /// First row of the grid.
  VORN_PROPERTY(int, yMin, YMin, -7, -30, -1);

  /// Last row of the grid.
  VORN_PROPERTY(int, yMax, YMax, 7, 1, 30);

  /// Fewer dots count as no target.
  VORN_PROPERTY(int, minKeypointCount, MinKeypointCount, 30, 9, 100);

  /// Least area of the ordinary dots, px²; narrow bounds make the search faster. They say what is looked for:
  /// of a grid whose dots lie about a bound all are kept.
  VORN_PROPERTY(double, minDotArea, MinDotArea, 50.0, 0.0, 500.0);

  /// Greatest area of the ordinary dots, px², likewise.
  VORN_PROPERTY(double, maxDotArea, MaxDotArea, 1000.0, 100.0, 10000.0);

  /// Of the smoothing before the search, px; its Gaussian has a third of it as deviation, and never more than
  /// a sixth of the smallest dot's diameter.
  VORN_PROPERTY(int, blurRadius, BlurRadius, 7, 0, 15);

  /// Specks and necks of less than this radius are taken off the blobs, px.
  VORN_PROPERTY(int, morphRadius, MorphRadius, 1, 0, 10);

  /// Least ratio of a dot's short axis to its long one; 0.5 is a tilt of 60 degrees.
  VORN_PROPERTY(double, minDotRatio, MinDotRatio, 0.3, 0.1, 1.0);

  /// Least area of a dot relative to the ordinary dots.
  VORN_PROPERTY(double, minDotAreaMultiplier, MinDotAreaMultiplier, 0.6, 0.1, 1.0);

  /// Greatest area of a dot relative to the ordinary dots; bounds the markers.
  VORN_PROPERTY(double, maxDotAreaMultiplier, MaxDotAreaMultiplier, 6.0, 1.0, 10.0);

  /// First column of the dots around the origin that must agree on one homography; a lens with strong
  /// distortion wants fewer.
  VORN_PROPERTY(int, pxMin, PXMin, -2, -5, -1);

  /// Last column of those dots.
  VORN_PROPERTY(int, pxMax, PXMax, 2, 1, 5);

  /// First row of those dots.
  VORN_PROPERTY(int, pyMin, PYMin, -2, -5, -1);

  /// Last row of those dots.
  VORN_PROPERTY(int, pyMax, PYMax, 2, 1, 5);

  /// Measures centres by the peak of the correlation with a drawn dot, refined by `math::quadraticFit`,
  /// instead of by a fit to its edge, which is faster and scatters less.
  VORN_PROPERTY(bool, quadraticFit, QuadraticFit, false);
};

/// The dots that a detector found.
class VORN_API CalibPatternDetector::Result : public AlgorithmResultBase {
public:
  Result();

  /// Appends a dot.
  void addKeyPoint(CalibKeyPoint const& keyPoint);
  /// The number of dots.
  int count() const;
  /// True when no target was found.
  bool isEmpty() const;
  /// @throws Exception for a number outside [0, count())
  CalibKeyPoint const& getKeyPoint(int number) const;
  /// All dots, to change.
  std::vector<CalibKeyPoint>& getKeyPoints();
  /// All dots, by rows of the grid.
  std::vector<CalibKeyPoint> const& getKeyPoints() const;
  /// The image positions, in the order of the key points.
  std::vector<cv::Point2f> getImgPnts() const;
  /// The positions on the target, in the order of the key points.
  std::vector<cv::Point2f> getObjPnts() const;

  /// Whether the marker dots were seen, so that every dot has its own index. Views from several devices go
  /// together only if they were, for each device counts from another origin otherwise.
  bool isOriginMarked() const;
  /// Says whether the marker dots were seen.
  void setOriginMarked(bool isMarked);

  /// Draws the dots into an image: a ring about each and the lines of the grid in `color1`; the axes from the
  /// origin, with their names, the markers and the indices along both axes in `color2`. Nothing for an empty
  /// result.
  /// @param image  8-bit, any number of channels; drawn upon
  /// @param radius of the rings, pixels
  void draw(cv::Mat& image, int radius, cv::Scalar const& color1, cv::Scalar const& color2) const;

  std::string const& getClassName() const override;

private:
  struct Private;
  Private const& own() const;
  Private& change();
};

} // namespace vorn::mv
