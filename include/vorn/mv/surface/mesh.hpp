// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>
#include <vector>

#include <vorn/core/export.hpp>
#include <vorn/graphic/graphic_object.hpp>
#include <vorn/mv/pointcloud/point_cloud.hpp>

namespace vorn {
class Observer;
}

namespace vorn::mv {

/// How `meshOf` joins points.
struct MeshSettings {
  /// Neighbours farther apart than this are not joined, in the cloud's unit. 0: six times the median distance
  /// of neighbours, for rows and columns each; without a grid four times that to the nearest point,
  /// or that on an even grid as dense, which is more for points spread by chance.
  float maxEdge = 0.0F;
  /// Triangles that the sensor saw at a flatter angle are walls across a step rather than a surface: the
  /// largest angle between a triangle's normal and the direction to the viewpoint, in degrees, above 0 .. 90.
  /// Without a grid it does not count.
  double maxViewAngle = 82.0;
  /// Where the surface was seen from, in the cloud's frame; triangles face it. Without a grid they face as
  /// the cloud's normals do, or those that `PointCloud::calcNormals` gives it.
  cv::Point3f viewpoint{0.0F, 0.0F, 0.0F};
};

/// Triangles over points. Corners are counterclockwise seen from outside.
struct SurfaceMesh {
  std::vector<cv::Vec3f> vertices;  ///< in the cloud's frame and unit
  std::vector<cv::Vec3f> normals;   ///< one a vertex, of length 1 or (0, 0, 0)
  std::vector<cv::Vec3b> colors;    ///< blue, green, red; one a vertex, or none
  std::vector<cv::Vec3i> triangles; ///< indices of `vertices`
  std::vector<unsigned> cells;      ///< the cell of the cloud that each vertex is from, row by row
};

/// What a mesh measures.
struct MeshFigures {
  double area = 0.0; ///< of all triangles, in the square of the vertices' unit
  /// What the mesh encloses, positive when triangles face outwards; NaN when it is not closed.
  double volume = 0.0;
  std::size_t pieces = 0; ///< sets of triangles that share vertices
  /// The vertices around each hole and along the outer end of each piece, in order; empty for a closed mesh.
  /// None passes a vertex twice: holes and ends that touch in one are loops of their own. Only where an edge
  /// has more than two triangles may the last of these be a chain that does not close.
  std::vector<std::vector<int>> boundaries;
  std::size_t faultyEdges = 0; ///< edges with more than two triangles, or two that face opposite sides
  std::size_t degenerateTriangles = 0; ///< triangles without area
};

/// The mesh of an organized cloud: neighbouring present points joined, the shorter diagonal of four taken. Of
/// a cloud without a grid, or a thinned one: its points joined with those around them by the Delaunay rule in
/// the tangent plane of each; of points nearer to each other than a tenth of the usual distance one is taken.
///
/// Points in no triangle are left out. Normals are the cloud's, or the means of the triangles' around a
/// vertex, weighted by their angles. No edge has more than two triangles. Working memory beside the result: 4
/// bytes a point, without a grid some 250.
/// @throws Exception when a setting is outside its range, and when no three
///         neighbours can be joined
/// @throws Cancelled when stopped by the observer
VORN_API SurfaceMesh meshOf(PointCloud const& cloud, MeshSettings const& settings = {},
                            Observer* observer = nullptr);

/// Area, volume, pieces, boundaries and faults of a mesh. Working memory: about 60 bytes a triangle.
/// @throws Exception when a triangle names a vertex that does not exist
VORN_API MeshFigures figuresOf(SurfaceMesh const& mesh);

/// The means of the normals of the triangles around each vertex, weighted by their angles there (G. Thuermer
/// and C. A. Wuethrich, "Computing Vertex Normals from Polygonal Facets", 1998); (0, 0, 0) for a vertex in
/// none.
/// @throws Exception when a triangle names a vertex that does not exist
VORN_API std::vector<cv::Vec3f> vertexNormalsOf(SurfaceMesh const& mesh);

/// The mesh for files: `graphic::STLFile` and the others write it.
VORN_API graphic::GraphicObject graphicObjectOf(SurfaceMesh const& mesh);

} // namespace vorn::mv
