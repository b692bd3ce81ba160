// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/scan_decoding.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include <opencv2/core.hpp>

#include <vorn/mv/sl/phase_decoding.hpp>

#include "core/large_pages.hpp"
#include "core/simd.hpp"
#include "sl/coding/code_check.hpp"
#include "sl/decode/absolute_phase.hpp"
#include "sl/decode/calm_chunks.hpp"
#include "sl/decode/contrast_mask.hpp"
#include "sl/decode/doubtful_growth.hpp"
#include "sl/decode/hole_filling.hpp"
#include "sl/decode/pixel_reading.hpp"
#include "sl/decode/sampling_check.hpp"
#include "sl/decode/segments.hpp"
#include "sl/decode/stripe_bridging.hpp"
#include "sl/decode/surface_edges.hpp"
#include "sl/decode/weak_rims.hpp"
#include "sl/phase/flicker.hpp"
#include "sl/phase/phase_blur.hpp"
#include "sl/unwrap/order_growth.hpp"

namespace vorn::mv::sl {

namespace {

/// Rows of a 12-megapixel image that take a few milliseconds in any stage.
constexpr int rowsBetweenAskings = 256;

/// 255 for the pixels whose state is known, and 0 for the others.
VORN_TARGET_CLONES
void markKnown(uchar const* state, int n, uchar* __restrict marks) {
  for (int x = 0; x < n; ++x) {
    marks[x] = state[x] >= pixel_state::knownBit ? 255 : 0;
  }
}

int levelAt(cv::Mat const& image, cv::Point pixel) {
  return image.depth() == CV_8U ? image.ptr<uchar>(pixel.y)[pixel.x] : image.ptr<ushort>(pixel.y)[pixel.x];
}

/// The phases that a pixel's images show, or a negative number when they are clipped or show no fringe.
float ownPhase(std::vector<cv::Mat> const& images, std::array<float, 4> const& flicker, cv::Point pixel,
               ScanDecodingSettings const& settings) {
  constexpr int steps = StripeCode::phaseImages;
  int v[steps] = {};
  std::transform(images.begin(), images.begin() + steps, v,
                 [&](cv::Mat const& image) { return levelAt(image, pixel); });
  bool const isClipped = *std::max_element(v, v + steps) >= settings.white;
  std::int64_t const sine = v[0] - v[2];
  std::int64_t const cosine = v[1] - v[3];
  std::int64_t const least = 2 * settings.minAmplitude;
  bool const isModulated = sine * sine + cosine * cosine >= least * least;
  return isModulated && !isClipped ? correctedPhase(v[0], v[1], v[2], v[3], flicker) : noPhase;
}

/// Whether any of some states is open, or of unsettled contrast.
VORN_TARGET_CLONES
bool hasOpen(uchar const* state, int n) {
  uchar all = 0;
  for (int x = 0; x < n; ++x) {
    all = static_cast<uchar>(all | state[x]);
  }
  return pixel_state::isOpen(all);
}

class Decoding {
public:
  Decoding(std::vector<cv::Mat> const& images, ScanDecodingSettings const& settings, ScanMaps& maps,
           Progress const& progress)
      : images_(images), phaseImages_(images.begin(), images.begin() + StripeCode::phaseImages),
        settings_(settings), maps_(maps), progress_(progress), calm_(images[0].size()) {}

  void balanceLight() {
    maps_.create(images_[0].size());
    hasUnsettled_.assign(static_cast<std::size_t>(maps_.size().height), 0);
    if (settings_.rules.flicker) {
      flicker_ = flickerCorrection(phaseImages_, settings_.maxGrayLevel, settings_.white);
    }
  }

  void readPixels() {
    if (settings_.phaseBlurRadius > 0) {
      blurPhases();
    }
    PhaseSource const source = settings_.phaseBlurRadius > 0 ? PhaseSource::Map : PhaseSource::Images;
    coordinates_.create(maps_.size());
    wishLargePages(coordinates_.data, coordinates_.total() * sizeof(float));
    parallelRows(maps_.size().height, rowsBetweenAskings, progress_.part(0.2, 0.45), "decoding",
                 [&](int firstRow, int endRow) { readRows(source, firstRow, endRow); });
  }

  void checkSampling() const {
    requireResolvedFringes(maps_, settings_, static_cast<int>(images_.size()) - StripeCode::phaseImages);
  }

  void settleContrast() {
    sl::settleContrast(maps_, hasUnsettled_, stripeBorderReach, progress_.part(0.45, 0.5));
  }

