// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <functional>

#include <opencv2/core.hpp>

#include <vorn/mv/measure/amat.hpp>

#include "core/error.hpp"
#include "core/parallel.hpp"
#include "measure/bounds_canvas.hpp"
#include "measure/legend.hpp"
#include "measure/mark_painter.hpp"
#include "measure/shown_image.hpp"

namespace vorn::mv {

namespace {

/// Where everything lies in the picture.
struct Frame {
  cv::Rect part;   ///< of the image, shown
  cv::Rect area;   ///< where it lies
  cv::Size size;   ///< of the picture
  int enlarge = 1; ///< of letters in the margins
  double markScale = 1.0;
  std::vector<Mark const*> legends;
  std::vector<cv::Rect> legendPlaces;
  bool hasMargins() const { return size != area.size(); }
};

constexpr int margin = 8;

void check(DrawSettings const& settings) {
  constexpr double leastZoom = 0.01;
  constexpr double mostZoom = 100.0;
  constexpr double mostScale = 64.0;
  if (!(settings.zoom >= leastZoom && settings.zoom <= mostZoom)) {
    throw error("zoom must be 0.01 to 100, not " + std::to_string(settings.zoom), "AMat");
  }
  if (!(settings.markScale >= 0.0 && settings.markScale <= mostScale)) {
    throw error("markScale must be 0 to 64, not " + std::to_string(settings.markScale), "AMat");
  }
}

cv::Rect shownPart(cv::Mat const& image, DrawSettings const& settings) {
  if (image.empty()) {
    throw error("There is no image to draw on: call setImage", "AMat");
  }
  cv::Rect const whole(0, 0, image.cols, image.rows);
  cv::Rect const part = settings.crop.empty() ? whole : settings.crop & whole;
  if (part.empty()) {
    throw error("The crop, " + std::to_string(settings.crop.width) + " x " +
                    std::to_string(settings.crop.height) + " at (" + std::to_string(settings.crop.x) + ", " +
                    std::to_string(settings.crop.y) + "), lies outside the image of " +
                    std::to_string(image.cols) + " x " + std::to_string(image.rows),
                "AMat");
  }
  constexpr double mostPixels = 1e9;
  if (part.area() * settings.zoom * settings.zoom > mostPixels) {
    throw error("The zoomed picture would have more than " + std::to_string(static_cast<int>(mostPixels)) +
                    " pixels",
                "AMat");
  }
  return part;
}

ColorScale scaleOf(Mark const& mark) {
  return {mark.map, mark.low, mark.high, withUnit(mark.text, mark.unit)};
}

Frame frameOf(AMat const& amat, cv::Rect const& part, cv::Size shown, DrawSettings const& settings,
              std::function<bool(Mark const&)> const& isShown) {
  constexpr double sizeOfOne = 1600.0; // px of the longer side, for marks of their own size
  Frame frame;
  frame.part = part;
  frame.markScale = settings.markScale > 0.0 ? settings.markScale
                                             : std::max(1.0, std::max(shown.width, shown.height) / sizeOfOne);
  frame.enlarge = std::clamp(static_cast<int>(std::lround(frame.markScale)), 1, 64);
  int const room = margin * frame.enlarge;
  RasterFont const font(FontSize::Medium, frame.enlarge);
  int const top = amat.title().empty() ? 0 : font.measure(amat.title()).height + room;
  frame.area = cv::Rect(cv::Point(0, top), shown);
  int x = shown.width;
  for (Mark const& mark : amat.marks()) {
    if (mark.kind == MarkKind::Legend && isShown(mark)) {
      constexpr int tallest = 420;
      constexpr int lowest = 90;
      int const height = std::clamp(shown.height - 2 * room, lowest * frame.enlarge, tallest * frame.enlarge);
      int const width = colorScaleWidth(scaleOf(mark), height, frame.enlarge);
      frame.legends.push_back(&mark);
      frame.legendPlaces.emplace_back(x + room + room / 2, top + room, width, height);
      x = frame.legendPlaces.back().br().x + room;
    }
  }
  int bottom = frame.area.br().y;
  for (cv::Rect const& place : frame.legendPlaces) {
    bottom = std::max(bottom, place.br().y + room);
  }
  frame.size =
      cv::Size(std::max(x, amat.title().empty() ? 0 : font.measure(amat.title()).width + 2 * room), bottom);
  return frame;
}

/// Title and legends, which lie beside the image.
void paintMargins(Canvas& canvas, AMat const& amat, Frame const& frame, DrawSettings const& settings,
                  DrawReport& report) {
  Inks const inks = Inks::on(settings.ground);
  Label label;
  label.scale = frame.enlarge;
  label.color = inks.text;
  int const room = margin * frame.enlarge;
  report.missingGlyphs += canvas.text(amat.title(), cv::Point(room, room / 2), label).missing;
  for (std::size_t i = 0; i < frame.legends.size(); ++i) {
    cv::Rect const& place = frame.legendPlaces[i];
    drawColorScale(canvas, scaleOf(*frame.legends[i]), place.tl(), place.height, frame.enlarge, inks.text);
    ++report.drawn;
  }
}

/// The marks that are painted on the image, in their order.
std::vector<Mark const*> paintedMarks(AMat const& amat, std::function<bool(Mark const&)> const& isShown,
                                      DrawReport& report) {
  std::vector<Mark const*> painted;
  for (Mark const& mark : amat.marks()) {
    if (!isShown(mark)) {
      ++report.hidden;
    } else if (mark.kind != MarkKind::Legend) {
      painted.push_back(&mark);
    }
  }
  return painted;
}

/// The rows of a band: as many as stay in a cache while the marks on them are drawn.
constexpr int bandRows = 128;

/// The marks that reach into each band of rows, in their order.
std::vector<std::vector<Mark const*>> marksOfBands(std::vector<Mark const*> const& marks, Frame const& frame,
                                                   MarkPlacement const& placement, DrawReport& report) {
  std::vector<std::vector<Mark const*>> bands(
      static_cast<std::size_t>((frame.size.height + bandRows - 1) / bandRows));
  BoundsCanvas canvas(frame.size);
  MarkPainter painter(canvas, placement, report);
  for (Mark const* mark : marks) {
    canvas.clip(frame.area);
    painter.paint(*mark);
    cv::Rect const& reached = canvas.reached();
    if (!reached.empty()) {
      for (int band = reached.y / bandRows; band <= (reached.br().y - 1) / bandRows; ++band) {
        bands[static_cast<std::size_t>(band)].push_back(mark);
      }
    }
  }
  return bands;
}

/// Where the view, if there is one, and the image lie.
MarkPlacement placementOf(cv::Rect const& part, DrawSettings const& settings, Frame const& frame,
                          CameraModel const& camera, cv::Matx44d const& cam_from_world) {
  return {
      part.tl(),     settings.zoom, frame.area, frame.markScale, !camera.getK().empty() ? &camera : nullptr,
      cam_from_world};
}

} // namespace

Drawing AMat::draw(DrawSettings const& settings) const {
  check(settings);
  cv::Rect const part = shownPart(image_, settings);
  ShownRange const range = shownRange(image_, settings);
  auto const isShown = [&](Mark const& mark) { return hiddenLayers_.count(mark.layer) == 0; };
  Frame const frame = frameOf(*this, part, shownSize(part.size(), settings.zoom), settings, isShown);
  constexpr double white = 255.0;
  bool const isEight = settings.depth == DrawDepth::Eight;
  ShownRange const colors = isEight ? ShownRange{0.0, white} : range;
  Drawing drawing;
  drawing.picture.create(frame.size, CV_MAKETYPE(isEight ? CV_8U : image_.depth(), 3));
  drawing.report.imageCorner = frame.area.tl();
  if (frame.hasMargins()) {
    RasterCanvas canvas(drawing.picture, colors.low, colors.high);
    canvas.fill(cv::Rect(cv::Point(), frame.size), Inks::on(settings.ground).ground);
    paintMargins(canvas, *this, frame, settings, drawing.report);
  }
  bool const isZoomed = settings.zoom != 1.0; // neighbours in the image are needed across bands
  if (isZoomed) {
    cv::Mat area = drawing.picture(frame.area);
    shownImage(image_, part, settings, range, area);
  }
  MarkPlacement const placement = placementOf(part, settings, frame, camera_, cam_from_world_);
  auto const bands =
      marksOfBands(paintedMarks(*this, isShown, drawing.report), frame, placement, drawing.report);
  parallelRows(static_cast<int>(bands.size()), [&](int begin, int end) {
    for (int band = begin; band < end; ++band) {
      cv::Range const rows(band * bandRows, std::min((band + 1) * bandRows, frame.size.height));
      cv::Rect const shown = frame.area & cv::Rect(0, rows.start, frame.size.width, rows.size());
      if (shown.empty()) {
        continue;
      }
      if (!isZoomed) {
        cv::Mat pixels = drawing.picture(shown);
        shownImage(image_, shown - frame.area.tl() + part.tl(), settings, range, pixels);
      }
      RasterCanvas canvas(drawing.picture, colors.low, colors.high, rows);
      canvas.clip(frame.area);
      DrawReport countedBefore;
      MarkPainter painter(canvas, placement, countedBefore);
      for (Mark const* mark : bands[static_cast<std::size_t>(band)]) {
        painter.paint(*mark);
      }
    }
  });
  return drawing;
}

SvgDrawing AMat::drawSvg(DrawSettings const& settings) const {
  check(settings);
  cv::Rect const part = shownPart(image_, settings);
  DrawSettings eight = settings;
  eight.depth = DrawDepth::Eight;
  auto const isShown = [&](Mark const& mark) { return hiddenLayers_.count(mark.layer) == 0; };
  cv::Mat shown;
  shownImage(image_, part, eight, shownRange(image_, eight), shown);
  Frame const frame = frameOf(*this, part, shown.size(), settings, isShown);
  SvgCanvas canvas(frame.size);
  if (frame.hasMargins()) {
    canvas.fill(cv::Rect(cv::Point(), frame.size), Inks::on(settings.ground).ground);
  }
  canvas.imageLink = settings.imageLink;
  canvas.picture(shown, frame.area.tl());
  canvas.imageLink.clear();
  SvgDrawing drawing;
  drawing.report.imageCorner = frame.area.tl();
  paintMargins(canvas, *this, frame, settings, drawing.report);
  canvas.clip(frame.area);
  MarkPainter painter(canvas, placementOf(part, settings, frame, camera_, cam_from_world_), drawing.report);
  for (Mark const* mark : paintedMarks(*this, isShown, drawing.report)) {
    painter.paint(*mark);
  }
  drawing.document = canvas.document();
  return drawing;
}

} // namespace vorn::mv
