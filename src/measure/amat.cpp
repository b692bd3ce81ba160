// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/measure/amat.hpp>

#include <algorithm>
#include <cmath>
#include <utility>

#include <opencv2/core.hpp>

#include "core/error.hpp"
#include "measure/mark_names.hpp"

namespace vorn::mv {

namespace {

constexpr char const* function = "AMat";

std::vector<cv::Point3d> lifted(std::vector<cv::Point2d> const& points) {
  std::vector<cv::Point3d> result;
  result.reserve(points.size());
  for (cv::Point2d const& p : points) {
    result.emplace_back(p.x, p.y, 0.0);
  }
  return result;
}

Mark markOf(MarkKind kind, MarkSpace space, std::vector<cv::Point3d> points, MarkStyle const& style,
            std::string const& layer) {
  Mark mark;
  mark.kind = kind;
  mark.space = space;
  mark.points = std::move(points);
  mark.style = style;
  mark.layer = layer;
  return mark;
}

Mark inPixels(MarkKind kind, std::vector<cv::Point2d> const& points, MarkStyle const& style,
              std::string const& layer) {
  return markOf(kind, MarkSpace::Pixel, lifted(points), style, layer);
}

Mark inWorld(MarkKind kind, std::vector<cv::Point3d> points, MarkStyle const& style,
             std::string const& layer) {
  return markOf(kind, MarkSpace::World, std::move(points), style, layer);
}

/// The fewest and most points of a kind.
std::pair<std::size_t, std::size_t> pointsOf(MarkKind kind) {
  constexpr std::size_t any = static_cast<std::size_t>(-1);
  switch (kind) {
  case MarkKind::Arrow:
    return {2, 2};
  case MarkKind::Line:
    return {2, any};
  case MarkKind::Polygon:
    return {3, any};
  case MarkKind::ScaleBar:
    return {0, 1};
  case MarkKind::Legend:
    return {0, 0};
  default:
    return {1, 1};
  }
}

void checkRange(std::string const& name, double value, double low, double high) {
  if (!(value >= low && value <= high)) {
    throw error(name + " must be " + std::to_string(low) + " to " + std::to_string(high) + ", not " +
                    std::to_string(value),
                function);
  }
}

void checkNumbers(Mark const& mark, std::string const& name) {
  for (std::size_t i = 0; i < mark.points.size(); ++i) {
    cv::Point3d const& p = mark.points[i];
    if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z)) {
      throw error("Point " + std::to_string(i) + " of the " + name + " is not finite: (" +
                      std::to_string(p.x) + ", " + std::to_string(p.y) + ", " + std::to_string(p.z) + ")",
                  function);
    }
  }
  constexpr double greatest = 1e9;
  if (mark.kind == MarkKind::Circle || mark.kind == MarkKind::Ellipse) {
    checkRange(name + ": length", mark.length, 0.0, greatest);
  }
  if (mark.kind == MarkKind::Ellipse) {
    checkRange(name + ": length2", mark.length2, 0.0, greatest);
    checkRange(name + ": angle", mark.angle, -greatest, greatest);
  }
  if (mark.kind == MarkKind::ScaleBar || mark.kind == MarkKind::Axes) {
    constexpr double least = 1e-9;
    checkRange(name + ": length", mark.length, least, greatest);
    if (mark.kind == MarkKind::ScaleBar && mark.space == MarkSpace::Pixel) {
      checkRange(name + ": mmPerPixel", mark.mmPerPixel, least, greatest);
    }
  }
  if (mark.kind == MarkKind::Legend &&
      !(std::isfinite(mark.low) && std::isfinite(mark.high) && mark.low < mark.high)) {
    throw error("The low end of the Legend, " + std::to_string(mark.low) + ", must be below its high end, " +
                    std::to_string(mark.high),
                function);
  }
}

void check(Mark const& mark) {
  std::string const name = nameOf(mark.kind);
  auto const [fewest, most] = pointsOf(mark.kind);
  if (mark.points.size() < fewest || mark.points.size() > most) {
    throw error("The " + name + " has " + std::to_string(mark.points.size()) + " points; it takes " +
                    std::to_string(fewest) + (most == fewest ? "" : " or more"),
                function);
  }
  if (mark.kind == MarkKind::Axes && mark.space != MarkSpace::World) {
    throw error("Axes are drawn in millimetres only", function);
  }
  if (mark.kind == MarkKind::Ellipse && mark.space != MarkSpace::Pixel) {
    throw error("An Ellipse is drawn in pixels only", function);
  }
  checkNumbers(mark, name);
  constexpr double widest = 1000.0;
  constexpr double largest = 10000.0;
  constexpr double least = 0.1;
  constexpr int largestFont = 64;
  checkRange(name + ": width", mark.style.width, least, widest);
  checkRange(name + ": size", mark.style.size, least, largest);
  checkRange(name + ": opacity", mark.style.opacity, 0.0, 1.0);
  checkRange(name + ": fontScale", mark.style.fontScale, 1, largestFont);
}

} // namespace

AMat::AMat(cv::Mat image) {
  setImage(std::move(image));
}

AMat::~AMat() = default;

