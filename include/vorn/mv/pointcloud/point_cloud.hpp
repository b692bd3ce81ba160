// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>
#include <string>
#include <vector>

#include <vorn/core/export.hpp>
#include <vorn/mv/pointcloud/normals.hpp>
#include <vorn/mv/pointcloud/octree.hpp>
#include <vorn/mv/pointcloud/point_kind.hpp>

namespace vorn {
class Observer;
}
namespace vorn::graphic {
class GraphicObject;
}

namespace vorn::mv {

/// A matrix of 3D points with normals, colours and an undo history, and the operations that clean it.
///
/// Editing never removes a point: it sets the point's state byte.
///
/// | state     | meaning                                                       |
/// |-----------|---------------------------------------------------------------|
/// | 0         | present                                                       |
/// | 1 .. 254  | deleted that many undo generations ago                        |
/// | 255       | removed for good                                              |
///
/// All operations skip points that are not present. An organized cloud keeps the sensor's grid: neighbours in
/// the matrix are neighbours in space. An unorganized one is a matrix too, without that meaning.
///
/// Copies share the pixel data of all matrices, states included, as OpenCV matrices do: what `clean` deletes
/// in one is deleted in the other. `clone` gives a cloud of its own.
///
/// Points with a NaN or infinite coordinate stay in the cloud. They enter neither the bounding box nor the
/// octree, so no search finds them and they have no neighbours themselves, not even themselves: `clean`
/// removes them as soon as one neighbour is asked for, the cluster filters see a cluster of one.
///
/// Working memory: an operation that says nothing of it takes at most a byte a point. The octree, which the
/// first operation builds that needs it, takes what `GridOctree::init` says.
///
/// Calls on a const cloud change nothing and may come from several threads at once. Otherwise one thread at a
/// time may use a cloud: even a search may build the octree.
class VORN_API PointCloud {
public:
  /// An empty cloud.
  PointCloud();

  /// A cloud over the given matrices, whose data it shares; every point is present.
  ///
  /// @param points    CV_32FC3, one point a cell
  /// @param organized true when neighbours in the matrix are neighbours in space
  /// @param normals   as large as `points`, or empty
  /// @param colors    blue, green, red; as large as `points`, or empty
  /// @throws Exception when normals or colours have another size than the points
  PointCloud(cv::Mat_<cv::Vec3f> const& points, bool organized, cv::Mat_<cv::Vec3f> const& normals = {},
             cv::Mat_<cv::Vec3b> const& colors = {});

  /// A copy of the object's vertices in rows of 64; the last (number of vertices mod 64) ones are dropped.
  ///
  /// Normals, colours and fields are taken where the object has them. The cloud is not organized.
  /// @throws Exception when there are not as many of them as vertices
  explicit PointCloud(graphic::GraphicObject const& object);

  /// Shares the other cloud's data; the octree is not copied.
  PointCloud(PointCloud const& other);
  /// Takes over the other cloud's data and octree.
  PointCloud(PointCloud&& other) noexcept;
  /// Shares the other cloud's data; this cloud's octree is dropped.
  PointCloud& operator=(PointCloud const& other);
  /// Takes over the other cloud's data and octree.
  PointCloud& operator=(PointCloud&& other) noexcept;
  ~PointCloud();

  /// All vertices of a file, in its order, as one column of points; normals, colours and fields where the
  /// file has them. The cloud is not organized.
  /// @param path ends in .ply, .pcd, .xyz, .obj or .stl, in capitals or not
  /// @throws Exception that names the path, for any other ending and when the file cannot be read
  [[nodiscard]] static PointCloud load(std::string const& path);

  /// All vertices of an object, in its order, as one column of points; normals, colours and fields where it
  /// has them. The cloud is not organized. It shares nothing with the object.
  /// @throws Exception for more points than a matrix has rows
  [[nodiscard]] static PointCloud fromVertices(graphic::GraphicObject const& object);

  /// Writes the present points, moved by the pending transform, to a file. An existing file is replaced only
  /// once the new one is complete.
  /// @param path ends in .ply, .pcd, .xyz, .obj or .stl, in capitals or not
  /// @throws Exception that names the path, for any other ending, when the file cannot be written, and for
  /// STL,
  ///         which holds triangles only
  void save(std::string const& path) const;

  /// A cloud with the same content that shares nothing with this one. It has no octree yet.
  [[nodiscard]] PointCloud clone() const;

