// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <vector>

#include <opencv2/core/mat.hpp>

#include "sl/decode/surface_window.hpp"

namespace vorn::mv::sl {

/// Fits quadratic surfaces, as `SurfaceWindow` does, to windows all of whose pixels are measured about
/// equally well: all pixels of a row side by side, from sums over the rows of their windows that the next row
/// uses again.
///
/// Terms are orthogonal over such a window: 1, x, y, x^2 - m, xy, y^2 - m with m = r (r + 1) / 3.
class FullWindows {
public:
  FullWindows(cv::Mat_<float> const& map, cv::Mat_<float> const& sigma, int radius);

  /// Reads the windows about the pixels of a row.
  void read(int y);

  /// The fit at a pixel of the row; nothing for a window that is not full, or beyond the image.
  std::optional<WindowFit> fit(int x) const;

private:
  /// Sums over the 2 r + 1 pixels of a row about a pixel, of differences from that pixel's coordinate.
  struct Line {
    double one;
    double x;
    double xx;
    double squares;
    double variances;
    float weakest;
    float strongest;
    bool isWhole;
  };

  /// Sums over a window, of differences from its middle.
  struct Sums {
    double one;
    double x;
    double y;
    double xx;
    double xy;
    double yy;
    double squares;
    double variances;
    float weakest;
    float strongest;
    bool isWhole;
  };

  void readLine(int y);
  void add(int y, int dy);

  cv::Mat_<float> map_;
  cv::Mat_<float> sigma_;
  int radius_;
  double middleSquare_; ///< m
  double lineNorm_ = 0.0;
  double squareNorm_ = 0.0;
  double crossNorm_ = 0.0;
  double gain_ = 0.0; ///< variance of the middle's value over that of a coordinate
  int samples_;
  int row_ = -1;
  std::vector<int> linesOf_; ///< the row that each ring of lines holds
  std::vector<std::vector<Line>> lines_;
  std::vector<Sums> sums_;
};

} // namespace vorn::mv::sl
