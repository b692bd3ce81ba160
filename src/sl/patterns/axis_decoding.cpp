// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/patterns/axis_decoding.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include <opencv2/core.hpp>

#include "core/pi.hpp"
#include "sl/decode/doubtful_growth.hpp"
#include "sl/decode/segments.hpp"
#include "sl/decode/staircase.hpp"
#include "sl/decode/stripe_bridging.hpp"
#include "sl/decode/surface_edges.hpp"
#include "sl/patterns/agreement_check.hpp"
#include "sl/patterns/crossing_check.hpp"
#include "sl/unwrap/order_growth.hpp"

namespace vorn::mv::sl {

namespace {

constexpr int bandRows = 64;
constexpr float unknown = -1.0F;
constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();
/// Standard deviation of an even distribution one wide.
constexpr float ofEven = 0.28867513F;

} // namespace

AxisDecoding::AxisDecoding(PatternSet const& set, ReadingPlan const& plan, DecodeSettings const& settings,
                           PatternAxis axis, PatternReading& reading)
    : set_(set), plan_(plan), settings_(settings), axis_(axis), reading_(reading),
      resolution_(resolutionAlong(set, axis)) {
  for (std::size_t i = 0; i < plan.fringes.size(); ++i) {
    FringeDesign const& design = plan.fringes[i];
    if (design.fringe.axis == axis) {
      constexpr float ofThree = 0.06F;
      constexpr float ofMore = 0.03F;
      float const spread = design.equations.inverse(0).matrix(1, 1);
      fringes_.push_back({i,
                          static_cast<float>(design.fringe.period),
                          std::sqrt(spread),
                          design.equations.size() <= 3 ? ofThree : ofMore,
                          {}});
    }
  }
  std::sort(fringes_.begin(), fringes_.end(), [](Own const& a, Own const& b) { return a.period < b.period; });
  for (std::size_t i = 0; i < plan.codes.size(); ++i) {
    if (plan.codes[i].axis == axis) {
      codes_.push_back(i);
    }
  }
  std::vector<std::size_t> const bits = bitsAlong(set, axis);
  if (!bits.empty()) {
    int count = 0;
    for (std::size_t const i : bits) {
      count = std::max(count, set.images[i].bit + 1);
    }
    words_.emplace_back(set.images[bits[0]], count);
    while (codeFringe_ + 1 < fringes_.size() && fringes_[codeFringe_].period < words_[0].cell()) {
      ++codeFringe_;
    }
  }
}

void AxisDecoding::chooseNoise() {
  bool const isWhole = reading_.range().isWhole;
  float const rounding = isWhole ? ofEven : 0.0F;
  if (settings_.noise > 0.0) {
    noise_ = LevelNoise(static_cast<float>(settings_.noise));
  } else if (fringes_.empty()) {
    // Bits alone tell nothing of it.
    constexpr float usual = 1.0F / 256.0F;
    float const white = reading_.range().white;
    bool const isKnown = white < std::numeric_limits<float>::max();
    noise_ = LevelNoise(usual * (isKnown ? white : reading_.kept().brightest()));
  } else {
    NoiseTally all;
    for (Own const& own : fringes_) {
      all.add(reading_.tally(own.index).noise);
    }
    noise_ = LevelNoise(all, rounding);
  }
  for (int level = 0; level < levelBins; ++level) {
    // Lit pixels are noisier than the mean of a fringe.
    float const own = noise_.at(static_cast<uchar>(level));
    float const lit = noise_.at(static_cast<uchar>(std::min(levelBins - 1, 2 * level + 1)));
    auto const at = static_cast<std::size_t>(level);
    noiseInTurns_[at] = own / twoPiFloat;
    certainOfLit_[at] = certainDeviations * std::max(own, lit);
    certainOfMean_[at] = certainDeviations * own;
  }
  constexpr float twice = 2.0F;
  bool const isAsked = settings_.minModulation >= 0.0;
  least_ = isAsked || reading_.leastAmplitude() > 0.0F ? reading_.leastAmplitude() : twice * noise_.overall();
}

/// What is uncertain at the border of a stripe lies between trusted pixels.
void AxisDecoding::bridgeStripes(ScanMaps& maps, Progress const& progress) const {
  if (words_.empty()) {
    return;
  }
  ScanDecodingSettings settings;
  settings.rules.codeCheck = false;
  CodeWord::Stripes const code = words_[0].stripes();
  StripeSpacing const stripes(fringes_[0].period, code.cell, code.shift);
  parallelRows(maps.size().height, bandRows, progress.part(0.0, 0.5), "decoding", [&](int first, int end) {
    StripeBridging bridging(settings, stripes, stripeBorderReach, maps);
    for (int y = first; y < end; ++y) {
      bridging.alongRow(y);
    }
  });
  bridgeColumns(settings, stripes, nullptr, maps, progress.part(0.5, 1.0));
}

/// Pixels at the edge of a surface mix the light of two, and show neither's coordinate.
void AxisDecoding::dropEdges(ScanMaps& maps, Progress const& progress) const {
  FringeMaps const& finest = reading_.fringe(fringes_[0].index);
  auto const magnitudes = [&](int y, int x, int n, uchar const* /*state*/, float* out) {
    float const* const phase = finest.phase[y] + x;
    ShortFloat const* const precision = finest.precision[y] + x;
    for (int i = 0; i < n; ++i) {
      out[i] = phase[i] < 0.0F ? -1.0F : fromShortFloat(precision[i]);
    }
  };
  DecodingRules rules;
  // At several exposures the precision tells how many samples are clipped, and not how much light there is.
  rules.edgeShading = std::all_of(set_.images.begin(), set_.images.end(), [&](PatternImage const& image) {
    return image.exposure == set_.images[0].exposure;
  });
  closeEdges(magnitudes, rules, maps, progress);
}

/// From pixels whose orders are trusted: three and four steps take what gamma makes for phase.
void AxisDecoding::findStepErrors(ScanMaps const& maps) {
  std::vector<double> periods;
  std::vector<int> steps;
  for (Own const& own : fringes_) {
    FringeDesign const& design = plan_.fringes[own.index];
    int const count = static_cast<int>(design.equations.size());
    constexpr int mostSteps = 4;
    bool const isEven = design.source == NoiseSource::Means || design.source == NoiseSource::Excess;
    periods.push_back(design.fringe.period);
    steps.push_back(isEven && count <= mostSteps ? count : 0);
  }
  if (!settings_.correctsHarmonics || periods.size() < 2 ||
      std::all_of(steps.begin(), steps.end(), [](int count) { return count == 0; })) {
    return;
  }
  constexpr int enough = 10000; // pixels
  cv::Size const size = maps.size();
  int const apart = std::max(1, static_cast<int>(std::sqrt(static_cast<double>(size.area()) / enough)));
  std::vector<AgreementSample> samples;
  Room room;
  for (int y = 0; y < size.height; y += apart) {
    loadSamples(y, room);
    for (int x = 0; x < size.width; x += apart) {
      if (maps.state.inner(y, x) != pixel_state::trusted) {
        continue;
      }
      auto const at = static_cast<std::size_t>(x);
      AgreementSample sample;
      double const first =
          periods[0] * (static_cast<double>(room.samples.turns[0][at]) + maps.order.inner(y, x));
      for (std::size_t i = 0; i < periods.size(); ++i) {
        auto const turns = static_cast<double>(room.samples.turns[i][at]);
        sample.turns.push_back(turns);
        sample.coordinates.push_back(periods[i] * (turns + std::nearbyint(first / periods[i] - turns)));
      }
      samples.push_back(std::move(sample));
    }
  }
  std::vector<StepError> const errors = stepErrors(periods, steps, samples);
  for (std::size_t i = 0; i < errors.size(); ++i) {
    // Below that it is noise that would be taken off.
    constexpr double least = 0.002;
    fringes_[i].error = errors[i].largest() >= least ? errors[i] : StepError();
  }
}

/// Without fringes: the middles of stripes, and their borders.
void AxisDecoding::readStripes(int row, RowCode& code, AxisResult& result) {
  loadCode(row, code);
  float const noise = noise_.overall();
  // A bit that errs costs a stripe's width, not a fringe's; fine stripes are faint.
  constexpr float deviations = 2.0F;
  float const certain = deviations * noise;
  float const cell = words_[0].cell();
  float* const modulation = reading_.modulation()[row];
  for (int x = 0; x < result.coordinate.cols; ++x) {
    auto const at = static_cast<std::size_t>(x);
    float range = 0.0F;
    for (std::size_t const i : codes_) {
      range = std::max(range, reading_.code(i).range(row, x));
    }
    modulation[x] = std::min(modulation[x], range);
    float const margin = fromShortFloat(code.row.margin[at]);
    CodePlace const place = words_[0].place(code.row.word[at], code.row.weakest[at], margin > certain,
                                            fromShortFloat(code.row.second[at]) > certain);
    // Across a border the difference falls evenly from certain to certain.
    float const coordinate =
        place.kind == CodePlace::Border
            ? place.position + 0.5F * cell * place.towards * std::min(1.0F, margin / certain)
            : place.position;
    bool const isDark = !(range >= least_);
    bool const isKnown = !isDark && place.kind != CodePlace::Unknown && coordinate > -1.0F &&
                         coordinate <= static_cast<float>(resolution_);
    result.coordinate(row, x) = isKnown ? std::max(0.0F, coordinate) : unknown;
    result.sigma(row, x) = isKnown ? ofEven * cell : notANumber;
    result.reason(row, x) = isKnown  ? pixel_state::reasonOf(PixelReason::Measured)
                            : isDark ? pixel_state::dark
                                     : pixel_state::noCode;
  }
}

void AxisDecoding::dropSmallPieces(int smallest, AxisResult& result, Progress const& progress) {
  if (smallest <= 1) {
    return;
  }
  std::vector<Run> runs;
  auto const measured = [&](int y, uchar* room) {
    std::transform(result.reason[y], result.reason[y] + result.reason.cols, room,
                   [](uchar reason) { return static_cast<uchar>(reason == 0 ? 255 : 0); });
    return room;
  };
  findSegments(result.reason.size(), measured, 255, Neighbourhood::Four, runs, progress);
  forEachSmallRun(runs, smallest, [&](Run const& run) {
    for (int x = run.begin; x < run.end; ++x) {
      result.reason(run.row, x) = pixel_state::smallPiece;
      result.coordinate(run.row, x) = unknown;
      result.sigma(run.row, x) = notANumber;
    }
  });
}

/// The fringes of some pixels all over the image that have them all.
FringeSamples AxisDecoding::strongSamples(ScanMaps const& maps) {
  constexpr int along = 60;
  cv::Size const size = maps.size();
  FringeSamples samples;
  Room room;
  for (int y = 0; y < size.height; y += std::max(1, size.height / along)) {
    loadSamples(y, room);
    closeStates(y, room);
    samples.periods = room.samples.periods;
    samples.turns.resize(fringes_.size());
    samples.sigma.resize(fringes_.size());
    for (int x = 0; x < size.width; x += std::max(1, size.width / along)) {
      auto const at = static_cast<std::size_t>(x);
      for (std::size_t i = 0; room.state[at] == pixel_state::open && i < fringes_.size(); ++i) {
        samples.turns[i].push_back(room.samples.turns[i][at]);
        samples.sigma[i].push_back(room.samples.sigma[i][at]);
      }
    }
  }
  return samples;
}

/// Whether bits and fringes belong together, as their images came.
std::vector<PatternDoubt> AxisDecoding::checkTogether(ScanMaps const& maps) {
  if (!words_.empty()) {
    CrossingMaps crossing;
    for (std::size_t const i : codes_) {
      crossing.codes.push_back(&reading_.code(i));
    }
    for (Own const& own : fringes_) {
      crossing.fringes.push_back({&plan_.fringes[own.index].fringe, &reading_.fringe(own.index).phase});
    }
    return checkCrossings(set_, axis_, words_[0], crossing, certainDeviations * noise_.overall());
  }
  if (fringes_.size() < 2) {
    return {};
  }
  std::vector<FringeDesign const*> designs;
  for (Own const& own : fringes_) {
    designs.push_back(&plan_.fringes[own.index]);
  }
  return checkAgreement(strongSamples(maps), designs, resolution_);
}

AxisResult AxisDecoding::run(Progress const& progress) {
  cv::Size const size = reading_.modulation().size();
  chooseNoise();
  AxisResult result;
  result.noise = noise_.overall();
  auto const forRows = [&](Progress const& part, auto const& body) {
    parallelRows(size.height, bandRows, part, "decoding", [&](int first, int end) {
      Room room;
      for (int y = first; y < end; ++y) {
        body(y, room);
      }
    });
  };
  ScanMaps maps;
  if (!fringes_.empty()) {
    maps.createWithoutCode(size);
    forRows(progress.part(0.0, 0.3), [&](int y, Room& room) { decideRow(y, room, maps); });
  }
  result.doubts = checkTogether(maps);
  if (!fringes_.empty()) {
    findStepErrors(maps);
    if (std::any_of(fringes_.begin(), fringes_.end(), [](Own const& own) { return own.error.steps != 0; })) {
      forRows(progress.part(0.3, 0.4), [&](int y, Room& room) { decideRow(y, room, maps); });
    }
    if (settings_.usesNeighbours) {
      bridgeStripes(maps, progress.part(0.4, 0.45));
      growOrders({maps, CodeCheck(1), false}, progress.part(0.45, 0.7));
      dropDoubtfulGrowth(maps, progress.part(0.7, 0.73));
      if (settings_.dropsEdges) {
        dropEdges(maps, progress.part(0.73, 0.75));
      }
    }
  }
  result.coordinate.create(size);
  result.sigma.create(size);
  result.reason.create(size);
  forRows(progress.part(0.75, 0.95), [&](int y, Room& room) {
    fringes_.empty() ? readStripes(y, room.code, result) : finishRow(y, room, maps, result);
  });
  dropSmallPieces(settings_.minSegmentSize, result, progress.part(0.95, 0.97));
  if (settings_.correctsStaircase && !fringes_.empty()) {
    result.staircase = removeStaircase(result.coordinate, &result.sigma, progress.part(0.97, 1.0));
  }
  for (Own const& own : fringes_) {
    FringeDesign const& design = plan_.fringes[own.index];
    FringeTally const tally = reading_.tally(own.index);
    bool const isShown = design.source == NoiseSource::Quadrature || design.source == NoiseSource::Excess;
    result.fringes.push_back({design.fringe.axis, design.fringe.period,
                              static_cast<int>(design.fringe.images.size()),
                              isShown && tally.power > 0.0 ? tally.harmonic / tally.power
                                                           : std::numeric_limits<double>::quiet_NaN(),
                              own.error.largest(), std::numeric_limits<double>::quiet_NaN()});
    reading_.fringe(own.index) = {};
  }
  for (std::size_t const code : codes_) {
    reading_.code(code) = {};
  }
  return result;
}

} // namespace vorn::mv::sl
