// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>
#include <vector>

#include <vorn/core/export.hpp>
#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/surface/mesh.hpp>

namespace vorn {
class Observer;
}

namespace vorn::mv {

/// An image of a part by a calibrated camera.
struct TextureView {
  cv::Mat image;      ///< 8 bits, one channel or blue, green, red; as large as the camera's resolution
  CameraModel camera; ///< calibrated, of the image's resolution
  cv::Matx44d viewFromMesh = cv::Matx44d::eye(); ///< rigid: from the mesh's frame to the camera's
  /// Views of one number, from 0 on, are by one camera at one exposure: they share a gain. -1: a gain of its
  /// own.
  int brightnessGroup = -1;
};

/// Which images the atlas shows.
enum class TextureBlend {
  Best,   ///< every triangle one image, the one that shows it largest
  Blended ///< the mean of all images that show it, with the fourth power of how large, without seams
};

/// Whether images are made equally bright.
enum class TextureBrightness {
  AsTaken, ///< images keep their levels
  Matched  ///< a gain for each channel of each group of views, from what several of them see
};

/// How `textureFrom` takes colours.
struct TextureSettings {
  /// A view says nothing of what it sees at a flatter angle between normal and line of sight, in degrees,
  /// above 0, below 90.
  double maxViewAngle = 75.0;
  /// What lies deeper than this behind the first surface in a pixel is hidden, in the mesh's unit. 0: three
  /// times the usual edge of a triangle.
  double depthTolerance = 0.0;
  /// Pixels around each piece of the atlas, 0 .. 64.
  int margin = 4;
  /// Which images the atlas shows.
  TextureBlend blend = TextureBlend::Blended;
  /// Whether images are made equally bright.
  TextureBrightness brightness = TextureBrightness::Matched;
};

/// Colours of a mesh.
struct MeshTexture {
  std::vector<cv::Vec3b> colors; ///< of the vertices, blue, green, red; grey (128) where none is seen
  std::vector<int> views;        ///< how many views see each vertex
  /// A piece for each patch of triangles that the same view sees best, seen as in its image; empty for a mesh
  /// without triangles.
  cv::Mat_<cv::Vec3b> atlas;
  /// Places in the atlas as OBJ files have them: 0 .. 1 from the left and from the bottom edge.
  std::vector<cv::Vec2f> places;
  std::vector<cv::Vec3i> placeTriangles; ///< three indices of `places` a triangle, in its order
  std::vector<int> viewOfTriangle;       ///< which view sees it best; -1 where none does
  std::size_t unseenVertices = 0;        ///< in no view
  std::size_t unseenTriangles = 0;       ///< in no view as a whole: they show grey
  /// What the levels of each view were multiplied by: blue, green, red. Their geometric mean over groups that
  /// see common places is 1.
  std::vector<cv::Vec3d> gains;
  /// Sets of groups that see common places. From 2 on the brightness of some is not tied to that of others.
  int brightnessSets = 1;
};

/// Takes the colours of a mesh from images. What a view sees is decided by a depth map of the triangles in
/// its pixels, of a mesh without triangles by discs about its vertices; a vertex gets the mean of all views
/// that see it, weighted by how squarely and in how many pixels; the atlas the views that show a triangle
/// largest, with its neighbours if that costs little. Gains are the least squares of the median ratios of
/// levels between groups of views, over places that are neither dark nor overexposed in both. Working memory:
/// 20 bytes a pixel of one image, 40 bytes a triangle and view.
/// @param mesh with normals
/// @throws Exception for no view, an image of another size or type, a camera without calibration, a transform
///         that is no rigid motion, a setting out of its range, a mesh without vertices or normals, an atlas
///         of more than 32767 pixels a side, and when no view sees anything
/// @throws Cancelled when stopped by the observer
VORN_API MeshTexture textureFrom(SurfaceMesh const& mesh, std::vector<TextureView> const& views,
                                 TextureSettings const& settings = {}, Observer* observer = nullptr);

} // namespace vorn::mv
