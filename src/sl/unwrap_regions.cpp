// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/unwrap_regions.hpp"

#include <algorithm>
#include <cstring>
#include <limits>
#include <stdexcept>

#include "core/parallel.hpp"

namespace vorn::mv {

namespace {

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
      visit(static_cast<int>(first) + __builtin_ctzll(word) / bitsPerMark);
    }
  }
}

} // namespace

void GrowthRegions::clear() {
  open_.clear();
  rowStarts_.assign(2, 0);
  labels_.clear();
  starts_.assign(1, 0);
}

void GrowthRegions::addRow(std::vector<uchar> const& open, uchar const* state) {
  std::size_t upper = rowStarts_[rowStarts_.size() - 2];
  std::size_t const firstOfRow = rowStarts_.back();
  forEachMark(open, [&](int x) {
    while (upper < firstOfRow && open_[upper].column < x) {
      ++upper;
    }
    bool const isBelow = upper < firstOfRow && open_[upper].column == x;
    bool const isRun = open_.size() > firstOfRow && open_.back().column == x - 1;
    std::uint32_t label = noGrowthPixel;
    if (isRun) {
      label = open_.back().place;
      if (isBelow) {
        unite(label, open_[upper].place);
      }
    } else if (isBelow) {
      label = open_[upper].place;
    } else {
      label = static_cast<std::uint32_t>(labels_.size());
      labels_.push_back({label, 0, false});
    }
    ++labels_[label].size;
    labels_[label].isSeeded |= state[x] == unwrap_state::waiting;
    open_.push_back({x, label});
  });
  rowStarts_.push_back(open_.size());
}

std::uint32_t GrowthRegions::regionOf(std::uint32_t label) {
  while (labels_[label].parent != label) {
    std::uint32_t& parent = labels_[label].parent;
    parent = labels_[parent].parent;
    label = parent;
  }
  return label;
}

void GrowthRegions::unite(std::uint32_t a, std::uint32_t b) {
  std::uint32_t const regionA = regionOf(a);
  std::uint32_t const regionB = regionOf(b);
  labels_[std::max(regionA, regionB)].parent = std::min(regionA, regionB);
}

/// Gives every pixel of a seeded region its place, region after region, in row order within each.
void GrowthRegions::layOut() {
  if (open_.size() >= noGrowthPixel) {
    throw std::invalid_argument("The phase map has more pixels without a phase than 32 bits can number");
  }
  // A parent has a smaller number than its children: one pass leaves each label with its region.
  for (Label& label : labels_) {
    label.parent = labels_[label.parent].parent;
    Label& region = labels_[label.parent];
    if (&region != &label) {
      region.size += label.size;
      region.isSeeded |= label.isSeeded;
    }
  }
  std::uint32_t place = 0;
  for (std::size_t k = 0; k < labels_.size(); ++k) {
    Label& label = labels_[k];
    if (label.parent == k && label.isSeeded) {
      std::uint32_t const size = label.size;
      label.size = place;
      place += size;
      starts_.push_back(place);
    }
  }
  for (OpenPixel& pixel : open_) {
    Label& region = labels_[labels_[pixel.place].parent];
    pixel.place = region.isSeeded ? region.size++ : noGrowthPixel;
  }
}

void GrowthRegions::gatherRow(int row, UnwrapMaps const& maps) const {
  OpenPixel const* upper = rowBegin(row - 1);
  OpenPixel const* const own = rowBegin(row);
  OpenPixel const* const end = rowBegin(row + 1);
  OpenPixel const* lower = end;
  OpenPixel const* const endOfLower = row + 2 < maps.phase.rows ? rowBegin(row + 2) : end;
  auto const placeAt = [](OpenPixel const*& in, OpenPixel const* endOfRow, int column) {
    while (in < endOfRow && in->column < column) {
      ++in;
    }
    return in < endOfRow && in->column == column ? in->place : noGrowthPixel;
  };
  int const lastColumn = maps.phase.cols - 2;
  int const lastRow = maps.phase.rows - 2;
  float const* const phases = maps.phase[row];
  float const* const upperPhases = maps.phase[row - 1];
  float const* const lowerPhases = maps.phase[row + 1];
  float const* const qualities = maps.quality[row];
  uchar const* const states = maps.state.ptr<uchar>(row);
  uchar const* const upperStates = maps.state.ptr<uchar>(row - 1);
  uchar const* const lowerStates = maps.state.ptr<uchar>(row + 1);
  auto const known = [](float phase, uchar state, bool isInside) {
    constexpr float none = std::numeric_limits<float>::quiet_NaN();
    return (state == unwrap_state::unwrapped) & isInside ? phase : none;
  };
  for (OpenPixel const* pixel = own; pixel < end; ++pixel) {
    int const x = pixel->column;
    std::uint32_t const upperPlace = placeAt(upper, own, x);
    std::uint32_t const lowerPlace = placeAt(lower, endOfLower, x);
    if (pixel->place == noGrowthPixel) {
      continue;
    }
    GrowthPixel& out = pixels_[pixel->place];
    out.phase = phases[x];
    out.quality = qualities[x];
    out.known[0] = known(phases[x - 1], states[x - 1], x > 1);
    out.known[1] = known(phases[x + 1], states[x + 1], x < lastColumn);
    out.known[2] = known(upperPhases[x], upperStates[x], row > 1);
    out.known[3] = known(lowerPhases[x], lowerStates[x], row < lastRow);
    out.upper = upperPlace;
    out.lower = lowerPlace;
    out.hasLeft = pixel > own && pixel[-1].column == x - 1;
    out.hasRight = pixel + 1 < end && pixel[1].column == x + 1;
    out.state = states[x];
  }
}

void GrowthRegions::gather(UnwrapMaps const& maps) {
  layOut();
  pixels_ = memory_.provide(starts_.back());
  parallelRows(maps.phase.rows - 2, [&](int firstRow, int endRow) {
    for (int row = firstRow; row < endRow; ++row) {
      gatherRow(row + 1, maps);
    }
  });
}

void GrowthRegions::writeBack(UnwrapMaps const& maps) const {
  parallelRows(maps.phase.rows - 2, [&](int firstRow, int endRow) {
    for (int row = firstRow + 1; row < endRow + 1; ++row) {
      float* const phases = maps.phase[row];
      uchar* const states = maps.state.ptr<uchar>(row);
      for (OpenPixel const* pixel = rowBegin(row); pixel < rowBegin(row + 1); ++pixel) {
        if (pixel->place != noGrowthPixel) {
          phases[pixel->column] = pixels_[pixel->place].phase;
          states[pixel->column] = pixels_[pixel->place].state;
        }
      }
    }
  });
}

} // namespace vorn::mv
