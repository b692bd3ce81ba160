// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "registration/source_samples.hpp"

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

#include "core/error.hpp"
#include "pointcloud/point_access.hpp"

namespace vorn::mv {

namespace {

/// Patches are as large as noise may be common to their points, but enough of them to tell how they scatter.
constexpr double wantedPatches = 400.0;
constexpr int smallestPatch = 8; ///< cells each way
constexpr int largestPatch = 32;

int patchSideOf(double points, int side) {
  return static_cast<int>(std::clamp(std::sqrt(points / wantedPatches),
                                     1.0 * std::max(1, smallestPatch / side), 1.0 * largestPatch));
}

class Collector {
public:
  explicit Collector(PointCloud const& cloud) : cloud_(cloud) {}

  void startPatch() {
    if (samples_.patchStarts.empty() || samples_.patchStarts.back() != samples_.size()) {
      samples_.patchStarts.push_back(samples_.size());
    }
  }

  bool add(int row, int column) {
    cv::Vec3f const& point = cloud_.points()(row, column);
    cv::Vec3f const& normal = cloud_.normals()(row, column);
    if (cloud_.state()(row, column) != 0 || !isFinite(point.val) || !(normal.dot(normal) > 0.5F)) {
      return false;
    }
    samples_.points.push_back(point);
    samples_.normals.push_back(normal);
    samples_.indices.push_back(static_cast<unsigned>(row * cloud_.points().cols + column));
    return true;
  }

  SourceSamples finish() {
    startPatch();
    return std::move(samples_);
  }

private:
  PointCloud const& cloud_;
  SourceSamples samples_;
};

void sampleGrid(PointCloud const& cloud, int stride, int side, Collector& collector) {
  cv::Size const size = cloud.points().size();
  // Whole steps, so that no sample is lost at the border of two patches.
  int const patch = (patchSideOf(static_cast<double>(size.area()), side) + stride - 1) / stride * stride;
  for (int patchRow = 0; patchRow < size.height; patchRow += patch) {
    for (int patchColumn = 0; patchColumn < size.width; patchColumn += patch) {
      collector.startPatch();
      for (int row = patchRow + stride / 2; row < std::min(patchRow + patch, size.height); row += stride) {
        for (int column = patchColumn + stride / 2; column < std::min(patchColumn + patch, size.width);
             column += stride) {
          collector.add(row, column);
        }
      }
    }
  }
}

} // namespace

SourceSamples sampleEvenly(PointCloud& cloud, int stride, int side) {
  Collector collector(cloud);
  if (cloud.isOrganized() && cloud.isContinous()) {
    sampleGrid(cloud, stride, side, collector);
    return collector.finish();
  }
  std::vector<unsigned> const& chain = cloud.octree().chain();
  auto const step = static_cast<std::size_t>(stride) * static_cast<std::size_t>(stride);
  int const edge = patchSideOf(static_cast<double>(chain.size()), side);
  std::size_t const patch = (static_cast<std::size_t>(edge * edge) + step - 1) / step * step;
  int const columns = std::as_const(cloud).points().cols;
  for (std::size_t i = 0; i < chain.size(); i += step) {
    if (i % patch == 0) {
      collector.startPatch();
    }
    collector.add(static_cast<int>(chain[i]) / columns, static_cast<int>(chain[i]) % columns);
  }
  return collector.finish();
}

SourceSamples samplesAt(PointCloud const& cloud, std::vector<unsigned> const& indices) {
  Collector collector(cloud);
  auto const patch =
      static_cast<std::size_t>(std::max(1.0, static_cast<double>(indices.size()) / wantedPatches));
  for (std::size_t i = 0; i < indices.size(); ++i) {
    if (indices[i] >= cloud.pointCount()) {
      throw error("Sample " + std::to_string(indices[i]) + " of a cloud of " +
                      std::to_string(cloud.pointCount()) + " points",
                  "registration");
    }
    if (i % patch == 0) {
      collector.startPatch();
    }
    int const columns = cloud.points().cols;
    collector.add(static_cast<int>(indices[i]) / columns, static_cast<int>(indices[i]) % columns);
  }
  return collector.finish();
}

} // namespace vorn::mv
