// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vorn/core/export.hpp>
#include <vorn/core/typed_property.hpp>
#include <vorn/mv/geometry/plane3f.hpp>
#include <vorn/mv/pointcloud/cloud_filter.hpp>

namespace vorn::mv::pc {

/// Removes points at depth steps for good: `PointCloud::filterByDz`. Organized clouds only.
class VORN_API DzFilter : public FilterBase<DzFilter> {
public:
  static constexpr char const* className = "vorn::mv::pc::DzFilter";
  DzFilter();
  void operator()(PointCloud& cloud) override;

  /// The largest distance in space to a grid neighbour, in mm.
  VORN_PROPERTY(double, dz, Dz, 0.5, 0.05, 10.0);

protected:
  using FilterBase::FilterBase;
};

/// Removes points outside a range of depth for good: `PointCloud::filterByZRange`.
class VORN_API ZRangeFilter : public FilterBase<ZRangeFilter> {
public:
  static constexpr char const* className = "vorn::mv::pc::ZRangeFilter";
  ZRangeFilter();
  void operator()(PointCloud& cloud) override;

  /// The near end of the range, in mm; points at it stay.
  VORN_PROPERTY(double, zmin, Zmin, 300.0, 0.0, 500.0);

  /// The far end of the range, in mm; points at it stay.
  VORN_PROPERTY(double, zmax, Zmax, 700.0, 300.0, 3000.0);

protected:
  using FilterBase::FilterBase;
};

/// Deletes points with few neighbours: `PointCloud::clean`. Writes how many to standard output.
class VORN_API OutlierFilter : public FilterBase<OutlierFilter> {
public:
  static constexpr char const* className = "vorn::mv::pc::OutlierFilter";
  OutlierFilter();
  void operator()(PointCloud& cloud) override;
  void run(PointCloud& cloud, Observer* observer) override;

  /// How near a neighbour is, in mm.
  VORN_PROPERTY(double, radius, Radius, 1.0, 0.1, 20.0);

  /// How many points a neighbourhood needs, the point itself included.
  VORN_PROPERTY(int, minNeighbourCount, MinNeighbourCount, 8, 1, 1000);

protected:
  using FilterBase::FilterBase;
};

/// Deletes small clusters: `PointCloud::filterSmallCluster`.
class VORN_API SmallClusterFilter : public FilterBase<SmallClusterFilter> {
public:
  static constexpr char const* className = "vorn::mv::pc::SmallClusterFilter";
  SmallClusterFilter();
  void operator()(PointCloud& cloud) override;
  void run(PointCloud& cloud, Observer* observer) override;

  /// How near the points of a cluster are to each other, in mm.
  VORN_PROPERTY(double, radius, Radius, 1.0, 0.1, 20.0);

  /// How many points a cluster needs.
  VORN_PROPERTY(int, minClusterSize, MinClusterSize, 500, 500, 100000);

protected:
  using FilterBase::FilterBase;
};

/// Deletes the points on a plane, such as the table that a part lies on, in a new undo generation.
///
/// A NaN point stays. In JSON the plane is the member "Plane", with its point "p" and normal "n".
class VORN_API PlaneRemovalFilter : public FilterBase<PlaneRemovalFilter> {
public:
  static constexpr char const* className = "vorn::mv::pc::PlaneRemovalFilter";
  PlaneRemovalFilter();

  /// The plane; without normal until one is set.
  Plane3f const& getPlane() const;
  /// Takes the plane whose points later calls delete.
  void setPlane(Plane3f const& plane);

  /// Sets the plane and deletes its points.
  void operator()(PointCloud& cloud, Plane3f const& plane);
  /// @throws Exception when no plane was set
  void operator()(PointCloud& cloud) override;

  void read(nlohmann::json const& json) override;
  void write(nlohmann::json& json) const override;

  /// The largest distance of a deleted point from the plane, in mm.
  VORN_PROPERTY(double, tolerance, Tolerance, 1.0, 0.01, 10.0);

protected:
  struct Private;
  using FilterBase::FilterBase;
};

/// Thins a cloud to points that are at least a radius apart, in a new undo generation, and marks it as no
/// longer continuous.
///
/// Points are taken in row-major order: one that is nearer than the radius to a point taken before is
/// deleted. So no two points that stay are nearer than the radius to each other, and each deleted one is no
/// farther than the radius from one that stays. Points that are no numbers stay. Progress goes to standard
/// output. Working memory beside the octree: 6 bytes a point.
class VORN_API UniformSampler : public FilterBase<UniformSampler> {
public:
  static constexpr char const* className = "vorn::mv::pc::UniformSampler";
  UniformSampler();
  void operator()(PointCloud& cloud) override;
  void run(PointCloud& cloud, Observer* observer) override;

  /// The least distance of points that stay, in mm.
  VORN_PROPERTY(double, radius, Radius, 0.5, 0.05, 10.0);

protected:
  using FilterBase::FilterBase;
};

} // namespace vorn::mv::pc
