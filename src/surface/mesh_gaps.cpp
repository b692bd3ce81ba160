// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "surface/mesh_gaps.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <map>
#include <optional>
#include <queue>
#include <unordered_set>
#include <utility>

namespace vorn::mv {

namespace {

std::uint64_t edgeKey(int from, int to) {
  return static_cast<std::uint64_t>(static_cast<std::uint32_t>(from)) << 32U | static_cast<std::uint32_t>(to);
}

std::uint64_t sideKey(int a, int b) {
  return edgeKey(std::min(a, b), std::max(a, b));
}

/// The corners of a gap that are left, and the cuts that may take one off.
class Corners {
public:
  explicit Corners(std::vector<int> const& loop) : loop_(loop), count_(loop.size()) {
    for (std::size_t i = 0; i < count_; ++i) {
      before_.push_back((i + count_ - 1) % count_);
      after_.push_back((i + 1) % count_);
    }
    isCut_.assign(count_, false);
  }

  std::size_t count() const { return count_; }
  int vertexBefore(std::size_t place) const { return loop_[before_[place]]; }
  int vertexAfter(std::size_t place) const { return loop_[after_[place]]; }

  /// Offers to cut a corner off by a new side of a length.
  void addCut(std::size_t place, double length) {
    cuts_.push({length, place, before_[place], after_[place]});
  }

  /// The corner with the shortest offer that still stands, which is used up; none when there is no more.
  std::optional<std::size_t> takeShortest() {
    while (!cuts_.empty()) {
      Cut const cut = cuts_.top();
      cuts_.pop();
      if (!isCut_[cut.place] && before_[cut.place] == cut.before && after_[cut.place] == cut.after) {
        return cut.place;
      }
    }
    return std::nullopt;
  }

  /// Takes a corner out.
  /// @return the places before and after it
  std::pair<std::size_t, std::size_t> cut(std::size_t place) {
    isCut_[place] = true;
    --count_;
    after_[before_[place]] = after_[place];
    before_[after_[place]] = before_[place];
    return {before_[place], after_[place]};
  }

  /// What is left, in order.
  std::vector<int> vertices() const {
    std::vector<int> left;
    for (std::size_t i = 0; i < loop_.size(); ++i) {
      if (!isCut_[i]) {
        left.push_back(loop_[i]);
      }
    }
    return left;
  }

private:
  struct Cut {
    double length;
    std::size_t place;
    std::size_t before;
    std::size_t after;

    bool operator<(Cut const& other) const {
      return length > other.length || (!(length < other.length) && place > other.place);
    }
  };

  std::vector<int> const& loop_;
  std::size_t count_;
  std::vector<std::size_t> before_;
  std::vector<std::size_t> after_;
  std::vector<bool> isCut_;
  std::priority_queue<Cut> cuts_;
};

/// The rims of gaps and what fills them.
class GapFiller {
public:
  GapFiller(std::vector<cv::Vec3f> const& vertices, std::vector<cv::Vec3f> const& normals,
            std::vector<cv::Vec3i>& triangles, GapLimits const& limits)
      : vertices_(vertices), normals_(normals), triangles_(triangles), limits_(limits) {
    findRims();
  }

  void run() {
    for (auto const& [from, to] : std::vector<std::pair<int, int>>(order_)) {
      std::vector<int> const loop = takeLoop(from, to);
      if (loop.size() >= 3 && loop.size() <= limits_.maxEdges && lengthOf(loop) <= limits_.maxLength) {
        fill(loop);
      }
    }
  }

private:
  cv::Vec3d at(int vertex) const { return cv::Vec3d(vertices_[static_cast<std::size_t>(vertex)]); }
  cv::Vec3d normal(int vertex) const { return cv::Vec3d(normals_[static_cast<std::size_t>(vertex)]); }

  /// Keeps the sides that have one triangle, in the direction that a triangle beyond would have.
  void findRims() {
    std::vector<std::uint64_t> forward;
    forward.reserve(3 * triangles_.size());
    for (cv::Vec3i const& triangle : triangles_) {
      for (int i = 0; i < 3; ++i) {
        forward.push_back(edgeKey(triangle[i], triangle[(i + 1) % 3]));
      }
    }
    std::sort(forward.begin(), forward.end());
    for (std::uint64_t const edge : forward) {
      int const from = static_cast<int>(edge >> 32U);
      int const to = static_cast<int>(edge & 0xFFFFFFFFU);
      if (!std::binary_search(forward.begin(), forward.end(), edgeKey(to, from))) {
        next_.emplace(to, from);
        order_.emplace_back(to, from);
        rimVertices_.insert(to);
        rimVertices_.insert(from);
      }
    }
    std::sort(order_.begin(), order_.end());
    for (std::uint64_t const edge : forward) {
      int const from = static_cast<int>(edge >> 32U);
      int const to = static_cast<int>(edge & 0xFFFFFFFFU);
      if (rimVertices_.count(from) != 0 && rimVertices_.count(to) != 0) {
        sides_.insert(sideKey(from, to));
      }
    }
  }

