// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "pointcloud/radius_cleaning.hpp"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

#include "core/bits.hpp"
#include "core/parallel.hpp"
#include "core/simd.hpp"
#include "pointcloud/octant_counts.hpp"
#include "pointcloud/octree_search.hpp"
#include "pointcloud/point_access.hpp"

namespace vorn::mv {

namespace {

using L2 = Distance<cv::Vec3f>::L2;

constexpr char const* stage = "counting neighbours";

/// Points judged by one piece of parallel work: enough to outweigh the handing out.
constexpr std::size_t pointsPerTask = 1024;

template <class Body>
void parallelTasks(std::size_t count, Progress const& progress, Body const& body) {
  constexpr int tasksBetweenAskings = 2;
  auto const tasks = static_cast<int>((count + pointsPerTask - 1) / pointsPerTask);
  parallelRows(tasks, tasksBetweenAskings, progress, stage, [&](int first, int end) {
    for (int task = first; task < end; ++task) {
      std::size_t const start = static_cast<std::size_t>(task) * pointsPerTask;
      body(static_cast<std::size_t>(task), start, std::min(start + pointsPerTask, count));
    }
  });
}

/// Coordinates of points near each other, axis by axis, filled up to whole blocks with points that are
/// nowhere.
class NearPoints {
public:
  void clear() {
    x_.clear();
    y_.clear();
    z_.clear();
  }

  void add(float const* point) {
    x_.push_back(point[0]);
    y_.push_back(point[1]);
    z_.push_back(point[2]);
  }

  bool isEmpty() const { return x_.empty(); }
  std::size_t count() const { return x_.size(); }

  void fillUp() {
    constexpr float nowhere[] = {std::numeric_limits<float>::infinity(), 0.0F, 0.0F};
    while (x_.size() % blockSize != 0) {
      add(nowhere);
    }
  }

  /// True when at least `enough` points are strictly nearer to `query` than the root of `square`.
  bool hasNearer(float const* query, float square, int enough) const {
    return hasNearer(x_.data(), y_.data(), z_.data(), x_.size(), query, square, enough);
  }

private:
  static constexpr std::size_t blockSize = 32;

  VORN_TARGET_CLONES static bool hasNearer(float const* x, float const* y, float const* z, std::size_t count,
                                           float const* query, float square, int enough) {
    float const qx = query[0];
    float const qy = query[1];
    float const qz = query[2];
    int found = 0;
    for (std::size_t block = 0; block < count && found < enough; block += blockSize) {
      for (std::size_t i = block; i < block + blockSize; ++i) {
        float const dx = x[i] - qx;
        float const dy = y[i] - qy;
        float const dz = z[i] - qz;
        found += dx * dx + dy * dy + dz * dz < square ? 1 : 0;
      }
    }
    return found >= enough;
  }

  std::vector<float> x_, y_, z_;
};

template <class Points>
class RadiusCleaning {
public:
  RadiusCleaning(Points const& points, std::vector<uchar> const& states, GridOctree const& tree, float radius,
                 int minNeighbours, Progress progress)
      : points_(points), states_(states), tree_(tree),
        octantCount_(static_cast<unsigned>(tree.octants().size())), radius_(radius),
        // Rounding may let one point find another that does not find it in turn.
        reach_(radius * (1.0F + 10.0F * boundSlack) + 2.0F * tree.tolerance()), minNeighbours_(minNeighbours),
        removed_(states.size()), waits_(states.size()), progress_(std::move(progress)) {
    if (countsByOctants() && !tree_.isEmpty) {
      counts_ = OctantCounts(tree_, octantCount_, states_, progress_.part(0.0, 0.1));
    }
  }

  std::vector<uchar> run() {
    if (minNeighbours_ <= 0) {
      return std::move(removed_);
    }
    progress_.at(stage, 0.1);
    removePointsWithoutNeighbours();
    progress_.at(stage, 0.1);
    std::vector<unsigned> candidates = countsByOctants() ? standing() : findDoubtful();
    while (!candidates.empty()) {
      std::vector<unsigned> const sparse = findSparse(candidates);
      for (unsigned const point : sparse) {
        removed_[point] = 1;
        if (countsByOctants()) {
          counts_.remove(points_[point]);
        }
      }
      candidates = findBereaved(sparse);
    }
    return std::move(removed_);
  }

private:
  /// Whether so many neighbours are asked for that counting them point by point would take far longer than
  /// adding up the octants that lie in a ball.
  bool countsByOctants() const {
    constexpr int manyNeighbours = 256;
    return minNeighbours_ > manyNeighbours;
  }

