// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/sl/decode_patterns.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <string>
#include <utility>

#include <opencv2/core.hpp>

#include <vorn/core/text.hpp>
#include <vorn/mv/imaging/white_level.hpp>

#include "core/error.hpp"
#include "core/progress.hpp"
#include "mv_core/start_work.hpp"
#include "sl/patterns/axis_decoding.hpp"
#include "sl/patterns/sample_check.hpp"

namespace vorn::mv {

namespace {

using sl::AxisDecoding;
using sl::AxisResult;
using sl::PatternReading;
using sl::ReadingPlan;
using sl::SampleRange;

constexpr char const* context = "decode_patterns";
/// Rows whose sums stay in the second-level cache.
constexpr int bandRows = 8;

void requireImage(cv::Mat const& image, std::string const& name, int type, cv::Size size) {
  bool const isType = image.type() == CV_8UC1 || image.type() == CV_16UC1 || image.type() == CV_32FC1;
  if (image.empty() || image.dims != 2 || !isType) {
    throw error(name + " is " + (image.empty() ? "empty" : cv::typeToString(image.type())) +
                    " and must be CV_8UC1, CV_16UC1 or CV_32FC1",
                context);
  }
  if (image.type() != type || image.size() != size) {
    throw error(name + " is " + cv::typeToString(image.type()) + " of " + std::to_string(image.cols) + " x " +
                    std::to_string(image.rows) + " pixels; the first one is " + cv::typeToString(type) +
                    " of " + std::to_string(size.width) + " x " + std::to_string(size.height),
                context);
  }
}

void requireBetween(double value, double least, double most, char const* name) {
  if (!(value >= least && value <= most)) {
    throw error("\"" + std::string(name) + "\" is " + toString(value) + " and must be " + toString(least) +
                    " to " + toString(most),
                context);
  }
}

/// From what level on samples are clipped, as the images tell; 0 for nowhere.
double whiteOf(std::vector<cv::Mat> const& images) {
  double const end = findWhiteLevel(images);
  // Reals may have any unit, and one that no sample reaches is none of theirs.
  auto const isReached = [&](cv::Mat const& image) { return cv::countNonZero(image >= end) > 0; };
  return images[0].depth() != CV_32F || std::any_of(images.begin(), images.end(), isReached) ? end : 0.0;
}

/// What the images are doubted for; `decoded.fringes` come in the order of the plan but for their periods.
void judge(PatternSet const& set, ReadingPlan const& plan, sl::KeptSamples const& samples,
           std::array<AxisResult, 2> const& axes, Progress const& progress, DecodedPatterns& decoded) {
  sl::SampleCheck check = sl::checkSamples(set, plan, samples, progress);
  for (std::size_t i = 0; i < plan.fringes.size(); ++i) {
    for (FringeFigures& figures : decoded.fringes) {
      sl::Fringe const& fringe = plan.fringes[i].fringe;
      figures.misfit =
          figures.axis == fringe.axis && figures.period == fringe.period ? check.misfits[i] : figures.misfit;
    }
  }
  decoded.doubts = std::move(check.doubts);
  for (AxisResult const& axis : axes) {
    decoded.doubts.insert(decoded.doubts.end(), axis.doubts.begin(), axis.doubts.end());
  }
}

DecodedPatterns joined(std::array<AxisResult, 2>& axes, cv::Mat_<float> modulation) {
  DecodedPatterns decoded;
  decoded.column = axes[0].coordinate;
  decoded.sigmaColumn = axes[0].sigma;
  decoded.row = axes[1].coordinate;
  decoded.sigmaRow = axes[1].sigma;
  decoded.staircaseColumn = axes[0].staircase;
  decoded.staircaseRow = axes[1].staircase;
  decoded.modulation = std::move(modulation);
  for (AxisResult& axis : axes) {
    decoded.noise = std::max(decoded.noise, static_cast<double>(axis.noise));
    decoded.fringes.insert(decoded.fringes.end(), axis.fringes.begin(), axis.fringes.end());
  }
  if (axes[0].reason.empty() || axes[1].reason.empty()) {
    decoded.mask = axes[0].reason.empty() ? axes[1].reason : axes[0].reason;
    return decoded;
  }
  decoded.mask = axes[0].reason;
  for (int y = 0; y < decoded.mask.rows; ++y) {
    std::transform(decoded.mask[y], decoded.mask[y] + decoded.mask.cols, axes[1].reason[y], decoded.mask[y],
                   [](uchar column, uchar row) { return column != 0 ? column : row; });
  }
  return decoded;
}

AxisResult decodeAxis(PatternSet const& set, ReadingPlan const& plan, DecodeSettings const& settings,
                      int axis, PatternReading& reading, Progress const& progress) {
  auto const of = axis == 0 ? PatternAxis::Column : PatternAxis::Row;
  return set.codes(of) ? AxisDecoding(set, plan, settings, of, reading).run(progress) : AxisResult();
}

} // namespace

void DecodeSettings::check() const {
  constexpr double most = 1e9;
  requireBetween(whiteLevel, 0.0, most, "whiteLevel");
  requireBetween(blackLevel, 0.0, most, "blackLevel");
  requireBetween(noise, 0.0, most, "noise");
  requireBetween(minModulation, -1.0, most, "minModulation");
  requireBetween(minSegmentSize, 0.0, most, "minSegmentSize");
  if (whiteLevel > 0.0 && blackLevel >= whiteLevel) {
    throw error("\"blackLevel\" is " + toString(blackLevel) + " and must be below \"whiteLevel\", " +
                    toString(whiteLevel),
                context);
  }
}

DecodedPatterns decode_patterns(PatternSet const& set, std::vector<cv::Mat> const& images,
                                DecodeSettings const& asked, Observer* observer) {
  set.validate();
  asked.check();
  if (images.size() != set.images.size()) {
    throw error("There are " + std::to_string(images.size()) + " images; the set has " +
                    std::to_string(set.images.size()),
                context);
  }
  for (std::size_t i = 0; i < images.size(); ++i) {
    requireImage(images[i], sl::nameOf(set, i), images[0].type(), images[0].size());
  }
  Progress const progress(observer);
  DecodeSettings settings = asked;
  if (!(settings.whiteLevel > 0.0)) {
    settings.whiteLevel = whiteOf(images);
  }
  ReadingPlan const plan(set);
  PatternReading reading(set, plan, settings, images[0]);
  for (std::size_t i = 0; i < images.size(); ++i) {
    reading.prepare(i);
  }
  int const bands = (images[0].rows + bandRows - 1) / bandRows;
  constexpr int bandsBetweenAskings = 16;
  parallelRows(bands, bandsBetweenAskings, progress.part(0.0, 0.4), "reading", [&](int first, int end) {
    for (int b = first; b < end; ++b) {
      PatternReading::Band band(b * bandRows, std::min((b + 1) * bandRows, images[0].rows));
      for (std::size_t i = 0; i < images.size(); ++i) {
        reading.take(i, images, band);
      }
    }
  });
  std::array<AxisResult, 2> axes;
  axes[0] = decodeAxis(set, plan, settings, 0, reading, progress.part(0.4, 0.68));
  axes[1] = decodeAxis(set, plan, settings, 1, reading, progress.part(0.68, 0.95));
  DecodedPatterns decoded = joined(axes, reading.modulation());
  judge(set, plan, reading.kept(), axes, progress.part(0.95, 1.0), decoded);
  decoded.whiteLevel = settings.whiteLevel;
  return decoded;
}

struct PatternDecoder::Work {
  PatternSet set;
  DecodeSettings settings;
  ReadingPlan plan;
  std::size_t count = 0;
  int type = 0;
  std::optional<PatternReading> reading;
  std::vector<PatternReading::Band> bands;
  std::vector<cv::Mat> held; ///< images that later ones are compared with
  std::array<AxisResult, 2> axes;