  /// Rows whose contrast was not settled before, and all columns.
  void bridgeRest() {
    if (!settings_.rules.bridging) {
      return;
    }
    parallelRows(maps_.size().height, rowsBetweenAskings, progress_.part(0.5, 0.52), "decoding",
                 [&](int firstRow, int endRow) {
                   StripeBridging bridging(settings_, StripeSpacing(settings_.period), stripeBorderReach,
                                           maps_);
                   for (int y = firstRow; y < endRow; ++y) {
                     if (hasUnsettled_[static_cast<std::size_t>(y)] != 0) {
                       bridging.alongRow(y);
                     }
                   }
                 });
    bridgeColumns(settings_, StripeSpacing(settings_.period), &calm_, maps_, progress_.part(0.52, 0.55));
  }

  void grow() {
    if (settings_.rules.growth) {
      growOrders({maps_, CodeCheck(settings_.period), settings_.rules.codeCheck}, progress_.part(0.55, 0.75));
    }
  }

  DecodedScan finish() {
    if (settings_.rules.growth && settings_.rules.doubtfulGrowth) {
      dropDoubtfulGrowth(maps_, progress_.part(0.75, 0.8));
    }
    DecodedScan scan{coordinates_, cv::Mat_<uchar>(), 0};
    closeEdges(phaseImages_, settings_, calm_, maps_, scan.coordinates, progress_.part(0.8, 0.9));
    if (settings_.rules.weakRims) {
      carryOnOverRims(magnitudesOf(phaseImages_), settings_, maps_, scan.coordinates);
    }
    dropSmallPieces(scan.coordinates);
    return scan;
  }

  void fill(DecodedScan& scan) {
    if (settings_.maxFillRadius <= 0 || !settings_.rules.holeFilling) {
      return;
    }
    std::vector<Run> missing;
    findSegments(maps_.size(), knownRows(), 0, Neighbourhood::Eight, missing, progress_.part(0.93, 0.96));
    auto const own = [&](cv::Point p) { return ownPhase(images_, flicker_, p, settings_); };
    auto const pixelsPerRadian = static_cast<float>(settings_.period / CV_2PI);
    auto const put = [&](cv::Point p, float absolute) { scan.coordinates(p) = absolute * pixelsPerRadian; };
    scan.filled = fillHoles(maps_, missing, settings_.maxFillRadius, own, put, progress_.part(0.96, 0.99));
    if (scan.filled == 0) {
      return;
    }
    // Only now, as a state says of others whether they were measured.
    for (Run const& run : missing) {
      float const* const coordinates = scan.coordinates[run.row];
      uchar* const state = maps_.state.inner[run.row];
      for (int x = run.begin; x < run.end; ++x) {
        state[x] = coordinates[x] >= 0.0F ? pixel_state::filled : state[x];
      }
    }
  }

  cv::Mat_<uchar> reasons() const {
    cv::Mat_<uchar> reasons(maps_.size());
    parallelRows(reasons.rows, [&](int firstRow, int endRow) {
      for (int y = firstRow; y < endRow; ++y) {
        std::transform(maps_.state.inner[y], maps_.state.inner[y] + reasons.cols, reasons[y],
                       pixel_state::finalReason);
      }
    });
    return reasons;
  }

private:
  /// What reading leaves in the cache, bridging and the search for calm pieces find there.
  void readRows(PhaseSource source, int firstRow, int endRow) {
    PixelReader const reader(images_, settings_, flicker_);
    StripeBridging bridging(settings_, StripeSpacing(settings_.period), stripeBorderReach, maps_);
    CalmWalk calm(maps_, static_cast<float>(settings_.period / CV_2PI), calm_, coordinates_);
    std::vector<int> reading(static_cast<std::size_t>(maps_.size().width + 2 * PaddedMap<int>::pad));
    std::vector<uchar> contrast(reading.size());
    for (int y = firstRow; y < endRow; ++y) {
      uchar const* const state = maps_.state.inner[y];
      reader.read(y, source,
                  {maps_.wrapped.inner[y], maps_.order.inner[y], reading.data(), contrast.data(),
                   maps_.state.inner[y]});
      maps_.contrast.putRow(y, contrast.data());
      auto const width = static_cast<std::size_t>(maps_.size().width);
      uchar& isUnsettled = hasUnsettled_[static_cast<std::size_t>(y)];
      isUnsettled = std::memchr(state, pixel_state::unsettledContrast, width) != nullptr ? 1 : 0;
      if (isUnsettled == 0 && settings_.rules.bridging) {
        bridging.alongRow(y, reading.data());
      }
      keepReading(y, reading.data());
      calm.read(y);
    }
  }