  /// The present points that have not been removed.
  std::vector<unsigned> standing() const {
    std::vector<unsigned> points;
    points.reserve(states_.size());
    constexpr std::size_t pointsAtOnce = std::size_t{1} << 20;
    inPieces(states_.size(), pointsAtOnce, progress_.part(0.7, 0.7), stage,
             [&](std::size_t first, std::size_t end) {
               for (std::size_t i = first; i < end; ++i) {
                 if (states_[i] == 0 && removed_[i] == 0) {
                   points.push_back(static_cast<unsigned>(i));
                 }
               }
             });
    return points;
  }

  /// Points that are no numbers have no neighbours, not even themselves.
  void removePointsWithoutNeighbours() {
    for (std::size_t i = 0; i < states_.size(); ++i) {
      removed_[i] = states_[i] == 0 && !isFinite(points_[i]) ? 1 : 0;
    }
  }

  /// The present points that a count of single points does not clear at once. The points of a leaf have
  /// nearly the same neighbours, which are gathered once for all of them.
  std::vector<unsigned> findDoubtful() const {
    std::vector<unsigned> leaves;
    if (!tree_.isEmpty) {
      for (unsigned place = 0; place < octantCount_; ++place) {
        if (tree_.octants[place].isLeaf) {
          leaves.push_back(place);
        }
      }
    }
    std::vector<std::vector<unsigned>> found((leaves.size() + pointsPerTask - 1) / pointsPerTask);
    parallelTasks(leaves.size(), progress_.part(0.1, 0.7),
                  [&](std::size_t task, std::size_t start, std::size_t end) {
                    NearPoints near;
                    for (std::size_t i = start; i < end; ++i) {
                      findDoubtfulIn(tree_.octants[leaves[i]], near, found[task]);
                    }
                  });
    std::vector<unsigned> doubtful;
    for (std::vector<unsigned> const& part : found) {
      doubtful.insert(doubtful.end(), part.begin(), part.end());
    }
    return doubtful;
  }

  void findDoubtfulIn(BasicOctant<unsigned> const& leaf, NearPoints& near,
                      std::vector<unsigned>& doubtful) const {
    near.clear();
    // Its own points first: they are the likeliest to be near.
    addPresent(leaf, near);
    if (near.isEmpty()) {
      return;
    }
    // A negative radius finds nothing; its square would.
    float const square = L2::norm(std::max(radius_, 0.0F));
    // Where a ball holds most of a cloud, its points are not gathered for every leaf: some are enough to
    // clear nearly all, and the rest are judged one by one.
    constexpr std::size_t enoughGathered = 8192;
    auto const addOthers = [&](BasicOctant<unsigned> const& octant) {
      if (octant.first != leaf.first) {
        addPresent(octant, near);
      }
      return near.count() < enoughGathered;
    };
    visitCube(leaf, leaf.halfSize + reach_, addOthers);
    near.fillUp();
    unsigned const* const chain = tree_.chain + leaf.first;
    for (unsigned i = 0; i < leaf.count; ++i) {
      if (states_[chain[i]] == 0 && !near.hasNearer(points_[chain[i]], square, minNeighbours_)) {
        doubtful.push_back(chain[i]);
      }
    }
  }

  void addPresent(BasicOctant<unsigned> const& octant, NearPoints& near) const {
    unsigned const* const chain = tree_.chain + octant.first;
    for (unsigned i = 0; i < octant.count; ++i) {
      if (states_[chain[i]] == 0) {
        near.add(points_[chain[i]]);
      }
    }
  }

  /// Visits the leaves that touch a cube around the centre of `middle` until `visit` returns false.
  template <class Visit>
  void visitCube(BasicOctant<unsigned> const& middle, float halfSize, Visit const& visit) const {
    using LInf = Distance<cv::Vec3f>::LInf;
    std::array<unsigned, 7 * maxOctreeDepth + 8> waiting;
    std::size_t count = 1;
    waiting[0] = 0;
    cv::v_float32x4 const centre = loadQuery(&middle.x);
    while (count > 0) {
      BasicOctant<unsigned> const& octant = tree_.octants[waiting[--count]];
      if (octant.isLeaf) {
        if (!visit(octant)) {
          return;
        }
        continue;
      }
      unsigned toVisit =
          octant.childMask & ChildGeometry<LInf>(octant, centre).nearest(tree_.tolerance).atMost(halfSize);
      for (; toVisit != 0; toVisit &= toVisit - 1) {
        waiting[count++] = childPlace(octant, static_cast<unsigned>(__builtin_ctz(toVisit)));
      }
    }
  }

  std::vector<unsigned> findSparse(std::vector<unsigned> const& candidates) const {
    std::vector<uchar> isSparse(candidates.size());
    parallelTasks(candidates.size(), progress_.part(0.7, 0.9),
                  [&](std::size_t /*task*/, std::size_t start, std::size_t end) {
                    for (std::size_t i = start; i < end; ++i) {
                      isSparse[i] = hasEnoughNeighbours(candidates[i]) ? 0 : 1;
                    }
                  });
    std::vector<unsigned> sparse;
    for (std::size_t i = 0; i < candidates.size(); ++i) {
      if (isSparse[i] != 0) {
        sparse.push_back(candidates[i]);
      }
    }
    return sparse;
  }

