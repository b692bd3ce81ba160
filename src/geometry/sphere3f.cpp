// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/geometry/sphere3f.hpp>

#include <cmath>

#include "core/error.hpp"
#include "core/json_member.hpp"
#include "geometry/point_and_vector.hpp"

namespace vorn::mv {

Sphere3f::~Sphere3f() = default;

Sphere3f::Sphere3f(cv::Point3f const& centre, float radius) : centre_(centre), radius_(radius) {
  if (!std::isfinite(centre.x) || !std::isfinite(centre.y) || !std::isfinite(centre.z)) {
    throw error("The centre of a sphere must be finite", "Sphere3f");
  }
  if (!std::isfinite(radius) || radius < 0.0F) {
    throw error("The radius of a sphere must be 0 or more, not " + std::to_string(radius), "Sphere3f");
  }
}

double Sphere3f::distance(cv::Point3f const& p) const {
  return std::abs(cv::norm(cv::Point3d(p) - cv::Point3d(centre_)) - static_cast<double>(radius_));
}

void Sphere3f::write(nlohmann::json& json) const {
  json = {{"c", centre_}, {"r", radius_}};
}

void Sphere3f::read(nlohmann::json const& json) {
  *this = Sphere3f(jsonValue<cv::Point3f>(json, "c", "Sphere3f"), jsonValue<float>(json, "r", "Sphere3f"));
}

void Sphere3f::write(cv::FileStorage& storage) const {
  cv::write(storage, storage.elname, *this);
}

void Sphere3f::read(cv::FileNode const& node) {
  cv::Point3f centre;
  if (!node.isMap() || !readCoordinates(node["c"], centre) || !(node["r"].isReal() || node["r"].isInt())) {
    throw error("Expected a mapping with \"c\", 3 numbers, and \"r\", a number", "Sphere3f");
  }
  *this = Sphere3f(centre, node["r"]);
}

} // namespace vorn::mv

void cv::write(FileStorage& storage, std::string const& name, vorn::mv::Sphere3f const& sphere) {
  cv::internal::WriteStructContext mapping(storage, name, cv::FileNode::MAP);
  cv::write(storage, "c", sphere.centre());
  cv::write(storage, "r", sphere.radius());
}

void cv::read(FileNode const& node, vorn::mv::Sphere3f& sphere, vorn::mv::Sphere3f const& fallback) {
  vorn::mv::readOr(node, sphere, fallback);
}
