// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "surface/collapsing_mesh.hpp"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <tuple>
#include <unordered_set>

#include "surface/mesh_edges.hpp"

namespace vorn::mv {

namespace {

bool has(cv::Vec3i const& corners, int vertex) {
  return corners[0] == vertex || corners[1] == vertex || corners[2] == vertex;
}

double squareToSegment(cv::Vec3d const& p, cv::Vec3d const& a, cv::Vec3d const& b) {
  cv::Vec3d const along = b - a;
  double const length = along.dot(along);
  double const share = length > 0.0 ? std::clamp((p - a).dot(along) / length, 0.0, 1.0) : 0.0;
  cv::Vec3d const apart = p - a - along * share;
  return apart.dot(apart);
}

/// The squared distance of a point from a triangle.
double squareToTriangle(cv::Vec3d const& p, cv::Vec3d const& a, cv::Vec3d const& b, cv::Vec3d const& c) {
  cv::Vec3d const normal = (b - a).cross(c - a);
  bool const isAbove = normal.dot((b - a).cross(p - a)) >= 0.0 && normal.dot((c - b).cross(p - b)) >= 0.0 &&
                       normal.dot((a - c).cross(p - c)) >= 0.0;
  double const square = normal.dot(normal);
  if (isAbove && square > 0.0) {
    double const height = normal.dot(p - a);
    return height * height / square;
  }
  return std::min({squareToSegment(p, a, b), squareToSegment(p, b, c), squareToSegment(p, c, a)});
}

} // namespace

CollapsingMesh::CollapsingMesh(SurfaceMesh const& mesh, double maxError)
    : mesh_(mesh), squaredError_(maxError * maxError), triangleCount_(mesh.triangles.size()),
      triangles_(mesh.triangles), around_(mesh.vertices.size()), quadrics_(mesh.vertices.size()),
      drawn_(mesh.triangles.size()) {
  for (std::size_t i = 0; i < triangles_.size(); ++i) {
    cv::Vec3d const cross = crossOf(triangles_[i]);
    double const length = cv::norm(cross);
    cv::Vec3d const normal = length > 0.0 ? cross * (1.0 / length) : cv::Vec3d();
    double const distance = -normal.dot(at(triangles_[i][0]));
    cv::Vec4d const plane(normal[0], normal[1], normal[2], distance);
    for (int const corner : triangles_[i].val) {
      around_[static_cast<std::size_t>(corner)].push_back(static_cast<int>(i));
      quadrics_[static_cast<std::size_t>(corner)] += plane * plane.t() * length;
    }
  }
  findRims();
}

cv::Vec3d CollapsingMesh::crossOf(cv::Vec3i const& corners) const {
  return (at(corners[1]) - at(corners[0])).cross(at(corners[2]) - at(corners[0]));
}

void CollapsingMesh::findRims() {
  std::unordered_set<int> meetings;
  std::vector<MeshEdge> const edges = sortedEdges(mesh_);
  for (std::size_t first = 0; first < edges.size();) {
    std::size_t end = first;
    while (end < edges.size() && !(edges[first] < edges[end])) {
      ++end;
    }
    MeshEdge const& edge = edges[first];
    if (end - first == 1 && edge.low != edge.high) {
      int const a = edge.isForward ? edge.low : edge.high;
      int const b = edge.isForward ? edge.high : edge.low;
      // Where rims meet in a vertex it has no one vertex before it: it stays.
      if (!rimNext_.emplace(a, b).second) {
        meetings.insert(a);
      }
      if (!rimBefore_.emplace(b, a).second) {
        meetings.insert(b);
      }
    }
    first = end;
  }
  for (int const vertex : meetings) {
    rimNext_[vertex] = rimBefore_[vertex] = -1;
  }
}

std::vector<int> CollapsingMesh::neighbours(int vertex) const {
  std::vector<int> found;
  for (int const triangle : around_[static_cast<std::size_t>(vertex)]) {
    for (int const corner : corners(triangle).val) {
      if (corner != vertex) {
        found.push_back(corner);
      }
    }
  }
  std::sort(found.begin(), found.end());
  found.erase(std::unique(found.begin(), found.end()), found.end());
  return found;
}

double CollapsingMesh::cost(int from, int to) const {
  cv::Vec3d const place = at(to);
  cv::Vec4d const p(place[0], place[1], place[2], 1.0);
  Quadric const both = quadrics_[static_cast<std::size_t>(from)] + quadrics_[static_cast<std::size_t>(to)];
  return std::max(p.dot(both * p), 0.0);
}

std::vector<int> CollapsingMesh::shared(int a, int b) const {
  // Either may have far more triangles than the other.
  bool const isFewer = trianglesAround(a) < trianglesAround(b);
  std::vector<int> const& around = around_[static_cast<std::size_t>(isFewer ? a : b)];
  std::vector<int> found;
  std::copy_if(around.begin(), around.end(), std::back_inserter(found),
               [&](int triangle) { return has(corners(triangle), isFewer ? b : a); });
  return found;
}

bool CollapsingMesh::keepsTopology(int from, int to) const {
  std::size_t const between = shared(from, to).size();
  bool const isRim = rimNext_.count(from) != 0;
  // A closed fan of three would leave two triangles on each other; so would a rim's last triangle.
  if (between != (isRim ? 1U : 2U) || trianglesAround(from) <= (isRim ? 1U : 3U)) {
    return false;
  }
  bool const isFewer = trianglesAround(from) < trianglesAround(to);
  std::vector<int> const near = neighbours(isFewer ? from : to);
  int const other = isFewer ? to : from;
  auto const both = std::count_if(near.begin(), near.end(), [&](int vertex) {
    return vertex != other && !shared(vertex, other).empty();
  });
  return static_cast<std::size_t>(both) == between;
}

bool CollapsingMesh::keepsSide(int triangle, int from, int to) const {
  cv::Vec3i moved = corners(triangle);
  for (int& corner : moved.val) {
    corner = corner == from ? to : corner;
  }
  cv::Vec3d const old = crossOf(corners(triangle));
  cv::Vec3d const now = crossOf(moved);
  constexpr double leastCosine = 0.2;
  if (!(old.dot(now) > leastCosine * cv::norm(old) * cv::norm(now)) || !(now.dot(now) > 0.0)) {
    return false;
  }
  // Slivers would stop all that comes after.
  double longest = 0.0;
  for (int i = 0; i < 3; ++i) {
    cv::Vec3d const edge = at(moved[(i + 1) % 3]) - at(moved[i]);
    longest = std::max(longest, edge.dot(edge));
  }
  constexpr double flattest = 0.05;
  return !(cv::norm(now) < flattest * longest && cv::norm(now) < cv::norm(old));
}

bool CollapsingMesh::keepsSides(int from, int to, Change& change) const {
  change.gone = shared(from, to);
  // Those beside the ones that vanish first: they become the flattest, and the others may be thousands.
  for (int const triangle : change.gone) {
    for (int const corner : corners(triangle).val) {
      if (corner == from || corner == to) {
        continue;
      }
      for (int const beside : shared(from, corner)) {
        if (!has(corners(beside), to) && !keepsSide(beside, from, to)) {
          return false;
        }
      }
    }
  }
  for (int const triangle : around_[static_cast<std::size_t>(from)]) {
    if (has(corners(triangle), to)) {
      continue;
    }
    change.kept.push_back(triangle);
    if (!keepsSide(triangle, from, to)) {
      return false;
    }
  }
  return true;
}

bool CollapsingMesh::keepsRim(int from, int to, Change& change) const {
  auto const next = rimNext_.find(from);
  if (next == rimNext_.end()) {
    return true;
  }
  int const before = rimBefore_.at(from);
  int const after = next->second;
  if (before < 0 || after < 0 || before == after || (to != before && to != after)) {
    return false;
  }
  change.before = before;
  change.after = after;
  change.rim.push_back(from);
  for (int const start : {before, from}) {
    auto const found = rimDrawn_.find(start);
    if (found != rimDrawn_.end()) {
      change.rim.insert(change.rim.end(), found->second.begin(), found->second.end());
    }
  }
  return std::all_of(change.rim.begin(), change.rim.end(), [&](int vertex) {
    return squareToSegment(at(vertex), at(before), at(after)) <= squaredError_;
  });
}

bool CollapsingMesh::keepsNear(int from, int to, Change& change) const {
  change.displaced.push_back(from);
  for (std::vector<int> const* triangles : {&change.kept, &change.gone}) {
    for (int const triangle : *triangles) {
      auto const& drawn = drawn_[static_cast<std::size_t>(triangle)];
      change.displaced.insert(change.displaced.end(), drawn.begin(), drawn.end());
    }
  }
  for (int const vertex : change.displaced) {
    double nearest = std::numeric_limits<double>::max();
    int place = -1;
    for (int const triangle : change.kept) {
      cv::Vec3i moved = corners(triangle);
      for (int& corner : moved.val) {
        corner = corner == from ? to : corner;
      }
      double const square = squareToTriangle(at(vertex), at(moved[0]), at(moved[1]), at(moved[2]));
      if (square < nearest) {
        nearest = square;
        place = triangle;
      }
    }
    if (!(nearest <= squaredError_)) {
      return false;
    }
    change.places.push_back(place);
  }
  return true;
}

bool CollapsingMesh::collapse(int from, int to) {
  Change change;
  if (!keepsTopology(from, to) || !keepsSides(from, to, change) || !keepsRim(from, to, change) ||
      !keepsNear(from, to, change)) {
    return false;
  }
  apply(from, to, change);
  return true;
}

void CollapsingMesh::apply(int from, int to, Change const& change) {
  for (std::vector<int> const* triangles : {&change.kept, &change.gone}) {
    for (int const triangle : *triangles) {
      drawn_[static_cast<std::size_t>(triangle)].clear();
    }
  }
  for (std::size_t i = 0; i < change.displaced.size(); ++i) {
    drawn_[static_cast<std::size_t>(change.places[i])].push_back(change.displaced[i]);
  }
  touched_.clear();
  for (std::vector<int> const* triangles : {&change.kept, &change.gone}) {
    for (int const triangle : *triangles) {
      cv::Vec3i const& all = corners(triangle);
      std::copy_if(std::begin(all.val), std::end(all.val), std::back_inserter(touched_),
                   [&](int corner) { return corner != from && corner != to; });
    }
  }
  std::sort(touched_.begin(), touched_.end());
  touched_.erase(std::unique(touched_.begin(), touched_.end()), touched_.end());
  for (int const triangle : change.gone) {
    for (int const corner : corners(triangle).val) {
      auto& around = around_[static_cast<std::size_t>(corner)];
      auto const [first, end] = std::equal_range(around.begin(), around.end(), triangle);
      around.erase(first, end);
    }
    triangles_[static_cast<std::size_t>(triangle)] = cv::Vec3i::all(-1);
    --triangleCount_;
  }
  auto& aroundTo = around_[static_cast<std::size_t>(to)];
  for (int const triangle : change.kept) {
    for (int& corner : triangles_[static_cast<std::size_t>(triangle)].val) {
      corner = corner == from ? to : corner;
    }
    aroundTo.insert(std::lower_bound(aroundTo.begin(), aroundTo.end(), triangle), triangle);
  }
  around_[static_cast<std::size_t>(from)].clear();
  quadrics_[static_cast<std::size_t>(to)] += quadrics_[static_cast<std::size_t>(from)];
  if (change.before >= 0) {
    rimDrawn_.erase(from);
    rimNext_.erase(from);
    rimBefore_.erase(from);
    rimDrawn_[change.before] = change.rim;
    // A vertex where rims meet keeps its marks.
    for (auto [rim, vertex, other] : {std::tuple(&rimNext_, change.before, change.after),
                                      std::tuple(&rimBefore_, change.after, change.before)}) {
      if (rim->at(vertex) >= 0) {
        (*rim)[vertex] = other;
      }
    }
  }
}

SurfaceMesh CollapsingMesh::finish() const {
  SurfaceMesh result;
  std::vector<int> numbers(mesh_.vertices.size(), -1);
  for (cv::Vec3i const& triangle : triangles_) {
    if (triangle[0] < 0) {
      continue;
    }
    cv::Vec3i renumbered;
    for (int i = 0; i < 3; ++i) {
      auto const vertex = static_cast<std::size_t>(triangle[i]);
      if (numbers[vertex] < 0) {
        numbers[vertex] = static_cast<int>(result.vertices.size());
        result.vertices.push_back(mesh_.vertices[vertex]);
        if (!mesh_.normals.empty()) {
          result.normals.push_back(mesh_.normals[vertex]);
        }
        if (!mesh_.colors.empty()) {
          result.colors.push_back(mesh_.colors[vertex]);
        }
        if (!mesh_.cells.empty()) {
          result.cells.push_back(mesh_.cells[vertex]);
        }
      }
      renumbered[i] = numbers[vertex];
    }
    result.triangles.push_back(renumbered);
  }
  return result;
}

} // namespace vorn::mv
