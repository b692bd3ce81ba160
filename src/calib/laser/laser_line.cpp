// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/calib/laser_line.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <sstream>
#include <string>

#include <opencv2/core.hpp>

#include "calib/laser/full_runs.hpp"
#include "calib/laser/laser_edges.hpp"
#include "calib/laser/laser_grey.hpp"
#include "calib/laser/laser_profile.hpp"
#include "calib/laser/laser_search.hpp"
#include "core/error.hpp"
#include "core/parallel.hpp"
#include "core/progress.hpp"
#include "core/simd.hpp"

namespace vorn::mv {

namespace {

using Direction = LaserLineOptions::Direction;

constexpr char const* stage = "finding laser lines";
constexpr double fullGrey = 255;

/// Candidates are the highest places of sums over so many pixels: enough to keep most noise from being a
/// peak, few enough to tell narrow stripes apart.
constexpr int sumRadius = 2;
constexpr int sumCount = 2 * sumRadius + 1;

/// A pixel that may be the top of a stripe.
struct Candidate {
  int column;
  int row;
};

/// How far a candidate must stand out, in sums of grey levels: over the places `flank` pixels to both sides.
struct CandidateTest {
  int flank;
  int contrast;
};

CandidateTest candidateTest(LaserLineOptions const& options) {
  int const flank = sumRadius + static_cast<int>(std::ceil(1.2 * std::min(options.maxWidth, 5.0)));
  // A narrow stripe fills only a part of the summed pixels; a wide one has not fallen off at the flanks.
  double const filled = 2.5 * options.minWidth / sumCount;
  double const fallen = 1 - std::exp(-0.5 * std::pow(flank / std::max(options.maxWidth, 0.1), 2));
  constexpr double unreachable = 256; // grey levels
  double const least =
      std::min(options.minContrast, unreachable) * sumCount * std::min({1.0, filled, fallen});
  return {flank, std::max(1, static_cast<int>(0.5 * least))}; // half of it leaves room for noise
}

/// Marks the places of one row whose sum is highest among their neighbours and stands out over their flanks.
VORN_TARGET_CLONES
void markTops(std::uint16_t const* sums, std::uint16_t const* before, std::uint16_t const* after,
              std::uint16_t const* flank1, std::uint16_t const* flank2, int contrast, std::uint8_t* marks,
              int count) {
  for (int x = 0; x < count; ++x) {
    int const sum = sums[x];
    int const flank = std::max(flank1[x], flank2[x]) + contrast;
    marks[x] = static_cast<std::uint8_t>((sum > before[x]) & (sum >= after[x]) & (sum >= flank));
  }
}

VORN_TARGET_CLONES
void addRow(std::uint8_t const* row, std::uint16_t* sums, int count) {
  for (int x = 0; x < count; ++x) {
    sums[x] = static_cast<std::uint16_t>(sums[x] + row[x]);
  }
}

/// Calls `found` with the index of every mark.
template <class Found>
void forMarks(std::uint8_t const* marks, int count, Found const& found) {
  int x = 0;
  for (; x + 8 <= count; x += 8) { // most of an image holds no mark
    std::uint64_t eight = 0;
    std::memcpy(&eight, marks + x, sizeof eight);
    for (int i = 0; eight != 0 && i < 8; ++i) {
      if (marks[x + i] != 0) {
        found(x + i);
      }
    }
  }
  for (; x < count; ++x) {
    if (marks[x] != 0) {
      found(x);
    }
  }
}

/// The sums down the columns of a few rows around the one in work.
class ColumnSums {
public:
  ColumnSums(cv::Mat const& image, int radius)
      : image_(image), count_(2 * radius + 1), rows_(count_, image.cols, CV_16U) {}

  /// The sums around a row, with the image's edge repeated; made by `make` before.
  std::uint16_t const* at(int row) const { return rows_.ptr<std::uint16_t>(slot(row)); }

