// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include <opencv2/core/mat.hpp>

#include <vorn/core/export.hpp>
#include <vorn/mv/sl/pattern_doubt.hpp>
#include <vorn/mv/sl/pattern_set.hpp>
#include <vorn/mv/sl/pixel_reason.hpp>

namespace vorn {
class Observer;
}

namespace vorn::mv {

/// How `decode_patterns` reads images. Grey levels are those of the images, whatever their depth.
struct DecodeSettings {
  /// From this value on a sample is clipped and left out; a camera of 12 bits has 4095. 0: 255 in 8-bit
  /// images; of others it is found from all of them: the end of the range of 8, 10, 12, 14 or 16 bits that
  /// they use (1 of reals that are no larger), or a little below where many samples are exactly as bright and
  /// none brighter. A `PatternDecoder`, which cannot look ahead, takes 65535, and nothing of CV_32F ones.
  double whiteLevel = 0.0;
  double blackLevel = 0.0; ///< what the camera shows of no light; matters for several exposures only
  double noise = 0.0;      ///< standard deviation of an image's noise; 0 to estimate it from the images
  /// Least amplitude of the fringes, or half of the range of the bits; at the longest exposure. Below 0: 3 in
  /// 8-bit images, in others twice the noise.
  double minModulation = -1.0;
  /// Smallest connected piece of decoded pixels that is kept, camera pixels.
  int minSegmentSize = 30;
  /// Whether pixels whose own images do not tell the order of their fringe for certain take it from their
  /// neighbours.
  bool usesNeighbours = true;
  /// Whether pixels at the edges of surfaces, which mix the light of two and show neither's coordinate, are
  /// left out (`PixelReason::Edge`), as `scan` does. Of bits alone, and where neighbours are not used, they
  /// stay.
  bool dropsEdges = true;
  /// Whether what fringes of three and four steps and several periods disagree about, where projector and
  /// camera are not linear, is measured and taken off.
  bool correctsHarmonics = true;
  /// Whether what the squares of a sharp projector's pixels do to coordinates from fringes is measured and
  /// taken off.
  bool correctsStaircase = false;

  /// @throws Exception that names the setting, its value and the bound
  VORN_API void check() const;
};

/// What the fringes of one period were like.
struct FringeFigures {
  PatternAxis axis = PatternAxis::Column; ///< along which the phase grows
  double period = 0.0;                    ///< projector pixels
  int images = 0;                         ///< of this period, all exposures together
  /// Second harmonic of the brightness in parts of the first, as projector and camera that are not linear
  /// make it; of gamma 2.2 it is 0.29. NaN where the steps do not show it: below four, or not evenly spread.
  double secondHarmonic = 0.0;
  /// Largest error of the phase that was taken off by `DecodeSettings::correctsHarmonics`, parts of a period.
  double corrected = 0.0;
  /// Of the steps' swing about their mean, the part that is not such a fringe, noise apart; where that is
  /// much, less what gamma and a flickering lamp explain. NaN of three steps.
  double misfit = 0.0;
};

/// What `decode_patterns` returns. The matrices are as large as the images.
struct DecodedPatterns {
  cv::Mat_<float> column; ///< projector column that a pixel sees; -1 where unknown; empty when not coded
  cv::Mat_<float> row;    ///< projector row, likewise
  /// Standard deviation that the images' noise gives `column`, projector pixels; NaN where unknown. Of bits
  /// alone it is that of an even distribution over the stripe.
  cv::Mat_<float> sigmaColumn;
  cv::Mat_<float> sigmaRow; ///< the same of `row`
  /// A `PixelReason` a pixel: 0 where all coded coordinates are known, else why the first one is not.
  cv::Mat_<uchar> mask;
  /// Amplitude of the finest fringes, or half of the range of the bits, the lesser of both axes; grey levels
  /// at the longest exposure.
  cv::Mat_<float> modulation;
  /// Largest error that `DecodeSettings::correctsStaircase` took off, projector pixels, over the whole
  /// image; 0 for none.
  double staircaseColumn = 0.0;
  double staircaseRow = 0.0;          ///< likewise
  double noise = 0.0;                 ///< of an image, grey levels, over all decoded pixels: median
  double whiteLevel = 0.0;            ///< from which samples were left out; 0 for none
  std::vector<FringeFigures> fringes; ///< one for every axis and period
  /// Where the images contradict the set, as when two were exchanged; empty for none.
  std::vector<PatternDoubt> doubts;
};

/// The projector coordinates that every camera pixel sees, from images of any pattern set.
///
/// Phases come from least squares over all steps and exposures of a period (J. E. Greivenkamp, Optical
/// Engineering 23, 1984), clipped samples left out. The order of a fringe comes from the bits: from the
/// middle of the pixel's stripe, or from its edge where one bit is too close to call and the two stripes are
/// neighbours. Without bits it is the one with the least squared deviation over all periods. Where that is
/// not certain, neighbours tell, as in `Sl3dScanner::decode`: by growth from certain pixels in the order of
/// the phase's quality, against which the pixel's own images are held. Periods are combined by their weights.
///
/// The noise is taken, by grey level, from what the steps have beside their fringe: the part of the second
/// harmonic that a gamma does not make; of three steps from how the mean level changes from pixel to pixel,
/// which texture makes too large.
///
/// A sharp projector's fringes are staircases, of known shape but for its sharpness. That shows in how the
/// fractions of the coordinates are spread: evenly without stairs.
///
/// Working memory: for each axis 9 bytes a pixel for every period, 13 for bits at one exposure, and 16 that
/// both axes use one after the other. The result takes 4 bytes a pixel, and 9 for each axis.
/// @param set      as its `validate` allows
/// @param images   one for each of `set.images`: CV_8UC1, CV_16UC1 or CV_32FC1, of one size and type
/// @param observer asked between bands of rows
/// @throws Exception for images that are not so, for a set that cannot be decoded, and for settings out of
///         their range; Cancelled when the observer stops it
VORN_API DecodedPatterns decode_patterns(PatternSet const& set, std::vector<cv::Mat> const& images,
                                         DecodeSettings const& settings = {}, Observer* observer = nullptr);

/// The same with images that come one by one, none of which is kept: sums are. A bit image whose inverse,
/// white, black, reference or fringes come later waits for them.
///
/// With three periods of four steps along both axes it takes at most 61 bytes a pixel.
class VORN_API PatternDecoder {
public:
  /// @throws Exception for a set that cannot be decoded, and for settings out of their range
  explicit PatternDecoder(PatternSet set, DecodeSettings const& settings = {});
  /// Takes over what the other has added, which can only be destroyed or assigned to then.
  PatternDecoder(PatternDecoder&&) noexcept;
  /// Likewise.
  PatternDecoder& operator=(PatternDecoder&&) noexcept;
  ~PatternDecoder();

  /// Takes the next image, in the order of the set.
  /// @throws Exception when all images are there, and for an image of another type or size than the first;
  ///         Cancelled when the observer stops it: the decoder then waits for the first image
  void add(cv::Mat const& image, Observer* observer = nullptr);

  /// How many images have been taken.
  std::size_t count() const;

  /// The result, after the last image; the decoder then waits for the first image of the next scan.
  /// @throws Exception when images are missing; Cancelled when the observer stops it, after which it may be
  /// called again
  DecodedPatterns finish(Observer* observer = nullptr);

private:
  struct Work;
  std::unique_ptr<Work> work_;
};

} // namespace vorn::mv
