// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "measure/mark_painter.hpp"

#include <algorithm>
#include <array>
#include <cmath>

#include <opencv2/core.hpp>

#include "core/error.hpp"
#include "measure/ticks.hpp"

namespace vorn::mv {

namespace {

constexpr int curvePieces = 16; // of a straight line in space, which a lens bends
constexpr double haloWidth = 1.0;

/// A circle in the plane of constant z, as a closed polygon in space.
std::vector<cv::Point3d> circleInSpace(cv::Point3d const& centre, double radius) {
  constexpr int corners = 96;
  std::vector<cv::Point3d> points;
  for (int i = 0; i <= corners; ++i) {
    double const turn = 2.0 * CV_PI * (i % corners) / corners;
    points.push_back(centre + radius * cv::Point3d(std::cos(turn), std::sin(turn), 0.0));
  }
  return points;
}

bool isClosedShape(MarkKind kind) {
  return kind == MarkKind::Circle || kind == MarkKind::Ellipse || kind == MarkKind::Polygon;
}

} // namespace

cv::Point2d MarkPlacement::place(cv::Point2d const& pixel) const {
  constexpr double half = 0.5; // a pixel reaches half of one beyond its centre, before and after the zoom
  return {(pixel.x - shown.x + half) * zoom - half + area.x,
          (pixel.y - shown.y + half) * zoom - half + area.y};
}

std::optional<Outline> MarkPainter::placed(Mark const& mark, std::vector<cv::Point3d> const& points,
                                           int parts) const {
  Outline outline;
  if (mark.space == MarkSpace::Pixel) {
    for (cv::Point3d const& p : points) {
      outline.push_back(at_.place({p.x, p.y}));
    }
    return outline;
  }
  if (at_.camera == nullptr) {
    throw error("There are marks in millimetres but no view: call setView", "AMat");
  }
  std::vector<cv::Point3f> world;
  for (std::size_t i = 0; i < points.size(); ++i) {
    int const pieces = i + 1 < points.size() ? parts : 1;
    for (int k = 0; k < pieces; ++k) {
      cv::Point3d const p = k == 0 ? points[i] : points[i] + (points[i + 1] - points[i]) * (1.0 * k / pieces);
      cv::Vec4d const inCamera = at_.cam_from_world * cv::Vec4d(p.x, p.y, p.z, 1.0);
      constexpr double nearest = 1e-6; // mm
      if (inCamera[2] < nearest) {
        return std::nullopt;
      }
      world.emplace_back(p);
    }
  }
  for (cv::Point2f const& p : at_.camera->calcImagePoints(world, at_.cam_from_world)) {
    if (!std::isfinite(p.x) || !std::isfinite(p.y)) {
      return std::nullopt;
    }
    outline.push_back(at_.place(p));
  }
  return outline;
}

std::optional<Outline> MarkPainter::shapeOf(Mark const& mark) const {
  if (mark.kind == MarkKind::Circle && mark.space == MarkSpace::World) {
    return placed(mark, circleInSpace(mark.points[0], mark.length), 1);
  }
  if (mark.kind == MarkKind::Circle && !mark.style.isFilled) { // drawn by its centre: its outermost points do
    cv::Point2d const centre = at_.place({mark.points[0].x, mark.points[0].y});
    double const radius = mark.length * at_.zoom;
    return Outline{centre + cv::Point2d(radius, 0), centre + cv::Point2d(0, radius),
                   centre - cv::Point2d(radius, 0), centre - cv::Point2d(0, radius)};
  }
  if (mark.kind == MarkKind::Circle || mark.kind == MarkKind::Ellipse) {
    double const second = mark.kind == MarkKind::Circle ? mark.length : mark.length2;
    return ellipseOutline(at_.place({mark.points[0].x, mark.points[0].y}),
                          cv::Size2d(mark.length, second) * at_.zoom, mark.angle * CV_PI / 180.0);
  }
  if (mark.kind == MarkKind::Polygon) {
    std::vector<cv::Point3d> closed = mark.points;
    closed.push_back(closed.front());
    return placed(mark, closed, curvePieces);
  }
  return placed(mark, mark.points, mark.kind == MarkKind::Line ? curvePieces : 1);
}

cv::Vec3b MarkPainter::inkOf(Mark const& mark) const {
  return mark.style.color.value_or(colorOf(mark.style.meaning));
}

Pen MarkPainter::penOf(Mark const& mark, cv::Vec3b const& ink) const {
  return {mark.style.width * at_.markScale, ink, mark.style.hasHalo ? haloWidth * at_.markScale : 0.0};
}

void MarkPainter::arrow(Mark const& mark, Outline const& points, cv::Vec3b const& ink) {
  cv::Point2d const tip = points.back();
  cv::Point2d const along = tip - points.front();
  double const length = std::hypot(along.x, along.y);
  if (length < 1e-9) {
    canvas_.stroke({tip}, penOf(mark, ink));
    return;
  }
  double const head = std::min(2.0 * mark.style.size * at_.markScale, length);
  cv::Point2d const forward = along * (1.0 / length);
  cv::Point2d const side(-0.4 * head * forward.y, 0.4 * head * forward.x);
  cv::Point2d const base = tip - forward * head;
  Outline const triangle{tip, base + side, base - side, tip};
  // The shaft ends within the head, so that it does not blunt the tip.
  Outline const shaft{points.front(), tip - forward * (0.7 * head)};
  Pen const pen = penOf(mark, ink);
  if (mark.style.hasHalo) {
    canvas_.stroke(triangle, {2.0 * pen.halo, haloColor, 0.0});
  }
  canvas_.stroke(shaft, pen);
  canvas_.fill(triangle, ink, 1.0);
}

void MarkPainter::words(Mark const& mark, std::string const& text, cv::Point2d position, cv::Vec3b const& ink,
                        TextDown down) {
  Label label;
  label.size = mark.style.font;
  label.scale = std::clamp(static_cast<int>(std::lround(mark.style.fontScale * at_.markScale)), 1, 64);
  label.color = ink;
  label.hasHalo = mark.style.hasHalo;
  label.down = down;
  report_.missingGlyphs += canvas_.text(text, position, label).missing;
}

void MarkPainter::paintShape(Mark const& mark, Outline const& shape) {
  cv::Vec3b const ink = inkOf(mark);
  double const size = mark.style.size * at_.markScale;
  Pen const pen = penOf(mark, ink);
  if (mark.kind == MarkKind::Point) {
    canvas_.stroke(shape, {2.0 * size, ink, pen.halo});
  } else if (mark.kind == MarkKind::Cross) {
    cv::Point2d const across(size, 0);
    cv::Point2d const down(0, size);
    // There and back, as one line: the rim of one bar must not cut the other.
    canvas_.stroke({shape[0] - across, shape[0] + across, shape[0], shape[0] - down, shape[0] + down}, pen);
  } else if (mark.kind == MarkKind::Arrow) {
    arrow(mark, shape, ink);
  } else if (mark.kind != MarkKind::Text) {
    if (mark.style.isFilled && isClosedShape(mark.kind)) {
      canvas_.fill(shape, ink, mark.style.opacity);
    }
    if (mark.kind == MarkKind::Circle && mark.space == MarkSpace::Pixel) {
      canvas_.circle(at_.place({mark.points[0].x, mark.points[0].y}), mark.length * at_.zoom, pen);
    } else {
      canvas_.stroke(shape, pen);
    }
  }
  if (!mark.text.empty()) {
    constexpr double room = 4.0;
    bool const isAlone = mark.kind == MarkKind::Text;
    double right = shape[0].x;
    for (cv::Point2d const& p : shape) {
      right = std::max(right, p.x);
    }
    bool const isSmall = mark.kind == MarkKind::Point || mark.kind == MarkKind::Cross;
    double const beside = isAlone ? 0.0 : room * at_.markScale + (isSmall ? size : 0.0);
    double const y = isClosedShape(mark.kind) ? 0.5 * (shape[0].y + shape[shape.size() / 2].y) : shape[0].y;
    words(mark, mark.text, {right + beside, y}, ink);
  }
}

bool MarkPainter::paintAxes(Mark const& mark) {
  struct Axis {
    cv::Point3d direction;
    cv::Vec3b ink;
    char const* name;
  };
  static std::array<Axis, 3> const axes{
      {{{0, 0, 1}, {255, 140, 60}, "Z"}, {{1, 0, 0}, {70, 70, 255}, "X"}, {{0, 1, 0}, {90, 220, 60}, "Y"}}};
  for (Axis const& axis : axes) {
    if (!placed(mark, {mark.points[0], mark.points[0] + axis.direction * mark.length}, 1)) {
      return false;
    }
  }
  Outline origin;
  for (Axis const& axis : axes) {
    Outline const ends =
        *placed(mark, {mark.points[0], mark.points[0] + axis.direction * mark.length}, curvePieces);
    arrow(mark, {ends.front(), ends.back()}, axis.ink);
    words(mark, axis.name, ends.back() + cv::Point2d(5, 0) * at_.markScale, axis.ink);
    origin = {ends.front()};
  }
  words(mark, mark.text, origin[0] + cv::Point2d(6, 14) * at_.markScale, inkOf(mark));
  return true;
}

bool MarkPainter::paintScaleBar(Mark const& mark) {
  double pixels = mark.space == MarkSpace::Pixel ? mark.length / mark.mmPerPixel * at_.zoom : 0.0;
  constexpr double margin = 14.0;
  cv::Point2d left(at_.area.x + margin * at_.markScale, at_.area.br().y - margin * at_.markScale);
  if (mark.space == MarkSpace::World) {
    cv::Point3d const from = mark.points.empty() ? cv::Point3d() : mark.points[0];
    auto const ends = placed(mark, {from, from + cv::Point3d(mark.length, 0, 0)}, 1);
    if (!ends) {
      return false;
    }
    pixels = cv::norm(ends->back() - ends->front());
    left = mark.points.empty() ? left : ends->front();
  } else if (!mark.points.empty()) {
    left = at_.place({mark.points[0].x, mark.points[0].y});
  }
  cv::Vec3b const ink = mark.style.color.value_or(cv::Vec3b(255, 255, 255));
  cv::Point2d const right = left + cv::Point2d(pixels, 0);
  cv::Point2d const tick(0, 4.0 * at_.markScale);
  canvas_.stroke({left - tick, left + tick, left, right, right - tick, right + tick}, penOf(mark, ink));
  words(mark, shortNumber(mark.length) + " mm", left + cv::Point2d(0, -7.0 * at_.markScale), ink,
        TextDown::Bottom);
  return true;
}

void MarkPainter::paint(Mark const& mark) {
  if (mark.kind == MarkKind::Axes || mark.kind == MarkKind::ScaleBar) {
    bool const isSeen = mark.kind == MarkKind::Axes ? paintAxes(mark) : paintScaleBar(mark);
    ++(isSeen ? report_.drawn : report_.behindCamera);
    return;
  }
  std::optional<Outline> const shape = shapeOf(mark);
  if (!shape) {
    ++report_.behindCamera;
    return;
  }
  cv::Point2d low = shape->front();
  cv::Point2d high = low;
  for (cv::Point2d const& p : *shape) {
    low = {std::min(low.x, p.x), std::min(low.y, p.y)};
    high = {std::max(high.x, p.x), std::max(high.y, p.y)};
  }
  double const room =
      (mark.style.width + (mark.kind == MarkKind::Text ? 0.0 : mark.style.size)) * at_.markScale;
  cv::Rect const& area = at_.area;
  if (high.x + room < area.x || high.y + room < area.y || low.x - room > area.br().x ||
      low.y - room > area.br().y) {
    ++report_.outside;
    return;
  }
  paintShape(mark, *shape);
  ++report_.drawn;
}

} // namespace vorn::mv
