// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/surface_edges.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>

#include "core/pi.hpp"
#include "core/simd.hpp"
#include "sl/decode/absolute_phase.hpp"

namespace vorn::mv::sl {

namespace {

/// Change of phase to the next pixel from which on the two lie on different surfaces; to a diagonal one; to
/// the next but one.
constexpr float jump = surfaceJump;
constexpr float diagonalJump = 1.4F * piFloat;
constexpr float farJump = 1.25F * piFloat;
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

/// The limits of the rules; of one that is off, limits that nothing reaches.
struct EdgeLimits {
  float jump;
  float diagonalJump;
  float farJump;
  float coveredPart;
  float shadedPart;
};

/// Whether a surface ends at a pixel towards `outer`. Comparisons with an unknown phase, a NaN, are false.
inline bool endsTowards(Side const& outer, float phase, float magnitude, Side const& inner,
                        EdgeLimits const& limits) {
  bool const unknown1 = outer.phase1 != outer.phase1;
  bool const unknown2 = outer.phase2 != outer.phase2;
  bool const endsBeyond = unknown2 | (std::fabs(outer.phase2 - outer.phase1) > jump);
  float const before = std::max(inner.magnitude1, inner.magnitude2);
  return (std::fabs(outer.phase1 - phase) > limits.jump) |
         ((std::fabs(outer.phase2 - phase) > limits.farJump) &
          (unknown1 | (outer.magnitude2 > outshining * magnitude))) |
         (unknown1 & unknown2 & (magnitude < limits.coveredPart * before)) |
         (endsBeyond & (magnitude < limits.shadedPart * before));
}

// Nothing in a calm piece is an edge, near or far or diagonal.
static_assert(calmStep <= jump && 2 * calmStep <= farJump && 2 * calmStep <= diagonalJump);

/// What is kept of the rows around the one that is judged.
constexpr int ringRows = 5;
constexpr int pad = CalmChunks::pad;

struct EdgeRows {
  float const* phase[ringRows]; ///< absolute; the middle row is the one that is judged
  float const* magnitude[ringRows];

