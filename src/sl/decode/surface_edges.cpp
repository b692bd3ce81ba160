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

/// Pixels of a row that are judged together.
constexpr int chunkLength = 64;
/// Phases that change by no more than this from pixel to pixel make no edge, near or far or diagonal.
constexpr float calmStep = 0.6F * piFloat;
static_assert(calmStep <= jump && 2 * calmStep <= farJump && 2 * calmStep <= diagonalJump);

/// Whether all phases are known, and change by no more than `calmStep` to the next one.
VORN_TARGET_CLONES
bool isCalmAlong(float const* phase, int n) {
  int calm = 0;
  for (int x = 0; x + 1 < n; ++x) {
    calm += std::fabs(phase[x + 1] - phase[x]) <= calmStep ? 1 : 0;
  }
  return calm == n - 1;
}

/// Whether all phases change by no more than `calmStep` from one row to the next.
VORN_TARGET_CLONES
bool isCalmAcross(float const* phase, float const* below, int n) {
  int calm = 0;
  for (int x = 0; x < n; ++x) {
    calm += std::fabs(below[x] - phase[x]) <= calmStep ? 1 : 0;
  }
  return calm == n;
}

/// What is kept of the rows around the one that is judged.
constexpr int ringRows = 5;
constexpr int pad = 2;

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
VORN_TARGET_CLONES
void edgeRow(EdgeRows const& rows, EdgeLimits const& limits, int n, uchar* __restrict isEdge) {
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
  }
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

