// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/calibration/board_drawing.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <sstream>
#include <vector>

#include <opencv2/core.hpp>

#include <vorn/mv/calib/target_finder.hpp>

#include "tools/files/target_file.hpp"

namespace vorn::tools {

namespace {

/// The dark parts on the page, mm.
std::vector<cv::Rect2d> partsOf(mv::TargetDescription const& board, cv::Point2d const& upperLeft) {
  prepareFor(board);
  std::vector<cv::Rect2d> parts = mv::targetFinder(board.kind)->darkParts(board);
  for (cv::Rect2d& part : parts) {
    part += upperLeft + cv::Point2d(board.pitch, board.pitch); // a target counts from its first inner corner
  }
  return parts;
}

/// The share of a pixel that lies between two edges.
double covered(int pixel, double from, double to) {
  return std::clamp(std::min(to, pixel + 1.0) - std::max(from, static_cast<double>(pixel)), 0.0, 1.0);
}

void drawPart(cv::Mat& picture, cv::Rect2d const& part, int grey) {
  constexpr int white = 255;
  cv::Point2d const end = part.br();
  for (int y = std::max(0, cvFloor(part.y)); y < std::min(picture.rows, cvCeil(end.y)); ++y) {
    double const share = covered(y, part.y, end.y);
    for (int x = std::max(0, cvFloor(part.x)); x < std::min(picture.cols, cvCeil(end.x)); ++x) {
      auto& pixel = picture.at<std::uint8_t>(y, x);
      // Parts that share a pixel add up.
      pixel = cv::saturate_cast<std::uint8_t>(pixel - share * covered(x, part.x, end.x) * (white - grey));
    }
  }
}

} // namespace

cv::Size2d boardSize(mv::TargetDescription const& board) {
  return {(board.size.width + 1) * board.pitch, (board.size.height + 1) * board.pitch};
}

std::string boardCaption(mv::TargetDescription const& board) {
  std::ostringstream text;
  text << "squares " << board.pitch << " mm (measure them)   " << board.size.width + 1 << " x "
       << board.size.height + 1 << "   markers " << board.markerSize << " mm, " << board.dictionary;
  if (board.firstMarker > 0) {
    text << " from " << board.firstMarker;
  }
  return text.str();
}

std::string boardSvg(mv::TargetDescription const& board, cv::Point2d const& upperLeft) {
  std::ostringstream svg;
  svg.precision(10);
  for (cv::Rect2d const& part : partsOf(board, upperLeft)) {
    svg << "<rect x=\"" << part.x << "\" y=\"" << part.y << "\" width=\"" << part.width << "\" height=\""
        << part.height << "\" shape-rendering=\"crispEdges\"/>\n";
  }
  return svg.str();
}

void drawBoard(cv::Mat& picture, mv::TargetDescription const& board, cv::Point2d const& upperLeft,
               double pixelsPerMm, int grey) {
  for (cv::Rect2d const& part : partsOf(board, upperLeft)) {
    drawPart(picture, cv::Rect2d(part.tl() * pixelsPerMm, part.br() * pixelsPerMm), grey);
  }
}

} // namespace vorn::tools
