// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/unwrap/unwrap_regions.hpp"

#include <cstring>
#include <limits>

#include "core/bits.hpp"
#include "core/joined_sets.hpp"
#include "core/parallel.hpp"

namespace vorn::mv {

namespace {

/// The label of a run that has none yet.
constexpr std::uint32_t noLabel = 0xFFFFFFFFU;

/// Calls visit(x) for every x with marks[x] equal to 1, in order; the others are 0. `marks` is a multiple of
/// eight bytes long.
template <class Visit>
void forEachMark(std::vector<uchar> const& marks, Visit const& visit) {
  static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the lowest byte of a word is the first mark");
  for (std::size_t first = 0; first < marks.size(); first += sizeof(std::uint64_t)) {
    std::uint64_t word = 0;
    std::memcpy(&word, marks.data() + first, sizeof(word));
    for (; word != 0; word &= word - 1) {
      constexpr int bitsPerMark = 8;
      visit(static_cast<int>(first) + lowestBit(word) / bitsPerMark);
    }
  }
}

} // namespace

void GrowthRegions::clear() {
  runs_.clear();
  rows_.assign(1, Row{nullptr, nullptr});
  labels_.clear();
  labels_.push_back({grownLabel, 0, false});
  large_.clear();
  starts_.assign(1, 0);
  batches_.assign(1, 0);
}

void GrowthRegions::addRow(std::vector<uchar> const& open, uchar const* state, uchar waiting) {
  Run const* upper = rows_.back().begin;
  Run const* const endOfUpper = rows_.back().end;
  Run* const begin = runs_.room(open.size() / 2 + 1);
  Run* next = begin;
  Run run{0, 0, noLabel};
  bool isSeeded = false;
  // Joins the run with those of the row above that it touches.
  auto const addRun = [&] {
    while (upper < endOfUpper && upper->end <= run.begin) {
      ++upper;
    }
    for (; upper < endOfUpper && upper->begin < run.end; ++upper) {
      if (run.region == noLabel) {
        run.region = upper->region;
      } else {
        unite(run.region, upper->region);
      }
      if (upper->end > run.end) {
        break; // it may touch the next run, too
      }
    }
    if (run.region == noLabel) {
      run.region = static_cast<std::uint32_t>(labels_.size());
      labels_.push_back({run.region, 0, false});
    }
    Label& label = labels_[run.region];
    label.size += static_cast<std::uint32_t>(run.end - run.begin);
    label.isSeeded |= isSeeded;
    *next++ = run;
  };
  forEachMark(open, [&](int x) {
    if (x != run.end) {
      if (run.begin < run.end) {
        addRun();
      }
      run = {x, x, noLabel};
      isSeeded = false;
    }
    run.end = x + 1;
    isSeeded |= state[x] == waiting;
  });
  if (run.begin < run.end) {
    addRun();
  }
  runs_.take(static_cast<std::size_t>(next - begin));
  rows_.push_back({begin, next});
}

void GrowthRegions::unite(std::uint32_t a, std::uint32_t b) {
  joinSets(a, b, [&](std::uint32_t label) -> std::uint32_t& { return labels_[label].parent; });
}

/// Gives every label the one that stands for its region.
void GrowthRegions::settleLabels() {
  // A parent has a smaller number than its children, so one pass in order will do.
  for (std::size_t k = 0; k < labels_.size(); ++k) {
    Label& label = labels_[k];
    label.parent = labels_[label.parent].parent;
    if (label.parent != k) {
      Label& region = labels_[label.parent];
      region.size += label.size;
      region.isSeeded |= label.isSeeded;
    }
  }
}

void GrowthRegions::layOut(std::uint32_t limit) {
  settleLabels();
  for (std::size_t k = 0; k < labels_.size(); ++k) {
    Label& label = labels_[k];
    if (label.parent != k) {
      continue;
    }
    if (!label.isSeeded || label.size > limit) {
      if (label.isSeeded) {
        large_.push_back(static_cast<std::uint32_t>(k));
      }
      label.size = noGrowthPixel;
      continue;
    }
    if (starts_.back() + label.size > starts_[batches_.back()] + limit) {
      batches_.push_back(starts_.size() - 1);
    }
    starts_.push_back(starts_.back() + label.size);
    label.size = starts_[starts_.size() - 2];
  }
  batches_.push_back(starts_.size() - 1);
}

/// Numbers the pixels of a batch.
void GrowthRegions::placeBatch(int batch) {
  firstRegion_ = batches_[static_cast<std::size_t>(batch)];
  endRegion_ = batches_[static_cast<std::size_t>(batch) + 1];
  std::uint32_t const begin = starts_[firstRegion_];
  std::uint32_t const end = starts_[endRegion_];
  for (Row const& row : rows_) {
    for (Run* run = row.begin; run < row.end; ++run) {
      Label& region = labels_[labels_[run->region].parent];
      if (region.size >= begin && region.size < end) {
        run->region = Run::gathered | (region.size - begin);
        region.size += static_cast<std::uint32_t>(run->end - run->begin);
      }
    }
  }
  pixels_ = memory_.provide(end - begin);
}

void GrowthRegions::gatherRow(int row, UnwrapMaps const& maps) const {
  // An open pixel beside one of the region is of the region, so it is gathered, too.
  auto const placeAt = [](Run const*& run, Run const* end, int column) {
    while (run < end && run->end <= column) {
      ++run;
    }
    return run < end && run->begin <= column ? run->placeOf(column) : noGrowthPixel;
  };
  constexpr float none = std::numeric_limits<float>::quiet_NaN();
  int const lastColumn = maps.size().width - 2;
  int const lastRow = maps.size().height - 2;
  auto const here = maps.row(row);
  auto const above = maps.row(row - 1);
  auto const below = maps.row(row + 1);
  Run const* upper = rowAt(row - 1).begin;
  Run const* const endOfUpper = rowAt(row - 1).end;
  Run const* lower = row < lastRow ? rowAt(row + 1).begin : nullptr;
  Run const* const endOfLower = row < lastRow ? rowAt(row + 1).end : nullptr;
  for (Run const* own = rowAt(row).begin; own < rowAt(row).end; ++own) {
    Run const run = *own;
    if (!run.isGathered()) {
      continue;
    }
    GrowthPixel* out = pixels_ + run.placeOf(run.begin);
    for (int x = run.begin; x < run.end; ++x, ++out) {
      out->phase = here.wrapped(x);
      out->quality = here.quality(x);
      out->known = {x > 1 ? here.known(x - 1) : none, x < lastColumn ? here.known(x + 1) : none,
                    row > 1 ? above.known(x) : none, row < lastRow ? below.known(x) : none};
      out->upper = placeAt(upper, endOfUpper, x);
      out->lower = placeAt(lower, endOfLower, x);
      out->hasLeft = x > run.begin;
      out->hasRight = x + 1 < run.end;
      out->state = here.state(x);
    }
  }
}

void GrowthRegions::gather(int batch, UnwrapMaps const& maps) {
  placeBatch(batch);
  parallelRows(maps.size().height - 2, [&](int firstRow, int endRow) {
    for (int row = firstRow + 1; row < endRow + 1; ++row) {
      gatherRow(row, maps);
    }
  });
}

void GrowthRegions::writeBack(UnwrapMaps const& maps) {
  parallelRows(maps.size().height - 2, [&](int firstRow, int endRow) {
    for (int row = firstRow + 1; row < endRow + 1; ++row) {
      auto const out = maps.row(row);
      for (Run* run = rowAt(row).begin; run < rowAt(row).end; ++run) {
        if (!run->isGathered()) {
          continue;
        }
        GrowthPixel const* pixel = pixels_ + run->placeOf(run->begin);
        for (int x = run->begin; x < run->end; ++x, ++pixel) {
          out.settle(x, pixel->phase, pixel->state);
        }
        run->region = grownLabel;
      }
    }
  });
}

} // namespace vorn::mv
