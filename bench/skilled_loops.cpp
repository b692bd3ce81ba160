// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "skilled_loops.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "core/simd.hpp"

namespace vorn::bench {

namespace {

constexpr float twoPi = 6.2831853F;
constexpr int block = 512;

/// The angle of (x, y) in [0, 2 pi).
inline float angleOf(float y, float x) {
  float const ax = std::fabs(x);
  float const ay = std::fabs(y);
  float const z = std::min(ax, ay) / (std::max(ax, ay) + 1e-20F);
  float const s = z * z;
  float p = -0.01172120F;
  p = p * s + 0.05265332F;
  p = p * s - 0.11643287F;
  p = p * s + 0.19354346F;
  p = p * s - 0.33262347F;
  p = (p * s + 0.99997726F) * z;
  p = ay > ax ? 0.25F * twoPi - p : p;
  p = x < 0.0F ? 0.5F * twoPi - p : p;
  return y < 0.0F ? twoPi - p : p;
}

VORN_TARGET_CLONES
void phaseRow(uchar const* p0, uchar const* p1, uchar const* p2, uchar const* p3, float* __restrict phase,
              float* __restrict amplitude, int n) {
  for (int x = 0; x < n; ++x) {
    auto const sine = static_cast<float>(p0[x] - p2[x]);
    auto const cosine = static_cast<float>(p1[x] - p3[x]);
    phase[x] = angleOf(sine, cosine);
    amplitude[x] = 0.5F * std::sqrt(sine * sine + cosine * cosine);
  }
}

VORN_TARGET_CLONES
void middles(uchar const* p0, uchar const* p2, uchar* __restrict middle, int n) {
  for (int x = 0; x < n; ++x) {
    middle[x] = static_cast<uchar>((p0[x] + p2[x]) / 2);
  }
}

VORN_TARGET_CLONES
void addBit(uchar const* image, uchar const* middle, std::uint16_t bit, std::uint16_t* __restrict word,
            int n) {
  for (int x = 0; x < n; ++x) {
    word[x] = static_cast<std::uint16_t>(word[x] | (image[x] > middle[x] ? bit : 0));
  }
}

VORN_TARGET_CLONES
void columnsOf(std::uint16_t const* word, float const* phase, int planeBits, float* __restrict columns,
               int n) {
  // The code changes half a projector pixel before the phase wraps.
  constexpr float border = twoPi * 0.875F;
  for (int x = 0; x < n; ++x) {
    int const stripe = (word[x] ^ ((word[x] & 1) != 0 ? planeBits : 0)) - 2;
    float const before = phase[x] > border ? 1.0F : 0.0F;
    columns[x] = 4.0F * (static_cast<float>(stripe) - before + phase[x] * (1.0F / twoPi));
  }
}

/// The plane of the column at the normalized coordinate u contains the projector's y axis and (u, 0, 1): its
/// normal is u z - x.
struct ColumnPlanes {
  float scale; ///< u = scale * column + offset
  float offset;
  cv::Vec3f x; ///< the projector's axes in the camera's frame
  cv::Vec3f z;
  float xDistance; ///< of the projector's centre along them
  float zDistance;
};

VORN_TARGET_CLONES
void rayPlaneRow(float const* columns, cv::Vec2f const* rays, ColumnPlanes const& planes,
                 cv::Vec3f* __restrict points, int n) {
  float const* const ray = rays->val;
  float* const out = points->val;
  ColumnPlanes const p = planes;
  for (std::ptrdiff_t i = 0; i < n; ++i) {
    float const x = ray[2 * i];
    float const y = ray[2 * i + 1];
    float const u = p.scale * columns[i] + p.offset;
    float const alongX = p.x[0] * x + p.x[1] * y + p.x[2];
    float const alongZ = p.z[0] * x + p.z[1] * y + p.z[2];
    float const t = (u * p.zDistance - p.xDistance) / (u * alongZ - alongX);
    out[3 * i] = t * x;
    out[3 * i + 1] = t * y;
    out[3 * i + 2] = t;
  }
}

} // namespace

void skilledPhase(std::vector<cv::Mat> const& phaseImages, cv::Mat_<float>& phase,
                  cv::Mat_<float>& amplitude) {
  for (int y = 0; y < phase.rows; ++y) {
    phaseRow(phaseImages[0].ptr(y), phaseImages[1].ptr(y), phaseImages[2].ptr(y), phaseImages[3].ptr(y),
             phase[y], amplitude[y], phase.cols);
  }
}

void skilledCode(std::vector<cv::Mat> const& phaseImages, std::vector<cv::Mat> const& codeImages,
                 cv::Mat_<float> const& phase, cv::Mat_<float>& columns) {
  uchar middle[block];
  std::uint16_t word[block];
  int const planeBits = (1 << codeImages.size()) - 2;
  for (int y = 0; y < phase.rows; ++y) {
    for (int x = 0; x < phase.cols; x += block) {
      int const n = std::min(block, phase.cols - x);
      middles(phaseImages[0].ptr(y) + x, phaseImages[2].ptr(y) + x, middle, n);
      std::fill_n(word, n, std::uint16_t{0});
      for (std::size_t k = 0; k < codeImages.size(); ++k) {
        addBit(codeImages[k].ptr(y) + x, middle, static_cast<std::uint16_t>(1U << k), word, n);
      }
      columnsOf(word, phase[y] + x, planeBits, columns[y] + x, n);
    }
  }
}

void skilledRayPlane(cv::Mat_<float> const& columns, cv::Mat_<cv::Vec2f> const& cameraRays,
                     PlainProjector const& projector, cv::Mat_<cv::Vec3f>& points) {
  cv::Vec3f const x(projector.rotation.col(0).val);
  cv::Vec3f const z(projector.rotation.col(2).val);
  ColumnPlanes const planes{1.0F / projector.focal,       -projector.centre / projector.focal, x, z,
                            x.dot(projector.translation), z.dot(projector.translation)};
  for (int row = 0; row < columns.rows; ++row) {
    rayPlaneRow(columns[row], cameraRays[row], planes, points[row], columns.cols);
  }
}

} // namespace vorn::bench