VORN_TARGET_CLONES
void coordinatesOfRow(float const* absolute, uchar const* state, float pixelsPerRadian, int n,
                      float* __restrict coordinates) {
  for (int x = 0; x < n; ++x) {
    coordinates[x] = state[x] >= pixel_state::knownBit ? absolute[x] * pixelsPerRadian : noPhase;
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

/// Walks down some rows with the absolute phases and magnitudes of five rows in the cache.
class EdgeWalk {
public:
  EdgeWalk(MagnitudeSource const& magnitudes, DecodingRules const& rules, ScanMaps& maps,
           cv::Mat_<uchar> const& seams, CoordinateTarget const& target)
      : magnitudes_(magnitudes), maps_(maps), seams_(seams), target_(target), limits_(limitsOf(rules)),
        phase_(ringRows, maps.size().width + 2 * pad, unknownPhase),
        magnitude_(ringRows, maps.size().width + 2 * pad, -1.0F), hasMagnitude_(ringRows, chunks()),
        calmAlong_(ringRows, chunks()), calmAcross_(ringRows, chunks()),
        isEdge_(static_cast<std::size_t>(maps.size().width)) {}

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
    }
  }

private:
  static EdgeLimits limitsOf(DecodingRules const& rules);
  int chunks() const { return (maps_.size().width + chunkLength - 1) / chunkLength; }
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
    float* const phase = phase_[slot(y)] + pad;
    int const n = maps_.size().width;
    if (y < 0 || y >= maps_.size().height) {
      std::fill_n(phase, n, unknownPhase);
      std::fill_n(magnitude_[slot(y)] + pad, n, -1.0F);
      hasMagnitude_.row(slot(y)).setTo(1);
      calmAlong_.row(slot(y)).setTo(0);
      calmAcross_.row(slot(y)).setTo(0);
      return;
    }
    absoluteRow(maps_.wrapped.inner[y], maps_.order.inner[y], stateBefore(y), n, phase);
    hasMagnitude_.row(slot(y)).setTo(0);
    // Of a chunk with the two pixels beside it that decide on its first and last ones.
    float const* const above = phase_[slot(y - 1)] + pad;
    for (int chunk = 0; chunk < chunks(); ++chunk) {
      int const x = chunk * chunkLength - pad;
      int const length = std::min(chunkLength, n - chunk * chunkLength) + 2 * pad;
      calmAlong_(slot(y), chunk) = isCalmAlong(phase + x, length) ? 1 : 0;
      calmAcross_(slot(y), chunk) = isCalmAcross(above + x, phase + x, length) ? 1 : 0;
    }
  }

  /// The magnitudes of a chunk of a row and of the two pixels on either side of it: only where phases change
  /// much are they asked for. The row's edges may be closed by now, which makes no pixel clipped.
  void loadMagnitude(int y, int chunk) {
    uchar& hasMagnitude = hasMagnitude_(slot(y), chunk);
    if (hasMagnitude == 0) {
      int const x = std::max(0, chunk * chunkLength - pad);
      int const end = std::min(maps_.size().width, (chunk + 1) * chunkLength + pad);
      magnitudes_(y, x, end - x, stateBefore(y) + x, magnitude_[slot(y)] + pad + x);
      hasMagnitude = 1;
    }
  }

  /// Whether there is no edge in a chunk of a row, judging by phases alone.
  bool isCalm(int y, int chunk) const {
    uchar calm = calmAlong_(slot(y - pad), chunk);
    for (int row = y - pad + 1; row <= y + pad; ++row) {
      calm = static_cast<uchar>(calm & calmAlong_(slot(row), chunk) & calmAcross_(slot(row), chunk));
    }
    return calm != 0;
  }

  void judge(int y) {
    EdgeRows rows{};
    for (int k = 0; k < ringRows; ++k) {
      rows.phase[k] = phase_[slot(y - pad + k)] + pad;
      rows.magnitude[k] = magnitude_[slot(y - pad + k)] + pad;
    }
    int const n = maps_.size().width;
    for (int x = 0; x < n; x += chunkLength) {
      int const length = std::min(chunkLength, n - x);
      if (isCalm(y, x / chunkLength)) {
        std::fill_n(isEdge_.begin() + x, length, uchar{0});
      } else {
        for (int row = y - pad; row <= y + pad; ++row) {
          loadMagnitude(row, x / chunkLength);
        }
        edgeRow(rows.from(x), limits_, length, isEdge_.data() + x);
      }
    }
    closeRow(isEdge_.data(), n, maps_.state.inner[y]);
    if (target_.map != nullptr) {
      coordinatesOfRow(rows.phase[2], maps_.state.inner[y], target_.pixelsPerRadian, n, (*target_.map)[y]);
    }
  }

  MagnitudeSource const& magnitudes_;
  ScanMaps& maps_;
  cv::Mat_<uchar> const& seams_;
  CoordinateTarget target_;
  int block_ = 0;
  EdgeLimits limits_;
  cv::Mat_<float> phase_;
  cv::Mat_<float> magnitude_;
  cv::Mat_<uchar> hasMagnitude_; ///< for each chunk of the rows that are kept
  cv::Mat_<uchar> calmAlong_;    ///< for each chunk of the rows that are kept
  cv::Mat_<uchar> calmAcross_;   ///< to the row above
  std::vector<uchar> isEdge_;
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

void walkAll(MagnitudeSource const& magnitudes, DecodingRules const& rules, ScanMaps& maps,
             CoordinateTarget const& target, Progress const& progress) {
  cv::Mat_<uchar> const seams = copySeams(maps.state.inner);
  constexpr int blocksBetweenAskings = 8;
  parallelRows(seams.rows / (2 * pad) - 1, blocksBetweenAskings, progress, "edges", [&](int first, int end) {
    EdgeWalk walk(magnitudes, rules, maps, seams, target);
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

void closeEdges(std::vector<cv::Mat> const& phaseImages, ScanDecodingSettings const& settings, ScanMaps& maps,
                cv::Mat_<float>& coordinates, Progress const& progress) {
  walkAll(magnitudesOf(phaseImages), settings.rules, maps,
          {&coordinates, static_cast<float>(settings.period / CV_2PI)}, progress);
}

void closeEdges(MagnitudeSource const& magnitudes, DecodingRules const& rules, ScanMaps& maps,
                Progress const& progress) {
  walkAll(magnitudes, rules, maps, {}, progress);
}

} // namespace vorn::mv::sl
