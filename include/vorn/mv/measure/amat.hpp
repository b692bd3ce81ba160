// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <limits>
#include <set>
#include <string>
#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/core/export.hpp>
#include <vorn/core/interfaces.hpp>
#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/measure/mark.hpp>

namespace vorn::mv {

/// What an annotated image is drawn into.
enum class DrawDepth {
  Eight, ///< CV_8UC3: the image's range becomes 0 to 255
  Own    ///< three channels of the image's own depth, values kept; colours are stretched over its range
};

/// How an annotated image is drawn.
struct DrawSettings {
  /// The part of the image to show, in its pixels; empty: all of it. What lies outside the image is cut off.
  cv::Rect crop;
  /// Picture pixels an image pixel, 0.01 to 100. Enlarged pixels stay squares; reduced ones are averaged.
  double zoom = 1.0;
  /// Depth of the picture; `drawSvg` draws 8 bits always.
  DrawDepth depth = DrawDepth::Eight;
  /// What is shown black and white. NaN: 0 and 255 for 8 bits; for other depths what 0.1 % and 99.9 % of the
  /// finite values do not exceed.
  double low = std::numeric_limits<double>::quiet_NaN();
  /// What is shown white, as `low`; above it, and finite as well.
  double high = std::numeric_limits<double>::quiet_NaN();
  /// Factor on the marks' widths, sizes and letters, 0 to 64. 0: 1 for pictures of up to 1600 pixels on their
  /// longer side, beyond in proportion, so that marks are seen when a large picture is shown whole.
  double markScale = 0.0;
  /// Of the margins, where title and legends stand.
  Ground ground = Ground::Dark;
  /// For SVG: where the image lies (a path or address beside the document); empty: it is embedded.
  std::string imageLink;
};

/// What became of the marks.
struct DrawReport {
  std::size_t drawn = 0;         ///< whole or in part, legends included
  std::size_t outside = 0;       ///< nothing of it lies within the part shown
  std::size_t behindCamera = 0;  ///< a point in millimetres that the view cannot see
  std::size_t hidden = 0;        ///< of a hidden layer
  std::size_t missingGlyphs = 0; ///< characters drawn as boxes
  /// Pixel (0, 0) of the part shown lies here in the picture: beside it are margins.
  cv::Point imageCorner;
};

/// An annotated image as a picture.
struct Drawing {
  cv::Mat picture;   ///< blue, green, red: CV_8UC3, or of the image's depth by `DrawDepth::Own`
  DrawReport report; ///< what became of the marks
};

/// An annotated image as SVG.
struct SvgDrawing {
  std::string document; ///< a whole SVG file, UTF-8
  DrawReport report;    ///< what became of the marks
};

/// An image with marks on it, which stay data until they are drawn: into a picture of any depth, or as SVG
/// with the same look.
///
/// Points given as cv::Point2d are pixels of the image, with centres at integers; those given as cv::Point3d
/// are millimetres in the frame of `setView`. Copies share the image's pixels.
class VORN_API AMat : public virtual IJsonSerializable {
public:
  AMat() = default;
  /// @throws Exception as `setImage`
  explicit AMat(cv::Mat image);
  ~AMat() override;
  AMat(AMat const&) = default;
  AMat& operator=(AMat const&) = default;
  AMat(AMat&&) = default;
  AMat& operator=(AMat&&) = default;

  /// The image that is drawn on, not a copy; empty when none was set.
  cv::Mat const& image() const { return image_; }
  /// @param image any depth but CV_16F; 1, 3 or 4 channels (the fourth is left out), not empty; shared
  /// @throws Exception for another image
  void setImage(cv::Mat image);
  /// A line above the picture; empty: none.
  void setTitle(std::string title) { title_ = std::move(title); }
  /// The line above the picture, UTF-8; empty: none.
  std::string const& title() const { return title_; }

  /// Where millimetres are seen: a calibrated camera and the transform of its frame from the marks' frame.
  /// @throws Exception when the camera is not calibrated or the transform not finite
  void setView(CameraModel const& camera, cv::Matx44d const& cam_from_world);

  /// Adds a mark; the convenient calls below do so too.
  /// @throws Exception that names what is not finite, out of its range or missing; nothing is added then
  void add(Mark mark);
  /// All marks in the order in which they were added and are drawn, those of hidden layers too.
  std::vector<Mark> const& marks() const { return marks_; }
  /// Takes all marks off; image, title, view and what layers are hidden stay.
  void clear() { marks_.clear(); }
  /// Takes the marks of a layer off; "" is that of marks without a layer. Without such marks
  /// nothing happens.
  void clearLayer(std::string const& layer);

