// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <vorn/mv/measure/amat.hpp>
#include <vorn/mv/measure/plot.hpp>

namespace vorn::tools {

/// For what is to be told before long work.
/// @throws Exception when a path ends neither in .svg nor as a picture; none for an empty path
void checkFigurePath(std::string const& path);

/// The bytes of an annotated image or of plots, so many a row, SVG or a picture by the path's ending.
/// @throws Exception for an unknown ending
std::string encodedFigure(std::string const& path, mv::AMat const& figure,
                          mv::DrawSettings const& settings = {});
std::string encodedFigure(std::string const& path, std::vector<mv::Plot> const& plots, int columns = 1);

/// Writes an annotated image or a plot, as SVG or a picture by the path's ending; nothing for an empty path.
/// An existing file is replaced only once the new one is complete.
/// @throws Exception when the file cannot be written
void writeFigure(std::string const& path, mv::AMat const& figure, mv::DrawSettings const& settings = {});
void writeFigure(std::string const& path, mv::Plot const& plot);

} // namespace vorn::tools