  EdgeRows from(int x) const {
    EdgeRows rows = *this;
    for (int k = 0; k < ringRows; ++k) {
      rows.phase[k] += x;
      rows.magnitude[k] += x;
    }
    return rows;
  }
};

/// Whether each pixel of a row lies on an edge, 1 or 0.
/// @return whether any does
VORN_TARGET_CLONES
bool edgeRow(EdgeRows const& rows, EdgeLimits const& limits, int n, uchar* __restrict isEdge) {
  float const* const p = rows.phase[2];
  float const* const above1 = rows.phase[1];
  float const* const above2 = rows.phase[0];
  float const* const below1 = rows.phase[3];
  float const* const below2 = rows.phase[4];
  float const* const m = rows.magnitude[2];
  float const* const mAbove1 = rows.magnitude[1];
  float const* const mAbove2 = rows.magnitude[0];
  float const* const mBelow1 = rows.magnitude[3];
  float const* const mBelow2 = rows.magnitude[4];
  EdgeLimits const w = limits;
  uchar any = 0;
  VORN_INDEPENDENT_ITERATIONS
  for (int x = 0; x < n; ++x) {
    float const c = p[x];
    Side const left{p[x - 1], p[x - 2], m[x - 1], m[x - 2]};
    Side const right{p[x + 1], p[x + 2], m[x + 1], m[x + 2]};
    Side const above{above1[x], above2[x], mAbove1[x], mAbove2[x]};
    Side const below{below1[x], below2[x], mBelow1[x], mBelow2[x]};
    bool const edge =
        endsTowards(left, c, m[x], right, w) | endsTowards(right, c, m[x], left, w) |
        endsTowards(above, c, m[x], below, w) | endsTowards(below, c, m[x], above, w) |
        (std::fabs(above1[x - 1] - c) > w.diagonalJump) | (std::fabs(above1[x + 1] - c) > w.diagonalJump) |
        (std::fabs(below1[x - 1] - c) > w.diagonalJump) | (std::fabs(below1[x + 1] - c) > w.diagonalJump);
    isEdge[x] = edge ? 1 : 0;
    any = static_cast<uchar>(any | isEdge[x]);
  }
  return any != 0;
}

/// Twice the amplitude; negative where the pixel is clipped.
template <class T>
VORN_TARGET_CLONES void magnitudeRow(std::array<T const*, 4> const& steps, uchar const* state, int n,
                                     float* __restrict out) {
  T const* const p0 = steps[0];
  T const* const p1 = steps[1];
  T const* const p2 = steps[2];
  T const* const p3 = steps[3];
  for (int x = 0; x < n; ++x) {
    // Of bytes the squares are whole numbers that a float holds exactly.
    auto const sine = static_cast<float>(p0[x] - p2[x]);
    auto const cosine = static_cast<float>(p1[x] - p3[x]);
    float const magnitude = std::sqrt(sine * sine + cosine * cosine);
    out[x] = state[x] != pixel_state::clipped ? magnitude : -1.0F;
  }
}

VORN_TARGET_CLONES
void closeRow(uchar const* isEdge, int n, uchar* __restrict state) {
  for (int x = 0; x < n; ++x) {
    bool const isKnown = state[x] >= pixel_state::knownBit;
    state[x] = isKnown & (isEdge[x] != 0) ? pixel_state::edge : state[x];
  }
}

/// @param absolute phases, unknown ones as NaN
VORN_TARGET_CLONES
void coordinatesOf(float const* absolute, uchar const* isEdge, float pixelsPerRadian, int n,
                   float* __restrict coordinates) {
  for (int x = 0; x < n; ++x) {
    float const p = absolute[x];
    coordinates[x] = (p == p) & (isEdge[x] == 0) ? p * pixelsPerRadian : noPhase;
  }
}

/// Rows that one walk closes the edges of, while another one may be at work on the rows beside them.
constexpr int blockRows = 64;

/// The states of the two rows before and the two rows after the beginning of every block, before any changes.
cv::Mat_<uchar> copySeams(cv::Mat_<uchar> const& state) {
  int const blocks = (state.rows + blockRows - 1) / blockRows;
  cv::Mat_<uchar> seams(2 * pad * (blocks + 1), state.cols, pixel_state::noCode);
  for (int row = 0; row < seams.rows; ++row) {
    int const y = row / (2 * pad) * blockRows - pad + row % (2 * pad);
    if (y >= 0 && y < state.rows) {
      std::copy_n(state[y], state.cols, seams[row]);
    }
  }
  return seams;
}

/// Projector pixels of the known pixels, when they are asked for.
struct CoordinateTarget {
  cv::Mat_<float>* map = nullptr;
  float pixelsPerRadian = 0.0F;
};

/// Walks down some rows with the absolute phases and magnitudes of five rows in the cache, as far as there
/// may be edges.
class EdgeWalk {
public:
  EdgeWalk(MagnitudeSource const& magnitudes, DecodingRules const& rules, CalmChunks const& calm,
           ScanMaps& maps, cv::Mat_<uchar> const& seams, CoordinateTarget const& target)
      : magnitudes_(magnitudes), calm_(calm), maps_(maps), seams_(seams), target_(target),
        limits_(limitsOf(rules)), phase_(ringRows, maps.size().width + 2 * pad, unknownPhase),
        magnitude_(ringRows, maps.size().width + 2 * pad, -1.0F), hasPhase_(ringRows, calm.perRow()),
        hasMagnitude_(ringRows, calm.perRow()), calmness_(ringRows, calm.perRow()),
        isEdge_(edgeRows, maps.size().width) {}

  void walk(int block) {
    block_ = block;
    int const first = block * blockRows;
    int const end = std::min(first + blockRows, maps_.size().height);
    for (int y = first - pad; y < first + pad; ++y) {
      load(y);
    }
    for (int y = first; y < end; ++y) {
      load(y + pad);
      judge(y);
      // Only now, as phases of that row may have been asked for until here.
      if (y - pad >= first) {
        close(y - pad);
      }
    }
    for (int y = std::max(first, end - pad); y < end; ++y) {
      close(y);
    }
  }

private:
  /// Rows that wait for their edges to be closed, and the one that is judged.
  static constexpr int edgeRows = pad + 1;
  static constexpr uchar allCalm = CalmChunks::along | CalmChunks::across;

