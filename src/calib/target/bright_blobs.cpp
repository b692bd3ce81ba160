// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/target/bright_blobs.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <opencv2/core.hpp>

#include "core/joined_sets.hpp"

namespace vorn::mv {
namespace {

constexpr int none = -1;

/// Pixels of a row next to each other.
struct Run {
  int row;
  int from;
  int to;     ///< behind the last one
  int parent; ///< a run of the same blob; itself for the first of one
  int joints; ///< runs of the row above that it touches
};

/// The first pixel from `x` on that is not 0; `width` when there is none.
int endOfZeros(std::uint8_t const* pixels, int x, int width) {
  constexpr int atOnce = 8;
  std::uint64_t eight = 0;
  while (x + atOnce <= width) {
    std::memcpy(&eight, pixels + x, sizeof eight);
    if (eight != 0) {
#if defined(__GNUC__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
      return x + __builtin_ctzll(eight) / 8; // runs end anywhere: a loop's branch would be guessed wrong
#else
      break;
#endif
    }
    x += atOnce;
  }
  while (x < width && pixels[x] == 0) {
    ++x;
  }
  return x;
}

/// What a blob's runs add up to; positions from the image's corner, in whole numbers so that the order does
/// not matter.
struct BlobSums {
  std::int64_t n = 0;
  std::int64_t x = 0;
  std::int64_t y = 0;
  std::int64_t xx = 0;
  std::int64_t xy = 0;
  std::int64_t yy = 0;

  void add(int row, int from, int to) {
    auto const count = static_cast<std::int64_t>(to) - from;
    std::int64_t const sum = count * (from + to - 1) / 2;
    auto const squaresBelow = [](std::int64_t k) { return (k - 1) * k * (2 * k - 1) / 6; };
    n += count;
    x += sum;
    y += count * row;
    xx += squaresBelow(to) - squaresBelow(from);
    xy += sum * row;
    yy += count * row * row;
  }
};

/// Runs row by row, joined to blobs with those of the row before.
class Runs {
  auto parentOf() {
    return [this](int run) -> int& { return runs_[static_cast<std::size_t>(run)].parent; };
  }

public:
  /// What joins two runs: a common side of pixels, or a common corner too.
  enum class Joint { Side = 0, Corner = 1 };

  explicit Runs(Joint joint) : reach_(static_cast<int>(joint)) {}

  std::vector<Run> const& list() const { return runs_; }

  void add(int row, int from, int to) { runs_.push_back({row, from, to, static_cast<int>(runs_.size()), 0}); }

  /// Joins what was added since the last call to what was added before that.
  void endRow() {
    std::size_t const end = runs_.size();
    for (std::size_t here = row_; here < end && above_ < row_;) {
      Run const& upper = runs_[above_];
      Run& lower = runs_[here];
      if (upper.from < lower.to + reach_ && lower.from < upper.to + reach_) {
        ++lower.joints;
        joinSets(static_cast<int>(above_), static_cast<int>(here), parentOf());
      }
      if (upper.to < lower.to) {
        ++above_;
      } else {
        ++here;
      }
    }
    above_ = row_;
    row_ = end;
  }