  /// Most pixels are settled by now, and nobody is going to ask for their code images.
  void keepReading(int y, int const* reading) {
    uchar const* const state = maps_.state.inner[y];
    for (int chunk = 0; chunk < calm_.perRow(); ++chunk) {
      auto const [begin, end] = calm_.pixelsOf(chunk);
      if (isSampledRow(y) || hasOpen(state + begin, end - begin)) {
        std::copy(reading + begin, reading + end, maps_.reading.inner[y] + begin);
      }
    }
  }

  void blurPhases() {
    PixelReader const reader(images_, settings_, flicker_);
    parallelRows(maps_.size().height, rowsBetweenAskings, progress_.part(0.0, 0.03), "smoothing",
                 [&](int firstRow, int endRow) {
                   for (int y = firstRow; y < endRow; ++y) {
                     reader.readPhases(y, maps_.wrapped.inner[y]);
                   }
                 });
    cv::Mat_<float> magnitude;
    cv::Mat const isExposed = maps_.wrapped.inner >= 0.0F;
    progress_.at("smoothing", 0.04);
    findMagnitude(magnitude, isExposed);
    blurPhase(maps_.wrapped.inner, magnitude, isExposed, settings_.phaseBlurRadius,
              progress_.part(0.05, 0.2));
  }

  void findMagnitude(cv::Mat_<float>& magnitude, cv::Mat const& isExposed) const {
    if (phaseImages_[0].depth() == CV_8U) {
      calc_magnitude(phaseImages_, magnitude, isExposed);
      return;
    }
    cv::Mat sine;
    cv::Mat cosine;
    cv::subtract(phaseImages_[0], phaseImages_[2], sine, cv::noArray(), CV_32F);
    cv::subtract(phaseImages_[1], phaseImages_[3], cosine, cv::noArray(), CV_32F);
    cv::magnitude(sine, cosine, magnitude);
    magnitude.setTo(0.0F, isExposed == 0);
  }

  MarkedRow knownRows() const {
    return [this](int y, uchar* room) {
      markKnown(maps_.state.inner[y], maps_.size().width, room);
      return room;
    };
  }

  void dropSmallPieces(cv::Mat_<float>& coordinates) {
    if (settings_.minSegmentSize <= 1 || !settings_.rules.smallSegments) {
      return;
    }
    std::vector<Run> runs;
    findSegments(maps_.size(), knownRows(), 255, Neighbourhood::Four, runs, progress_.part(0.9, 0.93));
    forEachSmallRun(runs, settings_.minSegmentSize, [&](Run const& run) {
      uchar* const state = maps_.state.inner[run.row];
      std::fill(state + run.begin, state + run.end, pixel_state::smallPiece);
      std::fill(coordinates[run.row] + run.begin, coordinates[run.row] + run.end, noPhase);
    });
  }

  std::vector<cv::Mat> const& images_;
  std::vector<cv::Mat> const phaseImages_;
  ScanDecodingSettings const& settings_;
  ScanMaps& maps_;
  Progress progress_;
  CalmChunks calm_;
  cv::Mat_<float> coordinates_;
  std::array<float, 4> flicker_{1.0F, 1.0F, 1.0F, 1.0F};
  std::vector<uchar> hasUnsettled_; ///< for every row, whether the contrast of a pixel is still to be settled
};

} // namespace

DecodedScan decodeScan(std::vector<cv::Mat> const& images, ScanDecodingSettings const& settings,
                       ReasonMap reasonMap, ScanMaps& maps, StageReport const& report,
                       Progress const& progress) {
  Decoding decoding(images, settings, maps, progress);
  decoding.balanceLight();
  report("-Masking:");
  decoding.readPixels();
  decoding.checkSampling();
  report("-Phase decoding:");
  decoding.settleContrast();
  report("-Binary decoding:");
  decoding.bridgeRest();
  report("-Optimizing:");
  decoding.grow();
  DecodedScan scan = decoding.finish();
  report("-Unwrapping:");
  decoding.fill(scan);
  if (reasonMap == ReasonMap::Make) {
    scan.reasons = decoding.reasons();
  }
  return scan;
}

} // namespace vorn::mv::sl
