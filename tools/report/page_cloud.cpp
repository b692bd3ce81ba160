// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/report/page_cloud.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <utility>

#include <vorn/core/exception.hpp>

#include "core/median.hpp"
#include "tools/report/deviation_scale.hpp"
#include "tools/report/page_points.hpp"

namespace vorn::tools {

namespace {

void check(PageCloud const& cloud) {
  auto const fits = [&](std::size_t size, std::string const& what) {
    if (size != cloud.points.size()) {
      throw Exception("The page's cloud has " + std::to_string(cloud.points.size()) + " points and " +
                          std::to_string(size) + " " + what,
                      nullptr, 0, "page");
    }
  };
  if (!cloud.normals.empty()) {
    fits(cloud.normals.size(), "normals");
  }
  if (!cloud.colors.empty()) {
    fits(cloud.colors.size(), "colours");
  }
  for (PageField const& field : cloud.fields) {
    fits(field.values.size(), "values of " + field.name);
  }
  for (cv::Vec3i const& triangle : cloud.triangles) {
    for (int i = 0; i < 3; ++i) {
      if (triangle[i] < 0 || static_cast<std::size_t>(triangle[i]) >= cloud.points.size()) {
        throw Exception("A triangle of the page's cloud names point " + std::to_string(triangle[i]) + " of " +
                            std::to_string(cloud.points.size()),
                        nullptr, 0, "page");
      }
    }
  }
}

/// Bytes with the places of what they hold.
class Packer {
public:
  explicit Packer(std::vector<Index> const& order) : order_(order) {}

  void add16(unsigned value) {
    bytes_ += static_cast<char>(value & 0xFFU);
    bytes_ += static_cast<char>(value >> 8U);
  }
  void add8(unsigned value) { bytes_ += static_cast<char>(value); }
  std::size_t size() const { return bytes_.size(); }
  std::vector<Index> const& order() const { return order_; }
  /// So that what follows may be read 16 bits at a time.
  void align() {
    if (bytes_.size() % 2 == 1) {
      add8(0);
    }
  }
  /// A number of any size: seven bits a byte, the lowest first, the highest bit says that more follow.
  void addAny(std::uint64_t value) {
    for (; value >= 0x80U; value >>= 7U) {
      add8(static_cast<unsigned>(value & 0x7FU) | 0x80U);
    }
    add8(static_cast<unsigned>(value));
  }
  /// The same with a sign: 0, -1, 1, -2 become 0, 1, 2, 3.
  void addSigned(std::int64_t value) {
    addAny(value < 0 ? 2 * static_cast<std::uint64_t>(-(value + 1)) + 1
                     : 2 * static_cast<std::uint64_t>(value));
  }
  std::string take() { return std::move(bytes_); }

private:
  std::vector<Index> const& order_;
  std::string bytes_;
};

constexpr double steps = 65535.0;

struct Block {
  std::size_t first;
  std::size_t count;
  cv::Vec3d origin;
  cv::Vec3d step;