  /// The same, watched.
  /// @param observer may be null
  /// @throws Cancelled when the observer stops it
  [[nodiscard]] PointCloud clone(Observer* observer) const;

  /// True when there are no cells.
  bool isEmpty() const { return points_.empty(); }
  /// Whether neighbours in the matrix are neighbours in space.
  bool isOrganized() const { return organized_; }
  /// False once the cloud was thinned out, see `markUncontinuous`.
  bool isContinous() const { return continuous_; }
  /// Whether there are normals.
  bool hasNormals() const { return !normals_.empty(); }
  /// Whether there are colours.
  bool hasTexture() const { return !texture_.empty(); }

  /// All points, deleted ones included.
  cv::Mat_<cv::Vec3f> const& points() const { return points_; }
  /// The points, to change; `octree` builds anew when it is called next. Call it again after a search before
  /// changing points in place again: a change through an older reference is noticed only when it replaced the
  /// matrix.
  cv::Mat_<cv::Vec3f>& points();
  /// As large as `points()`, or empty.
  cv::Mat_<cv::Vec3f> const& normals() const { return normals_; }
  /// The same, to change.
  cv::Mat_<cv::Vec3f>& normals() { return normals_; }
  /// Blue, green, red.
  cv::Mat_<cv::Vec3b> const& texture() const { return texture_; }
  /// The same, to change.
  cv::Mat_<cv::Vec3b>& texture() { return texture_; }
  /// The state byte of every point.
  cv::Mat_<uchar> const& state() const { return state_; }
  /// The same, to change.
  cv::Mat_<uchar>& state() { return state_; }
  /// What each point is good for, a `PointKind` a byte: as `calcValidMap` and `icpRemoveBoder` left it, as
  /// large as the points then, or empty.
  cv::Mat_<uchar> const& auxMask() const { return auxMask_; }
  /// The same, to change.
  cv::Mat_<uchar>& auxMask() { return auxMask_; }
  /// Numbers that come with the points (their uncertainty, modulation, deviation from a nominal shape ...),
  /// by name, each as large as the points.
  std::map<std::string, cv::Mat_<float>> const& fields() const { return fields_; }
  /// The same, to change.
  std::map<std::string, cv::Mat_<float>>& fields() { return fields_; }
  /// Where the zero of the points lies: a point's place is `offset() + point`. Zero, unless they are from a
  /// file of double coordinates so far from zero that floats would lose their place; saving adds it again.
  /// Everything else, the pending transform too, is relative to it.
  cv::Vec3d const& offset() const { return offset_; }
  /// Sets what `offset` returns; the points stay as they are.
  void setOffset(cv::Vec3d const& offset) { offset_ = offset; }
  /// The colour for points without texture; white.
  cv::Vec3b const& defaultColor() const { return defaultColor_; }

  /// Checks that states, normals, colours and fields fit the points, as every operation does first: their
  /// matrices may be replaced one by one.
  /// @throws Exception that names the one that does not
  void checkSizes() const;

  /// The number of cells, deleted points included.
  std::size_t pointCount() const { return points_.total(); }
  /// The number of points with state 0.
  std::size_t presentCount() const;

  /// The octree over all points, deleted ones included, in row-major numbering; built when there is none or
  /// the points have changed since.
  ///
  /// The reference stays good until the cloud is assigned to, moved from or destroyed. Until the next call it
  /// is the tree of the points as they were.
  GridOctree const& octree();

  /// The same, watched.
  /// @param observer may be null
  /// @throws Cancelled when the observer stops it
  GridOctree const& octree(Observer* observer);

  /// The pending transform.
  cv::Matx44d const& getTransform() const { return transform_; }
  /// Stores the pending transform; the points are moved by `applyTransform` only.
  void setTransform(cv::Matx44d const& transform) { transform_ = transform; }

  /// Minimum corner of the box of the last `calcBoundingBox`.
  cv::Point3f const& boxOrigin() const { return boxOrigin_; }
  /// Edge lengths of the box of the last `calcBoundingBox`; minus infinity when no point was present.
  cv::Vec3f const& boxDims() const { return boxDims_; }
  /// The same as `boxDims`.
  cv::Vec3f const& span() const { return boxDims_; }
  /// Middle of the box.
  cv::Point3f center() const;

  /// Computes the bounding box of the present, finite points.
  ///
  /// Without any, the origin is (FLT_MAX, FLT_MAX, FLT_MAX) and the dimensions are minus infinity. The
  /// constructors, `applyTransform` and the filters that say so call it; the other filters leave the box as
  /// it is.
  void calcBoundingBox();

