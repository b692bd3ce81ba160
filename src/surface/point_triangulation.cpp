// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "surface/point_triangulation.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>

#include "surface/fusion/point_cells.hpp"
#include "surface/mesh_gaps.hpp"

namespace vorn::mv {

namespace {

constexpr int noPoint = -1;
constexpr std::uint32_t blockSize = 1024; ///< cells that a thread takes at once

/// The neighbours of all points, counterclockwise; `noPoint` between two that are none to each other.
class Fans {
public:
  explicit Fans(std::size_t count) : starts_(count), sizes_(count) {}

  void set(std::size_t point, std::vector<int> const& fan, std::vector<int>& block) {
    starts_[point] = block.size();
    sizes_[point] = static_cast<std::uint8_t>(fan.size());
    block.insert(block.end(), fan.begin(), fan.end());
  }

  /// Moves the start of points whose neighbours were gathered in a block of their own.
  void shift(std::size_t point, std::size_t by) { starts_[point] += by; }

  int at(std::size_t point, int place) const {
    return neighbours[starts_[point] + static_cast<std::size_t>(place)];
  }
  int size(std::size_t point) const { return sizes_[point]; }

  /// Whether b is followed by c around a.
  bool follows(int a, int b, int c) const {
    auto const point = static_cast<std::size_t>(a);
    int const count = size(point);
    for (int i = 0; i < count; ++i) {
      if (at(point, i) == b) {
        return at(point, (i + 1) % count) == c;
      }
    }
    return false;
  }

  std::vector<int> neighbours;

private:
  std::vector<std::size_t> starts_;
  std::vector<std::uint8_t> sizes_;
};

/// The part of the plane that is nearer to the origin than to any other point, within a square.
class VoronoiCell {
public:
  explicit VoronoiCell(float halfSide) {
    corners_ = {{{-halfSide, -halfSide}, noPoint},
                {{halfSide, -halfSide}, noPoint},
                {{halfSide, halfSide}, noPoint},
                {{-halfSide, halfSide}, noPoint}};
  }

  /// Farther points than this change nothing.
  float reach() const {
    float square = 0.0F;
    for (Corner const& corner : corners_) {
      square = std::max(square, corner.at.dot(corner.at));
    }
    return 2.0F * std::sqrt(square);
  }

  void cut(cv::Vec2f const& other, int point) {
    float const half = 0.5F * other.dot(other);
    cut_.clear();
    std::size_t const count = corners_.size();
    for (std::size_t i = 0; i < count; ++i) {
      Corner const& here = corners_[i];
      Corner const& next = corners_[(i + 1) % count];
      float const inside = half - other.dot(here.at);
      float const insideNext = half - other.dot(next.at);
      if (inside >= 0.0F) {
        cut_.push_back(here);
      }
      if ((inside >= 0.0F) != (insideNext >= 0.0F)) {
        float const share = inside / (inside - insideNext);
        // On the way out the new side begins here; on the way in the old one goes on.
        cut_.push_back({here.at + (next.at - here.at) * share, inside >= 0.0F ? point : here.side});
      }
    }
    corners_.swap(cut_);
  }

  /// The points beyond its sides, counterclockwise.
  void sides(std::vector<int>& fan) const {
    fan.clear();
    for (Corner const& corner : corners_) {
      if (fan.empty() || fan.back() != corner.side) {
        fan.push_back(corner.side);
      }
    }
    if (fan.size() > 1 && fan.front() == fan.back()) {
      fan.pop_back();
    }
  }

private:
  /// Where a side begins, and the point that lies beyond it.
  struct Corner {
    cv::Vec2f at;
    int side;
  };

  std::vector<Corner> corners_;
  std::vector<Corner> cut_;
};

/// Finds the fans of points.
class FanFinder {
public:
  FanFinder(std::vector<cv::Vec3f> const& points, std::vector<cv::Vec3f> const& normals,
            PointCells const& cells, float maxEdge)
      : points_(points), normals_(normals), cells_(cells), maxEdge_(maxEdge) {}