  /// The farthest that rounding moves a point.
  double error() const { return 0.5 * cv::norm(step); }
};

Block blockOf(std::vector<cv::Vec3f> const& points, std::vector<Index> const& order, std::size_t first,
              std::size_t count) {
  Box box;
  for (std::size_t n = first; n < first + count; ++n) {
    box.take(points[order[n]]);
  }
  return {first, count, box.low, (box.high - box.low) * (1.0 / steps)};
}

/// Near points share a block; the fewer, the wider they lie apart, so that rounding stays far below the
/// spacing.
std::vector<Block> blocksOf(std::vector<cv::Vec3f> const& points, std::vector<Index> const& order,
                            double spacing) {
  constexpr std::size_t most = 4096;
  constexpr double worst = 0.05; // of the spacing
  std::vector<Block> blocks;
  for (std::size_t first = 0; first < order.size();) {
    std::size_t count = std::min(most, order.size() - first);
    Block block = blockOf(points, order, first, count);
    while (count > 1 && block.error() > worst * spacing) {
      count = (count + 1) / 2;
      block = blockOf(points, order, first, count);
    }
    blocks.push_back(block);
    first += count;
  }
  return blocks;
}

void packPoints(PageCloud const& cloud, double spacing, Packer& packer, nlohmann::json& description) {
  double error = 0.0;
  Box box;
  description["blocks"] = nlohmann::json::array();
  std::vector<Block> const blocks = blocksOf(cloud.points, packer.order(), spacing);
  for (Block const& b : blocks) {
    error = std::max(error, b.error());
    description["blocks"].push_back(
        {b.count, b.origin[0], b.origin[1], b.origin[2], b.step[0], b.step[1], b.step[2]});
  }
  for (int i = 0; i < 3; ++i) {
    for (Block const& b : blocks) {
      for (std::size_t n = b.first; n < b.first + b.count; ++n) {
        double const offset = static_cast<double>(cloud.points[packer.order()[n]][i]) - b.origin[i];
        packer.add16(b.step[i] > 0.0 ? static_cast<unsigned>(std::lround(offset / b.step[i])) : 0U);
      }
    }
  }
  for (Index const n : packer.order()) {
    box.take(cloud.points[n]);
  }
  description["error"] = error;
  description["box"] = {{box.low[0], box.low[1], box.low[2]}, {box.high[0], box.high[1], box.high[2]}};
}

/// Where nearly all values lie, so that a few stray ones do not flatten the colours; deviations as far to
/// both sides.
std::pair<double, double> usualRange(std::vector<float> values, bool isSigned) {
  if (values.empty()) {
    return {0.0, 1.0};
  }
  if (isSigned) {
    double const reach = deviationReach(values);
    return {-reach, reach};
  }
  constexpr double stray = 0.002;
  auto const last = static_cast<double>(values.size() - 1);
  auto const low = static_cast<double>(rankedAmong(values, static_cast<std::size_t>(stray * last)));
  auto const high = static_cast<double>(rankedAmong(values, static_cast<std::size_t>((1.0 - stray) * last)));
  // A range of no width has no colours.
  double const least = std::max(1e-6, 1e-6 * std::abs(high));
  return {low, std::max(high, low + least)};
}

void packField(PageField const& field, Packer& packer, nlohmann::json& description) {
  std::vector<float> present;
  for (Index const n : packer.order()) {
    if (std::isfinite(field.values[n])) {
      present.push_back(field.values[n]);
    }
  }
  auto const ends = std::minmax_element(present.begin(), present.end());
  double const low = present.empty() ? 0.0 : static_cast<double>(*ends.first);
  double const high = present.empty() ? 0.0 : static_cast<double>(*ends.second);
  double const step = (high - low) / (steps - 1.0);
  auto const usual = field.range ? *field.range : usualRange(std::move(present), field.isSigned);
  packer.align();
  description["fields"].push_back({{"name", field.name},
                                   {"unit", field.unit},
                                   {"isSigned", field.isSigned},
                                   {"offset", packer.size()},
                                   {"low", low},
                                   {"step", step},
                                   {"range", {usual.first, usual.second}}});
  for (Index const n : packer.order()) {
    auto const value = static_cast<double>(field.values[n]);
    // 0 stands for none.
    packer.add16(!std::isfinite(value) ? 0U
                 : step > 0.0          ? 1U + static_cast<unsigned>(std::lround((value - low) / step))
                                       : 1U);
  }
}

void packColors(PageCloud const& cloud, Packer& packer, nlohmann::json& description) {
  bool const isGray = std::all_of(packer.order().begin(), packer.order().end(), [&](Index n) {
    cv::Vec3b const& c = cloud.colors[n];
    return c[0] == c[1] && c[1] == c[2];
  });
  packer.align();
  description["texture"] = {{"kind", isGray ? "gray" : "rgb565"}, {"offset", packer.size()}};
  for (Index const n : packer.order()) {
    cv::Vec3b const& c = cloud.colors[n];
    if (isGray) {
      packer.add8(c[0]);
    } else {
      packer.add16((c[2] >> 3U) << 11U | (c[1] >> 2U) << 5U | c[0] >> 3U);
    }
  }
}

/// A direction as two bytes, by the octahedron's sides laid flat; 0, 0 stands for none.
void packNormals(PageCloud const& cloud, Packer& packer, nlohmann::json& description) {
  description["normals"] = packer.size();
  for (Index const n : packer.order()) {
    cv::Vec3f const& normal = cloud.normals[n];
    float const sum = std::abs(normal[0]) + std::abs(normal[1]) + std::abs(normal[2]);
    if (!std::isfinite(sum) || sum <= 0.0F) {
      packer.add8(0);
      packer.add8(0);
      continue;
    }
    float u = normal[0] / sum;
    float v = normal[1] / sum;
    if (normal[2] < 0.0F) {
      float const foldedU = std::copysign(1.0F - std::abs(v), u);
      v = std::copysign(1.0F - std::abs(u), v);
      u = foldedU;
    }
    constexpr float half = 127.0F;
    packer.add8(1U + static_cast<unsigned>(std::lround((u + 1.0F) * half)));
    packer.add8(1U + static_cast<unsigned>(std::lround((v + 1.0F) * half)));
  }
}

void packTriangles(PageCloud const& cloud, std::vector<Index> const& slots, Packer& packer,
                   nlohmann::json& description) {
  std::vector<std::array<Index, 3>> triangles;
  for (cv::Vec3i const& t : cloud.triangles) {
    std::array<Index, 3> corners{};
    bool isWhole = true;
    for (int i = 0; i < 3; ++i) {
      auto const point = static_cast<std::size_t>(t[i]);
      isWhole = isWhole && isFinite(cloud.points[point]);
      corners[static_cast<std::size_t>(i)] = slots[point];
    }
    if (isWhole && corners[0] != corners[1] && corners[1] != corners[2] && corners[0] != corners[2]) {
      std::rotate(corners.begin(), std::min_element(corners.begin(), corners.end()), corners.end());
      triangles.push_back(corners);
    }
  }
  std::sort(triangles.begin(), triangles.end());
  triangles.erase(std::unique(triangles.begin(), triangles.end()), triangles.end());
  description["triangles"] = {{"count", triangles.size()}, {"offset", packer.size()}};
  Index before = 0;
  for (auto const& corners : triangles) {
    packer.addAny(corners[0] - before);
    packer.addSigned(static_cast<std::int64_t>(corners[1]) - corners[0]);
    packer.addSigned(static_cast<std::int64_t>(corners[2]) - corners[0]);
    before = corners[0];
  }
}

} // namespace

PackedCloud packed(PageCloud const& cloud, std::size_t most) {
  check(cloud);
  std::vector<Place> const places = inOrder(cloud.points);
  bool const isMesh = !cloud.triangles.empty();
  Selection const selection =
      isMesh ? onePerCell(places, most, cloud.points.size()) : everySoMany(places, most);
  double const spacing = spacingOf(places, cloud.points);
  Packer packer(selection.points);
  PackedCloud result;
  nlohmann::json& description = result.description;
  description = {{"name", cloud.name},
                 {"isShown", cloud.isShown},
                 {"coloredBy", cloud.coloredBy},
                 {"isSurface", cloud.isSurface},
                 {"total", places.size()},
                 {"dropped", cloud.points.size() - places.size()},
                 {"spacing", spacing},
                 {"count", selection.points.size()},
                 {"triangleTotal", cloud.triangles.size()},
                 {"fields", nlohmann::json::array()}};
  if (!selection.points.empty()) {
    std::vector<float> depths;
    for (Index const n : selection.points) {
      depths.push_back(cloud.points[n][2]);
    }
    auto const usual = usualRange(std::move(depths), false);
    description["range"] = {usual.first, usual.second};
    packPoints(cloud, spacing, packer, description);
    for (PageField const& field : cloud.fields) {
      packField(field, packer, description);
    }
    if (!cloud.colors.empty()) {
      packColors(cloud, packer, description);
    }
    if (!cloud.normals.empty()) {
      packNormals(cloud, packer, description);
    }
    if (isMesh) {
      packTriangles(cloud, selection.slots, packer, description);
    }
  }
  result.bytes = packer.take();
  return result;
}

} // namespace vorn::tools