  /// Moves every present point by the pending transform, p <- R p + t in single precision, and turns its
  /// normal.
  ///
  /// Deleted points keep their coordinates. The box is recomputed, the octree outdated, the transform reset
  /// to identity.
  void applyTransform();

  /// The present points, row by row, with their normals, colours and fields.
  /// @param applyTransform true: points and normals are moved by the pending transform
  graphic::GraphicObject getGraphicObject(bool applyTransform) const;

  /// Replaces the cloud by the content of a file, as the constructor from a `GraphicObject` does. Working
  /// memory: that of the reader, and what the `GraphicObject` takes.
  ///
  /// @param extension "ply", "obj" or "stl"; any other writes "Unsupported extension" to standard output and
  ///                  leaves the cloud unchanged
  /// @throws Exception when the file cannot be read; the cloud is unchanged then
  void loadFromFile(std::string const& path, std::string const& extension);

  /// Writes the present points, moved by the pending transform, to a file. Working memory: that of
  /// `getGraphicObject`'s result, 12 bytes a point, 12 for a normal, 4 for a colour and for each field.
  ///
  /// @param extension "ply", "obj" or "stl"; any other writes "Unsupported extension" to standard output only
  /// @throws Exception when the file cannot be written; an existing file is unchanged then
  void saveToFile(std::string const& path, std::string const& extension) const;

  /// Makes every point present.
  void resetState();
  /// Opens a new undo generation: every state in 1 .. 253 grows by one; 254 stays.
  void saveState();
  /// Goes back one generation: every state in 1 .. 254 shrinks by one, so the latest deletions are undone.
  void undoState();

  /// Marks the cloud as thinned out: grid neighbours need not be neighbours in space any longer.
  void markUncontinuous() { continuous_ = false; }

  /// Gives every present point the normal of the plane through its neighbours, replacing all normals.
  ///
  /// Organized clouds take a window of the grid, which goes round missing cells and stops at steps in depth;
  /// clouds without a grid, and thinned ones (`isContinous` is false), the nearest points. Only present,
  /// finite points count. A point has no normal, (0, 0, 0), when those that it has lie on a line, when there
  /// are fewer than three, and when it stands alone, a step away from all around it. Working memory: 12 bytes
  /// a point for the normals, 8 with figures, about 2 MB a thread; for consistent orientation 130 bytes a
  /// point.
  /// @param observer hears of the bands of points
  /// @throws Exception when a setting is outside its range
  /// @throws Cancelled when stopped by the observer; the cloud is unchanged then
  NormalResult calcNormals(NormalSettings const& settings = {}, Observer* observer = nullptr);

  /// Writes to `auxMask` what each point is, see `PointKind`.
  ///
  /// A fit is weak without a normal, and where a plane through the 5 x 5 cells around a point (without a
  /// grid: the 20 nearest points) fits four times worse than in the middle of the cloud. Clouds without a
  /// grid have no borders and steps. The mask does not follow later changes of points and states. Working
  /// memory: 27 bytes a point.
  void calcValidMap();

  /// Marks in `auxMask` the points within `width` cells of an absent one, of the grid's end or of a step as
  /// too near for registration, as `getICPSample` heeds: what one view sees there, another sees otherwise.
  /// Computes the valid map first when there is none. Organized clouds only. Working memory: 5 bytes a point.
  /// @throws Exception when `width` is below 0
  void icpRemoveBoder(int width);

  /// Points to match with another view: present, with a normal if the cloud has normals, inner ones if
  /// `auxMask` says which these are, spread evenly, in ascending order.
  /// @param count the largest number of them
  /// @throws Exception when `count` is below 1
  std::vector<unsigned> getICPSample(int count);

  /// Sets the pending transform so that this cloud lies on another, both moved by their pending transforms;
  /// what it was before is where the search begins. Point-to-plane, robust to partial overlap; see
  /// `registerClouds` for more about the result.
  /// @param samples the points to use, as from `getICPSample`; empty: some 5000. Those that decided in the
  /// end.
  /// @return RMS distance of those to the other's surface
  /// @throws Exception when fewer than 50 samples have a place on the other; nothing has changed then
  double icpMatch(PointCloud& target, std::vector<unsigned>& samples);

  /// Removes present points with z < zMin or z > zMax for good, z with the `offset` and without the pending
  /// transform. A NaN z stays.
  void filterByZRange(float zMin, float zMax);

