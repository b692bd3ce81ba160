// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "registration/surface_matcher.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <optional>

#include "core/median.hpp"
#include "core/parallel.hpp"
#include "pointcloud/grid_steps.hpp"
#include "pointcloud/octree_nearest.hpp"
#include "pointcloud/point_access.hpp"
#include "registration/grid_patch.hpp"

namespace vorn::mv {

namespace {

using L2 = Distance<cv::Vec3f>::L2;

/// On a grid only every so many-th row and column is in the tree; the walk does the rest.
constexpr int coarseStride = 8;
/// Steps of a walk, and cells a step: from a start in the tree the place is a few cells away.
constexpr int mostSteps = 8;
constexpr int longestStep = 16;
/// A point whose foot lies more than so many cells beside the last cell of its walk lies beside the surface.
constexpr double mostCellsBeside = 1.0;
/// The same without a grid, in typical distances of neighbours.
constexpr double mostSpacingsBeside = 1.5;

/// The nearest point alone.
class NearestPoint {
public:
  explicit NearestPoint(float farthestSquare) : square_(farthestSquare) {}
  float worst() const { return square_; }
  void add(unsigned index, float square) {
    square_ = square;
    index_ = index;
  }
  unsigned index() const { return index_; }

private:
  float square_;
  unsigned index_ = SurfaceMatcher::none;
};

/// The median distance of points to their nearest neighbour, of some hundred spread over the tree.
double medianNeighbourDistance(cv::Mat_<cv::Vec3f> const& points, GridOctree const& tree) {
  constexpr std::size_t samples = 500;
  std::vector<float> squares;
  std::size_t const stride = std::max<std::size_t>(1, tree.chain().size() / samples);
  for (std::size_t i = 0; i < tree.chain().size(); i += stride) {
    unsigned const index = tree.chain()[i];
    NearestPoint nearest(std::numeric_limits<float>::max());
    ContiguousPoints const access{points.ptr<float>()};
    findNearest<L2>(OctreeView(tree), access, access[index], nearest,
                    [&](unsigned other) { return other != index; });
    if (nearest.index() != SurfaceMatcher::none) {
      squares.push_back(nearest.worst());
    }
  }
  return std::sqrt(static_cast<double>(medianAmong(squares)));
}

} // namespace

SurfaceMatcher::SurfaceMatcher(PointCloud const& cloud)
    : points_(cloud.points()), normals_(cloud.normals()), usable_(points_.size(), uchar{0}),
      isGrid_(cloud.isOrganized() && cloud.isContinous()) {
  for (int row = 0; row < points_.rows; ++row) {
    for (int column = 0; column < points_.cols; ++column) {
      cv::Vec3f const& normal = normals_(row, column);
      if (cloud.state()(row, column) == 0 && isFinite(points_(row, column).val) &&
          normal.dot(normal) > 0.5F) {
        usable_(row, column) = 1;
        ++usableCount_;
        middle_ += cv::Vec3d(points_(row, column));
      }
    }
  }
  middle_ *= 1.0 / static_cast<double>(std::max<std::size_t>(usableCount_, 1));
  double squares = 0.0;
  for (int row = 0; row < points_.rows; ++row) {
    for (int column = 0; column < points_.cols; ++column) {
      if (isUsable(row, column)) {
        cv::Vec3d const offset = cv::Vec3d(points_(row, column)) - middle_;
        squares += offset.dot(offset);
      }
    }
  }
  size_ = std::sqrt(squares / static_cast<double>(std::max<std::size_t>(usableCount_, 1)));
  int const stride = isGrid_ ? coarseStride : 1;
  std::vector<cv::Vec3f> kept;
  for (int row = 0; row < points_.rows; row += stride) {
    for (int column = 0; column < points_.cols; column += stride) {
      unsigned const cell = middleCell(row, column, stride);
      if (cell != none) {
        kept.push_back(points_(rowOf(cell), columnOf(cell)));
        indexedCells_.push_back(cell);
      }
    }
  }
  indexed_ = cv::Mat_<cv::Vec3f>(kept, true);
  tree_.init(indexed_);
  spacing_ = isGrid_ ? static_cast<double>(gridSpacingOf(points_, cloud.state()))
                     : medianNeighbourDistance(indexed_, tree_);
}

unsigned SurfaceMatcher::middleCell(int firstRow, int firstColumn, int stride) const {
  int const endRow = std::min(firstRow + stride, points_.rows);
  int const endColumn = std::min(firstColumn + stride, points_.cols);
  unsigned chosen = none;
  int best = stride;
  for (int row = firstRow; row < endRow; ++row) {
    for (int column = firstColumn; column < endColumn && best > 0; ++column) {
      int const away =
          std::max(std::abs(row - firstRow - stride / 2), std::abs(column - firstColumn - stride / 2));
      if (away < best && isUsable(row, column)) {
        best = away;
        chosen = static_cast<unsigned>(row * points_.cols + column);
      }
    }
  }
  return chosen;
}

double SurfaceMatcher::resolution() const {
  double const reach = std::max({std::abs(middle_[0]), std::abs(middle_[1]), std::abs(middle_[2])}) + size_;
  return reach * static_cast<double>(std::numeric_limits<float>::epsilon()) / 2.0;
}

unsigned SurfaceMatcher::nearest(cv::Vec3d const& point, unsigned start, double maxDistance) const {
  if (tree_.isEmpty()) {
    return none;
  }
  // The tree of a grid misses up to half its stride of cells each way.
  double reach = maxDistance + (isGrid_ ? 2.0 * coarseStride * spacing_ : 0.0);
  if (!isGrid_ && start != none) {
    // Nothing farther than the start can be the nearest, but for the rounding of single precision.
    constexpr double rounding = 1.0 + 1e-5;
    reach = std::min(reach, rounding * cv::norm(point - pointAt(start)) + 4.0 * resolution());
  }
  auto const square = static_cast<float>(std::min(reach * reach, 1e37));
  NearestPoint found(square);
  cv::Vec3f const query(point);
  findNearest<L2>(OctreeView(tree_), ContiguousPoints{indexed_.ptr<float>()}, query.val, found,
                  [](unsigned) { return true; });
  return found.index() == none ? none : indexedCells_[found.index()];
}

/// The way from a cell's point to that of the next cell, from both sides where both are there.
cv::Vec3d SurfaceMatcher::tangent(int row, int column, int down, int right) const {
  bool const hasNext = isUsableCell(row + down, column + right);
  bool const hasLast = isUsableCell(row - down, column - right);
  cv::Vec3f const& next = hasNext ? points_(row + down, column + right) : points_(row, column);
  cv::Vec3f const& last = hasLast ? points_(row - down, column - right) : points_(row, column);
  return cv::Vec3d(next - last) * (hasNext && hasLast ? 0.5 : 1.0);
}

unsigned SurfaceMatcher::walk(cv::Vec3d const& point, unsigned start) const {
  int row = rowOf(start);
  int column = columnOf(start);
  double square = std::numeric_limits<double>::max();
  for (int step = 0; step < mostSteps; ++step) {
    cv::Vec3d const offset = point - cv::Vec3d(points_(row, column));
    cv::Vec3d const a = tangent(row, column, 0, 1);
    cv::Vec3d const b = tangent(row, column, 1, 0);
    std::optional<cv::Vec2d> const beside = cellsBeside(offset, a, b);
    if (!beside) {
      return none;
    }
    double const du = (*beside)[0];
    double const dv = (*beside)[1];
    double const along = std::max(std::abs(du), std::abs(dv));
    double const length = offset.dot(offset);
    // Rounded to whole cells; between two cells either will do.
    if (along <= 0.5 || (along <= mostCellsBeside && length >= square)) {
      return static_cast<unsigned>(row * points_.cols + column);
    }
    if (length >= square) {
      return none;
    }
    square = length;
    auto const cells = [](double way) {
      return static_cast<int>(std::lround(std::clamp(way, -1.0 * longestStep, 1.0 * longestStep)));
    };
    int const nextRow = row + cells(dv);
    int const nextColumn = column + cells(du);
    if (!isUsableCell(nextRow, nextColumn)) {
      // A hole of a cell: one of its neighbours is as good.
      bool const isBeside = along > mostCellsBeside;
      if (!isBeside) {
        return static_cast<unsigned>(row * points_.cols + column);
      }
      int const halfRow = row + cells(dv / 2.0);
      int const halfColumn = column + cells(du / 2.0);
      if ((halfRow == row && halfColumn == column) || !isUsableCell(halfRow, halfColumn)) {
        return none;
      }
      row = halfRow;
      column = halfColumn;
    } else {
      row = nextRow;
      column = nextColumn;
    }
  }
  return none;
}

void SurfaceMatcher::readBetweenPoints(bool isCoarse) {
  isReadBetween_ = true;
  isCoarse_ = isCoarse;
  if (isGrid_) {
    return;
  }
  constexpr int wanted = 9;
  around_.resize(points_.total());
  parallelRows(static_cast<int>(indexedCells_.size()), [&](int first, int end) {
    std::vector<float> squares;
    for (int i = first; i < end; ++i) {
      std::vector<unsigned>& cells = around_[indexedCells_[static_cast<std::size_t>(i)]];
      tree_.knnSearch<L2>(indexed_(i), wanted, cells, squares);
      for (unsigned& cell : cells) {
        cell = indexedCells_[cell];
      }
    }
  });
}

std::optional<cv::Vec3d> SurfaceMatcher::footOf(cv::Vec3d const& point, unsigned cell) const {
  return isGrid_ ? gridFoot(point, cell) : around_.empty() ? pointAt(cell) : listFoot(point, cell);
}

/// Points p, q of a surface whose curvature does not change and their normals n, m have (p - q)(n + m) = 0:
/// so each point around tells how high a place lies whose normal is known. Normals are smoothed and slope too
/// little: what is taken is the height that those of all points around lead to at the place itself.
cv::Vec3d SurfaceMatcher::listFoot(cv::Vec3d const& point, unsigned cell) const {
  constexpr double reachOverSpacing = 2.0;
  constexpr double leastCosine = 0.8;
  double const farthest = reachOverSpacing * reachOverSpacing * spacing_ * spacing_;
  cv::Vec3d const own = normalAt(cell);
  auto const weightOf = [&](unsigned other) {
    cv::Vec3d const way = point - pointAt(other);
    double const height = way.dot(own);
    double const rest = 1.0 - (way.dot(way) - height * height) / farthest;
    return rest > 0.0 && normalAt(other).dot(own) > leastCosine ? rest * rest : 0.0;
  };
  cv::Vec3d normal;
  for (unsigned const other : around_[cell]) {
    normal += normalAt(other) * weightOf(other);
  }
  double const length = std::sqrt(normal.dot(normal));
  if (!(length > 0.0)) {
    return pointAt(cell);
  }
  normal *= 1.0 / length;
  // Weighted sums of (1, way) (1, way)' and of heights; the ways lie in the plane across the normal.
  double weights = 0.0;
  double heights = 0.0;
  cv::Vec3d ways;
  cv::Vec3d products;
  cv::Matx33d squares = cv::Matx33d::zeros();
  for (unsigned const other : around_[cell]) {
    double const weight = weightOf(other);
    cv::Vec3d way = point - pointAt(other);
    double const height = 0.5 * way.dot(normalAt(other) + normal);
    way -= normal * normal.dot(way);
    weights += weight;
    heights += weight * height;
    ways += weight * way;
    products += way * (weight * height);
    squares += way * way.t() * weight;
  }
  cv::Vec3d const middle = ways * (1.0 / weights);
  double const mean = heights / weights;
  // Full along the normal, so that it can be inverted.
  cv::Matx33d const spread =
      squares - ways * ways.t() * (1.0 / weights) + normal * normal.t() * (weights * spacing_ * spacing_);
  double const full = weights * spacing_ * spacing_;
  constexpr double flat = 0.02;
  double const height =
      cv::determinant(spread) > flat * full * full * full
          ? mean - middle.dot(spread.solve(products - middle * heights, cv::DECOMP_CHOLESKY))
          : mean;
  return point - normal * height;
}

std::optional<cv::Vec3d> SurfaceMatcher::gridFoot(cv::Vec3d const& point, unsigned cell) const {
  GridPatch const patch(points_, usable_, cv::Point(columnOf(cell), rowOf(cell)), isCoarse_);
  std::optional<cv::Vec2d> const beside = patch.cellsTo(point);
  if (!beside || !(std::max(std::abs((*beside)[0]), std::abs((*beside)[1])) <= mostCellsBeside) ||
      (!isReadBetween_ && !patch.isWhole())) {
    return patch.middle();
  }
  if (patch.isBeyondRim(*beside)) {
    return std::nullopt;
  }
  return patch.at(*beside);
}

unsigned SurfaceMatcher::find(cv::Vec3d const& point, unsigned start, double maxDistance) const {
  unsigned cell = none;
  if (isGrid_) {
    cell = start == none ? none : walk(point, start);
    if (cell == none) {
      unsigned const seed = nearest(point, start, maxDistance);
      cell = seed == none ? none : walk(point, seed);
    }
  } else {
    cell = nearest(point, start, maxDistance);
  }
  if (cell == none) {
    return none;
  }
  cv::Vec3d const offset = point - pointAt(cell);
  if (offset.dot(offset) > maxDistance * maxDistance) {
    return none;
  }
  if (!isGrid_) {
    cv::Vec3d const normal = normalAt(cell);
    cv::Vec3d const beside = offset - normal * normal.dot(offset);
    if (beside.dot(beside) > mostSpacingsBeside * mostSpacingsBeside * spacing_ * spacing_) {
      return none;
    }
  }
  return cell;
}

} // namespace vorn::mv
