// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "surface/texture/atlas_painting.hpp"

#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <utility>

#include "core/parallel.hpp"
#include "surface/texture/image_color.hpp"

namespace vorn::mv {

namespace {

constexpr int greyLevel = 128;

/// How large a view shows a triangle, as a share of the view that shows it largest; 0 where that is none.
std::vector<float> sharesOf(MeshView const& view, std::vector<float> const& largest) {
  std::vector<float> shares(largest.size(), 0.0F);
  for (std::size_t i = 0; i < shares.size(); ++i) {
    shares[i] = largest[i] > 0.0F ? view.areas[i] / largest[i] : 0.0F;
  }
  return shares;
}

/// The weights of each view at the vertices.
std::vector<std::vector<float>> vertexWeights(SurfaceMesh const& mesh, std::vector<MeshView> const& seen) {
  std::vector<float> largest(mesh.triangles.size(), 0.0F);
  for (MeshView const& view : seen) {
    for (std::size_t i = 0; i < largest.size(); ++i) {
      largest[i] = std::max(largest[i], view.areas[i]);
    }
  }
  std::vector<std::vector<float>> weights;
  for (MeshView const& view : seen) {
    std::vector<float> const shares = sharesOf(view, largest);
    std::vector<float> least(mesh.vertices.size(), 1.0F);
    for (std::size_t i = 0; i < shares.size(); ++i) {
      if (largest[i] > 0.0F) {
        for (int const corner : mesh.triangles[i].val) {
          float& worst = least[static_cast<std::size_t>(corner)];
          worst = std::min(worst, shares[i]);
        }
      }
    }
    for (float& weight : least) {
      weight *= weight;
      weight *= weight;
    }
    weights.push_back(std::move(least));
  }
  // Of sum 1 at each vertex: so a view that fades out does so evenly, however small the others' weights are.
  for (std::size_t i = 0; i < mesh.vertices.size(); ++i) {
    float sum = 0.0F;
    for (std::vector<float> const& ofView : weights) {
      sum += ofView[i];
    }
    for (std::vector<float>& ofView : weights) {
      ofView[i] = sum > 0.0F ? ofView[i] / sum : 0.0F;
    }
  }
  return weights;
}

/// The shares of a triangle's corners at a place of an image.
class CornerShares {
public:
  explicit CornerShares(cv::Point2f const (&at)[3]) : at_{at[0], at[1], at[2]} {
    double const whole = cross(at_[0], at_[1], at_[2]);
    scale_ = whole != 0.0 ? 1.0 / whole : 0.0;
    for (int i = 0; i < 3; ++i) {
      cv::Point2d const side = at_[(i + 1) % 3] - at_[(i + 2) % 3];
      perPixel_[i] = cv::norm(side) * std::abs(scale_);
    }
  }

  bool isFlat() const { return scale_ == 0.0; }

  cv::Vec3d at(cv::Point2d const& place) const {
    return cv::Vec3d(cross(place, at_[1], at_[2]), cross(place, at_[2], at_[0]),
                     cross(place, at_[0], at_[1])) *
           scale_;
  }

  /// Whether a place with these shares lies in the triangle or at most so many pixels beside one of its
  /// sides.
  bool holds(cv::Vec3d const& shares, double pixels) const {
    return shares[0] >= -pixels * perPixel_[0] && shares[1] >= -pixels * perPixel_[1] &&
           shares[2] >= -pixels * perPixel_[2];
  }

private:
  static double cross(cv::Point2d const& a, cv::Point2d const& b, cv::Point2d const& c) {
    return (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
  }

  cv::Point2d at_[3];
  double scale_ = 0.0;
  cv::Vec3d perPixel_;
};

cv::Vec3d normalized(cv::Vec3d const& shares) {
  return shares * (1.0 / (shares[0] + shares[1] + shares[2]));
}

class Blender {
public:
  Blender(SurfaceMesh const& mesh, std::vector<TextureView> const& views, std::vector<MeshView> const& seen,
          MeshTexture& texture)
      : mesh_(mesh), views_(views), seen_(seen), weights_(vertexWeights(mesh, seen)), texture_(texture) {}