  bool counts(unsigned neighbour, unsigned point) const {
    return states_[neighbour] == 0 && !(removed_[neighbour] != 0 && neighbour < point);
  }

  /// The points of an octant that count as neighbours of `point`, all being near enough.
  int countIn(BasicOctant<unsigned> const& octant, unsigned point) const {
    if (counts_.removed(octant) == 0) {
      return static_cast<int>(counts_.present(octant));
    }
    int found = 0;
    if (octant.isLeaf) {
      unsigned const* const chain = tree_.chain + octant.first;
      for (unsigned i = 0; i < octant.count; ++i) {
        found += counts(chain[i], point) ? 1 : 0;
      }
    } else {
      counts_.visitChildren(octant,
                            [&](BasicOctant<unsigned> const& child) { found += countIn(child, point); });
    }
    return found;
  }

  bool hasEnoughNeighbours(unsigned point) const {
    int missing = minNeighbours_;
    Ball<L2> const ball(points_[point], radius_);
    auto const whole = [&](BasicOctant<unsigned> const& octant) {
      if (countsByOctants()) {
        missing -= countIn(octant, point);
        return missing > 0;
      }
      unsigned const* const chain = tree_.chain + octant.first;
      for (unsigned i = 0; i < octant.count && missing > 0; ++i) {
        missing -= counts(chain[i], point) ? 1 : 0;
      }
      return missing > 0;
    };
    auto const leaf = [&](BasicOctant<unsigned> const& octant) {
      unsigned const* const chain = tree_.chain + octant.first;
      for (unsigned i = 0; i < octant.count; ++i) {
        bool const isInside = ball.holds(points_[chain[i]]);
        missing -= (isInside & counts(chain[i], point)) ? 1 : 0;
      }
      return missing > 0;
    };
    visitBall(tree_, ball, whole, leaf);
    return missing <= 0;
  }

  /// The points that may still stand and have lost a neighbour of lower index to `sparse`.
  std::vector<unsigned> findBereaved(std::vector<unsigned> const& sparse) {
    // With many lost neighbours each, it is quicker to judge all again than to find out who lost one.
    if (countsByOctants() && sparse.size() * static_cast<std::size_t>(minNeighbours_) > 8 * states_.size()) {
      return standing();
    }
    std::vector<std::vector<unsigned>> found((sparse.size() + pointsPerTask - 1) / pointsPerTask);
    parallelTasks(sparse.size(), progress_.part(0.9, 1.0),
                  [&](std::size_t task, std::size_t start, std::size_t end) {
                    for (std::size_t i = start; i < end; ++i) {
                      listLaterNeighbours(sparse[i], found[task]);
                    }
                  });
    std::vector<unsigned> bereaved;
    for (std::vector<unsigned> const& part : found) {
      for (unsigned const point : part) {
        if (waits_[point] == 0) {
          waits_[point] = 1;
          bereaved.push_back(point);
        }
      }
    }
    for (unsigned const point : bereaved) {
      waits_[point] = 0;
    }
    return bereaved;
  }

  void listLaterNeighbours(unsigned point, std::vector<unsigned>& found) const {
    Ball<L2> const ball(points_[point], reach_);
    auto const visit = [&](BasicOctant<unsigned> const& octant) {
      unsigned const* const chain = tree_.chain + octant.first;
      for (unsigned i = 0; i < octant.count; ++i) {
        unsigned const other = chain[i];
        if (other > point && states_[other] == 0 && removed_[other] == 0 && ball.holds(points_[other])) {
          found.push_back(other);
        }
      }
      return true;
    };
    visitBall(tree_, ball, visit, visit);
  }

  Points points_;
  std::vector<uchar> const& states_;
  OctreeView tree_;
  OctantCounts counts_;
  unsigned octantCount_;
  float radius_;
  float reach_;
  int minNeighbours_;
  std::vector<uchar> removed_;
  std::vector<uchar> waits_;
  Progress progress_;
};

} // namespace

std::vector<uchar> findSparsePoints(cv::Mat_<cv::Vec3f> const& points, std::vector<uchar> const& states,
                                    GridOctree const& tree, float radius, int minNeighbours,
                                    Progress const& progress) {
  return withPointAccess(points, [&](auto const& access) {
    using Points = std::decay_t<decltype(access)>;
    return RadiusCleaning<Points>(access, states, tree, radius, minNeighbours, progress).run();
  });
}

} // namespace vorn::mv
