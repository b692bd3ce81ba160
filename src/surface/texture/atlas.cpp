// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "surface/texture/atlas.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <numeric>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <tuple>
#include <utility>

#include "core/error.hpp"
#include "surface/texture/atlas_painting.hpp"

namespace vorn::mv {

namespace {

constexpr int noView = -1;
constexpr int noTriangle = -1;
constexpr int greySide = 4;

/// The triangle beyond each side of each triangle.
std::vector<std::array<int, 3>> neighboursOf(SurfaceMesh const& mesh) {
  struct Side {
    int low;
    int high;
    int triangle;
    int place;
  };
  std::vector<Side> sides;
  for (std::size_t i = 0; i < mesh.triangles.size(); ++i) {
    cv::Vec3i const& t = mesh.triangles[i];
    for (int k = 0; k < 3; ++k) {
      int const a = t[k];
      int const b = t[(k + 1) % 3];
      sides.push_back({std::min(a, b), std::max(a, b), static_cast<int>(i), k});
    }
  }
  std::sort(sides.begin(), sides.end(), [](Side const& a, Side const& b) {
    return std::tie(a.low, a.high, a.triangle) < std::tie(b.low, b.high, b.triangle);
  });
  std::vector<std::array<int, 3>> neighbours(mesh.triangles.size(), {noTriangle, noTriangle, noTriangle});
  for (std::size_t i = 0; i + 1 < sides.size(); ++i) {
    Side const& a = sides[i];
    Side const& b = sides[i + 1];
    if (a.low == b.low && a.high == b.high) {
      neighbours[static_cast<std::size_t>(a.triangle)][static_cast<std::size_t>(a.place)] = b.triangle;
      neighbours[static_cast<std::size_t>(b.triangle)][static_cast<std::size_t>(b.place)] = a.triangle;
    }
  }
  return neighbours;
}

/// The patch of each triangle; -1 for those that no view sees.
std::vector<int> patchesOf(SurfaceMesh const& mesh, std::vector<int> const& viewOfTriangle,
                           std::vector<MeshView> const& seen, int margin, cv::Size const& size,
                           std::vector<AtlasPatch>& patches) {
  std::vector<std::array<int, 3>> const neighbours = neighboursOf(mesh);
  std::vector<int> patchOf(mesh.triangles.size(), noView);
  std::vector<int> open;
  for (std::size_t first = 0; first < patchOf.size(); ++first) {
    int const view = viewOfTriangle[first];
    if (view == noView || patchOf[first] != noView) {
      continue;
    }
    auto const number = static_cast<int>(patches.size());
    std::vector<cv::Point2f> corners;
    open.assign(1, static_cast<int>(first));
    patchOf[first] = number;
    while (!open.empty()) {
      auto const triangle = static_cast<std::size_t>(open.back());
      open.pop_back();
      for (int const corner : mesh.triangles[triangle].val) {
        corners.push_back(seen[static_cast<std::size_t>(view)].pixels[static_cast<std::size_t>(corner)]);
      }
      for (int const next : neighbours[triangle]) {
        if (next != noTriangle && patchOf[static_cast<std::size_t>(next)] == noView &&
            viewOfTriangle[static_cast<std::size_t>(next)] == view) {
          patchOf[static_cast<std::size_t>(next)] = number;
          open.push_back(next);
        }
      }
    }
    cv::Rect rect = cv::boundingRect(corners);
    rect = cv::Rect(rect.x - margin, rect.y - margin, rect.width + 2 * margin, rect.height + 2 * margin);
    patches.push_back({view, rect & cv::Rect({0, 0}, size), {}});
  }
  return patchOf;
}

/// Sets patches side by side on shelves, the high ones first. The corner at the origin stays free for grey.
cv::Size place(std::vector<AtlasPatch>& patches) {
  double area = greySide * greySide;
  int width = greySide;
  for (AtlasPatch const& patch : patches) {
    area += static_cast<double>(patch.inImage.area());
    width = std::max(width, patch.inImage.width);
  }
  constexpr double room = 1.1;
  width = std::max(width, static_cast<int>(std::sqrt(area * room)));
  std::vector<std::size_t> order(patches.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
    return patches[a].inImage.height > patches[b].inImage.height;
  });
  cv::Point next(greySide, 0);
  int shelf = greySide;
  for (std::size_t const i : order) {
    cv::Rect const& rect = patches[i].inImage;
    if (next.x + rect.width > width) {
      next = {0, next.y + shelf};
      shelf = 0;
    }
    patches[i].inAtlas = next;
    next.x += rect.width;
    shelf = std::max(shelf, rect.height);
  }
  cv::Size const size(width, next.y + shelf);
  constexpr int mostPixels = 32767;
  if (size.width > mostPixels || size.height > mostPixels) {
    throw error("The atlas would have " + std::to_string(size.width) + " x " + std::to_string(size.height) +
                    " pixels, more than 32767 a side",
                "textureFrom");
  }
  return size;
}

} // namespace