  /// Paints what of a patch lies in a triangle, or so many pixels beside it.
  void paint(AtlasPatch const& patch, std::size_t triangle, double beside) const {
    MeshView const& best = seen_[static_cast<std::size_t>(patch.view)];
    cv::Vec3i const& corners = mesh_.triangles[triangle];
    if (isShownByOne(triangle)) {
      return;
    }
    cv::Point2f at[3];
    cv::Vec3d depths;
    for (int i = 0; i < 3; ++i) {
      at[i] = best.pixels[static_cast<std::size_t>(corners[i])];
      depths[i] = static_cast<double>(best.depths[static_cast<std::size_t>(corners[i])]);
    }
    CornerShares const shares(at);
    if (shares.isFlat()) {
      return;
    }
    auto const [left, right] = std::minmax({at[0].x, at[1].x, at[2].x});
    auto const [top, bottom] = std::minmax({at[0].y, at[1].y, at[2].y});
    cv::Point const first(cvFloor(static_cast<double>(left) - beside),
                          cvFloor(static_cast<double>(top) - beside));
    cv::Point const last(cvCeil(static_cast<double>(right) + beside),
                         cvCeil(static_cast<double>(bottom) + beside));
    cv::Rect const pixels = cv::Rect(first, last + cv::Point(1, 1)) & patch.inImage;
    for (int y = pixels.y; y < pixels.y + pixels.height; ++y) {
      for (int x = pixels.x; x < pixels.x + pixels.width; ++x) {
        cv::Vec3d const inImage = shares.at({1.0 * x, 1.0 * y});
        if (shares.holds(inImage, beside)) {
          // From shares in the image to those in space: what is near looks larger.
          cv::Vec3d const inSpace =
              normalized({inImage[0] / depths[0], inImage[1] / depths[1], inImage[2] / depths[2]});
          texture_.atlas(cv::Point(x, y) - patch.inImage.tl() + patch.inAtlas) =
              colorOf(static_cast<std::size_t>(patch.view), triangle, inSpace);
        }
      }
    }
  }

private:
  bool isShownByOne(std::size_t triangle) const {
    return std::count_if(seen_.begin(), seen_.end(),
                         [&](MeshView const& view) { return view.areas[triangle] > 0.0F; }) < 2;
  }

  cv::Vec3b colorOf(std::size_t best, std::size_t triangle, cv::Vec3d const& inSpace) const {
    // So that something is shown where all views fade out.
    constexpr double least = 1e-6;
    cv::Vec3d sum;
    double weights = 0.0;
    for (std::size_t view = 0; view < seen_.size(); ++view) {
      if (!(seen_[view].areas[triangle] > 0.0F)) {
        continue;
      }
      double weight = view == best ? least : 0.0;
      cv::Vec3d inImage;
      cv::Vec3i const& corners = mesh_.triangles[triangle];
      for (int i = 0; i < 3; ++i) {
        auto const corner = static_cast<std::size_t>(corners[i]);
        weight += std::max(0.0, inSpace[i]) * static_cast<double>(weights_[view][corner]);
        inImage[i] = inSpace[i] * static_cast<double>(seen_[view].depths[corner]);
      }
      if (weight > 0.0) {
        inImage = normalized(inImage);
        cv::Point2d place;
        for (int i = 0; i < 3; ++i) {
          place += inImage[i] * cv::Point2d(seen_[view].pixels[static_cast<std::size_t>(corners[i])]);
        }
        sum += colorAt(views_[view].image, place).mul(texture_.gains[view]) * weight;
        weights += weight;
      }
    }
    return sum * (1.0 / weights);
  }

  SurfaceMesh const& mesh_;
  std::vector<TextureView> const& views_;
  std::vector<MeshView> const& seen_;
  std::vector<std::vector<float>> weights_;
  MeshTexture& texture_;
};

} // namespace

void paintPatches(std::vector<AtlasPatch> const& patches, std::vector<TextureView> const& views,
                  cv::Size const& size, MeshTexture& texture) {
  texture.atlas = cv::Mat_<cv::Vec3b>(size, cv::Vec3b::all(greyLevel));
  for (AtlasPatch const& patch : patches) {
    auto const view = static_cast<std::size_t>(patch.view);
    cv::Mat const source = views[view].image(patch.inImage);
    cv::Mat target = texture.atlas(cv::Rect(patch.inAtlas, patch.inImage.size()));
    if (source.channels() == 1) {
      cv::cvtColor(source, target, cv::COLOR_GRAY2BGR);
    } else {
      source.copyTo(target);
    }
    cv::Vec3d const& gain = texture.gains[view];
    if (gain != cv::Vec3d::all(1.0)) {
      cv::multiply(target, cv::Scalar(gain[0], gain[1], gain[2]), target);
    }
  }
}

void blendPatches(SurfaceMesh const& mesh, std::vector<AtlasPatch> const& patches,
                  std::vector<int> const& patchOf, std::vector<TextureView> const& views,
                  std::vector<MeshView> const& seen, MeshTexture& texture) {
  std::vector<std::vector<std::size_t>> triangles(patches.size());
  for (std::size_t i = 0; i < patchOf.size(); ++i) {
    if (patchOf[i] >= 0) {
      triangles[static_cast<std::size_t>(patchOf[i])].push_back(i);
    }
  }
  Blender const blender(mesh, views, seen, texture);
  // Viewers mix the pixels about a place: those just beside a patch go on as it does.
  constexpr double besideAPatch = 1.5;
  parallelRows(static_cast<int>(patches.size()), [&](int first, int end) {
    for (auto patch = static_cast<std::size_t>(first); patch < static_cast<std::size_t>(end); ++patch) {
      for (double const beside : {besideAPatch, 0.0}) {
        for (std::size_t const triangle : triangles[patch]) {
          blender.paint(patches[patch], triangle, beside);
        }
      }
    }
  });
}

} // namespace vorn::mv