  void make(int row) {
    auto* const sums = rows_.ptr<std::uint16_t>(slot(row));
    std::fill_n(sums, image_.cols, std::uint16_t{0});
    for (int i = row - sumRadius; i <= row + sumRadius; ++i) {
      addRow(image_.ptr(std::clamp(i, 0, image_.rows - 1)), sums, image_.cols);
    }
  }

private:
  int slot(int row) const { return (row % count_ + count_) % count_; }

  cv::Mat const& image_;
  int count_;
  cv::Mat rows_;
};

void findAlongColumns(cv::Mat const& image, CandidateTest const& test, int firstRow, int endRow,
                      std::vector<Candidate>& candidates) {
  ColumnSums sums(image, test.flank);
  std::vector<std::uint8_t> marks(static_cast<std::size_t>(image.cols));
  for (int row = firstRow - test.flank; row < firstRow + test.flank; ++row) {
    sums.make(row);
  }
  for (int row = firstRow; row < endRow; ++row) {
    sums.make(row + test.flank);
    markTops(sums.at(row), sums.at(row - 1), sums.at(row + 1), sums.at(row - test.flank),
             sums.at(row + test.flank), test.contrast, marks.data(), image.cols);
    forMarks(marks.data(), image.cols, [&](int x) { candidates.push_back({x, row}); });
  }
}

void findAlongRows(cv::Mat const& image, CandidateTest const& test, int firstRow, int endRow,
                   std::vector<Candidate>& candidates) {
  int const margin = test.flank + sumRadius;
  std::vector<std::uint8_t> padded(static_cast<std::size_t>(image.cols + 2 * margin));
  std::vector<std::uint16_t> sums(static_cast<std::size_t>(image.cols + 2 * test.flank));
  std::vector<std::uint8_t> marks(static_cast<std::size_t>(image.cols));
  for (int row = firstRow; row < endRow; ++row) {
    std::uint8_t const* const pixels = image.ptr(row);
    std::fill_n(padded.begin(), margin, pixels[0]);
    std::copy_n(pixels, image.cols, padded.begin() + margin);
    std::fill_n(padded.end() - margin, margin, pixels[image.cols - 1]);
    std::fill(sums.begin(), sums.end(), std::uint16_t{0});
    for (int i = 0; i < sumCount; ++i) {
      addRow(padded.data() + i, sums.data(), static_cast<int>(sums.size()));
    }
    std::uint16_t const* const middle = sums.data() + test.flank;
    markTops(middle, middle - 1, middle + 1, middle - test.flank, middle + test.flank, test.contrast,
             marks.data(), image.cols);
    forMarks(marks.data(), image.cols, [&](int x) { candidates.push_back({x, row}); });
  }
}

/// The candidates of the whole image, in the order of the lines (columns or rows) that they lie on.
std::vector<Candidate> findCandidates(cv::Mat const& image, LaserLineOptions const& options,
                                      Progress const& progress) {
  CandidateTest const test = candidateTest(options);
  bool const perColumn = options.direction == Direction::PerColumn;
  std::vector<Candidate> candidates;
  std::mutex mutex;
  // Ranges of many rows, as each sums up the rows around it first.
  constexpr int blockRows = 128;
  constexpr int blocksAtOnce = 2;
  int const blocks = (image.rows + blockRows - 1) / blockRows;
  parallelRows(blocks, blocksAtOnce, progress, stage, [&](int firstBlock, int endBlock) {
    int const firstRow = firstBlock * blockRows;
    int const endRow = std::min(endBlock * blockRows, image.rows);
    std::vector<Candidate> found;
    (perColumn ? findAlongColumns : findAlongRows)(image, test, firstRow, endRow, found);
    std::lock_guard<std::mutex> const lock(mutex);
    candidates.insert(candidates.end(), found.begin(), found.end());
  });
  progress.at(stage, 1.0);
  // The ranges arrive in any order.
  std::sort(candidates.begin(), candidates.end(), [perColumn](Candidate const& a, Candidate const& b) {
    return perColumn ? std::pair(a.column, a.row) < std::pair(b.column, b.row)
                     : std::pair(a.row, a.column) < std::pair(b.row, b.column);
  });
  return candidates;
}

/// The best of the peaks of one line, in the order of their places; of two found on one stripe, one.
void appendBest(std::vector<ProfilePeak> found, int maxPeaks, std::vector<ProfilePeak>& best) {
  std::sort(found.begin(), found.end(), [](ProfilePeak const& a, ProfilePeak const& b) {
    return std::pair(-a.contrast, a.place) < std::pair(-b.contrast, b.place);
  });
  best.clear();
  for (ProfilePeak const& peak : found) {
    bool const isNew = std::none_of(best.begin(), best.end(), [&](ProfilePeak const& other) {
      return std::abs(peak.place - other.place) < other.width + 1;
    });
    if (isNew && static_cast<int>(best.size()) < maxPeaks) {
      best.push_back(peak);
    }
  }
  std::sort(best.begin(), best.end(),
            [](ProfilePeak const& a, ProfilePeak const& b) { return a.place < b.place; });
}

/// Keeps the best of the peaks of one line, or none: where a stripe is overexposed that cannot be measured
/// and stands higher, they are not the line's.
class LineOfPeaks {
public:
  explicit LineOfPeaks(LaserLineOptions const& options) : options_(options) {}

