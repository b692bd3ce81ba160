// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/surface_edges.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "core/parallel.hpp"
#include "core/simd.hpp"
#include "sl/decode/segments.hpp"

namespace vorn::mv::sl {

namespace {

constexpr float pi = 3.14159265F;
/// Change of phase to the next pixel from which on the two lie on different surfaces; to a diagonal one; to
/// the next but one.
constexpr float jump = pi;
constexpr float diagonalJump = 1.4F * pi;
constexpr float farJump = 1.25F * pi;
/// A surface so many times brighter spoils the pixel next but one, too.
constexpr float outshining = 3.0F;
/// Where a surface ends, a pixel that shows less than this part of the amplitude before it is covered in
/// part, and its centre may lie beyond the end; a pixel before such a one shows it by a greater loss.
constexpr float coveredPart = 0.7F;
constexpr float shadedPart = 0.65F;

/// A pixel's neighbours to one side and to the other: the next and the next but one.
struct Side {
  float phase1;
  float phase2;
  float magnitude1;
  float magnitude2;
};

/// Whether a surface ends at a pixel towards `outer`. Comparisons with an unknown phase, a NaN, are false.
inline bool endsTowards(Side const& outer, float phase, float magnitude, Side const& inner) {
  bool const unknown1 = outer.phase1 != outer.phase1;
  bool const unknown2 = outer.phase2 != outer.phase2;
  bool const endsBeyond = unknown2 | (std::fabs(outer.phase2 - outer.phase1) > jump);
  float const before = std::max(inner.magnitude1, inner.magnitude2);
  return (std::fabs(outer.phase1 - phase) > jump) |
         ((std::fabs(outer.phase2 - phase) > farJump) &
          (unknown1 | (outer.magnitude2 > outshining * magnitude))) |
         (unknown1 & unknown2 & (magnitude < coveredPart * before)) |
         (endsBeyond & (magnitude < shadedPart * before));
}

VORN_TARGET_CLONES
void grownRow(uchar const* state, short const* code, uchar* grown, int n) {
  for (int x = 0; x < n; ++x) {
    grown[x] = (state[x] == knownState) & (code[x] < 0) ? 255 : 0;
  }
}

struct EdgeRows {
  float const* phase;
  float const* magnitude;
  std::ptrdiff_t phaseStep; ///< elements from row to row
  std::ptrdiff_t magnitudeStep;
  uchar* kept;
};

VORN_TARGET_CLONES
void edgeRow(EdgeRows const& rows, int n) {
  float const* const p = rows.phase;
  float const* const m = rows.magnitude;
  std::ptrdiff_t const step = rows.phaseStep;
  std::ptrdiff_t const mStep = rows.magnitudeStep;
  uchar* const kept = rows.kept;
  for (int x = 0; x < n; ++x) {
    float const c = p[x];
    Side const left{p[x - 1], p[x - 2], m[x - 1], m[x - 2]};
    Side const right{p[x + 1], p[x + 2], m[x + 1], m[x + 2]};
    Side const above{p[x - step], p[x - 2 * step], m[x - mStep], m[x - 2 * mStep]};
    Side const below{p[x + step], p[x + 2 * step], m[x + mStep], m[x + 2 * mStep]};
    bool const edge =
        endsTowards(left, c, m[x], right) | endsTowards(right, c, m[x], left) |
        endsTowards(above, c, m[x], below) | endsTowards(below, c, m[x], above) |
        (std::fabs(p[x - step - 1] - c) > diagonalJump) | (std::fabs(p[x - step + 1] - c) > diagonalJump) |
        (std::fabs(p[x + step - 1] - c) > diagonalJump) | (std::fabs(p[x + step + 1] - c) > diagonalJump);
    kept[x] = (c == c) & !edge ? 255 : 0;
  }
}

bool jumpsTo(float neighbour, float phase) {
  return std::fabs(neighbour - phase) > jump;
}

/// Whether any pixel of a run lies beside a jump to the next pixel.
bool touchesJump(cv::Mat_<float> const& phase, Run const& run) {
  auto const step = static_cast<std::ptrdiff_t>(phase.step1());
  for (int x = run.begin; x < run.end; ++x) {
    float const* const p = phase[run.row] + x;
    if (jumpsTo(p[-1], *p) || jumpsTo(p[1], *p) || jumpsTo(p[-step], *p) || jumpsTo(p[step], *p)) {
      return true;
    }
  }
  return false;
}

} // namespace

void dropDoubtfulGrowth(ScanDecodingBuffers& buffers, std::vector<Run>& runs) {
  cv::Mat_<float>& phase = buffers.phase.inner;
  cv::Mat_<uchar>& grown = buffers.kept;
  parallelRows(phase.rows, [&](int firstRow, int endRow) {
    for (int y = firstRow; y < endRow; ++y) {
      grownRow(buffers.state.inner[y], buffers.code.inner[y], grown[y], phase.cols);
    }
  });
  findSegments(grown, 255, Neighbourhood::Eight, runs);
  std::vector<uchar> doubtful(runs.size());
  for (Run const& run : runs) {
    uchar& segment = doubtful[static_cast<std::size_t>(run.segment)];
    segment = segment != 0 || touchesJump(phase, run) ? 1 : 0;
  }
  for (Run const& run : runs) {
    if (doubtful[static_cast<std::size_t>(run.segment)] != 0) {
      std::fill(phase[run.row] + run.begin, phase[run.row] + run.end, unknownPhase);
    }
  }
}

void keepOffEdges(ScanDecodingBuffers& buffers) {
  cv::Mat_<float> const& phase = buffers.phase.inner;
  cv::Mat_<float> const& magnitude = buffers.magnitude.inner;
  parallelRows(phase.rows, [&](int firstRow, int endRow) {
    for (int y = firstRow; y < endRow; ++y) {
      edgeRow({phase[y], magnitude[y], static_cast<std::ptrdiff_t>(phase.step1()),
               static_cast<std::ptrdiff_t>(magnitude.step1()), buffers.kept[y]},
              phase.cols);
    }
  });
}

} // namespace vorn::mv::sl