  /// A filled dot at a pixel position, its radius `style.size`.
  /// @throws Exception as `add`; so do all of the following that add a mark
  void addPoint(cv::Point2d point, MarkStyle const& style = {}, std::string const& layer = {});
  /// The same at a position in millimetres.
  void addPoint(cv::Point3d point, MarkStyle const& style = {}, std::string const& layer = {});
  /// An upright cross at a pixel position, `style.size` from its centre to the end of each bar.
  void addCross(cv::Point2d point, MarkStyle const& style = {}, std::string const& layer = {});
  /// The same at a position in millimetres; it stays upright in the picture.
  void addCross(cv::Point3d point, MarkStyle const& style = {}, std::string const& layer = {});
  /// An arrow between pixel positions, its tip at `to`; the head is 2 `style.size` long, at most as
  /// long as the arrow.
  void addArrow(cv::Point2d from, cv::Point2d to, MarkStyle const& style = {}, std::string const& layer = {});
  /// The same between positions in millimetres, straight in the picture.
  void addArrow(cv::Point3d from, cv::Point3d to, MarkStyle const& style = {}, std::string const& layer = {});
  /// A line through pixel positions in their order, not closed.
  /// @param points two or more
  void addLine(std::vector<cv::Point2d> const& points, MarkStyle const& style = {},
               std::string const& layer = {});
  /// The same through positions in millimetres, bent as the lens bends it. Not drawn when any part of it lies
  /// behind the camera.
  /// @param points two or more
  void addLine(std::vector<cv::Point3d> const& points, MarkStyle const& style = {},
               std::string const& layer = {});
  /// A circle about a pixel position.
  /// @param radius in px of the image, 0 to 1e9
  void addCircle(cv::Point2d center, double radius, MarkStyle const& style = {},
                 std::string const& layer = {});
  /// A circle in the plane of constant z, seen in perspective.
  /// @param radius in mm, 0 to 1e9
  void addCircle(cv::Point3d center, double radius, MarkStyle const& style = {},
                 std::string const& layer = {});
  /// An ellipse about a pixel position.
  /// @param halfAxes in px of the image, 0 to 1e9
  /// @param angle of the first half axis, degrees from x towards y
  void addEllipse(cv::Point2d center, cv::Size2d halfAxes, double angle, MarkStyle const& style = {},
                  std::string const& layer = {});
  /// A closed line through pixel positions, filled where `style.isFilled` says so.
  /// @param points three or more, the first one not repeated
  void addPolygon(std::vector<cv::Point2d> const& points, MarkStyle const& style = {},
                  std::string const& layer = {});
  /// The same through positions in millimetres; its sides are bent as the lens bends them. Not drawn when any
  /// part of it lies behind the camera.
  /// @param points three or more, the first one not repeated
  void addPolygon(std::vector<cv::Point3d> const& points, MarkStyle const& style = {},
                  std::string const& layer = {});
  /// Words that begin at a pixel position, with the middle of their height on it.
  /// @param text UTF-8; a line feed starts a new line
  void addText(cv::Point2d point, std::string const& text, MarkStyle const& style = {},
               std::string const& layer = {});
  /// The same at a position in millimetres.
  /// @param text UTF-8; a line feed starts a new line
  void addText(cv::Point3d point, std::string const& text, MarkStyle const& style = {},
               std::string const& layer = {});
  /// A bar of a known length in the lower left corner.
  void addScaleBar(double length_mm, double mmPerPixel, MarkStyle const& style = {});
  /// The colours of values, in the right margin.
  void addLegend(ColorMap map, double low, double high, std::string const& unit,
                 std::string const& title = {});
  /// The axes of the world's frame, with their names.
  void addAxes(double length_mm, std::string const& name = {}, MarkStyle const& style = {});

  /// Draws the marks of a layer again. All layers are shown until they are hidden.
  void showLayer(std::string const& layer) { hiddenLayers_.erase(layer); }
  /// Leaves the marks of a layer out of pictures, those that are added later too; "" is that of marks without
  /// a layer.
  void hideLayer(std::string const& layer) { hiddenLayers_.insert(layer); }
  /// The names of all layers that have marks, in order.
  std::vector<std::string> layers() const;

  /// The picture: a copy of the image with its marks, and margins for title and legends where there are any.
  /// @throws Exception when there is no image, the crop lies outside, a setting is out of its range, or there
  ///         are marks in millimetres but no view
  Drawing draw(DrawSettings const& settings = {}) const;
  /// The same as an SVG document; letters are paths, so they need no font and look the same.
  /// @throws Exception as `draw`
  SvgDrawing drawSvg(DrawSettings const& settings = {}) const;

  /// Writes marks, title, hidden layers and view, not the image.
  void write(nlohmann::json& json) const override;
  /// Takes them; the image stays.
  /// @throws Exception or nlohmann::json::exception, with nothing changed
  void read(nlohmann::json const& json) override;

private:
  cv::Mat image_;
  std::string title_;
  std::vector<Mark> marks_;
  std::set<std::string> hiddenLayers_;
  CameraModel camera_;
  cv::Matx44d cam_from_world_ = cv::Matx44d::zeros();
};

} // namespace vorn::mv
