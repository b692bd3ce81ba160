// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <opencv2/core.hpp>

#include "pointcloud/point_access.hpp"
#include "surface/fusion/skins.hpp"

namespace vorn::mv {

namespace {

constexpr std::size_t mostViews = 256;
constexpr float none = std::numeric_limits<float>::max();
/// How far beyond the reach a skin is still noticed.
constexpr float widely = 4.0F;

/// A line through a place along its normal.
struct NormalLine {
  cv::Vec3f place;
  cv::Vec3f normal;
  cv::Vec3f across;
  cv::Vec3f along;

  NormalLine(cv::Vec3f const& point, cv::Vec3f const& direction) : place(point), normal(direction) {
    int const axis = std::abs(normal[0]) < 0.6F ? 0 : 1;
    cv::Vec3f unit;
    unit[axis] = 1.0F;
    across = unit - normal * normal[axis];
    across *= 1.0F / std::sqrt(across.dot(across));
    along = normal.cross(across);
  }

  /// x and y beside the line, z along it.
  cv::Vec3f beside(cv::Vec3f const& point) const {
    cv::Vec3f const apart = point - place;
    return {across.dot(apart), along.dot(apart), normal.dot(apart)};
  }
};

/// Where a triangle of points beside a line meets it; whether it does.
bool meets(cv::Vec3f const& a, cv::Vec3f const& b, cv::Vec3f const& c, float& height) {
  auto const cross = [](cv::Vec3f const& p, cv::Vec3f const& q) { return p[0] * q[1] - p[1] * q[0]; };
  float const wa = cross(b, c);
  float const wb = cross(c, a);
  float const wc = cross(a, b);
  float const sum = wa + wb + wc;
  bool const isInside = (wa >= 0.0F && wb >= 0.0F && wc >= 0.0F) || (wa <= 0.0F && wb <= 0.0F && wc <= 0.0F);
  if (!isInside || sum == 0.0F) {
    return false;
  }
  height = (wa * a[2] + wb * b[2] + wc * c[2]) / sum;
  return true;
}

/// Where a line meets a view's surface.
struct Meeting {
  float height = 0.0F;
  /// How much the surface scatters there about a smooth one, as the standard deviation of a point.
  float scatter = 0.0F;
};

/// The scatter of a grid's points about a smooth surface around four of them: third differences along the two
/// rows and columns, which are 0 on parabolas. Negative where the grid has too few points to say.
float scatterAround(ViewSurface const& view, NormalLine const& line, int top, int left) {
  float squares = 0.0F;
  int count = 0;
  auto const add = [&](int row, int column, int down, int right) {
    if (row < 0 || column < 0 || row + 3 * down >= view.points.rows ||
        column + 3 * right >= view.points.cols) {
      return;
    }
    constexpr float factors[] = {1.0F, -3.0F, 3.0F, -1.0F};
    float difference = 0.0F;
    for (int i = 0; i < 4; ++i) {
      difference +=
          factors[i] * line.normal.dot(view.points(row + i * down, column + i * right) - line.place);
    }
    if (!std::isnan(difference)) {
      squares += difference * difference;
      ++count;
    }
  };
  for (int i = 0; i < 2; ++i) {
    add(top + i, left - 1, 0, 1);
    add(top - 1, left + i, 1, 0);
  }
  constexpr float factorSquares = 20.0F;
  return count > 0 ? std::sqrt(squares / (factorSquares * static_cast<float>(count))) : -1.0F;
}

/// The surface of a view with a grid around one of its cells, where a line meets it.
bool gridMeets(ViewSurface const& view, NormalLine const& line, int row, int column, Meeting& meeting) {
  float const longest = view.steps.alongRow + view.steps.alongColumn;
  auto const joined = [&](cv::Vec3f const& a, cv::Vec3f const& b) {
    cv::Vec3f const apart = a - b;
    return apart.dot(apart) <= longest * longest;
  };
  for (int quad = 0; quad < 4; ++quad) {
    int const top = row - quad / 2;
    int const left = column - quad % 2;
    if (top < 0 || left < 0 || top + 1 >= view.points.rows || left + 1 >= view.points.cols) {
      continue;
    }
    cv::Vec3f const corners[] = {line.beside(view.points(top, left)), line.beside(view.points(top, left + 1)),
                                 line.beside(view.points(top + 1, left + 1)),
                                 line.beside(view.points(top + 1, left))};
    // Absent corners are NaN and neither joined nor met.
    for (int skipped = 0; skipped < 4; ++skipped) {
      cv::Vec3f const& a = corners[(skipped + 1) % 4];
      cv::Vec3f const& b = corners[(skipped + 2) % 4];
      cv::Vec3f const& c = corners[(skipped + 3) % 4];
      if (meets(a, b, c, meeting.height) && joined(a, b) && joined(b, c) && joined(c, a)) {
        meeting.scatter = scatterAround(view, line, top, left);
        return true;
      }
    }
  }
  return false;
}

/// Sums for a plane z = a + b x + c y through points beside a line, nearer ones weighing more.
struct PlaneSums {
  double sums[10] = {};
  int count = 0;

