// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <charconv>
#include <cmath>

#include "core/base64.hpp"
#include "measure/canvas.hpp"
#include "measure/png.hpp"

namespace vorn::mv {

namespace {

/// A number with at most three decimals and a point, whatever the locale.
std::string number(double value) {
  constexpr int decimals = 3;
  std::array<char, 64> text{};
  auto const end =
      std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed, decimals);
  std::string result(text.data(), end.ptr);
  result.erase(result.find_last_not_of('0') + 1);
  if (!result.empty() && result.back() == '.') {
    result.pop_back();
  }
  return result == "-0" ? "0" : result;
}

std::string hex(cv::Vec3b const& color) {
  constexpr char const* digits = "0123456789abcdef";
  std::string text = "#";
  for (int c = 2; c >= 0; --c) {
    text += digits[color[c] >> 4];
    text += digits[color[c] & 15];
  }
  return text;
}

/// In SVG a pixel's centre lies half a unit beyond its corner.
std::string path(Outline const& line) {
  std::string text;
  for (cv::Point2d const& p : line) {
    text += (text.empty() ? "M" : "L") + number(p.x + 0.5) + ' ' + number(p.y + 0.5);
  }
  return text;
}

std::string escaped(std::string_view words) {
  std::string text;
  for (char const c : words) {
    auto const code = static_cast<unsigned char>(c);
    if (c == '&') {
      text += "&amp;";
    } else if (c == '<') {
      text += "&lt;";
    } else if (c == '>') {
      text += "&gt;";
    } else if (c == '"') {
      text += "&quot;";
    } else if (code >= 0x20 && code < 0x7F) {
      text += c;
    } else {
      text += code < 0x80 ? ' ' : '?';
    }
  }
  return text;
}

} // namespace

SvgCanvas::SvgCanvas(cv::Size size) : size_(size) {}

void SvgCanvas::clip(cv::Rect const& rectangle) {
  std::string const name = "clip" + std::to_string(clips_);
  body_ += clips_ == 0 ? "" : "</g>\n";
  ++clips_;
  body_ += "<clipPath id=\"" + name + "\"><rect x=\"" + std::to_string(rectangle.x) + "\" y=\"" +
           std::to_string(rectangle.y) + "\" width=\"" + std::to_string(rectangle.width) + "\" height=\"" +
           std::to_string(rectangle.height) + "\"/></clipPath>\n<g clip-path=\"url(#" + name + ")\">\n";
}

void SvgCanvas::stroke(Outline const& line, Pen const& pen) {
  if (line.empty()) {
    return;
  }
  if (pen.halo > 0.0) {
    stroke(line, {pen.width + 2.0 * pen.halo, haloColor, 0.0});
  }
  if (line.size() == 1) {
    body_ += "<circle cx=\"" + number(line[0].x + 0.5) + "\" cy=\"" + number(line[0].y + 0.5) + "\" r=\"" +
             number(0.5 * pen.width) + "\" fill=\"" + hex(pen.color) + "\"/>\n";
    return;
  }
  body_ += "<path d=\"" + path(line) + (line.front() == line.back() ? "z" : "") +
           "\" fill=\"none\" stroke-linecap=\"round\" stroke-linejoin=\"round\" stroke=\"" + hex(pen.color) +
           "\" stroke-width=\"" + number(pen.width) + "\"/>\n";
}

void SvgCanvas::circle(cv::Point2d centre, double radius, Pen const& pen) {
  if (pen.halo > 0.0) {
    circle(centre, radius, {pen.width + 2.0 * pen.halo, haloColor, 0.0});
  }
  body_ += "<circle cx=\"" + number(centre.x + 0.5) + "\" cy=\"" + number(centre.y + 0.5) + "\" r=\"" +
           number(radius) + "\" fill=\"none\" stroke=\"" + hex(pen.color) + "\" stroke-width=\"" +
           number(pen.width) + "\"/>\n";
}

void SvgCanvas::fill(Outline const& outline, cv::Vec3b const& color, double opacity) {
  body_ += "<path d=\"" + path(outline) + "z\" fill-rule=\"evenodd\" fill=\"" + hex(color) + '"' +
           (opacity < 1.0 ? " fill-opacity=\"" + number(opacity) + '"' : "") + "/>\n";
}

void SvgCanvas::picture(cv::Mat const& image, cv::Point corner) {
  body_ += "<image x=\"" + std::to_string(corner.x) + "\" y=\"" + std::to_string(corner.y) + "\" width=\"" +
           std::to_string(image.cols) + "\" height=\"" + std::to_string(image.rows) +
           "\" preserveAspectRatio=\"none\" style=\"image-rendering:pixelated\" xlink:href=\"" +
           (imageLink.empty() ? "data:image/png;base64," + base64(storedPng(image)) : escaped(imageLink)) +
           "\"/>\n";
}

void SvgCanvas::stamp(cv::Mat_<uchar> const& ink, cv::Point corner, cv::Vec3b const& color,
                      std::string_view words) {
  std::string runs;
  for (int y = 0; y < ink.rows; ++y) {
    for (int x = 0; x < ink.cols; ++x) {
      int const first = x;
      while (x < ink.cols && ink(y, x) != 0) {
        ++x;
      }
      if (x > first) {
        std::string const length = std::to_string(x - first);
        runs += "M" + std::to_string(corner.x + first) + ' ' + std::to_string(corner.y + y) + 'h' + length +
                "v1h-" + length + 'z';
      }
    }
  }
  body_ += "<g><title>" + escaped(words) + "</title><path d=\"" + runs + "\" fill=\"" + hex(color) +
           "\" shape-rendering=\"crispEdges\"/></g>\n";
}

std::string SvgCanvas::document() const {
  std::string const width = std::to_string(size_.width);
  std::string const height = std::to_string(size_.height);
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<svg xmlns=\"http://www.w3.org/2000/svg\" "
         "xmlns:xlink=\"http://www.w3.org/1999/xlink\" width=\"" +
         width + "\" height=\"" + height + "\" viewBox=\"0 0 " + width + ' ' + height + "\">\n" + body_ +
         (clips_ > 0 ? "</g>\n" : "") + "</svg>\n";
}

} // namespace vorn::mv