void AMat::setImage(cv::Mat image) {
  if (image.empty()) {
    throw error("The image is empty", function);
  }
  if (image.dims > 2 || image.depth() > CV_64F ||
      (image.channels() != 1 && image.channels() != 3 && image.channels() != 4)) {
    throw error("The image must have 1, 3 or 4 channels of 8, 16 or 32 bits or double, not " +
                    std::to_string(image.channels()) + " of type " + std::to_string(image.type()),
                function);
  }
  image_ = std::move(image);
}

void AMat::setView(CameraModel const& camera, cv::Matx44d const& cam_from_world) {
  if (camera.getK().empty()) {
    throw error("The camera of the view is not calibrated", function);
  }
  if (!cv::checkRange(cv::Mat(cam_from_world))) {
    throw error("The view's transform is not finite", function);
  }
  camera_ = camera;
  cam_from_world_ = cam_from_world;
}

void AMat::add(Mark mark) {
  check(mark);
  marks_.push_back(std::move(mark));
}

void AMat::clearLayer(std::string const& layer) {
  marks_.erase(std::remove_if(marks_.begin(), marks_.end(), [&](Mark const& m) { return m.layer == layer; }),
               marks_.end());
}

std::vector<std::string> AMat::layers() const {
  std::set<std::string> names;
  for (Mark const& mark : marks_) {
    names.insert(mark.layer);
  }
  return {names.begin(), names.end()};
}

void AMat::addPoint(cv::Point2d point, MarkStyle const& style, std::string const& layer) {
  add(inPixels(MarkKind::Point, {point}, style, layer));
}

void AMat::addPoint(cv::Point3d point, MarkStyle const& style, std::string const& layer) {
  add(inWorld(MarkKind::Point, {point}, style, layer));
}

void AMat::addCross(cv::Point2d point, MarkStyle const& style, std::string const& layer) {
  add(inPixels(MarkKind::Cross, {point}, style, layer));
}

void AMat::addCross(cv::Point3d point, MarkStyle const& style, std::string const& layer) {
  add(inWorld(MarkKind::Cross, {point}, style, layer));
}

void AMat::addArrow(cv::Point2d from, cv::Point2d to, MarkStyle const& style, std::string const& layer) {
  add(inPixels(MarkKind::Arrow, {from, to}, style, layer));
}

void AMat::addArrow(cv::Point3d from, cv::Point3d to, MarkStyle const& style, std::string const& layer) {
  add(inWorld(MarkKind::Arrow, {from, to}, style, layer));
}

void AMat::addLine(std::vector<cv::Point2d> const& points, MarkStyle const& style, std::string const& layer) {
  add(inPixels(MarkKind::Line, points, style, layer));
}

void AMat::addLine(std::vector<cv::Point3d> const& points, MarkStyle const& style, std::string const& layer) {
  add(inWorld(MarkKind::Line, points, style, layer));
}

void AMat::addCircle(cv::Point2d center, double radius, MarkStyle const& style, std::string const& layer) {
  Mark mark = inPixels(MarkKind::Circle, {center}, style, layer);
  mark.length = radius;
  add(std::move(mark));
}

void AMat::addCircle(cv::Point3d center, double radius, MarkStyle const& style, std::string const& layer) {
  Mark mark = inWorld(MarkKind::Circle, {center}, style, layer);
  mark.length = radius;
  add(std::move(mark));
}

void AMat::addEllipse(cv::Point2d center, cv::Size2d halfAxes, double angle, MarkStyle const& style,
                      std::string const& layer) {
  Mark mark = inPixels(MarkKind::Ellipse, {center}, style, layer);
  mark.length = halfAxes.width;
  mark.length2 = halfAxes.height;
  mark.angle = angle;
  add(std::move(mark));
}

void AMat::addPolygon(std::vector<cv::Point2d> const& points, MarkStyle const& style,
                      std::string const& layer) {
  add(inPixels(MarkKind::Polygon, points, style, layer));
}

void AMat::addPolygon(std::vector<cv::Point3d> const& points, MarkStyle const& style,
                      std::string const& layer) {
  add(inWorld(MarkKind::Polygon, points, style, layer));
}

void AMat::addText(cv::Point2d point, std::string const& text, MarkStyle const& style,
                   std::string const& layer) {
  Mark mark = inPixels(MarkKind::Text, {point}, style, layer);
  mark.text = text;
  add(std::move(mark));
}

void AMat::addText(cv::Point3d point, std::string const& text, MarkStyle const& style,
                   std::string const& layer) {
  Mark mark = inWorld(MarkKind::Text, {point}, style, layer);
  mark.text = text;
  add(std::move(mark));
}

void AMat::addScaleBar(double length_mm, double mmPerPixel, MarkStyle const& style) {
  Mark mark = inPixels(MarkKind::ScaleBar, {}, style, {});
  mark.length = length_mm;
  mark.mmPerPixel = mmPerPixel;
  add(std::move(mark));
}

void AMat::addLegend(ColorMap map, double low, double high, std::string const& unit,
                     std::string const& title) {
  Mark mark = inPixels(MarkKind::Legend, {}, {}, {});
  mark.map = map;
  mark.low = low;
  mark.high = high;
  mark.unit = unit;
  mark.text = title;
  add(std::move(mark));
}

void AMat::addAxes(double length_mm, std::string const& name, MarkStyle const& style) {
  Mark mark = inWorld(MarkKind::Axes, {{0, 0, 0}}, style, {});
  mark.length = length_mm;
  mark.text = name;
  add(std::move(mark));
}

} // namespace vorn::mv
