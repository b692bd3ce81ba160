// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "pointcloud/neighbour_normals.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <vector>

#include "core/bits.hpp"
#include "pointcloud/flat_states.hpp"
#include "pointcloud/neighbour_scatter.hpp"
#include "pointcloud/octree_nearest.hpp"
#include "pointcloud/point_access.hpp"
#include "pointcloud/smallest_axis.hpp"

namespace vorn::mv {

namespace {

using L2 = Distance<cv::Vec3f>::L2;

/// The neighbours of the next point are looked for within so much of the squared radius that held the last.
constexpr float guessMargin = 1.15F;
/// The same for the middle of the next leaf, whose surroundings differ more.
constexpr float leafGuessMargin = 1.5F;
/// Leaves a thread works on between two questions to the observer.
constexpr int leavesPerRow = 64;

/// The distance that the k nearest points offered so far lie within.
class NearestBound {
public:
  explicit NearestBound(int count) : count_(static_cast<std::size_t>(count)) { heap_.reserve(count_); }

  void clear() { heap_.clear(); }
  bool isFull() const { return heap_.size() == count_; }
  float worst() const { return isFull() ? heap_.front() : std::numeric_limits<float>::max(); }
  void add(unsigned /*index*/, float distance) {
    if (isFull()) {
      std::pop_heap(heap_.begin(), heap_.end());
      heap_.back() = distance;
    } else {
      heap_.push_back(distance);
    }
    std::push_heap(heap_.begin(), heap_.end());
  }

private:
  std::size_t count_;
  std::vector<float> heap_;
};

/// Coordinates in one list an axis.
using Coordinates = std::array<std::vector<float>, 3>;

/// Finds the normals of the points of leaves; one for each thread.
template <class Points>
class LeafNormals {
public:
  LeafNormals(GridOctree const& tree, Points const& points, std::vector<uchar> const& states,
              NormalSettings const& settings, NormalField& field)
      : tree_(tree), points_(points), states_(states), settings_(settings), field_(field),
        bound_(settings.neighbourCount) {}

  /// What a leaf finds depends, in its last bits, on those before it: bands of threads begin anew.
  void forgetLastLeaf() { reachGuess_ = 0.0F; }

  void run(BasicOctant<unsigned> const& leaf) {
    middle_ = middleOf(leaf);
    float extent = 0.0F;
    for (unsigned i = leaf.first; i < leaf.first + leaf.count; ++i) {
      extent = std::max(extent, distanceToMiddle(tree_.chain[i]));
    }
    float guess = 0.0F;
    if (settings_.radius > 0.0F) {
      gather(settings_.radius + extent);
    } else {
      float const reach = gatherNearest(extent);
      guess = guessMargin * reach * reach;
    }
    unsigned const* last = nullptr;
    for (unsigned const* index = tree_.chain + leaf.first; index < tree_.chain + leaf.first + leaf.count;
         ++index) {
      if (isPresent(*index)) {
        // Leaves of millions of points on one spot exist; a spot is worked on once.
        if (last != nullptr && std::equal(points_[*last], points_[*last] + 3, points_[*index])) {
          copyResult(*last, *index);
        } else {
          guess = runPoint(*index, guess);
        }
        last = index;
      }
    }
  }

private:
  bool isPresent(unsigned index) const { return states_[index] == 0; }

  cv::Point cellOf(unsigned index) const {
    auto const columns = static_cast<unsigned>(field_.normals.cols);
    return {static_cast<int>(index % columns), static_cast<int>(index / columns)};
  }

  void copyResult(unsigned from, unsigned to) {
    cv::Point const source = cellOf(from);
    cv::Point const target = cellOf(to);
    field_.normals(target) = field_.normals(source);
    if (settings_.figures != NormalFigures::None) {
      field_.fitError(target) = field_.fitError(source);
      field_.curvature(target) = field_.curvature(source);
    }
  }

  cv::Vec3f middleOf(BasicOctant<unsigned> const& leaf) const {
    cv::Vec3d sum;
    for (unsigned i = leaf.first; i < leaf.first + leaf.count; ++i) {
      float const* const point = points_[tree_.chain[i]];
      sum += cv::Vec3d(point[0], point[1], point[2]);
    }
    return sum * (1.0 / static_cast<double>(leaf.count));
  }

  float distanceToMiddle(unsigned index) const {
    float const* const point = points_[index];
    cv::Vec3f const difference = cv::Vec3f(point[0], point[1], point[2]) - middle_;
    return std::sqrt(difference.dot(difference));
  }

  float nearestReach() {
    bound_.clear();
    findNearest<L2>(tree_, points_, middle_.val, bound_, [this](unsigned index) { return isPresent(index); });
    return std::sqrt(bound_.worst());
  }

