// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/report/page.hpp"

#include <algorithm>

#include "tools/files/image_files.hpp"
#include "tools/report/figure_files.hpp"

namespace vorn::tools {

void Page::add(std::string const& name, std::string const& caption, mv::AMat const& drawing) {
  constexpr double longSide = 1400.0;
  mv::DrawSettings settings;
  settings.zoom = std::min(1.0, longSide / std::max(drawing.image().cols, drawing.image().rows));
  settings.ground = mv::Ground::Light;
  settings.markScale = 1.5; // pictures of a page are small
  mv::AMat shown = drawing;
  shown.setTitle(""); // the page says it in words
  // What a camera sees is noise to PNG.
  pictures.push_back({name, caption, ".jpg", encodedFigure("picture.jpg", shown, settings)});
}

void Page::add(std::string const& name, std::string const& caption, std::vector<mv::Plot> const& plots) {
  pictures.push_back({name, caption, ".png", encodedFigure("plot.png", plots)});
}

} // namespace vorn::tools