  void add(cv::Vec3f const& p, float spacing) {
    auto const x = static_cast<double>(p[0] / spacing);
    auto const y = static_cast<double>(p[1] / spacing);
    auto const z = static_cast<double>(p[2]);
    double const weight = std::exp(-(x * x + y * y));
    double const terms[] = {1.0, x, y, x * x, x * y, y * y, z, x * z, y * z, z * z};
    for (int i = 0; i < 10; ++i) {
      sums[i] += weight * terms[i];
    }
    ++count;
  }

  bool meets(Meeting& meeting) const {
    constexpr int fewest = 4;
    // Of points on one side of the line alone it is 0.56: beyond the last of them the surface may end or
    // bend.
    constexpr double farthestMean = 0.6;
    if (sums[1] * sums[1] + sums[2] * sums[2] > farthestMean * farthestMean * sums[0] * sums[0]) {
      return false;
    }
    cv::Matx33d const normal(sums[0], sums[1], sums[2], sums[1], sums[3], sums[4], sums[2], sums[4], sums[5]);
    double const scale = sums[0] * sums[0] * sums[0];
    constexpr double leastDeterminant = 1e-4;
    if (count < fewest || !(cv::determinant(normal) > leastDeterminant * scale)) {
      return false;
    }
    cv::Vec3d const products(sums[6], sums[7], sums[8]);
    cv::Vec3d const solution = normal.inv() * products;
    double const rest = (sums[9] - solution.dot(products)) / sums[0];
    meeting = {static_cast<float>(solution[0]), static_cast<float>(std::sqrt(std::max(rest, 0.0)))};
    return true;
  }
};

/// What one view says of a place.
struct Reading {
  std::uint8_t view;
  float height; ///< above the place, along its normal
  float sigma;
  std::uint32_t point; ///< the nearest one, of the list
};

/// Reads all views along the normals of places.
class Merger {
public:
  Merger(ViewSurfaces const& all, SkinPoints const& points, PointCells const& cells, SkinLimits const& limits)
      : all_(all), points_(points), cells_(cells), limits_(limits) {
    nearest_.fill(none);
    for (ViewSurface const& view : all.views) {
      hasTexture_ = hasTexture_ && !view.texture.empty();
    }
  }

  MergedPoint merge(std::uint32_t point, std::uint32_t cell) {
    read(point, cell);
    if (isStray()) {
      return {};
    }
    float const middle = medianHeight();
    double weights = 0.0;
    double heights = 0.0;
    cv::Vec3d normal;
    cv::Vec3d color;
    MergedPoint merged;
    for (Reading const& reading : readings_) {
      constexpr float gate = 5.0F;
      bool const isFar = std::abs(reading.height) > limits_.reach ||
                         (heights_.size() > 2 && std::abs(reading.height - middle) > gate * reading.sigma);
      if (isFar) {
        continue;
      }
      double const weight = 1.0 / (static_cast<double>(reading.sigma) * static_cast<double>(reading.sigma));
      weights += weight;
      heights += weight * static_cast<double>(reading.height);
      normal += cv::Vec3d(normalOf(reading.point)) * weight;
      if (hasTexture_) {
        color += cv::Vec3d(colorOf(reading.point)) * weight;
      }
      ++merged.views;
    }
    cv::Vec3f const& own = normalOf(point);
    if (merged.views == 0) {
      // Half of the views contradict the other half.
      merged = {points_.places[point], own, {}, sigmaOf(point), 1};
      height_ = 0.0F;
      return merged;
    }
    merged.place = points_.places[point] + own * static_cast<float>(heights / weights);
    merged.normal = cv::Vec3f(normal * (1.0 / std::sqrt(normal.dot(normal))));
    merged.sigma = static_cast<float>(1.0 / std::sqrt(weights));
    if (hasTexture_) {
      merged.color = cv::Vec3b(color * (1.0 / weights));
    }
    height_ = static_cast<float>(heights / weights);
    return merged;
  }

