// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cfloat>
#include <cmath>
#include <memory>
#include <opencv2/core/types.hpp>
#include <ostream>
#include <string>
#include <vector>

namespace vorn::test {

/// An octree in its plainest form: linked lists of points, one heap object an octant, recursion everywhere.
///
/// It shares nothing with the library's but the rules, and takes finite points only.
class ReferenceOctree {
public:
  ReferenceOctree(std::vector<cv::Vec3f> const& points, std::size_t bucketCapacity, float minHalfSize)
      : points_(points), bucketCapacity_(bucketCapacity), minHalfSize_(minHalfSize) {
    if (points.empty()) {
      return;
    }
    cv::Vec3f low(FLT_MAX, FLT_MAX, FLT_MAX);
    cv::Vec3f high = -low;
    for (std::size_t i = 0; i < points.size(); ++i) {
      successor_.push_back(static_cast<unsigned>(i + 1));
      for (int axis = 0; axis < 3; ++axis) {
        low[axis] = std::min(low[axis], points[i][axis]);
        high[axis] = std::max(high[axis], points[i][axis]);
      }
    }
    cv::Vec3f const centre = (low + high) * 0.5F;
    float const side = std::max({high[0] - low[0], high[1] - low[1], high[2] - low[2]});
    auto const count = static_cast<unsigned>(points.size());
    root_ = create(centre, 0.5F * side, 0, count - 1, count);
  }

  /// The rule of the radius searches for one distance kind, children in code order.
  template <class Kind>
  std::vector<unsigned> search(cv::Vec3f const& query, float radius) const {
    std::vector<unsigned> indices;
    if (root_ != nullptr && radius >= 0.0F) {
      search<Kind>(*root_, query, Kind::norm(radius), indices);
    }
    return indices;
  }

  void print(std::ostream& stream) const {
    if (root_ != nullptr) {
      print(stream, *root_, "");
    }
  }

private:
  struct Octant {
    cv::Vec3f centre;
    float halfSize;
    unsigned start, end, count;
    bool isLeaf = true;
    std::unique_ptr<Octant> child[8];
  };

  std::unique_ptr<Octant> create(cv::Vec3f const& centre, float halfSize, unsigned start, unsigned end,
                                 unsigned count) {
    auto octant = std::make_unique<Octant>();
    octant->centre = centre;
    octant->halfSize = halfSize;
    octant->start = start;
    octant->end = end;
    octant->count = count;
    if (count <= bucketCapacity_ || !(halfSize > 2 * minHalfSize_)) {
      return octant;
    }
    octant->isLeaf = false;
    unsigned starts[8] = {};
    unsigned ends[8] = {};
    unsigned counts[8] = {};
    unsigned point = start;
    for (unsigned i = 0; i < count; ++i) {
      cv::Vec3f const& p = points_[point];
      int const code = (p[0] > centre[0] ? 1 : 0) + (p[1] > centre[1] ? 2 : 0) + (p[2] > centre[2] ? 4 : 0);
      unsigned const next = successor_[point];
      if (counts[code] == 0) {
        starts[code] = point;
      } else {
        successor_[ends[code]] = point;
      }
      ends[code] = point;
      ++counts[code];
      point = next;
    }
    float const half = halfSize * 0.5F;
    bool isFirst = true;
    for (int code = 0; code < 8; ++code) {
      if (counts[code] == 0) {
        continue;
      }
      cv::Vec3f const at(centre[0] + ((code & 1) != 0 ? half : -half),
                         centre[1] + ((code & 2) != 0 ? half : -half),
                         centre[2] + ((code & 4) != 0 ? half : -half));
      octant->child[code] = create(at, half, starts[code], ends[code], counts[code]);
      if (isFirst) {
        octant->start = octant->child[code]->start;
        isFirst = false;
      } else {
        successor_[octant->end] = octant->child[code]->start;
      }
      octant->end = octant->child[code]->end;
    }
    return octant;
  }

  template <class Kind>
  void search(Octant const& octant, cv::Vec3f const& query, float norm,
              std::vector<unsigned>& indices) const {
    cv::Vec3f const offset = query - octant.centre;
    float const e = octant.halfSize;
    bool const isInside =
        norm >= Kind::between(std::abs(offset[0]) + e, std::abs(offset[1]) + e, std::abs(offset[2]) + e);
    if (isInside || octant.isLeaf) {
      unsigned point = octant.start;
      for (unsigned i = 0; i < octant.count; ++i, point = successor_[point]) {
        cv::Vec3f const d = points_[point] - query;
        if (isInside || Kind::between(d[0], d[1], d[2]) < norm) {
          indices.push_back(point);
        }
      }
      return;
    }
    for (auto const& child : octant.child) {
      if (child != nullptr) {
        search<Kind>(*child, query, norm, indices);
      }
    }
  }

  void print(std::ostream& stream, Octant const& octant, std::string const& indent) const {
    stream << indent << "[isLeaf=" << octant.isLeaf << ", c={" << octant.centre[0] << "," << octant.centre[1]
           << "," << octant.centre[2] << "}, e=" << octant.halfSize << ", start=" << octant.start
           << ", end=" << octant.end << ", count=" << octant.count << '\n';
    for (int code = 0; code < 8 && !octant.isLeaf; ++code) {
      stream << indent << "child[" << code << "]:" << (octant.child[code] == nullptr ? "NULL\n" : "\n");
      if (octant.child[code] != nullptr) {
        print(stream, *octant.child[code], indent + "  ");
      }
    }
  }

  std::vector<cv::Vec3f> points_;
  std::vector<unsigned> successor_;
  std::size_t bucketCapacity_;
  float minHalfSize_;
  std::unique_ptr<Octant> root_;
};

} // namespace vorn::test
