// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <initializer_list>
#include <string>
#include <vector>

#include <vorn/core/algorithm.hpp>
#include <vorn/core/export.hpp>
#include <vorn/core/typed_property.hpp>
#include <vorn/mv/pointcloud/point_cloud.hpp>

namespace vorn::mv::pc {

/// An operation that lays one cloud onto another.
class VORN_API IAligner : public virtual IPropertySet, public virtual IJsonSerializable {
public:
  ~IAligner() override;

  /// Sets the source's pending transform so that the source lies on the target, both moved by their pending
  /// transforms; what the source's was before is where the search begins. Clouds without normals are given
  /// some for the work and keep none.
  /// @param indices the samples of the source that decided in the end; replaced
  /// @return RMS distance of those samples to the target's surface
  /// @throws Exception when too few samples have a place on the target, or the source's pending transform
  ///         against the target's is no rigid motion to 1e-6; nothing has changed then
  virtual double apply(PointCloud& source, PointCloud& target, std::vector<unsigned>& indices) = 0;

protected:
  IAligner() = default;
  IAligner(IAligner const&) = default;
  IAligner(IAligner&&) = default;
  IAligner& operator=(IAligner const&) = default;
  IAligner& operator=(IAligner&&) = default;
};

/// What the aligners share: point-to-plane steps on samples of the source, of which those that fit worst are
/// left out. For a registration with its uncertainty see `registerClouds`.
class VORN_API AlignerBase : public AlgorithmBase, public IAligner {
public:
  double apply(PointCloud& source, PointCloud& target, std::vector<unsigned>& indices) override;

  /// Normals of one place differ by at most this, in degrees.
  VORN_PROPERTY(double, maxNormalAngle, MaxNormalAngle, 45.0, 1.0, 90.0);

  /// One sample is taken from so many rows and columns of the grid, without a grid from so many points
  /// squared.
  VORN_PROPERTY(int, batchSize, BatchSize, 10, 1, 1000);

  /// Points of one place are at most this far apart, in mm.
  VORN_PROPERTY(double, maxDistance, MaxDistance, 50.0, 1.0, 100000.0);

  /// More samples are taken when the batches give fewer; with fewer in the end `apply` fails.
  VORN_PROPERTY(int, minSampleCount, MinSampleCount, 200, 100, 50000);

  /// The least share of samples that are left out. Between this and "HighCutRate" it are those farther from
  /// the surface than three robust standard deviations.
  VORN_PROPERTY(double, lowCutRate, LowCutRate, 0.5, 0.0, 0.9);

  /// The largest share of samples that are left out.
  VORN_PROPERTY(double, highCutRate, HighCutRate, 0.8, 0.0, 0.9);

  /// The largest number of steps.
  VORN_PROPERTY(int, maxIteration, MaxIteration, 50, 1, 1000);

  /// The work ends when a step changes the RMS distance by less, in mm.
  VORN_PROPERTY(double, minError, MinError, 1e-4, 0.0, 10.0);

protected:
  /// Takes over `record`, which must be a `PropertySetBase::Private`.
  explicit AlignerBase(ObjectBase::Private* record) : AlgorithmBase(record) {}
  /// The properties above and more, of which it takes ownership.
  AlignerBase(std::initializer_list<Property*> more);

  /// The samples of a cloud with normals to begin with.
  virtual std::vector<unsigned> chooseSamples(PointCloud& source) = 0;
};

/// Aligns with samples spread evenly over the source, see `AlignerBase`.
class VORN_API ICPAligner : public AlignerBase {
public:
  static constexpr char const* className = "vorn::mv::pc::ICPAligner";
  ICPAligner();
  /// `className`.
  std::string const& getClassName() const override;

protected:
  using AlignerBase::AlignerBase;
  std::vector<unsigned> chooseSamples(PointCloud& source) override;
};

/// Aligns with samples that hold all six degrees of freedom as far as the source's shape can: as many from
/// each direction of the normals (S. Rusinkiewicz and M. Levoy, "Efficient Variants of the ICP Algorithm",
/// 3DIM 2001), denser where the surface bends. A groove in a large plane then counts as much as the plane.
class VORN_API ICPAligner2 : public AlignerBase {
public:
  static constexpr char const* className = "vorn::mv::pc::ICPAligner2";
  ICPAligner2();
  /// `className`.
  std::string const& getClassName() const override;

  /// Points of a cloud by the rule above, in ascending order.
  /// @param count the largest number of them
  /// @throws Exception when the cloud has no normals, or `count` is below 1
  std::vector<unsigned> getSamples(PointCloud& cloud, int count);

  /// Normals that differ by more, in degrees, are a bend.
  VORN_PROPERTY(double, sampleAngleThreshold, SampleAngleThreshold, 10.0, 1.0, 90.0);

  /// Distance of samples on an even surface, in mm.
  VORN_PROPERTY(double, sampleRadius, SampleRadius, 2.0, 0.05, 100.0);

  /// Distance of samples where the surface bends, in mm.
  VORN_PROPERTY(double, angledSampleRadius, AngledSampleRadius, 0.5, 0.05, 100.0);

protected:
  using AlignerBase::AlignerBase;
  std::vector<unsigned> chooseSamples(PointCloud& source) override;
};

} // namespace vorn::mv::pc