  /// Adds what the last merge found to the views' sums.
  void addTo(std::vector<ViewSums>& sums) const {
    auto const isNear = [&](Reading const& reading) { return std::abs(reading.height) <= limits_.reach; };
    bool const isShared = std::count_if(readings_.begin(), readings_.end(), isNear) > 1;
    for (Reading const& reading : readings_) {
      ViewSums& view = sums[reading.view];
      if (!isNear(reading)) {
        ++view.apart;
        continue;
      }
      ++view.seen;
      if (isShared) {
        double const offset = static_cast<double>(reading.height - height_);
        ++view.shared;
        view.offset += offset;
        view.squares += offset * offset;
      } else if (readings_.size() > 1) {
        ++view.apart;
      }
    }
  }

private:
  cv::Vec3f const& normalOf(std::uint32_t point) const {
    return all_.views[points_.views[point]].normals.ptr<cv::Vec3f>()[points_.cells[point]];
  }

  cv::Vec3b const& colorOf(std::uint32_t point) const {
    cv::Mat_<cv::Vec3b> const& texture = all_.views[points_.views[point]].texture;
    int const cell = static_cast<int>(points_.cells[point]);
    return texture(cell / texture.cols, cell % texture.cols);
  }

  /// The readings of all views that have a surface near the place, its own first.
  void read(std::uint32_t point, std::uint32_t cell) {
    NormalLine const line(points_.places[point], normalOf(point));
    std::uint8_t const own = points_.views[point];
    readings_.clear();
    readings_.push_back({own, 0.0F, sigmaOf(point), point});
    touched_.clear();
    auto const rows = cells_.around(cell);
    for (PointCells::Range const& row : rows) {
      PointCells::Range const range = cells_.pointsOf(row);
      for (std::uint32_t i = range.first; i < range.end; ++i) {
        consider(cells_.order()[i], own, line);
      }
    }
    std::sort(touched_.begin(), touched_.end());
    for (std::uint8_t const view : touched_) {
      Meeting meeting;
      std::uint32_t const near = nearestPoint_[view];
      nearest_[view] = none;
      ViewSurface const& surface = all_.views[view];
      int const at = static_cast<int>(points_.cells[near]);
      bool const isMet = surface.isGrid ? gridMeets(surface, line, at / surface.points.cols,
                                                    at % surface.points.cols, meeting)
                                        : listMeets(rows, view, line, meeting);
      if (isMet && std::abs(meeting.height) <= widely * limits_.reach) {
        readings_.push_back({view, meeting.height, sigmaAt(near, meeting.scatter), near});
      }
    }
  }

  void consider(std::uint32_t candidate, std::uint8_t own, NormalLine const& line) {
    std::uint8_t const view = points_.views[candidate];
    if (view == own) {
      return;
    }
    cv::Vec3f const apart = points_.places[candidate] - line.place;
    float const height = line.normal.dot(apart);
    float const aside = apart.dot(apart) - height * height;
    if (aside < nearest_[view] && isAlike(candidate, line)) {
      if (nearest_[view] == none) {
        touched_.push_back(view);
      }
      nearest_[view] = aside;
      nearestPoint_[view] = candidate;
    }
  }

  bool isAlike(std::uint32_t candidate, NormalLine const& line) const {
    return line.normal.dot(normalOf(candidate)) > limits_.leastCosine;
  }

  bool listMeets(std::array<PointCells::Range, 9> const& rows, std::uint8_t view, NormalLine const& line,
                 Meeting& meeting) const {
    PlaneSums plane;
    for (PointCells::Range const& row : rows) {
      PointCells::Range const range = cells_.pointsOf(row);
      for (std::uint32_t i = range.first; i < range.end; ++i) {
        std::uint32_t const candidate = cells_.order()[i];
        if (points_.views[candidate] == view && isAlike(candidate, line)) {
          plane.add(line.beside(points_.places[candidate]), all_.views[view].spacing);
        }
      }
    }
    return plane.meets(meeting);
  }