  /// Gathers what the points of a leaf have as their nearest: it lies within the distance that holds as many
  /// about the middle and within their own distance, and so twice that from the middle.
  /// @return the distance that holds as many about the middle
  float gatherNearest(float extent) {
    auto const wanted = static_cast<std::size_t>(settings_.neighbourCount);
    // What held those of the last leaf mostly holds these too, and spares a search.
    float const limit = reachGuess_ * reachGuess_;
    if (limit > 0.0F && limit < std::numeric_limits<float>::max()) {
      gather(reachGuess_ + 2.0F * extent);
      float const atMiddle[3] = {};
      squaresFrom(candidates_[0].data(), candidates_[1].data(), candidates_[2].data(), squares_.size(),
                  atMiddle, squares_.data());
      collectBelow(limit);
      if (near_.size() >= wanted) {
        float const reach = std::sqrt(nthSquare(wanted));
        reachGuess_ = leafGuessMargin * reach;
        return reach;
      }
    }
    float const reach = nearestReach();
    reachGuess_ = leafGuessMargin * reach;
    gather(reach + 2.0F * extent);
    return reach;
  }

  /// The n-th smallest square of the candidates next to a point.
  float nthSquare(std::size_t n) {
    sorted_.clear();
    for (unsigned const i : near_) {
      sorted_.push_back(squares_[i]);
    }
    constexpr std::size_t mostToCount = 64;
    if (sorted_.size() <= mostToCount) {
      sorted_.resize((sorted_.size() + packSize - 1) / packSize * packSize,
                     std::numeric_limits<float>::infinity());
      return nthByCounting(sorted_.data(), sorted_.size(), static_cast<int>(n));
    }
    auto const place = sorted_.begin() + static_cast<std::ptrdiff_t>(n) - 1;
    std::nth_element(sorted_.begin(), place, sorted_.end());
    return *place;
  }

  void addCandidate(unsigned index) {
    if (isPresent(index)) {
      float const* const point = points_[index];
      for (std::size_t axis = 0; axis < 3; ++axis) {
        candidates_[axis].push_back(point[axis] - middle_[static_cast<int>(axis)]);
      }
    }
  }

  /// Gathers the points within a distance of the middle, as exact as the distances of single precision.
  void gather(float distance) {
    for (std::vector<float>& axis : candidates_) {
      axis.clear();
    }
    constexpr float rounding = 1.0F + 1e-5F;
    Ball<L2> const ball(middle_.val, std::min(rounding * distance, std::numeric_limits<float>::max()));
    auto const takeAll = [&](BasicOctant<unsigned> const& octant) {
      for (unsigned i = octant.first; i < octant.first + octant.count; ++i) {
        addCandidate(tree_.chain[i]);
      }
      return true;
    };
    visitBall(tree_, ball, takeAll, [&](BasicOctant<unsigned> const& leaf) {
      for (unsigned i = leaf.first; i < leaf.first + leaf.count; ++i) {
        if (ball.holds(points_[tree_.chain[i]])) {
          addCandidate(tree_.chain[i]);
        }
      }
      return true;
    });
    // Fill up with points that are below no limit.
    std::size_t const size = (candidates_[0].size() + packSize - 1) / packSize * packSize;
    for (std::vector<float>& axis : candidates_) {
      axis.resize(size, std::numeric_limits<float>::infinity());
    }
    squares_.resize(size);
  }

  /// Lists the candidates whose square is below a limit.
  void collectBelow(float limit) {
    near_.clear();
    cv::v_float32x4 const limits = cv::v_setall_f32(limit);
    for (unsigned first = 0; first < squares_.size(); first += 4) {
      auto below = static_cast<unsigned>(cv::v_signmask(cv::v_load(squares_.data() + first) < limits));
      for (; below != 0; below &= below - 1) {
        near_.push_back(first + static_cast<unsigned>(lowestBit(below)));
      }
    }
  }

  /// Lists the k nearest candidates and those as far as the last of them; all when there are fewer.
  /// @param guess a limit that may hold them
  /// @return the squared distance of the last one
  float collectNearest(float guess) {
    auto const wanted = static_cast<std::size_t>(settings_.neighbourCount);
    constexpr float all = std::numeric_limits<float>::max();
    for (float limit = guess;; limit *= 2.0F) {
      bool const isLast = !(limit > 0.0F && limit < all);
      collectBelow(isLast ? all : limit);
      if (near_.size() >= wanted || isLast) {
        break;
      }
    }
    if (near_.size() < wanted) {
      return all;
    }
    float const farthest = nthSquare(wanted);
    near_.erase(
        std::remove_if(near_.begin(), near_.end(), [&](unsigned i) { return squares_[i] > farthest; }),
        near_.end());
    return farthest;
  }