  /// The mean normal of the points near one, over which edges of the part are round.
  cv::Vec3f smoothNormal(std::uint32_t point, std::array<PointCells::Range, 9> const& rows) const {
    cv::Vec3f const& own = normals_[point];
    float const scale = 4.0F / (maxEdge_ * maxEdge_);
    cv::Vec3f sum;
    for (PointCells::Range const& row : rows) {
      PointCells::Range const range = cells_.pointsOf(row);
      for (std::uint32_t i = range.first; i < range.end; ++i) {
        std::uint32_t const near = cells_.order()[i];
        cv::Vec3f const apart = points_[near] - points_[point];
        float const weight = 1.0F - scale * apart.dot(apart);
        if (weight > 0.0F && own.dot(normals_[near]) > oppositeCosine) {
          sum += normals_[near] * weight;
        }
      }
    }
    return sum * (1.0F / std::max(std::sqrt(sum.dot(sum)), 1e-20F));
  }

  /// @param normal that of the tangent plane
  void find(std::uint32_t point, cv::Vec3f const& normal, std::array<PointCells::Range, 9> const& rows,
            std::vector<int>& fan) {
    gather(point, normal, rows);
    VoronoiCell cell(maxEdge_);
    for (Candidate const& candidate : candidates_) {
      if (candidate.distance > cell.reach()) {
        break;
      }
      cell.cut(candidate.at, static_cast<int>(candidate.point));
    }
    cell.sides(fan);
    constexpr std::size_t most = 255;
    if (fan.size() > most) {
      fan.clear();
    }
  }

private:
  struct Candidate {
    float distance;
    std::uint32_t point;
    cv::Vec2f at; ///< in the tangent plane, in its direction and at its distance
  };

  /// Normals that differ by more are of the other side of a sheet.
  static constexpr float oppositeCosine = -0.3F;

  void gather(std::uint32_t point, cv::Vec3f const& normal, std::array<PointCells::Range, 9> const& rows) {
    int const axis = std::abs(normal[0]) < 0.6F ? 0 : 1;
    cv::Vec3f unit;
    unit[axis] = 1.0F;
    cv::Vec3f across = unit - normal * normal[axis];
    across *= 1.0F / std::sqrt(across.dot(across));
    cv::Vec3f const along = normal.cross(across);
    candidates_.clear();
    for (PointCells::Range const& row : rows) {
      PointCells::Range const range = cells_.pointsOf(row);
      for (std::uint32_t i = range.first; i < range.end; ++i) {
        std::uint32_t const near = cells_.order()[i];
        cv::Vec3f const apart = points_[near] - points_[point];
        float const square = apart.dot(apart);
        if (near == point || square > maxEdge_ * maxEdge_ || normals_[near].dot(normal) < oppositeCosine) {
          continue;
        }
        cv::Vec2f const flat(across.dot(apart), along.dot(apart));
        float const aside = std::sqrt(flat.dot(flat));
        float const distance = std::sqrt(square);
        constexpr float steepest = 0.25F; // nearly above the point: in no direction of the plane
        if (aside > steepest * distance) {
          candidates_.push_back({distance, near, flat * (distance / aside)});
        }
      }
    }
    std::sort(candidates_.begin(), candidates_.end(), [](Candidate const& a, Candidate const& b) {
      return a.distance != b.distance ? a.distance < b.distance : a.point < b.point;
    });
  }