  static EdgeLimits limitsOf(DecodingRules const& rules);
  static int slot(int y) { return (y + ringRows) % ringRows; } // rows begin at -2

  /// The states of a row before any edge was closed.
  uchar const* stateBefore(int y) const {
    int const first = block_ * blockRows;
    if (y < first) {
      return seams_[2 * pad * block_ + y - (first - pad)];
    }
    int const end = first + blockRows;
    return y < end ? maps_.state.inner[y] : seams_[2 * pad * (block_ + 1) + pad + y - end];
  }

  void load(int y) {
    if (y < 0 || y >= maps_.size().height) {
      int const n = maps_.size().width;
      std::fill_n(phase_[slot(y)] + pad, n, unknownPhase);
      std::fill_n(magnitude_[slot(y)] + pad, n, -1.0F);
      hasPhase_.row(slot(y)).setTo(1);
      hasMagnitude_.row(slot(y)).setTo(1);
      calmness_.row(slot(y)).setTo(0);
      return;
    }
    hasPhase_.row(slot(y)).setTo(0);
    hasMagnitude_.row(slot(y)).setTo(0);
    for (int chunk = 0; chunk < calm_.perRow(); ++chunk) {
      uchar const known = calm_.at(y, chunk);
      calmness_(slot(y), chunk) = known == allCalm ? allCalm : calmnessOf(y, chunk, known);
    }
  }

  /// Looks for what is not `known` yet of a piece of a row.
  uchar calmnessOf(int y, int chunk, uchar known) {
    auto const [begin, end] = calm_.pixelsOf(chunk);
    int const n = end - begin + 2 * pad;
    loadPhase(y, chunk);
    float const* const phase = phase_[slot(y)] + begin; // with two pixels before
    if ((known & CalmChunks::along) == 0 && !isCalmAlong(phase, n)) {
      return 0;
    }
    loadPhase(y - 1, chunk);
    return isCalmAcross(phase_[slot(y - 1)] + begin, phase, n) ? allCalm : CalmChunks::along;
  }

  /// The phases of a piece of a row and of the two pixels on either side of it: only where they may change
  /// much are they asked for.
  void loadPhase(int y, int chunk) {
    uchar& hasPhase = hasPhase_(slot(y), chunk);
    if (hasPhase == 0) {
      auto const [x, end] = calm_.around(chunk);
      absoluteRow(maps_.wrapped.inner[y] + x, maps_.order.inner[y] + x, stateBefore(y) + x, end - x,
                  phase_[slot(y)] + pad + x);
      hasPhase = 1;
    }
  }

  /// The magnitudes likewise. The row's edges may be closed by now, which makes no pixel clipped.
  void loadMagnitude(int y, int chunk) {
    uchar& hasMagnitude = hasMagnitude_(slot(y), chunk);
    if (hasMagnitude == 0) {
      auto const [x, end] = calm_.around(chunk);
      magnitudes_(y, x, end - x, stateBefore(y) + x, magnitude_[slot(y)] + pad + x);
      hasMagnitude = 1;
    }
  }

  /// Whether there is no edge in a piece of a row, judging by phases alone.
  bool isCalm(int y, int chunk) const {
    auto calm = static_cast<uchar>(calmness_(slot(y - pad), chunk) | CalmChunks::across);
    for (int row = y - pad + 1; row <= y + pad; ++row) {
      calm = static_cast<uchar>(calm & calmness_(slot(row), chunk));
    }
    return calm == allCalm;
  }