  /// @return a limit that may hold the neighbours of the next point
  float runPoint(unsigned index, float guess) {
    float const* const point = points_[index];
    cv::Vec3f const query(point[0] - middle_[0], point[1] - middle_[1], point[2] - middle_[2]);
    squaresFrom(candidates_[0].data(), candidates_[1].data(), candidates_[2].data(), squares_.size(),
                query.val, squares_.data());
    if (settings_.radius > 0.0F) {
      collectBelow(settings_.radius * settings_.radius);
    } else {
      guess = guessMargin * collectNearest(guess);
    }
    std::size_t const size = (near_.size() + packSize - 1) / packSize * packSize;
    for (std::size_t axis = 0; axis < 3; ++axis) {
      offsets_[axis].assign(size, 0.0F);
      for (std::size_t i = 0; i < near_.size(); ++i) {
        offsets_[axis][i] = candidates_[axis][near_[i]] - query[static_cast<int>(axis)];
      }
    }
    NeighbourScatter const sums = scatterOf(offsets_[0].data(), offsets_[1].data(), offsets_[2].data(), size);
    store(index, sums, static_cast<double>(near_.size()));
    return guess;
  }

  void store(unsigned index, NeighbourScatter const& sums, double count) {
    using S = NeighbourScatter;
    cv::Point const cell = cellOf(index);
    double const x = sums.total(S::X) / count;
    double const y = sums.total(S::Y) / count;
    double const z = sums.total(S::Z) / count;
    double const products[6] = {sums.total(S::XX) - count * x * x, sums.total(S::XY) - count * x * y,
                                sums.total(S::XZ) - count * x * z, sums.total(S::YY) - count * y * y,
                                sums.total(S::YZ) - count * y * z, sums.total(S::ZZ) - count * z * z};
    constexpr double fewest = 3.0;
    SmallestAxis const axis = count < fewest ? SmallestAxis{} : smallestAxisOf(products);
    float const* const point = points_[index];
    cv::Vec3d const toView(static_cast<double>(settings_.viewpoint.x) - point[0],
                           static_cast<double>(settings_.viewpoint.y) - point[1],
                           static_cast<double>(settings_.viewpoint.z) - point[2]);
    field_.normals(cell) = axis.direction * (axis.direction.dot(toView) < 0.0 ? -1.0 : 1.0);
    if (settings_.figures != NormalFigures::None && axis.direction != cv::Vec3d()) {
      double const trace = products[0] + products[3] + products[5];
      field_.fitError(cell) = static_cast<float>(std::sqrt(axis.scatter / count));
      field_.curvature(cell) = static_cast<float>(axis.scatter / trace);
    }
  }

  OctreeView tree_;
  Points points_;
  std::vector<uchar> const& states_;
  NormalSettings const& settings_;
  NormalField& field_;
  NearestBound bound_;
  float reachGuess_ = 0.0F; ///< may hold as many points as are wanted about the middle of the next leaf
  cv::Vec3f middle_;
  Coordinates candidates_;     ///< relative to the middle of the leaf
  std::vector<float> squares_; ///< distances of the candidates to a point
  std::vector<unsigned> near_; ///< the candidates next to a point
  std::vector<float> sorted_;
  Coordinates offsets_; ///< from a point to those next to it
};

} // namespace

NormalField neighbourNormals(cv::Mat_<cv::Vec3f> const& points, cv::Mat_<uchar> const& state,
                             GridOctree const& tree, NormalSettings const& settings,
                             Progress const& progress) {
  NormalField field;
  field.normals = cv::Mat_<cv::Vec3f>(points.size(), cv::Vec3f());
  if (settings.figures != NormalFigures::None) {
    constexpr float none = std::numeric_limits<float>::quiet_NaN();
    field.fitError = cv::Mat_<float>(points.size(), none);
    field.curvature = cv::Mat_<float>(points.size(), none);
  }
  std::vector<uchar> const states = flatStates(state);
  std::vector<unsigned> leaves;
  for (unsigned place = 0; place < tree.octants().size(); ++place) {
    if (tree.octants()[place].isLeaf) {
      leaves.push_back(place);
    }
  }
  int const rows = static_cast<int>((leaves.size() + leavesPerRow - 1) / leavesPerRow);
  withPointAccess(points, [&](auto const& access) {
    using Access = std::decay_t<decltype(access)>;
    parallelRows(rows, 16, progress, "normals", [&](int first, int end) {
      LeafNormals<Access> normals(tree, access, states, settings, field);
      std::size_t const last =
          std::min(leaves.size(), static_cast<std::size_t>(end) * static_cast<std::size_t>(leavesPerRow));
      for (std::size_t i = static_cast<std::size_t>(first) * leavesPerRow; i < last; ++i) {
        if (i % leavesPerRow == 0) {
          normals.forgetLastLeaf();
        }
        normals.run(tree.octants()[leaves[i]]);
      }
    });
  });
  return field;
}

} // namespace vorn::mv