  std::vector<cv::Vec3f> const& points_;
  std::vector<cv::Vec3f> const& normals_;
  PointCells const& cells_;
  float maxEdge_;
  std::vector<Candidate> candidates_;
};

/// The points, each moved by a hair in a direction of its own: of a regular grid four lie on one circle, and
/// it would be rounding that joins two of them.
std::vector<cv::Vec3f> shaken(std::vector<cv::Vec3f> const& points, float hair) {
  std::vector<cv::Vec3f> moved;
  moved.reserve(points.size());
  std::uint32_t state = 1;
  for (cv::Vec3f point : points) {
    for (float& coordinate : point.val) {
      state = state * 1664525U + 1013904223U; // D. E. Knuth, "The Art of Computer Programming", 3.3.4
      constexpr float span = 256.0F * 65536.0F;
      coordinate += hair * (static_cast<float>(state >> 8U) / span - 0.5F);
    }
    moved.push_back(point);
  }
  return moved;
}

/// Calls `body(finder, block, firstCell, endCell)` for blocks of cells in parallel.
template <class Body>
void overCells(PointCells const& cells, Progress const& progress, char const* stage, Body const& body) {
  auto const blocks = static_cast<int>((cells.cellCount() + blockSize - 1) / blockSize);
  constexpr int blocksAtOnce = 64;
  parallelRows(blocks, blocksAtOnce, progress, stage, [&](int begin, int end) {
    for (int block = begin; block < end; ++block) {
      std::uint32_t const first = static_cast<std::uint32_t>(block) * blockSize;
      body(static_cast<std::size_t>(block), first, std::min(first + blockSize, cells.cellCount()));
    }
  });
}

std::vector<cv::Vec3f> smoothNormals(std::vector<cv::Vec3f> const& points,
                                     std::vector<cv::Vec3f> const& normals, PointCells const& cells,
                                     float maxEdge, Progress const& progress) {
  std::vector<cv::Vec3f> smooth(points.size());
  overCells(cells, progress, "smoothing normals", [&](std::size_t, std::uint32_t first, std::uint32_t end) {
    FanFinder const finder(points, normals, cells, maxEdge);
    for (std::uint32_t cell = first; cell < end; ++cell) {
      auto const rows = cells.around(cell);
      for (std::uint32_t i = cells.pointsOf(cell).first; i < cells.pointsOf(cell).end; ++i) {
        smooth[cells.order()[i]] = finder.smoothNormal(cells.order()[i], rows);
      }
    }
  });
  return smooth;
}

Fans fansOf(std::vector<cv::Vec3f> const& points, std::vector<cv::Vec3f> const& smooth,
            PointCells const& cells, float maxEdge, Progress const& progress) {
  Fans fans(points.size());
  std::vector<std::vector<int>> blocks((cells.cellCount() + blockSize - 1) / blockSize);
  overCells(cells, progress, "joining points",
            [&](std::size_t block, std::uint32_t first, std::uint32_t end) {
              FanFinder finder(points, smooth, cells, maxEdge);
              std::vector<int> fan;
              for (std::uint32_t cell = first; cell < end; ++cell) {
                auto const rows = cells.around(cell);
                for (std::uint32_t i = cells.pointsOf(cell).first; i < cells.pointsOf(cell).end; ++i) {
                  std::uint32_t const point = cells.order()[i];
                  finder.find(point, smooth[point], rows, fan);
                  fans.set(point, fan, blocks[block]);
                }
              }
            });
  for (std::size_t block = 0; block < blocks.size(); ++block) {
    std::uint32_t const first = static_cast<std::uint32_t>(block) * blockSize;
    PointCells::Range const range =
        cells.pointsOf(PointCells::Range{first, std::min(first + blockSize, cells.cellCount())});
    for (std::uint32_t i = range.first; i < range.end; ++i) {
      fans.shift(cells.order()[i], fans.neighbours.size());
    }
    fans.neighbours.insert(fans.neighbours.end(), blocks[block].begin(), blocks[block].end());
    blocks[block] = {};
  }
  return fans;
}

} // namespace

std::vector<cv::Vec3i> triangulatedPoints(std::vector<cv::Vec3f> const& points,
                                          std::vector<cv::Vec3f> const& normals, float maxEdge,
                                          Progress const& progress) {
  PointCells const cells(points, maxEdge);
  std::vector<cv::Vec3f> const smooth =
      smoothNormals(points, normals, cells, maxEdge, progress.part(0.0, 0.3));
  constexpr float hairOverEdge = 0.002F;
  Fans const fans =
      fansOf(shaken(points, hairOverEdge * maxEdge), smooth, cells, maxEdge, progress.part(0.3, 0.9));
  std::vector<cv::Vec3i> triangles;
  auto const isShort = [&](int a, int b) {
    cv::Vec3f const edge = points[static_cast<std::size_t>(a)] - points[static_cast<std::size_t>(b)];
    return edge.dot(edge) <= maxEdge * maxEdge;
  };
  for (std::size_t point = 0; point < points.size(); ++point) {
    int const a = static_cast<int>(point);
    int const count = fans.size(point);
    for (int i = 0; i < count; ++i) {
      int const b = fans.at(point, i);
      int const c = fans.at(point, (i + 1) % count);
      if (b > a && c > a && b != c && isShort(b, c) && fans.follows(b, c, a) && fans.follows(c, a, b)) {
        triangles.emplace_back(a, b, c);
      }
    }
  }
  constexpr std::size_t fewEdges = 12;
  GapLimits limits;
  limits.maxEdges = fewEdges;
  limits.maxEdge = maxEdge;
  fillGaps(points, smooth, triangles, limits);
  return triangles;
}

} // namespace vorn::mv
