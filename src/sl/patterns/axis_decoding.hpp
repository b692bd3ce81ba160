// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/mat.hpp>

#include "core/progress.hpp"
#include "sl/decode/scan_maps.hpp"
#include "sl/patterns/code_word.hpp"
#include "sl/patterns/order_rows.hpp"
#include "sl/patterns/order_search.hpp"
#include "sl/patterns/pattern_reading.hpp"
#include "sl/patterns/step_error.hpp"

namespace vorn::mv::sl {

/// What is known of one axis at the end.
struct AxisResult {
  cv::Mat_<float> coordinate; ///< projector pixels; -1 where unknown
  cv::Mat_<float> sigma;      ///< NaN where unknown
  cv::Mat_<uchar> reason;     ///< `PixelReason`
  float noise = 0.0F;         ///< of an image, grey levels
  double staircase = 0.0;     ///< that was taken off, projector pixels
  std::vector<FringeFigures> fringes;
  std::vector<PatternDoubt> doubts;
};

/// From what the images of an axis tell of each pixel to its coordinates. The maps of the reading are
/// released on the way.
class AxisDecoding {
public:
  AxisDecoding(PatternSet const& set, ReadingPlan const& plan, DecodeSettings const& settings,
               PatternAxis axis, PatternReading& reading);

  AxisResult run(Progress const& progress);

private:
  /// How far a bit must be from its threshold to be certain, in standard deviations: one in 30 000 is not
  /// where it seems to be.
  static constexpr float certainDeviations = 4.0F;

  /// A fringe of the axis; they are sorted, the finest one first.
  struct Own {
    std::size_t index; ///< in the plan
    float period;
    float amplitudeOfPrecision; ///< the one is so many times the other where nothing is clipped
    float tolerance;            ///< deviation that is not noise, in parts of the period
    StepError error;            ///< that is taken off
  };
  /// The bits of a row as the best exposure shows them, and room for them where there are several.
  struct RowCode {
    WordRow row;
    std::vector<std::uint32_t> word;
    std::vector<uchar> weakest;
    std::vector<ShortFloat> margin, second;
  };
  /// Room for a row's numbers.
  struct Room {
    FringeSamples samples;
    FoundOrders found;
    RowCode code;
    std::vector<int> state, flags, kind, lean, other;
    std::vector<float> certain, position, coordinate, order, ownSigma, weights, shifts;

    void resize(int n);
    PlaceRow places();
  };

  void chooseNoise();
  void loadSamples(int row, Room& room);
  void loadCode(int row, RowCode& code) const;
  void bridgeStripes(ScanMaps& maps, Progress const& progress) const;
  void dropEdges(ScanMaps& maps, Progress const& progress) const;
  std::vector<PatternDoubt> checkTogether(ScanMaps const& maps);
  FringeSamples strongSamples(ScanMaps const& maps);
  void findStepErrors(ScanMaps const& maps);
  FringeRow fringeRow(Room const& room, std::size_t fringe) const;
  void decideRow(int row, Room& room, ScanMaps& maps);
  void closeStates(int row, Room& room) const;
  /// Where the bits of a row say that its pixels are.
  /// @param certain by level, what makes a bit certain
  PlaceRow placesOfRow(int row, LevelTable const& certain, Room& room) const;
  void ordersByCode(int row, Room& room) const;
  void ordersBySearch(Room& room) const;
  void finishRow(int row, Room& room, ScanMaps& maps, AxisResult& result);
  void dropContradicted(int row, uchar const* state, Room& room) const;
  void combine(uchar const* state, Room& room) const;
  void readStripes(int row, RowCode& code, AxisResult& result);
  static void dropSmallPieces(int smallest, AxisResult& result, Progress const& progress);

  PatternSet const& set_;
  ReadingPlan const& plan_;
  DecodeSettings const& settings_;
  PatternAxis axis_;
  PatternReading& reading_;
  int resolution_;
  std::vector<Own> fringes_;
  std::vector<std::size_t> codes_;
  std::vector<CodeWord> words_; ///< one, or none without bits
  std::size_t codeFringe_ = 0;  ///< the one whose order the bits tell
  LevelNoise noise_{0.0F};
  LevelTable noiseInTurns_{};  ///< divided by precisions it is that of phases
  LevelTable certainOfLit_{};  ///< what makes the bits of lit pixels certain
  LevelTable certainOfMean_{}; ///< of those as bright as the mean of the fringe
  float least_ = 0.0F;         ///< amplitude
};

} // namespace vorn::mv::sl