  /// Removes for good the present points, first and last rows and columns excepted, that are farther in space
  /// than `maxStep` from the point above, below, left or right, whatever the state of that one.
  ///
  /// The distance is three-dimensional and in double precision. One to a NaN point is no step; one between a
  /// finite and an infinite point is. Organized clouds only: on others nothing happens, nor is anything said.
  void filterByDz(float maxStep);

  /// Removes all cells nearer than `width` cells to the border for good, whatever their state. Organized
  /// clouds only: on others nothing happens, nor is anything said.
  void filterBorder(int width);

  /// Peels one layer off every hole and outer boundary: deletes (state 1) the present inner points that have
  /// a neighbour in the grid that was not present before; the lower left neighbour is not looked at.
  ///
  /// Opens no undo generation: the points join the latest one. Organized clouds only: on others nothing
  /// happens, nor is anything said.
  void filterOutlier();

  /// Deletes the points that have fewer than `minNeighbours` present points nearer than `radius`, themselves
  /// included, in a new undo generation, and recomputes the box. Working memory beside the octree: 4 bytes a
  /// point, up to 18 when nearly all are deleted.
  ///
  /// Points are judged in row-major order, and one that was deleted no longer counts as a neighbour of later
  /// ones. No point is nearer than a radius that is 0, negative or NaN, not even the point itself: `clean`
  /// deletes every point then, if `minNeighbours` is 1 or more.
  /// @return the number of points deleted
  int clean(float radius, int minNeighbours);

  /// The same, watched.
  /// @param observer may be null
  /// @throws Cancelled when the observer stops it; the states are as they were
  int clean(float radius, int minNeighbours, Observer* observer);

  /// Deletes clusters of fewer than `minClusterSize` points in a new undo generation and recomputes the box.
  ///
  /// Grid neighbours (left, right, above, below) belong to one cluster when they are nearer than
  /// `maxDistance` in space. Organized clouds only. Working memory: 1 byte a point, up to 35 where no two are
  /// joined.
  /// @return the number of points deleted
  int filterSmallClusterOrganized(float maxDistance, int minClusterSize);

  /// Deletes clusters of fewer than `minClusterSize` points in a new undo generation and recomputes the box.
  ///
  /// Points that `GridOctree::radiusNeighborsSearch` finds within `maxDistance` of each other belong to one
  /// cluster. Working memory beside the octree: 11 bytes a point, up to 17 when most are in one cluster.
  /// @return the number of points deleted
  int filterSmallCluster(float maxDistance, int minClusterSize);

  /// The same, watched.
  /// @param observer may be null
  /// @throws Cancelled when the observer stops it; the states are as they were
  int filterSmallCluster(float maxDistance, int minClusterSize, Observer* observer);

  /// Colours white the present points with fewer than `minNeighbours` points within `radius`, deleted ones
  /// and themselves included. Without texture the points are counted only.
  void markEdgePoints(float radius, int minNeighbours);

  /// Mean and standard deviation (of the population) of the distances from the present, finite points of this
  /// cloud to the nearest present points of another, both with their offsets and pending transforms; (0, 0)
  /// when either has none. Working memory beside the other's octree: 5 bytes a point.
  /// @throws Exception when the other's pending transform has no inverse
  cv::Vec2d calcDistStat(PointCloud& other);

private:
  /// Counts the changes of coordinates that clouds share, so that a tree over old ones is noticed.
  struct Revision;

  void markChanged();

  cv::Mat_<cv::Vec3f> points_;
  cv::Mat_<cv::Vec3f> normals_;
  cv::Mat_<cv::Vec3b> texture_;
  cv::Mat_<uchar> state_;
  bool organized_ = false;
  cv::Point3f boxOrigin_;
  cv::Vec3f boxDims_;
  cv::Vec3b defaultColor_{255, 255, 255};
  std::unique_ptr<GridOctree> octree_;
  cv::Matx44d transform_ = cv::Matx44d::eye();
  bool continuous_ = true;
  cv::Mat_<uchar> auxMask_;
  std::map<std::string, cv::Mat_<float>> fields_;
  std::shared_ptr<Revision> revision_;
  std::size_t octreeRevision_ = 0;
  cv::Mat_<cv::Vec3f> octreePoints_; ///< the matrix that the octree is of
  cv::Vec3d offset_;
};

} // namespace vorn::mv