  /// The angle by which one has to turn at a vertex from one side to another, clockwise about its normal.
  double turn(int previous, int vertex, int following) const {
    cv::Vec3d const n = normal(vertex);
    cv::Vec3d const back = at(previous) - at(vertex);
    cv::Vec3d const on = at(following) - at(vertex);
    double const angle = std::atan2(n.dot(on.cross(back)), on.dot(back) - n.dot(on) * n.dot(back));
    return angle > 0.0 ? angle : angle + 2.0 * CV_PI;
  }

  /// Goes round a gap from one of its sides; none when that was passed already. Where gaps meet in a vertex,
  /// the gap that one comes along is gone round to its end.
  std::vector<int> takeLoop(int from, int to) {
    std::vector<int> loop;
    int const start = from;
    while (take(from, to)) {
      loop.push_back(from);
      if (to == start) {
        return loop;
      }
      auto const [first, end] = next_.equal_range(to);
      if (first == end) {
        return {};
      }
      auto best = first;
      for (auto candidate = first; candidate != end; ++candidate) {
        if (turn(from, to, candidate->second) < turn(from, to, best->second)) {
          best = candidate;
        }
      }
      from = to;
      to = best->second;
    }
    return {};
  }

  bool take(int from, int to) {
    auto const [first, end] = next_.equal_range(from);
    auto const found = std::find_if(first, end, [&](auto const& side) { return side.second == to; });
    if (found == end) {
      return false;
    }
    next_.erase(found);
    return true;
  }

  double lengthOf(std::vector<int> const& loop) const {
    double length = 0.0;
    for (std::size_t i = 0; i < loop.size(); ++i) {
      length += cv::norm(at(loop[(i + 1) % loop.size()]) - at(loop[i]));
    }
    return length;
  }

  /// Cuts corners off, the one with the shortest new side first, of equal ones the first in the loop.
  void fill(std::vector<int> const& loop) {
    Corners corners(loop);
    auto const addCut = [&](std::size_t place) {
      double const length = cv::norm(at(corners.vertexAfter(place)) - at(corners.vertexBefore(place)));
      if (length <= static_cast<double>(limits_.maxEdge)) {
        corners.addCut(place, length);
      }
    };
    for (std::size_t place = 0; place < loop.size(); ++place) {
      addCut(place);
    }
    while (corners.count() > 3) {
      std::optional<std::size_t> const next = corners.takeShortest();
      if (!next) {
        return;
      }
      int const before = corners.vertexBefore(*next);
      int const after = corners.vertexAfter(*next);
      // What cannot be cut now cannot later either, unless its neighbours change and it is offered once more.
      if (before == after || sides_.count(sideKey(before, after)) != 0 ||
          !facesRight(before, loop[*next], after)) {
        continue;
      }
      triangles_.emplace_back(before, loop[*next], after);
      sides_.insert(sideKey(before, after));
      auto const [placeBefore, placeAfter] = corners.cut(*next);
      addCut(placeBefore);
      addCut(placeAfter);
    }
    std::vector<int> const last = corners.vertices();
    if (facesRight(last[0], last[1], last[2])) {
      triangles_.emplace_back(last[0], last[1], last[2]);
    }
  }

  bool facesRight(int a, int b, int c) const {
    cv::Vec3d const cross = (at(b) - at(a)).cross(at(c) - at(a));
    return cross.dot(normal(a) + normal(b) + normal(c)) > 0.0;
  }

  std::vector<cv::Vec3f> const& vertices_;
  std::vector<cv::Vec3f> const& normals_;
  std::vector<cv::Vec3i>& triangles_;
  GapLimits limits_;
  std::multimap<int, int> next_;
  std::vector<std::pair<int, int>> order_;
  std::unordered_set<int> rimVertices_;
  std::unordered_set<std::uint64_t> sides_; ///< all that may not be made once more
};

} // namespace

void fillGaps(std::vector<cv::Vec3f> const& vertices, std::vector<cv::Vec3f> const& normals,
              std::vector<cv::Vec3i>& triangles, GapLimits const& limits) {
  GapFiller(vertices, normals, triangles, limits).run();
}

} // namespace vorn::mv