  Work(PatternSet ofSet, DecodeSettings const& with)
      : set((ofSet.validate(), std::move(ofSet))), settings((with.check(), with)), plan(set),
        held(set.images.size()) {}

  void start(cv::Mat const& first) {
    type = first.type();
    reading.emplace(set, plan, settings, first);
    bands.clear();
    constexpr int rows = 64;
    for (int y = 0; y < first.rows; y += rows) {
      bands.emplace_back(y, std::min(y + rows, first.rows));
    }
  }

  void clear() {
    axes = {};
    reading.reset();
    bands.clear();
    held.assign(set.images.size(), cv::Mat());
    count = 0;
  }

  void take(cv::Mat const& image, Progress const& progress) {
    held[count] = image;
    reading->prepare(count);
    auto const size = static_cast<int>(bands.size());
    parallelRows(size, 2, progress.part(0.0, 0.5), "reading", [&](int first, int end) {
      for (int b = first; b < end; ++b) {
        reading->take(count, held, bands[static_cast<std::size_t>(b)]);
      }
    });
    for (std::size_t i = 0; i <= count; ++i) {
      if (plan.lastUse[i] <= count) {
        held[i].release();
      }
    }
    if (!held[count].empty()) {
      held[count] = image.clone();
    }
    for (int axis = 0; axis < 2; ++axis) {
      auto const at = static_cast<std::size_t>(axis);
      bool const isCoded = set.codes(axis == 0 ? PatternAxis::Column : PatternAxis::Row);
      if (isCoded && plan.lastOf[at] == count) {
        axes[at] = decodeAxis(set, plan, settings, axis, *reading, progress.part(0.5, 1.0));
      }
    }
    ++count;
  }
};

PatternDecoder::PatternDecoder(PatternSet set, DecodeSettings const& settings)
    : work_(std::make_unique<Work>(std::move(set), settings)) {}
PatternDecoder::PatternDecoder(PatternDecoder&&) noexcept = default;
PatternDecoder& PatternDecoder::operator=(PatternDecoder&&) noexcept = default;
PatternDecoder::~PatternDecoder() = default;

void PatternDecoder::add(cv::Mat const& image, Observer* observer) {
  if (work_->count == work_->set.images.size()) {
    throw error("All " + std::to_string(work_->count) + " images of the set are there", "PatternDecoder");
  }
  std::string const name = sl::nameOf(work_->set, work_->count);
  if (work_->count == 0) {
    requireImage(image, name, image.type(), image.size());
    work_->start(image);
  }
  requireImage(image, name, work_->type, work_->reading->modulation().size());
  try {
    work_->take(image, Progress(observer));
  } catch (...) {
    work_->clear(); // some sums have the image and others have not
    throw;
  }
}

std::size_t PatternDecoder::count() const {
  return work_->count;
}

DecodedPatterns PatternDecoder::finish(Observer* observer) {
  Progress const progress(observer);
  progress.at("checking", 0.0);
  if (work_->count != work_->set.images.size()) {
    throw error("There are " + std::to_string(work_->count) + " of " +
                    std::to_string(work_->set.images.size()) + " images; next is " +
                    sl::nameOf(work_->set, work_->count),
                "PatternDecoder");
  }
  DecodedPatterns decoded = joined(work_->axes, work_->reading->modulation());
  judge(work_->set, work_->plan, work_->reading->kept(), work_->axes, progress, decoded);
  SampleRange const range = work_->reading->range();
  decoded.whiteLevel = std::isfinite(range.white) ? static_cast<double>(range.white + range.black) : 0.0;
  work_->clear();
  return decoded;
}

} // namespace vorn::mv
