// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/pointcloud/cloud_filters.hpp>

#include <string>
#include <utility>

#include <nlohmann/json.hpp>

#include <vorn/core/system.hpp>

#include "core/error.hpp"
#include "core/json_member.hpp"
#include "core/parallel.hpp"
#include "core/progress.hpp"
#include "pointcloud/uniform_sampling.hpp"

namespace vorn::mv::pc {

namespace {

constexpr char const* planeMember = "Plane";

float floatOf(IPropertySet const& filter, char const* property) {
  return filter.getProperty(property).getValue().toFloat();
}

} // namespace

IFilter::~IFilter() = default;

void IFilter::run(PointCloud& cloud, Observer* observer) {
  Progress(observer).at(getClassName(), 0.0);
  (*this)(cloud);
}

Registry<IFilter> const& filters() {
  static Registry<IFilter> const registry =
      Registry<IFilter>::of<DzFilter, ZRangeFilter, OutlierFilter, SmallClusterFilter, PlaneRemovalFilter,
                            UniformSampler>();
  return registry;
}

std::unique_ptr<IFilter> createFilter(std::string const& name) {
  return filters().create(name);
}

DzFilter::DzFilter() : FilterBase({dzRow()}) {}

void DzFilter::operator()(PointCloud& cloud) {
  cloud.filterByDz(floatOf(*this, "Dz"));
}

ZRangeFilter::ZRangeFilter() : FilterBase({zminRow(), zmaxRow()}) {}

void ZRangeFilter::operator()(PointCloud& cloud) {
  cloud.filterByZRange(floatOf(*this, "Zmin"), floatOf(*this, "Zmax"));
}

OutlierFilter::OutlierFilter() : FilterBase({radiusRow(), minNeighbourCountRow()}) {}

void OutlierFilter::operator()(PointCloud& cloud) {
  run(cloud, nullptr);
}

void OutlierFilter::run(PointCloud& cloud, Observer* observer) {
  int const removed = cloud.clean(floatOf(*this, "Radius"), minNeighbourCount(), observer);
  System::message("Removed " + std::to_string(removed) + " points.\n");
}

SmallClusterFilter::SmallClusterFilter() : FilterBase({radiusRow(), minClusterSizeRow()}) {}

void SmallClusterFilter::operator()(PointCloud& cloud) {
  run(cloud, nullptr);
}

void SmallClusterFilter::run(PointCloud& cloud, Observer* observer) {
  cloud.filterSmallCluster(floatOf(*this, "Radius"), minClusterSize(), observer);
}

struct PlaneRemovalFilter::Private : Record<PlaneRemovalFilter::Private, PropertySetBase::Private> {
  Plane3f plane;
};

PlaneRemovalFilter::PlaneRemovalFilter() : FilterBase(new Private) {
  declareProperties({toleranceRow()});
}

Plane3f const& PlaneRemovalFilter::getPlane() const {
  return static_cast<Private const&>(record()).plane;
}

void PlaneRemovalFilter::setPlane(Plane3f const& plane) {
  static_cast<Private&>(ownRecord()).plane = plane;
}

void PlaneRemovalFilter::operator()(PointCloud& cloud, Plane3f const& plane) {
  setPlane(plane);
  (*this)(cloud);
}

void PlaneRemovalFilter::operator()(PointCloud& cloud) {
  Plane3f const plane = getPlane();
  if (plane.normal() == cv::Vec3f(0, 0, 0)) {
    throw error("No plane was set", "PlaneRemovalFilter");
  }
  double const farthest = tolerance();
  cloud.checkSizes();
  cloud.saveState();
  cv::Mat_<cv::Vec3f> const& points = std::as_const(cloud).points();
  parallelRows(points.rows, [&](int firstRow, int endRow) {
    for (int row = firstRow; row < endRow; ++row) {
      for (int column = 0; column < points.cols; ++column) {
        uchar& state = cloud.state()(row, column);
        if (state == 0 && plane.distance(cv::Point3f(points(row, column))) <= farthest) {
          state = 1;
        }
      }
    }
  });
}

void PlaneRemovalFilter::read(nlohmann::json const& json) {
  Plane3f plane = getPlane();
  if (json.is_object() && json.contains(planeMember)) {
    readJsonObject(json, planeMember, plane, className);
  }
  FilterBase::read(json);
  setPlane(plane);
}

void PlaneRemovalFilter::write(nlohmann::json& json) const {
  FilterBase::write(json);
  getPlane().write(json[planeMember]);
}

UniformSampler::UniformSampler() : FilterBase({radiusRow()}) {}

void UniformSampler::operator()(PointCloud& cloud) {
  run(cloud, nullptr);
}

void UniformSampler::run(PointCloud& cloud, Observer* observer) {
  cloud.checkSizes();
  System::message("Thinning " + std::to_string(cloud.presentCount()) + " points...\n");
  deleteDensePoints(cloud, floatOf(*this, "Radius"), observer);
  cloud.markUncontinuous();
  System::message("Kept " + std::to_string(cloud.presentCount()) + " points.\n");
}

} // namespace vorn::mv::pc