std::vector<int> viewsOfTriangles(SurfaceMesh const& mesh, std::vector<MeshView> const& seen) {
  std::vector<std::array<int, 3>> const neighbours = neighboursOf(mesh);
  std::vector<int> views(mesh.triangles.size(), noView);
  auto const areaIn = [&](int view, std::size_t triangle) {
    return view == noView ? 0.0F : seen[static_cast<std::size_t>(view)].areas[triangle];
  };
  std::vector<float> largest(views.size());
  for (std::size_t i = 0; i < views.size(); ++i) {
    for (std::size_t view = 0; view < seen.size(); ++view) {
      if (seen[view].areas[i] > largest[i]) {
        largest[i] = seen[view].areas[i];
        views[i] = static_cast<int>(view);
      }
    }
  }
  constexpr int rounds = 4;
  constexpr float nearly = 0.7F;
  for (int round = 0; round < rounds; ++round) {
    std::vector<int> const before = views;
    for (std::size_t i = 0; i < views.size(); ++i) {
      std::array<int, 3> const& near = neighbours[i];
      for (std::size_t k = 0; k < 3; ++k) {
        int const a = near[k] == noTriangle ? noView : before[static_cast<std::size_t>(near[k])];
        int const other = near[(k + 1) % 3];
        int const b = other == noTriangle ? noView : before[static_cast<std::size_t>(other)];
        if (a == b && a != before[i] && areaIn(a, i) > nearly * largest[i]) {
          views[i] = a;
        }
      }
    }
  }
  return views;
}

void packAtlas(SurfaceMesh const& mesh, std::vector<TextureView> const& views,
               std::vector<MeshView> const& seen, TextureSettings const& settings, MeshTexture& texture) {
  std::vector<AtlasPatch> patches;
  // Each view's image may have a size of its own: rects are cut to theirs below.
  cv::Size largest;
  for (TextureView const& view : views) {
    largest = {std::max(largest.width, view.image.cols), std::max(largest.height, view.image.rows)};
  }
  std::vector<int> const patchOf =
      patchesOf(mesh, texture.viewOfTriangle, seen, settings.margin, largest, patches);
  for (AtlasPatch& patch : patches) {
    patch.inImage &= cv::Rect({0, 0}, views[static_cast<std::size_t>(patch.view)].image.size());
  }
  cv::Size const size = place(patches);
  paintPatches(patches, views, size, texture);
  if (settings.blend == TextureBlend::Blended && views.size() > 1) {
    blendPatches(mesh, patches, patchOf, views, seen, texture);
  }
  auto const placeOf = [&](cv::Point2f const& pixel) {
    // Pixel centres are at whole numbers here, and half a pixel from the edge in files.
    return cv::Vec2f((pixel.x + 0.5F) / static_cast<float>(size.width),
                     1.0F - (pixel.y + 0.5F) / static_cast<float>(size.height));
  };
  constexpr float middle = 0.5F * (greySide - 1);
  texture.places.push_back(placeOf({middle, middle}));
  std::map<std::pair<int, int>, int> numbers;
  for (std::size_t i = 0; i < mesh.triangles.size(); ++i) {
    if (patchOf[i] == noView) {
      texture.placeTriangles.emplace_back(0, 0, 0);
      continue;
    }
    AtlasPatch const& patch = patches[static_cast<std::size_t>(patchOf[i])];
    cv::Vec3i corners;
    for (int k = 0; k < 3; ++k) {
      int const vertex = mesh.triangles[i][k];
      auto const [found, isNew] =
          numbers.emplace(std::pair(patchOf[i], vertex), static_cast<int>(texture.places.size()));
      if (isNew) {
        cv::Point2f const pixel =
            seen[static_cast<std::size_t>(patch.view)].pixels[static_cast<std::size_t>(vertex)];
        texture.places.push_back(placeOf(pixel + cv::Point2f(patch.inAtlas - patch.inImage.tl())));
      }
      corners[k] = found->second;
    }
    texture.placeTriangles.push_back(corners);
  }
}

} // namespace vorn::mv