  /// The first run of a run's blob.
  int root(int run) { return firstOfSet(run, parentOf()); }

private:
  int reach_;
  std::size_t above_ = 0; ///< the first run of the row before
  std::size_t row_ = 0;
  std::vector<Run> runs_;
};

Runs runsOfZeros(cv::Mat const& ground) {
  Runs runs(Runs::Joint::Side);
  for (int row = 0; row < ground.rows; ++row) {
    std::uint8_t const* pixels = ground.ptr<std::uint8_t>(row);
    for (int x = 0; x < ground.cols;) {
      void const* zero = std::memchr(pixels + x, 0, static_cast<std::size_t>(ground.cols - x));
      if (zero == nullptr) {
        break;
      }
      int const from = static_cast<int>(static_cast<std::uint8_t const*>(zero) - pixels);
      x = endOfZeros(pixels, from, ground.cols);
      runs.add(row, from, x);
    }
    runs.endRow();
  }
  return runs;
}

/// A blob's runs, chained, and its box.
struct Chain {
  int first = none;
  int last = none;
  int count = 0;
  int joints = 0;
  BlobSums sums;
  int left = 0;
  int right = 0;
};

/// Adds what a blob's runs enclose: the gaps between them that are not joined to what is outside.
void fillHoles(std::vector<Run> const& runs, std::vector<int> const& next, Chain& chain) {
  Runs gaps(Runs::Joint::Corner);
  int const left = chain.left - 1;
  int const right = chain.right + 1;
  int row = runs[static_cast<std::size_t>(chain.first)].row;
  gaps.add(row - 1, left, right);
  gaps.endRow();
  int begin = left;
  for (int i = chain.first; i != none; i = next[static_cast<std::size_t>(i)]) {
    Run const& run = runs[static_cast<std::size_t>(i)];
    if (run.row != row) {
      gaps.add(row, begin, right);
      gaps.endRow();
      begin = left;
      row = run.row;
    }
    gaps.add(row, begin, run.from);
    begin = run.to;
  }
  gaps.add(row, begin, right);
  gaps.endRow();
  gaps.add(row + 1, left, right);
  gaps.endRow();
  int const outside = gaps.root(0);
  for (int i = 0; i < static_cast<int>(gaps.list().size()); ++i) {
    if (gaps.root(i) != outside) {
      Run const& gap = gaps.list()[static_cast<std::size_t>(i)];
      chain.sums.add(gap.row, gap.from, gap.to);
    }
  }
}

BrightBlob blobOf(BlobSums const& sums, cv::Rect const& box) {
  auto const n = static_cast<double>(sums.n);
  BrightBlob blob;
  blob.area = n;
  blob.centre = {static_cast<double>(sums.x) / n, static_cast<double>(sums.y) / n};
  constexpr double ofSquare = 1.0 / 12; // a pixel's own, of side 1
  blob.xx = static_cast<double>(sums.xx) / n - blob.centre.x * blob.centre.x + ofSquare;
  blob.xy = static_cast<double>(sums.xy) / n - blob.centre.x * blob.centre.y;
  blob.yy = static_cast<double>(sums.yy) / n - blob.centre.y * blob.centre.y + ofSquare;
  blob.box = box;
  return blob;
}

} // namespace

std::vector<BrightBlob> findBlobs(cv::Mat const& ground, double smallest, double largest) {
  Runs joined = runsOfZeros(ground);
  std::vector<Run> const& runs = joined.list();
  std::vector<Chain> chains;
  std::vector<int> chainOf(runs.size(), none); // of roots
  std::vector<int> next(runs.size(), none);
  for (int i = 0; i < static_cast<int>(runs.size()); ++i) {
    Run const& run = runs[static_cast<std::size_t>(i)];
    int& number = chainOf[static_cast<std::size_t>(joined.root(i))];
    if (number == none) {
      number = static_cast<int>(chains.size());
      chains.emplace_back();
      chains.back().first = i;
      chains.back().left = run.from;
      chains.back().right = run.to;
    } else {
      next[static_cast<std::size_t>(chains[static_cast<std::size_t>(number)].last)] = i;
    }
    Chain& chain = chains[static_cast<std::size_t>(number)];
    chain.last = i;
    ++chain.count;
    chain.joints += run.joints;
    chain.left = std::min(chain.left, run.from);
    chain.right = std::max(chain.right, run.to);
    chain.sums.add(run.row, run.from, run.to);
  }
  std::vector<BrightBlob> blobs;
  for (Chain& chain : chains) {
    int const top = runs[static_cast<std::size_t>(chain.first)].row;
    int const bottom = runs[static_cast<std::size_t>(chain.last)].row + 1;
    bool const isInside = top > 0 && chain.left > 0 && bottom < ground.rows && chain.right < ground.cols;
    auto const area = static_cast<double>(chain.sums.n);
    if (!isInside || area < smallest || area > largest) {
      continue;
    }
    cv::Rect const box(chain.left, top, chain.right - chain.left, bottom - top);
    if (chain.joints >= chain.count) { // joints beyond those of a tree close rings
      fillHoles(runs, next, chain);
    }
    blobs.push_back(blobOf(chain.sums, box));
  }
  return blobs;
}

} // namespace vorn::mv