  float sigmaOf(std::uint32_t point) const {
    return all_.views[points_.views[point]].sigmas.ptr<float>()[points_.cells[point]];
  }

  /// The standard deviation of what is read between points: over an edge of the part, where the surface
  /// scatters by more than its noise, it is not where its points join.
  float sigmaAt(std::uint32_t point, float scatter) const {
    float const sigma = sigmaOf(point);
    constexpr float unknown = 3.0F; // sigmas, at the grid's ends
    constexpr float usual = 2.0F;
    constexpr float errorOverScatter = 2.0F;
    float const beyond = std::max(scatter * scatter - usual * usual * sigma * sigma, 0.0F);
    return scatter < 0.0F ? unknown * sigma
                          : std::sqrt(sigma * sigma + errorOverScatter * errorOverScatter * beyond);
  }

  /// Whether no other view sees the place, and at least two see one surface elsewhere.
  bool isStray() {
    heights_.clear();
    for (std::size_t i = 1; i < readings_.size(); ++i) {
      if (std::abs(readings_[i].height) <= limits_.reach) {
        return false;
      }
      heights_.push_back(readings_[i].height);
    }
    std::sort(heights_.begin(), heights_.end());
    return std::adjacent_find(heights_.begin(), heights_.end(), [&](float lower, float upper) {
             return upper - lower <= limits_.reach;
           }) != heights_.end();
  }

  float medianHeight() {
    heights_.clear();
    for (Reading const& reading : readings_) {
      if (std::abs(reading.height) <= limits_.reach) {
        heights_.push_back(reading.height);
      }
    }
    std::sort(heights_.begin(), heights_.end());
    return 0.5F * (heights_[(heights_.size() - 1) / 2] + heights_[heights_.size() / 2]);
  }

  ViewSurfaces const& all_;
  SkinPoints const& points_;
  PointCells const& cells_;
  SkinLimits limits_;
  bool hasTexture_ = true;
  std::array<float, mostViews> nearest_{};
  std::array<std::uint32_t, mostViews> nearestPoint_{};
  std::vector<std::uint8_t> touched_;
  std::vector<Reading> readings_;
  std::vector<float> heights_;
  float height_ = 0.0F;
};

} // namespace

std::vector<MergedPoint> mergedSkins(ViewSurfaces const& all, SkinPoints const& points,
                                     PointCells const& cells, std::vector<std::uint32_t> const& chosen,
                                     SkinLimits const& limits, std::vector<ViewSums>& sums,
                                     Progress const& progress) {
  std::vector<std::uint32_t> cellOf(points.places.size());
  for (std::uint32_t cell = 0; cell < cells.cellCount(); ++cell) {
    for (std::uint32_t i = cells.pointsOf(cell).first; i < cells.pointsOf(cell).end; ++i) {
      cellOf[cells.order()[i]] = cell;
    }
  }
  std::vector<MergedPoint> merged(chosen.size());
  constexpr std::size_t blockSize = 4096;
  auto const blocks = static_cast<int>((chosen.size() + blockSize - 1) / blockSize);
  std::vector<std::vector<ViewSums>> blockSums(static_cast<std::size_t>(blocks));
  constexpr int blocksAtOnce = 64;
  parallelRows(blocks, blocksAtOnce, progress, "merging", [&](int begin, int end) {
    Merger merger(all, points, cells, limits);
    for (int block = begin; block < end; ++block) {
      auto& own = blockSums[static_cast<std::size_t>(block)];
      own.resize(all.views.size());
      std::size_t const first = static_cast<std::size_t>(block) * blockSize;
      for (std::size_t i = first; i < std::min(first + blockSize, chosen.size()); ++i) {
        merged[i] = merger.merge(chosen[i], cellOf[chosen[i]]);
        merger.addTo(own);
      }
    }
  });
  sums.assign(all.views.size(), {});
  for (auto const& own : blockSums) {
    for (std::size_t view = 0; view < own.size(); ++view) {
      sums[view].seen += own[view].seen;
      sums[view].shared += own[view].shared;
      sums[view].apart += own[view].apart;
      sums[view].offset += own[view].offset;
      sums[view].squares += own[view].squares;
    }
  }
  return merged;
}

} // namespace vorn::mv
