// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/report/figure_files.hpp"

#include "tools/files/image_files.hpp"
#include "tools/files/output_path.hpp"

namespace vorn::tools {

namespace {

bool isSvg(std::string const& path) {
  return lowerCaseEnding(path) == ".svg";
}

} // namespace

void checkFigurePath(std::string const& path) {
  if (!isSvg(path)) {
    checkPicturePath(path);
  }
}

std::string encodedFigure(std::string const& path, mv::AMat const& figure, mv::DrawSettings const& settings) {
  return isSvg(path) ? figure.drawSvg(settings).document : encodedImage(path, figure.draw(settings).picture);
}

std::string encodedFigure(std::string const& path, std::vector<mv::Plot> const& plots, int columns) {
  return isSvg(path) ? mv::drawPlotsSvg(plots, columns).document
                     : encodedImage(path, mv::drawPlots(plots, columns).picture, Packing::Small);
}

void writeFigure(std::string const& path, mv::AMat const& figure, mv::DrawSettings const& settings) {
  if (!path.empty()) {
    writeTogether({{path, encodedFigure(path, figure, settings)}});
  }
}

void writeFigure(std::string const& path, mv::Plot const& plot) {
  if (!path.empty()) {
    writeTogether({{path, encodedFigure(path, std::vector<mv::Plot>{plot})}});
  }
}

} // namespace vorn::tools
