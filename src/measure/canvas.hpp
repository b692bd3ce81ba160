// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/mv/measure/raster_font.hpp>

namespace vorn::mv {

using Outline = std::vector<cv::Point2d>;

/// How a word is put on a canvas.
struct Label {
  FontSize size = FontSize::Medium;
  int scale = 1;
  cv::Vec3b color{255, 255, 255};
  bool hasHalo = false;
  TextAcross across = TextAcross::Left;
  TextDown down = TextDown::Top;
  bool isUpright = false; ///< turned by 90 degrees, to be read from below to above
};

/// What lines are drawn with.
struct Pen {
  double width = 1.0;
  cv::Vec3b color{255, 255, 255};
  double halo = 0.0; ///< of a dark rim on either side; 0: none
};

/// Where pictures that explain are drawn: pixels or SVG, from the same calls. Pixel centres lie at integer
/// coordinates; colours are blue, green, red of 8 bits.
class Canvas {
public:
  Canvas() = default;
  Canvas(Canvas const&) = delete;
  Canvas& operator=(Canvas const&) = delete;
  virtual ~Canvas() = default;

  virtual cv::Size size() const = 0;
  /// What is drawn from here on shows within this rectangle only.
  virtual void clip(cv::Rect const& rectangle) = 0;
  /// A line with round ends and corners; one point is a dot.
  virtual void stroke(Outline const& line, Pen const& pen) = 0;
  virtual void circle(cv::Point2d centre, double radius, Pen const& pen) = 0;
  /// The inside of a closed line, by the even-odd rule.
  virtual void fill(Outline const& outline, cv::Vec3b const& color, double opacity) = 0;
  /// An image, one pixel a pixel.
  /// @param image CV_8UC3
  virtual void picture(cv::Mat const& image, cv::Point corner) = 0;

  void fill(cv::Rect const& rectangle, cv::Vec3b const& color, double opacity = 1.0);
  /// @return as `RasterFont::measure`
  TextExtent text(std::string_view words, cv::Point2d position, Label const& label);

protected:
  /// Letters of whole pixels.
  virtual void stamp(cv::Mat_<uchar> const& ink, cv::Point corner, cv::Vec3b const& color,
                     std::string_view words) = 0;
};

/// What the halo around lines and letters is drawn in.
inline cv::Vec3b const haloColor{16, 16, 16};

/// An int far from overflow.
int toPixel(double coordinate);

/// The pixels that a line with so much room around it reaches.
cv::Rect boxOf(Outline const& line, double room);

/// A circle or ellipse with its half axes along a turned x and y, as a closed line.
/// @param angle of the first half axis from x towards y, rad
Outline ellipseOutline(cv::Point2d centre, cv::Size2d halfAxes, double angle);

/// A canvas of pixels.
class RasterCanvas : public Canvas {
public:
  /// @param low, high what black and white of a colour become in the picture
  /// @param picture drawn into; three channels of any depth
  RasterCanvas(cv::Mat& picture, double low, double high);
  /// One that draws into some rows only, so that others may be drawn at the same time.
  RasterCanvas(cv::Mat& picture, double low, double high, cv::Range const& rows);

  cv::Size size() const override { return picture_.size(); }
  void clip(cv::Rect const& rectangle) override;
  using Canvas::fill;
  void stroke(Outline const& line, Pen const& pen) override;
  void circle(cv::Point2d centre, double radius, Pen const& pen) override;
  void fill(Outline const& outline, cv::Vec3b const& color, double opacity) override;
  void picture(cv::Mat const& image, cv::Point corner) override;

protected:
  void stamp(cv::Mat_<uchar> const& ink, cv::Point corner, cv::Vec3b const& color,
             std::string_view words) override;

private:
  cv::Vec3d toDepth(cv::Vec3b const& color) const;
  void blend(cv::Rect const& box, cv::Mat_<float> const& coverage, cv::Vec3b const& color);
  /// Draws what a sheet of distances from a line covers.
  void ink(cv::Rect const& box, cv::Mat_<float>& distances, Pen const& pen);
  cv::Rect widened(cv::Rect box) const;
  void fetch(cv::Rect const& box) const;
  cv::Mat_<float> sheetOf(cv::Size size);
  void strokeInParts(cv::Point2d const& a, cv::Point2d const& b, Pen const& pen, double partLength);

  cv::Mat picture_;
  double low_;
  double high_;
  cv::Rect limits_;
  cv::Rect clip_;
  cv::Mat_<float> sheet_;
};

/// A canvas of SVG.
class SvgCanvas : public Canvas {
public:
  explicit SvgCanvas(cv::Size size);

  cv::Size size() const override { return size_; }
  void clip(cv::Rect const& rectangle) override;
  using Canvas::fill;
  void stroke(Outline const& line, Pen const& pen) override;
  void circle(cv::Point2d centre, double radius, Pen const& pen) override;
  void fill(Outline const& outline, cv::Vec3b const& color, double opacity) override;
  /// Embeds the image, or refers to `imageLink` where it is not empty.
  void picture(cv::Mat const& image, cv::Point corner) override;

  std::string imageLink;
  /// The document.
  std::string document() const;

protected:
  void stamp(cv::Mat_<uchar> const& ink, cv::Point corner, cv::Vec3b const& color,
             std::string_view words) override;

private:
  cv::Size size_;
  std::string body_;
  int clips_ = 0;
};

} // namespace vorn::mv
