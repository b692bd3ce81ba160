// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "scanner/scan/triangulation.hpp"

#include <algorithm>
#include <array>
#include <cfloat>
#include <cmath>
#include <cstddef>
#include <vector>

#include <opencv2/core/hal/intrin.hpp>

#include <vorn/mv/geometry/transform.hpp>

#include "core/bits.hpp"
#include "core/parallel.hpp"
#include "core/simd.hpp"
#include "scanner/scan/row_guides.hpp"

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
/// Four numbers of every pixel.
using Quadruples = float[4][chunk];

/// The x and y of camera rays; their z is 1.
struct Rays {
  alignas(32) Numbers x;
  alignas(32) Numbers y;
};

struct Frame {
  float r[9];
  float t[3];
};

Frame frameOf(cv::Matx44d const& transform) {
  cv::Matx33d const rotation = math::getR3(transform);
  cv::Vec3d const translation = math::getT3(transform);
  Frame frame{};
  std::transform(rotation.val, rotation.val + 9, frame.r, [](double v) { return static_cast<float>(v); });
  std::transform(translation.val, translation.val + 3, frame.t,
                 [](double v) { return static_cast<float>(v); });
  return frame;
}

/// How planes of light given in the projector's frame lie in the camera's. Rotated vectors have the cofactors
/// of the rotation for their cross product; as it is one, these are nearly the rotation itself.
struct PlaneFrame {
  float r[9]; ///< cofactors of the rotation, by rows
  float t[3]; ///< the projector's centre, so that its product with a normal is the plane's distance
};

