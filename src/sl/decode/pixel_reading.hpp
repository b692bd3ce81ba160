// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <vector>

#include <opencv2/core/mat.hpp>

#include "sl/decode/decoding_settings.hpp"

namespace vorn::mv::sl {

/// Where the phases of a row come from.
enum class PhaseSource {
  Images, ///< they are decoded
  Map     ///< they are in the row already, smoothed
};

/// What is read from a row of images; each array of the images' width.
struct PixelRow {
  float* wrapped;  ///< phase in [0, 2 pi), or `noPhase`
  short* order;    ///< of the fringe, where the pixel's own code tells it for certain, else `noOrder`
  int* reading;    ///< a `CodeReading`
  uchar* contrast; ///< 255: the code images range over "minContrast" at least
  uchar* state;    ///< closed, trusted, open, or of unsettled contrast
};

/// Reads all that the images of one scan tell of a pixel by itself, in one pass over them.
///
/// There are two middles between bright and dark: that of the range of the code images, and the mean of the
/// phase images, which is right also at a stripe border where no code image is dark. A code is certain where
/// every image is far from both, and the phase is not at the place where the code changes.
class PixelReader {
public:
  /// @param images  P0, P1, P2, P3, reference, planes, all CV_8UC1 or all CV_16UC1; must outlive the reader
  /// @param flicker as from `flickerCorrection`
  PixelReader(std::vector<cv::Mat> const& images, ScanDecodingSettings const& settings,
              std::array<float, 4> const& flicker);

  void read(int y, PhaseSource source, PixelRow const& row) const;

  /// The phases of a row alone, as `read` finds them in the images.
  void readPhases(int y, float* wrapped) const;

private:
  struct Limits {
    float magnitude;      ///< least
    float weakExcess;     ///< by how much more a pixel needs whose code images do not range far enough
    float residualFactor; ///< largest inconsistency of the four steps, in parts of the magnitude
    float border;         ///< phase at which the code changes
    float borderZone;     ///< phases nearer to it than this are not trusted
    float marginWeight;   ///< 0: images near their threshold are trusted, too
    int maxSum;           ///< of the phase images
    int white;            ///< level from which on a pixel is clipped
    int minContrast;
    int maxOrder;
    int laterBits; ///< of a word: those of the planes
    bool usesRangeOnly;
  };

  std::vector<cv::Mat> const& images_;
  std::array<float, 4> flicker_;
  bool hasFlicker_;
  Limits limits_;

  // Of pixels of type T.
  template <class T>
  struct Chunk;
  template <class T>
  void readOf(int y, PhaseSource source, PixelRow const& row) const;
  template <class T>
  void readPhasesOf(int y, float* wrapped) const;
  /// @param wrapped null to leave the phases as they are
  template <class T>
  void exposeAndDecode(int y, int x0, int n, Chunk<T>& chunk, float* wrapped) const;
  template <class T>
  void readCode(int y, int x0, int n, Chunk<T>& chunk, uchar* contrast) const;
  template <class T>
  void judge(int y, int x0, int n, Chunk<T> const& chunk, PixelRow const& row) const;
};

} // namespace vorn::mv::sl
