// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <limits>

#include <opencv2/core/mat.hpp>

#include <vorn/core/export.hpp>

namespace vorn::mv {

/// How sharpness is measured. The first two are greatest in the sharpest image and compare images of the same
/// scene; the width of edges is least there, and compares any two images that have edges.
enum class FocusMeasure {
  /// Variance of the Laplacian over the squared mean brightness (Pech-Pacheco 2000). The finest detail; the
  /// first to drown in noise, which adds a constant.
  LaplacianVariance,
  /// Mean squared gradient over the squared mean brightness (Tenenbaum 1970). Steadier under noise.
  Tenengrad,
  /// The standard deviation of the blur across edges, in px: the median over all edges, each from the ratio
  /// of its gradients under two smoothings (Zhuo and Sim 2011). Says nothing where there are no edges; reads
  /// up to 0.2 px low below a blur of 0.7 px, and low from about 2.5 px on, where edges meet.
  EdgeWidth
};

/// How `calcFocus` measures sharpness.
struct FocusSettings {
  /// What is measured.
  FocusMeasure measure = FocusMeasure::Tenengrad;
  /// Smoothing before everything, standard deviation in px: 0.3 to 10. More of it bears more noise.
  double smoothing = 1.0;
  /// Side of the cells of the map, in px: 8 to 4096.
  int cell = 64;
  /// CV_8UC1 of the image's size: pixels with 0 do not count; empty: all count.
  cv::Mat mask;
};

/// The sharpness of an image.
struct Focus {
  /// The measure over the image; NaN when no pixel counts, and for `EdgeWidth` when there are no edges.
  double value = std::numeric_limits<double>::quiet_NaN();
  /// The same for each cell, CV_32FC1, (rows / cell) x (columns / cell), rounded up; NaN where it has none.
  cv::Mat map;
  /// The edge points that `EdgeWidth` was taken from.
  std::size_t edges = 0;
};

/// How sharp an image is, as a number and as a map.
///
/// In a focus series each measure has its extreme at the sharp image: within a quarter of a step as long as
/// the signal's gradients stand out from the noise's (smoothed by `smoothing`: standard deviation times 0.2
/// for the default) somewhere in the image. Working memory: 20 bytes a pixel, 36 for `EdgeWidth`; two more
/// where pixels are not finite.
/// @param image 1, 3 or 4 channels of 8 or 16 bits or float; colours are judged by their grey. Pixels that
/// are
///        not finite take no part, nor does what is so near to them that smoothing mixes them in: some four
///        times `smoothing`, twice that for `EdgeWidth`.
/// @throws Exception for an empty image or one of another type, a mask of another size or type, a setting out
///         of its range
VORN_API Focus calcFocus(cv::Mat const& image, FocusSettings const& settings = {});

} // namespace vorn::mv