PlaneFrame planeFrameOf(cv::Matx44d const& camFromProj) {
  cv::Matx33d const r = math::getR3(camFromProj);
  auto const row = [&](int i) { return cv::Vec3d(r(i, 0), r(i, 1), r(i, 2)); };
  cv::Vec3d const cofactors[] = {row(1).cross(row(2)), row(2).cross(row(0)), row(0).cross(row(1))};
  cv::Vec3d const centre = math::getT3(camFromProj);
  PlaneFrame frame{};
  for (int i = 0; i < 3; ++i) {
    double distance = 0;
    for (int j = 0; j < 3; ++j) {
      frame.r[3 * i + j] = static_cast<float>(cofactors[i][j]);
      distance += cofactors[j][i] * centre[j];
    }
    frame.t[i] = static_cast<float>(distance);
  }
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

/// Writes what belongs to four pixels, together for each, into the four arrays of a chunk, from pixel k on.
inline void scatter(cv::v_float32x4 const (&pixels)[4], Quadruples& values, int k) {
  cv::v_float32x4 parts[4];
  cv::v_transpose4x4(pixels[0], pixels[1], pixels[2], pixels[3], parts[0], parts[1], parts[2], parts[3]);
  for (int i = 0; i < 4; ++i) {
    cv::v_store(values[i] + k, parts[i]);
  }
}

inline cv::v_float32x4 at(Step const& step, cv::v_float32x4 const& fraction) {
  return cv::v_load(step.at) + fraction * cv::v_load(step.step);
}

/// The four numbers of every pixel at its fractional coordinate.
VORN_TARGET_CLONES
void interpolate(Step const* steps, int const* whole, float const* fraction, Quadruples& values, int n) {
  for (int k = 0; k < n; k += 4) {
    cv::v_float32x4 pixels[4];
    for (int i = 0; i < 4; ++i) {
      pixels[i] = at(steps[whole[k + i]], cv::v_setall_f32(fraction[k + i]));
    }
    scatter(pixels, values, k);
  }
}

/// Likewise the guides to the rows, two steps each.
VORN_TARGET_CLONES
void interpolateGuides(Step const* steps, int const* whole, float const* fraction, Quadruples& along,
                       Quadruples& across, int n) {
  for (int k = 0; k < n; k += 4) {
    cv::v_float32x4 first[4];
    cv::v_float32x4 second[4];
    for (int i = 0; i < 4; ++i) {
      Step const* const guide = steps + 2 * static_cast<std::ptrdiff_t>(whole[k + i]);
      cv::v_float32x4 const f = cv::v_setall_f32(fraction[k + i]);
      first[i] = at(guide[0], f);
      second[i] = at(guide[1], f);
    }
    scatter(first, along, k);
    scatter(second, across, k);
  }
}

/// Two points of a column of the projector, `planeReach` rows above and below a row: x and y of both.
/// @param ray index in the projector's map
VORN_TARGET_CLONES
void interpolatePairs(float const* map, int width, int const* ray, float const* fraction, Quadruples& pairs,
                      int n) {
  std::ptrdiff_t const reach = 2 * static_cast<std::ptrdiff_t>(planeReach) * width;
  // Points are put together by number before they are reckoned with: x and y of a ray and of the next.
  auto const interpolateAt = [=](std::ptrdiff_t from, int k, float* x, float* y) {
    cv::v_float32x4 rays[4];
    for (int i = 0; i < 4; ++i) {
      rays[i] = cv::v_load(map + 2 * static_cast<std::ptrdiff_t>(ray[k + i]) + from);
    }
    cv::v_float32x4 const part = cv::v_load(fraction + k);
    cv::v_float32x4 parts[4];
    cv::v_transpose4x4(rays[0], rays[1], rays[2], rays[3], parts[0], parts[1], parts[2], parts[3]);
    cv::v_store(x + k, parts[0] + part * (parts[2] - parts[0]));
    cv::v_store(y + k, parts[1] + part * (parts[3] - parts[1]));
  };
  for (int k = 0; k < n; k += 4) {
    interpolateAt(-reach, k, pairs[0], pairs[1]);
    interpolateAt(reach, k, pairs[2], pairs[3]);
  }
}

VORN_TARGET_CLONES
void splitRays(cv::Vec2f const* map, float* x, float* y, int n) {
  float const* const values = map->val;
  int k = 0;
  for (; k + 4 <= n; k += 4) {
    cv::v_float32x4 xs;
    cv::v_float32x4 ys;
    cv::v_load_deinterleave(values + 2 * k, xs, ys);
    cv::v_store(x + k, xs);
    cv::v_store(y + k, ys);
  }
  for (; k < n; ++k) {
    x[k] = values[2 * k];
    y[k] = values[2 * k + 1];
  }
}

/// arctan by polynomial, good to 2e-8 up to half a quarter turn, rising beyond: std::atan does not vectorise.
inline float arcTangent(float t) {
  float const s = t * t;
  float p = 8.05374449538e-2F;
  p = p * s - 1.38776856032e-1F;
  p = p * s + 1.99777106478e-1F;
  p = p * s - 3.33329491539e-1F;
  return p * s * t + t;
}

/// The rays of the projector, as indices in its map, that see the points in which camera rays meet the plane
/// through the first and the last point of their column. Their rows are clamped so that there are
/// `planeReach` rows on both sides.
/// @param along, across as `rowGuides` gives them
VORN_TARGET_CLONES
void estimateRows(Rays const& rays, Quadruples const& along, Quadruples const& across,
                  cv::Size const& projector, int const* column, int* __restrict ray, int n) {
  int const columns = projector.width;
  float const middle = 0.5F * static_cast<float>(projector.height - 1);
  float const lowest = static_cast<float>(planeReach);
  float const highest = static_cast<float>(projector.height - 1 - planeReach);
  VORN_INDEPENDENT_ITERATIONS
  for (int k = 0; k < n; ++k) {
    float const x = rays.x[k];
    float const y = rays.y[k];
    float const cosine = along[0][k] * x + along[1][k] * y + along[2][k];
    float const sine = across[0][k] * x + across[1][k] * y + across[2][k];
    float const fromFirst = arcTangent(sine / cosine) * along[3][k] + middle;
    float const r = std::fabs(fromFirst) + 0.5F;
    // In this order a NaN becomes a row, too.
    float const bounded = r < highest ? r : highest;
    ray[k] = static_cast<int>(bounded > lowest ? bounded : lowest) * columns + column[k];
  }
}

/// How far along their rays points lie, in depths: where the rays meet planes of light.
/// @param pairs x and y of two points of the projector that a plane contains
inline float depthOf(PlaneFrame const& frame, Quadruples const& pairs, std::ptrdiff_t k, float x, float y) {
  float const* const m = frame.r;
  float const ax = pairs[0][k];
  float const ay = pairs[1][k];
  // a x b = a x (b - a), without the cancellation.
  float const dx = pairs[2][k] - ax;
  float const dy = pairs[3][k] - ay;
  float const nz = ax * dy - ay * dx;
  float const gx = m[0] * x + m[3] * y + m[6];
  float const gy = m[1] * x + m[4] * y + m[7];
  float const gz = m[2] * x + m[5] * y + m[8];
  float const along = gy * dx - gx * dy + gz * nz;
  float const distance = frame.t[1] * dx - frame.t[0] * dy + frame.t[2] * nz;
  return distance / (along == 0.0F ? tiny : along);
}

/// Meets rays with planes of light, carries the points into the frame of the pose and writes them; those
/// without a coordinate or a ray become (0, 0, -1).
VORN_TARGET_CLONES
void writePosedPoints(PlaneFrame const& planes, Frame const& pose, Quadruples const& pairs, Rays const& rays,
                      float const* __restrict coordinates, float last, float* __restrict out, int n) {
  PlaneFrame const p = planes;
  Frame const c = pose;
  float const* const m = c.r;
  VORN_INDEPENDENT_ITERATIONS
  for (std::ptrdiff_t k = 0; k < n; ++k) {
    float const z = depthOf(p, pairs, k, rays.x[k], rays.y[k]);
    float const x = z * rays.x[k];
    float const y = z * rays.y[k];
    float const px = m[0] * x + m[1] * y + m[2] * z + c.t[0];
    float const py = m[3] * x + m[4] * y + m[5] * z + c.t[1];
    float const pz = m[6] * x + m[7] * y + m[8] * z + c.t[2];
    bool const valid = (coordinates[k] > 0.0F) & (coordinates[k] < last) & (pz == pz);
    out[3 * k] = valid ? px : 0.0F;
    out[3 * k + 1] = valid ? py : 0.0F;
    out[3 * k + 2] = valid ? pz : -1.0F;
  }
}

/// The same in the camera's frame: points without a coordinate or a ray, or infinitely far away, become
/// (0, 0, `invalidZ`).
VORN_TARGET_CLONES
void writePoints(PlaneFrame const& planes, Quadruples const& pairs, Rays const& rays,
                 float const* __restrict coordinates, float last, float invalidZ, float* __restrict out,
                 int n) {
  PlaneFrame const p = planes;
  VORN_INDEPENDENT_ITERATIONS
  for (std::ptrdiff_t k = 0; k < n; ++k) {
    float const z = depthOf(p, pairs, k, rays.x[k], rays.y[k]);
    float const x = z * rays.x[k];
    float const y = z * rays.y[k];
    float const zeroIfFinite = (x - x) + (y - y) + (z - z);
    bool const valid = (coordinates[k] > 0.0F) & (coordinates[k] < last) & (zeroIfFinite == 0.0F);
    out[3 * k] = valid ? x : 0.0F;
    out[3 * k + 1] = valid ? y : 0.0F;
    out[3 * k + 2] = valid ? z : invalidZ;
  }
}

/// What is known of a chunk of pixels at the stages of triangulation.
struct Workspace {
  int n; ///< pixels
  alignas(32) Indices whole;
  alignas(32) Numbers fraction;
  alignas(32) Indices ray; ///< in the projector's map, of the pixel's row and whole column
  Rays rays;
  alignas(32) Quadruples along;
  alignas(32) Quadruples across;
  alignas(32) Quadruples pairs;
};

/// Tells the processor what the next chunk is going to read and this one to write: memory is asked for in
/// runs that are too short for it to foresee. May reach beyond the end of a row.
inline void prefetchChunk(float const* coordinates, cv::Vec2f const* rays, cv::Vec3f const* points) {
  constexpr int apart = 16; // numbers in a line of the cache
  float const* const nextRays = rays->val + 2 * chunk;
  for (int k = 0; k < chunk; k += apart) {
    prefetch(coordinates + chunk + k);
    prefetch(nextRays + 2 * k);
    prefetch(nextRays + 2 * k + apart);
    prefetch(points->val + 3 * k);
    prefetch(points->val + 3 * k + apart);
    prefetch(points->val + 3 * k + 2 * apart);
  }
}

/// The points that camera rays see of projector columns, chunk by chunk in two steps: the projector's rays
/// are asked for in the first one and have come from memory when the second one, a chunk later, reads them.
class ColumnPoints {
public:
  explicit ColumnPoints(TriangulationSetup const& setup)
      : map_(setup.projectorMap), last_(static_cast<float>(map_.cols - 1)), guides_(rowGuides(setup)),
        planes_(planeFrameOf(setup.camFromProj)), pose_(frameOf(setup.poseFromCam)),
        isPosed_(setup.poseFromCam != cv::Matx44d::eye()) {}

  /// @param rays of the pixels of `columns`
  void writeRow(float const* columns, cv::Vec2f const* rays, cv::Vec3f* points, int width,
                std::array<Workspace, 2>& chunks) const {
    for (int x = 0; x < width + chunk; x += chunk) {
      std::size_t const now = static_cast<std::size_t>(x / chunk) % 2;
      if (x < width) {
        chunks[now].n = std::min(chunk, width - x);
        prefetchChunk(columns + x, rays + x, points + x);
        locate(columns + x, rays + x, chunks[now]);
      }
      if (x > 0) {
        write(columns + x - chunk, points + x - chunk, chunks[1 - now]);
      }
    }
  }

private:
  void locate(float const* columns, cv::Vec2f const* rays, Workspace& w) const {
    splitRays(rays, w.rays.x, w.rays.y, w.n);
    splitCoordinates(columns, last_, w.whole, w.fraction, w.n);
    interpolateGuides(guides_.data(), w.whole, w.fraction, w.along, w.across, w.n);
    // Pairs are read in fours: what stands behind the last pixel has to be a ray, too.
    constexpr int together = 4;
    int const filled = (w.n + together - 1) / together * together;
    estimateRows(w.rays, w.along, w.across, map_.size(), w.whole, w.ray, filled);
    // Neighbours share lines of the cache.
    constexpr int apart = 4;
    cv::Vec2f const* const map = map_[0];
    std::ptrdiff_t const reach = static_cast<std::ptrdiff_t>(planeReach) * map_.cols;
    for (int k = 0; k < w.n; k += apart) {
      prefetch(map + w.ray[k] - reach);
      prefetch(map + w.ray[k] + reach);
    }
  }

  void write(float const* columns, cv::Vec3f* points, Workspace& w) const {
    interpolatePairs(map_.ptr<float>(), map_.cols, w.ray, w.fraction, w.pairs, w.n);
    if (isPosed_) {
      writePosedPoints(planes_, pose_, w.pairs, w.rays, columns, last_, points->val, w.n);
    } else {
      writePoints(planes_, w.pairs, w.rays, columns, last_, -1.0F, points->val, w.n);
    }
  }

  cv::Mat_<cv::Vec2f> const& map_;
  float last_;
  std::vector<Step> guides_;
  PlaneFrame planes_;
  Frame pose_;
  bool isPosed_;
};

} // namespace