  void judge(int y) {
    EdgeRows rows{};
    for (int k = 0; k < ringRows; ++k) {
      rows.phase[k] = phase_[slot(y - pad + k)] + pad;
      rows.magnitude[k] = magnitude_[slot(y - pad + k)] + pad;
    }
    uchar* const isEdge = isEdge_[y % edgeRows];
    bool& hasEdges = hasEdges_[static_cast<std::size_t>(y % edgeRows)];
    hasEdges = false;
    std::fill_n(isEdge, isEdge_.cols, uchar{0});
    for (int chunk = 0; chunk < calm_.perRow(); ++chunk) {
      auto const [x, end] = calm_.pixelsOf(chunk);
      bool const isDone = isCalm(y, chunk);
      if (!isDone) {
        for (int row = y - pad; row <= y + pad; ++row) {
          loadPhase(row, chunk);
          loadMagnitude(row, chunk);
        }
        hasEdges = edgeRow(rows.from(x), limits_, end - x, isEdge + x) || hasEdges;
      }
      bool const isWritten = isDone && (calm_.at(y, chunk) & CalmChunks::along) != 0;
      if (target_.map != nullptr && !isWritten) {
        coordinatesOf(rows.phase[pad] + x, isEdge + x, target_.pixelsPerRadian, end - x,
                      (*target_.map)[y] + x);
      }
    }
  }

  void close(int y) {
    if (hasEdges_[static_cast<std::size_t>(y % edgeRows)]) {
      closeRow(isEdge_[y % edgeRows], isEdge_.cols, maps_.state.inner[y]);
    }
  }

  MagnitudeSource const& magnitudes_;
  CalmChunks const& calm_;
  ScanMaps& maps_;
  cv::Mat_<uchar> const& seams_;
  CoordinateTarget target_;
  int block_ = 0;
  EdgeLimits limits_;
  cv::Mat_<float> phase_;
  cv::Mat_<float> magnitude_;
  cv::Mat_<uchar> hasPhase_; ///< for each piece of the rows that are kept
  cv::Mat_<uchar> hasMagnitude_;
  cv::Mat_<uchar> calmness_; ///< as `CalmChunks` has it
  cv::Mat_<uchar> isEdge_;
  std::array<bool, edgeRows> hasEdges_{};
};

EdgeLimits EdgeWalk::limitsOf(DecodingRules const& rules) {
  constexpr float never = std::numeric_limits<float>::max();
  return {rules.edgeJumps ? jump : never, rules.edgeJumps ? diagonalJump : never,
          rules.edgeFarJumps ? farJump : never, rules.edgeShading ? coveredPart : -never,
          rules.edgeShading ? shadedPart : -never};
}

template <class T>
MagnitudeSource magnitudesAs(std::vector<cv::Mat> const& images) {
  return [&images](int y, int x, int n, uchar const* state, float* out) {
    magnitudeRow<T>(
        {images[0].ptr<T>(y) + x, images[1].ptr<T>(y) + x, images[2].ptr<T>(y) + x, images[3].ptr<T>(y) + x},
        state, n, out);
  };
}

void walkAll(MagnitudeSource const& magnitudes, DecodingRules const& rules, CalmChunks const& calm,
             ScanMaps& maps, CoordinateTarget const& target, Progress const& progress) {
  cv::Mat_<uchar> const seams = copySeams(maps.state.inner);
  constexpr int blocksBetweenAskings = 8;
  parallelRows(seams.rows / (2 * pad) - 1, blocksBetweenAskings, progress, "edges", [&](int first, int end) {
    EdgeWalk walk(magnitudes, rules, calm, maps, seams, target);
    for (int block = first; block < end; ++block) {
      walk.walk(block);
    }
  });
}

} // namespace

MagnitudeSource magnitudesOf(std::vector<cv::Mat> const& phaseImages) {
  return phaseImages[0].depth() == CV_8U ? magnitudesAs<uchar>(phaseImages)
                                         : magnitudesAs<ushort>(phaseImages);
}

void closeEdges(std::vector<cv::Mat> const& phaseImages, ScanDecodingSettings const& settings,
                CalmChunks const& calm, ScanMaps& maps, cv::Mat_<float>& coordinates,
                Progress const& progress) {
  walkAll(magnitudesOf(phaseImages), settings.rules, calm, maps,
          {&coordinates, static_cast<float>(settings.period / CV_2PI)}, progress);
}

void closeEdges(MagnitudeSource const& magnitudes, DecodingRules const& rules, ScanMaps& maps,
                Progress const& progress) {
  walkAll(magnitudes, rules, CalmChunks(maps.size()), maps, {}, progress);
}

} // namespace vorn::mv::sl
