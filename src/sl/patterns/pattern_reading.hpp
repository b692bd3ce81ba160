// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include <opencv2/core/mat.hpp>

#include <vorn/mv/sl/decode_patterns.hpp>

#include "core/progress.hpp"
#include "sl/patterns/kept_samples.hpp"
#include "sl/patterns/reading_plan.hpp"
#include "sl/patterns/short_float.hpp"

namespace vorn::mv::sl {

/// What the images of one fringe tell of each pixel.
struct FringeMaps {
  cv::Mat_<float> phase;          ///< [0, 2 pi); negative: clipped
  cv::Mat_<ShortFloat> precision; ///< see `SolvedRow`; 0: clipped
  cv::Mat_<uchar> level;          ///< bin of `NoiseTally`
};

/// What the bits of one exposure tell of each pixel; margins are in the noise of one image.
struct CodeMaps {
  cv::Mat_<int> word;
  cv::Mat_<uchar> weakest;
  cv::Mat_<ShortFloat> margin;
  cv::Mat_<ShortFloat> second;
  cv::Mat_<float> range; ///< amplitude of the strongest bit; empty beside fringes
};

/// What all images tell of each pixel by itself. Images come in the order of the set, for all rows or for
/// some of them at a time.
class PatternReading {
public:
  PatternReading(PatternSet const& set, ReadingPlan const& plan, DecodeSettings const& settings,
                 cv::Mat const& first);

  /// The sums of fringes for some rows: those who read other rows at the same time have others.
  class Band {
  public:
    Band(int firstRow, int endRow) : firstRow_(firstRow), endRow_(endRow) {}

  private:
    friend class PatternReading;
    int firstRow_;
    int endRow_;
    std::vector<std::unique_ptr<FringeSums>> sums_;
  };

  /// Makes the maps that an image's steps write to, before any band takes it.
  void prepare(std::size_t image);
  /// Does an image's steps for the rows of a band.
  /// @param images those that the steps read, in their places
  void take(std::size_t image, std::vector<cv::Mat> const& images, Band& band);

  SampleRange const& range() const { return range_; }
  float leastAmplitude() const { return least_; }
  KeptSamples const& kept() const { return kept_; }
  cv::Mat_<float>& modulation() { return modulation_; }
  FringeMaps& fringe(std::size_t index) { return fringes_[index]; }
  CodeMaps& code(std::size_t index) { return codes_[index]; }
  /// Of all rows that have been solved.
  FringeTally tally(std::size_t fringe) const;
  bool hasFringes(PatternAxis axis) const;

private:
  void addStep(ReadingStep const& step, cv::Mat const& image, Band& band);
  void solve(std::size_t fringe, Band& band);
  void makeLevel(ReadingStep const& step, std::vector<cv::Mat> const& images, Band const& band);
  void readBit(ReadingStep const& step, std::vector<cv::Mat> const& images, Band const& band);
  bool isFinest(std::size_t fringe) const;

  PatternSet const& set_;
  ReadingPlan const& plan_;
  cv::Size size_;
  SampleRange range_{};
  KeptSamples kept_;
  float least_ = 0.0F;
  std::vector<FringeMaps> fringes_;
  std::vector<CodeMaps> codes_;
  std::vector<cv::Mat_<float>> levels_;
  cv::Mat_<float> modulation_;
  std::vector<FringeTally> tallies_;
  std::vector<std::vector<cv::Vec2d>> harmonics_; ///< of each fringe and row: they are summed in one order
  std::mutex tallying_;
};

} // namespace vorn::mv::sl