void triangulateColumns(TriangulationSetup const& setup, cv::Mat_<float> const& columns, cv::Rect const& roi,
                        cv::Mat_<cv::Vec3f>& xyz) {
  ColumnPoints const columnPoints(setup);
  parallelRows(xyz.rows, [&](int firstRow, int endRow) {
    std::array<Workspace, 2> chunks{};
    for (int y = firstRow; y < endRow; ++y) {
      cv::Vec2f const* const rays = setup.cameraMap[y + roi.y] + roi.x;
      columnPoints.writeRow(columns[y], rays, xyz[y], xyz.cols, chunks);
    }
  });
}

void triangulateRows(TriangulationSetup const& setup, cv::Mat_<float> const& rows, cv::Rect const& roi,
                     cv::Mat_<cv::Vec3f>& xyz) {
  PlaneFrame const planes = planeFrameOf(setup.camFromProj);
  int const third = setup.projectorMap.cols / 3;
  float const last = static_cast<float>(setup.projectorMap.rows - 1);
  auto const pairAt = [&](int row) {
    cv::Vec2f const a = setup.projectorMap(row, third);
    cv::Vec2f const b = setup.projectorMap(row, 2 * third);
    return cv::Vec4f(a[0], a[1], b[0], b[1]);
  };
  std::vector<Step> steps;
  for (int row = 0; row + 1 < setup.projectorMap.rows; ++row) {
    steps.push_back(stepOf(pairAt(row), pairAt(row + 1)));
  }
  parallelRows(xyz.rows - 2 * leftOut, [&](int firstRow, int endRow) {
    Workspace w{};
    for (int y = firstRow + leftOut; y < endRow + leftOut; ++y) {
      for (int x = leftOut; x < xyz.cols - leftOut; x += chunk) {
        int const n = std::min(chunk, xyz.cols - leftOut - x);
        float const* const coordinates = rows[y] + x;
        cv::Vec2f const* const rays = setup.cameraMap[y + roi.y] + roi.x + x;
        prefetchChunk(coordinates, rays, xyz[y] + x);
        splitCoordinates(coordinates, last, w.whole, w.fraction, n);
        interpolate(steps.data(), w.whole, w.fraction, w.pairs, n);
        splitRays(rays, w.rays.x, w.rays.y, n);
        writePoints(planes, w.pairs, w.rays, coordinates, last, -FLT_MAX, xyz[y][x].val, n);
      }
    }
  });
}

void clearLeftOut(cv::Mat_<cv::Vec3f>& xyz) {
  int const rows = std::min(leftOut, xyz.rows);
  int const columns = std::min(leftOut, xyz.cols);
  xyz.rowRange(0, rows).setTo(cv::Scalar::all(0));
  xyz.rowRange(xyz.rows - rows, xyz.rows).setTo(cv::Scalar::all(0));
  xyz.colRange(0, columns).setTo(cv::Scalar::all(0));
  xyz.colRange(xyz.cols - columns, xyz.cols).setTo(cv::Scalar::all(0));
}

} // namespace vorn::mv::sl