  void measure(LaserProfile const& profile, int top) {
    if (auto const peak = measurePeak(profile, top, options_)) {
      found_.push_back(*peak);
    }
  }
  void measure(LaserProfile const& profile, FullRun const& run) {
    Flanks const flanks = measureFlanks(profile, run, options_);
    if (flanks.peak) {
      found_.push_back(*flanks.peak);
    } else {
      lostContrast_ = std::max(lostContrast_, flanks.contrast);
    }
  }
  /// Appends what is kept, and begins anew.
  void end(int line, std::vector<LaserSample>& samples) {
    bool const isBelow = std::all_of(found_.begin(), found_.end(),
                                     [&](ProfilePeak const& peak) { return peak.contrast < lostContrast_; });
    if (!found_.empty() && !isBelow) {
      appendBest(found_, options_.maxPeaks, best_);
      for (ProfilePeak const& peak : best_) {
        samples.push_back({line, peak});
      }
    }
    found_.clear();
    lostContrast_ = 0;
  }

private:
  LaserLineOptions const& options_;
  std::vector<ProfilePeak> found_;
  std::vector<ProfilePeak> best_;
  double lostContrast_ = 0; ///< of the highest one that could not be measured
};

LaserProfile profileOf(LaserGrey const& image, int line, bool perColumn) {
  cv::Mat const& levels = image.levels;
  auto const step = perColumn ? static_cast<std::ptrdiff_t>(levels.step1()) : 1;
  int const count = perColumn ? levels.rows : levels.cols;
  int const row = perColumn ? 0 : line;
  int const column = perColumn ? line : 0;
  if (levels.depth() == CV_8U) {
    return {levels.ptr(row) + column, step, count};
  }
  return {nullptr, step, count, levels.ptr<std::uint16_t>(row) + column, image.perGrey};
}

} // namespace

void LaserLineOptions::check() const {
  auto const require = [](bool isGood, char const* option, auto value, std::string const& bound) {
    if (!isGood) {
      std::ostringstream message;
      message << "LaserLineOptions: " << option << " is " << value << ", but must be " << bound;
      throw error(message.str(), "extract_laser_line");
    }
  };
  constexpr double widest = 10;
  require(width >= 0 && width <= widest, "width", width, "0 to 10");
  require(maxWidth >= 0 && maxWidth <= widest, "maxWidth", maxWidth, "0 to 10");
  require(minWidth >= 0 && minWidth <= maxWidth, "minWidth", minWidth,
          "0 or more and at most maxWidth, " + cv::format("%g", maxWidth));
  require(minContrast > 0, "minContrast", minContrast, "above 0");
  require(maxPeaks >= 1, "maxPeaks", maxPeaks, "1 or more");
  constexpr int widestOverexposed = 100;
  require(maxOverexposed >= 0 && maxOverexposed <= widestOverexposed, "maxOverexposed", maxOverexposed,
          "0 to 100");
}

std::vector<LaserPeak> extract_laser_peaks(cv::Mat const& image, LaserLineOptions const& options) {
  return extract_laser_peaks(image, options, nullptr);
}

std::vector<LaserPeak> extract_laser_peaks(cv::Mat const& image, LaserLineOptions const& options,
                                           Observer* observer) {
  options.check();
  if (image.empty()) {
    return {};
  }
  if (image.dims != 2 || (image.type() != CV_8UC1 && image.type() != CV_8UC3)) {
    throw error("Expected an 8-bit image of one or three channels, not " + cv::typeToString(image.type()),
                "extract_laser_line");
  }
  std::vector<LaserSample> samples =
      findLaserSamples(laserGrey(image, {}, fullGrey), options, Progress(observer));
  if (options.dropMoved) {
    dropMovedSamples(samples);
  }
  std::vector<LaserPeak> peaks;
  for (LaserSample const& sample : samples) {
    peaks.push_back(peakOf(sample, options.direction));
  }
  return peaks;
}

std::vector<LaserSample> findLaserSamples(LaserGrey const& image, LaserLineOptions const& options,
                                          Progress const& progress) {
  bool const perColumn = options.direction == Direction::PerColumn;
  auto const candidates = findCandidates(image.bytes, options, progress.part(0.0, 0.5));
  std::vector<FullPlace> full;
  if (options.maxOverexposed > 0) {
    full = findFullRuns(image.bytes, perColumn, options.saturation, options.maxSaturated + 1,
                        options.maxOverexposed);
  }
  auto const lineOf = [&](Candidate const& candidate) {
    return perColumn ? candidate.column : candidate.row;
  };
  std::vector<LaserSample> samples;
  LineOfPeaks peaks(options);
  std::size_t lines = 0;
  auto candidate = candidates.begin();
  auto place = full.begin();
  while (candidate != candidates.end() || place != full.end()) {
    int const line = candidate == candidates.end() ? place->line
                     : place == full.end()         ? lineOf(*candidate)
                                                   : std::min(lineOf(*candidate), place->line);
    LaserProfile const profile = profileOf(image, line, perColumn);
    auto const done = static_cast<std::size_t>(candidate - candidates.begin());
    constexpr std::size_t linesBetweenAskings = 32;
    if (lines++ % linesBetweenAskings == 0) {
      progress.part(0.5, 1.0).at(stage, static_cast<double>(done) /
                                            static_cast<double>(std::max<std::size_t>(1, candidates.size())));
    }
    for (; candidate != candidates.end() && lineOf(*candidate) == line; ++candidate) {
      peaks.measure(profile, perColumn ? candidate->row : candidate->column);
    }
    for (; place != full.end() && place->line == line; ++place) {
      peaks.measure(profile, place->run);
    }
    peaks.end(line, samples);
  }
  progress.at(stage, 1.0);
  return samples;
}

std::vector<cv::Point2f> extract_laser_line(cv::Mat const& image, LaserLineOptions const& options) {
  return extract_laser_line(image, options, nullptr);
}

std::vector<cv::Point2f> extract_laser_line(cv::Mat const& image, LaserLineOptions const& options,
                                            Observer* observer) {
  std::vector<cv::Point2f> points;
  for (LaserPeak const& peak : extract_laser_peaks(image, options, observer)) {
    points.push_back(peak.point);
  }
  return points;
}

} // namespace vorn::mv
