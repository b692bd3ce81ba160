// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>

#include "surface/fusion/skins.hpp"

namespace vorn::mv {

namespace {

/// Discs of this diameter, in spacings, laid at random until no more fit, lie denser than a square grid (by a
/// tenth at 0.8); there are not points everywhere for that many.
constexpr float discOverSpacing = 0.7F;
/// Points of surfaces that bend away from each other are one place below this share of the disc.
constexpr float coreOverDisc = 0.4F;

/// Takes points one after the other unless one that was taken stands for their place.
class Thinner {
public:
  Thinner(ViewSurfaces const& all, SkinPoints const& points, PointCells const& cells,
          SkinLimits const& limits)
      : all_(all), points_(points), cells_(cells), limits_(limits), disc_(discOverSpacing * limits.spacing),
        kept_(points.places.size()), keptOf_(cells.cellCount(), 0) {
    rows_.reserve(cells.cellCount());
    for (std::uint32_t cell = 0; cell < cells.cellCount(); ++cell) {
      rows_.push_back(cells.around(cell));
    }
  }

  std::vector<std::uint32_t> run() {
    std::vector<std::uint32_t> next(cells_.cellCount());
    for (std::uint32_t cell = 0; cell < cells_.cellCount(); ++cell) {
      next[cell] = cells_.pointsOf(cell).first;
    }
    std::vector<std::uint32_t> chosen;
    for (std::size_t view = 0; view < all_.views.size(); ++view) {
      for (std::uint32_t cell = 0; cell < cells_.cellCount(); ++cell) {
        std::uint32_t const end = cells_.pointsOf(cell).end;
        for (; next[cell] < end && points_.views[cells_.order()[next[cell]]] == view; ++next[cell]) {
          std::uint32_t const point = cells_.order()[next[cell]];
          if (!isStoodFor(cell, point)) {
            kept_[cells_.pointsOf(cell).first + keptOf_[cell]++] = point;
            chosen.push_back(point);
          }
        }
      }
    }
    std::sort(chosen.begin(), chosen.end());
    return chosen;
  }

private:
  cv::Vec3f const& normalOf(std::uint32_t point) const {
    cv::Mat_<cv::Vec3f> const& normals = all_.views[points_.views[point]].normals;
    return normals.ptr<cv::Vec3f>()[points_.cells[point]];
  }

  bool isStoodFor(std::uint32_t cell, std::uint32_t point) const {
    for (PointCells::Range const& row : rows_[cell]) {
      for (std::uint32_t near = row.first; near < row.end; ++near) {
        std::uint32_t const first = cells_.pointsOf(near).first;
        for (std::uint32_t i = first; i < first + keptOf_[near]; ++i) {
          if (isOnePlace(point, kept_[i])) {
            return true;
          }
        }
      }
    }
    return false;
  }

  bool isOnePlace(std::uint32_t point, std::uint32_t kept) const {
    cv::Vec3f const apart = points_.places[point] - points_.places[kept];
    float const square = apart.dot(apart);
    if (square >= disc_ * disc_ + limits_.reach * limits_.reach) {
      return false;
    }
    cv::Vec3f const& normal = normalOf(kept);
    float const cosine = normal.dot(normalOf(point));
    if (square < coreOverDisc * coreOverDisc * disc_ * disc_ && cosine > 0.0F) {
      return true;
    }
    float const along = normal.dot(apart);
    return std::abs(along) < limits_.reach && square - along * along < disc_ * disc_ &&
           cosine > limits_.leastCosine;
  }

  ViewSurfaces const& all_;
  SkinPoints const& points_;
  PointCells const& cells_;
  SkinLimits limits_;
  float disc_;
  std::vector<std::uint32_t> kept_;   ///< by cells: as many places as a cell has points
  std::vector<std::uint32_t> keptOf_; ///< how many of these are taken
  std::vector<std::array<PointCells::Range, 9>> rows_;
};

} // namespace

std::vector<std::uint32_t> thinnedSkins(ViewSurfaces const& all, SkinPoints const& points,
                                        PointCells const& cells, SkinLimits const& limits) {
  return Thinner(all, points, cells, limits).run();
}

} // namespace vorn::mv
