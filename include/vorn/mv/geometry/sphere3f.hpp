// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <opencv2/core/persistence.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/core/export.hpp>
#include <vorn/core/interfaces.hpp>

namespace vorn::mv {

/// A sphere in space: its centre and radius, in the unit of its points. All zero when new.
class VORN_API Sphere3f : public virtual IJsonSerializable {
public:
  Sphere3f() = default;
  Sphere3f(Sphere3f const&) = default;
  Sphere3f& operator=(Sphere3f const&) = default;
  ~Sphere3f() override;

  /// @throws Exception when the radius is negative or a number is not finite
  Sphere3f(cv::Point3f const& centre, float radius);

  /// The centre, in the frame and unit of the points.
  cv::Point3f const& centre() const { return centre_; }
  /// The radius, in the unit of the points, never negative.
  float radius() const { return radius_; }

  /// The distance of a point from the surface, never negative; reckoned in double.
  double distance(cv::Point3f const& p) const;

  /// Writes "c", the centre, and "r", the radius.
  void write(nlohmann::json& json) const override;
  /// @throws Exception, with nothing changed, for a radius or centre that the constructor refuses
  void read(nlohmann::json const& json) override;
  /// Writes a mapping with "c" and "r".
  void write(cv::FileStorage& storage) const;
  /// @throws Exception, with nothing changed, when "c" or "r" is missing or not what the constructor takes
  void read(cv::FileNode const& node);

private:
  cv::Point3f centre_;
  float radius_ = 0.0F;
};

} // namespace vorn::mv

namespace cv {

/// Writes the sphere under a name, so that `storage << "ball" << sphere` works.
VORN_API void write(FileStorage& storage, std::string const& name, vorn::mv::Sphere3f const& sphere);
/// Reads a sphere, or takes `fallback` when the node is empty: `storage["ball"] >> sphere`.
VORN_API void read(FileNode const& node, vorn::mv::Sphere3f& sphere, vorn::mv::Sphere3f const& fallback);

} // namespace cv
