// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "scanner/triangulation.hpp"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstddef>
#include <vector>

#include <vorn/mv/geometry/transform.hpp>

#include "core/parallel.hpp"
#include "core/simd.hpp"

namespace vorn::mv::sl {

namespace {

/// Pixels of a row that are worked on together, stage by stage, in arrays that stay in the first-level cache.
constexpr int chunk = 128;
/// Stands in for a denominator that is exactly zero.
constexpr float tiny = 1.1920929e-7F;
/// Rows between the one that a point is seen in and those that its plane of light is laid through.
constexpr int planeReach = 2;

using Numbers = float[chunk];
using Indices = int[chunk];

/// Directions or points of a chunk of pixels.
struct Vectors {
  alignas(32) Numbers x;
  alignas(32) Numbers y;
  alignas(32) Numbers z;
};

struct Rotation {
  float m[9];
};

struct Frame {
  Rotation r;
  float t[3];
};

Frame frameOf(cv::Matx44d const& transform) {
  cv::Matx33d const rotation = math::getR3(transform);
  cv::Vec3d const translation = math::getT3(transform);
  Frame frame{};
  std::transform(rotation.val, rotation.val + 9, frame.r.m, [](double v) { return static_cast<float>(v); });
  std::transform(translation.val, translation.val + 3, frame.t,
                 [](double v) { return static_cast<float>(v); });
  return frame;
}

/// Splits coordinates into their integer parts and fractions; those outside (0, last) become (0, 0).
VORN_TARGET_CLONES
void splitCoordinates(float const* coordinates, float last, int* whole, float* fraction, int n) {
  for (int k = 0; k < n; ++k) {
    float const p = coordinates[k];
    float const inside = (p > 0.0F) & (p < last) ? p : 0.0F;
    whole[k] = static_cast<int>(inside);
    fraction[k] = inside - static_cast<float>(whole[k]);
  }
}

/// The projector points a and b at fractional places, and their difference, which is taken before anything is
/// rounded away: it decides how well the plane's normal is known.
struct PointPairs {
  alignas(32) Numbers ax;
  alignas(32) Numbers ay;
  alignas(32) Numbers dx;
  alignas(32) Numbers dy;
};

/// @param first, second indices of the projector points a and b lie behind, by `fraction` of the way to the
/// next
VORN_TARGET_CLONES
void interpolatePairs(float const* __restrict map, int const* __restrict first, int const* __restrict second,
                      float const* __restrict fraction, PointPairs& pairs, int n) {
  float* const __restrict ax = pairs.ax;
  float* const __restrict ay = pairs.ay;
  float* const __restrict dx = pairs.dx;
  float* const __restrict dy = pairs.dy;
  for (int k = 0; k < n; ++k) {
    int const a = 2 * first[k];
    int const b = 2 * second[k];
    float const f = fraction[k];
    ax[k] = map[a] + f * (map[a + 2] - map[a]);
    ay[k] = map[a + 1] + f * (map[a + 3] - map[a + 1]);
    dx[k] = (map[b] + f * (map[b + 2] - map[b])) - ax[k];
    dy[k] = (map[b + 1] + f * (map[b + 3] - map[b + 1])) - ay[k];
  }
}

/// Meets the camera rays with the planes of light.
/// @param rays   camera rays, or points on them: the result is a multiple
/// @param points takes the intersections
VORN_TARGET_CLONES
void intersect(Frame const& frame, PointPairs const& pairs, Vectors const& rays, Vectors& points, int n) {
  Frame const c = frame;
  float const* const m = c.r.m;
  for (int k = 0; k < n; ++k) {
    float const ux = m[0] * pairs.ax[k] + m[1] * pairs.ay[k] + m[2];
    float const uy = m[3] * pairs.ax[k] + m[4] * pairs.ay[k] + m[5];
    float const uz = m[6] * pairs.ax[k] + m[7] * pairs.ay[k] + m[8];
    // u x w = u x (w - u), without the cancellation.
    float const dx = m[0] * pairs.dx[k] + m[1] * pairs.dy[k];
    float const dy = m[3] * pairs.dx[k] + m[4] * pairs.dy[k];
    float const dz = m[6] * pairs.dx[k] + m[7] * pairs.dy[k];
    float const nx = uy * dz - uz * dy;
    float const ny = uz * dx - ux * dz;
    float const nz = ux * dy - uy * dx;
    float const along = nx * rays.x[k] + ny * rays.y[k] + nz * rays.z[k];
    float const t = (nx * c.t[0] + ny * c.t[1] + nz * c.t[2]) / (along == 0.0F ? tiny : along);
    points.x[k] = t * rays.x[k];
    points.y[k] = t * rays.y[k];
    points.z[k] = t * rays.z[k];
  }
}

/// arccos by polynomial (Abramowitz and Stegun 4.4.46, error 2e-8): std::acos does not vectorise.
inline float arcCosine(float cosine) {
  float const x = std::min(std::fabs(cosine), 1.0F);
  float p = -0.0012624911F;
  p = p * x + 0.0066700901F;
  p = p * x - 0.0170881256F;
  p = p * x + 0.0308918810F;
  p = p * x - 0.0501743046F;
  p = p * x + 0.0889789874F;
  p = p * x - 0.2145988016F;
  p = p * x + 1.5707963050F;
  float const angle = std::sqrt(1.0F - x) * p;
  return cosine < 0.0F ? 3.14159265F - angle : angle;
}

/// The projector rows that see the points, from the angles at the projector: from row 0 down to the point,
/// and down to the last row. Clamped so that there are `planeReach` rows on both sides.
VORN_TARGET_CLONES
void estimateRows(Frame const& frame, PointPairs const& pairs, Vectors const& points, int rows, int* row,
                  int n) {
  Frame const c = frame;
  float const* const m = c.r.m;
  float const span = static_cast<float>(rows - 1);
  float const lowest = static_cast<float>(planeReach);
  float const highest = static_cast<float>(rows - 1 - planeReach);
  for (int k = 0; k < n; ++k) {
    // Angles do not care for the rotation; the point is brought into the projector's frame instead.
    float const vx = points.x[k] - c.t[0];
    float const vy = points.y[k] - c.t[1];
    float const vz = points.z[k] - c.t[2];
    float const px = m[0] * vx + m[3] * vy + m[6] * vz;
    float const py = m[1] * vx + m[4] * vy + m[7] * vz;
    float const pz = m[2] * vx + m[5] * vy + m[8] * vz;
    float const ux = pairs.ax[k];
    float const uy = pairs.ay[k];
    float const wx = ux + pairs.dx[k];
    float const wy = uy + pairs.dy[k];
    float const uu = ux * ux + uy * uy + 1.0F;
    float const ww = wx * wx + wy * wy + 1.0F;
    float const pp = px * px + py * py + pz * pz;
    float const toPoint = arcCosine((ux * px + uy * py + pz) / std::sqrt(uu * pp));
    float const toLast = arcCosine((ux * wx + uy * wy + 1.0F) / std::sqrt(uu * ww));
    float const r = toPoint / toLast * span + 0.5F;
    // In this order a NaN becomes a row, too.
    float const bounded = r < highest ? r : highest;
    row[k] = static_cast<int>(bounded > lowest ? bounded : lowest);
  }
}

/// Indices of the projector points two rows above and below each pixel's row.
VORN_TARGET_CLONES
void pairIndices(int const* row, int const* column, int width, int* first, int* second, int n) {
  for (int k = 0; k < n; ++k) {
    int const centre = row[k] * width + column[k];
    first[k] = centre - planeReach * width;
    second[k] = centre + planeReach * width;
  }
}

VORN_TARGET_CLONES
void splitRays(cv::Vec2f const* map, Vectors& rays, int n) {
  float const* const values = map->val;
  for (std::ptrdiff_t k = 0; k < n; ++k) {
    rays.x[k] = values[2 * k];
    rays.y[k] = values[2 * k + 1];
    rays.z[k] = 1.0F;
  }
}

/// Carries the points into the frame of the pose and writes them; invalid ones become (0, 0, `invalidZ`).
VORN_TARGET_CLONES
void writePoints(Frame const& pose, Vectors const& points, float const* coordinates, float last,
                 float invalidZ, float* out, int n) {
  Frame const c = pose;
  float const* const m = c.r.m;
  for (std::ptrdiff_t k = 0; k < n; ++k) {
    float const x = m[0] * points.x[k] + m[1] * points.y[k] + m[2] * points.z[k] + c.t[0];
    float const y = m[3] * points.x[k] + m[4] * points.y[k] + m[5] * points.z[k] + c.t[1];
    float const z = m[6] * points.x[k] + m[7] * points.y[k] + m[8] * points.z[k] + c.t[2];
    // A pixel without a ray gives NaN.
    bool const valid = (coordinates[k] > 0.0F) & (coordinates[k] < last) & (z == z);
    out[3 * k] = valid ? x : 0.0F;
    out[3 * k + 1] = valid ? y : 0.0F;
    out[3 * k + 2] = valid ? z : invalidZ;
  }
}

/// What is known of a chunk of pixels at the stages of triangulation.
struct Workspace {
  alignas(32) Indices whole;
  alignas(32) Numbers fraction;
  alignas(32) Indices first;
  alignas(32) Indices second;
  alignas(32) Indices row;
  PointPairs pairs;
  Vectors rays;
  Vectors points;
};

} // namespace

void triangulateColumns(TriangulationSetup const& setup, cv::Mat_<float> const& columns, cv::Rect const& roi,
                        cv::Mat_<cv::Vec3f>& xyz) {
  Frame const camFromProj = frameOf(setup.camFromProj);
  Frame const pose = frameOf(setup.poseFromCam);
  int const width = setup.projectorMap.cols;
  int const height = setup.projectorMap.rows;
  float const last = static_cast<float>(width - 1);
  float const* const map = setup.projectorMap.ptr<float>();
  parallelRows(xyz.rows, [&](int firstRow, int endRow) {
    Workspace w;
    for (int y = firstRow; y < endRow; ++y) {
      for (int x = 0; x < xyz.cols; x += chunk) {
        int const n = std::min(chunk, xyz.cols - x);
        float const* const coordinates = columns[y] + x;
        splitCoordinates(coordinates, last, w.whole, w.fraction, n);
        splitRays(setup.cameraMap[y + roi.y] + roi.x + x, w.rays, n);
        std::transform(w.whole, w.whole + n, w.second, [&](int i) { return (height - 1) * width + i; });
        interpolatePairs(map, w.whole, w.second, w.fraction, w.pairs, n);
        intersect(camFromProj, w.pairs, w.rays, w.points, n);
        estimateRows(camFromProj, w.pairs, w.points, height, w.row, n);
        pairIndices(w.row, w.whole, width, w.first, w.second, n);
        interpolatePairs(map, w.first, w.second, w.fraction, w.pairs, n);
        intersect(camFromProj, w.pairs, w.points, w.points, n);
        writePoints(pose, w.points, coordinates, last, -1.0F, xyz[y][x].val, n);
      }
    }
  });
}

void triangulateRows(TriangulationSetup const& setup, cv::Mat_<float> const& rows, cv::Rect const& roi,
                     cv::Mat_<cv::Vec3f>& xyz) {
  constexpr int border = 2;
  constexpr Frame identity{{{1, 0, 0, 0, 1, 0, 0, 0, 1}}, {0, 0, 0}};
  Frame const camFromProj = frameOf(setup.camFromProj);
  int const height = setup.projectorMap.rows;
  int const third = setup.projectorMap.cols / 3;
  float const last = static_cast<float>(height - 1);
  // The two columns one after the other, so that a row's neighbour is the next element.
  std::vector<cv::Vec2f> map(2 * static_cast<std::size_t>(height));
  for (int r = 0; r < height; ++r) {
    map[static_cast<std::size_t>(r)] = setup.projectorMap(r, third);
    map[static_cast<std::size_t>(r) + static_cast<std::size_t>(height)] = setup.projectorMap(r, 2 * third);
  }
  parallelRows(xyz.rows - 2 * border, [&](int firstRow, int endRow) {
    Workspace w;
    for (int y = firstRow + border; y < endRow + border; ++y) {
      for (int x = border; x < xyz.cols - border; x += chunk) {
        int const n = std::min(chunk, xyz.cols - border - x);
        float const* const coordinates = rows[y] + x;
        splitCoordinates(coordinates, last, w.whole, w.fraction, n);
        splitRays(setup.cameraMap[y + roi.y] + roi.x + x, w.rays, n);
        std::transform(w.whole, w.whole + n, w.second, [&](int i) { return height + i; });
        interpolatePairs(map[0].val, w.whole, w.second, w.fraction, w.pairs, n);
        intersect(camFromProj, w.pairs, w.rays, w.points, n);
        writePoints(identity, w.points, coordinates, last, -FLT_MAX, xyz[y][x].val, n);
      }
    }
  });
}

} // namespace vorn::mv::sl
