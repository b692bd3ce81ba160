// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <initializer_list>
#include <memory>
#include <string>

#include <vorn/core/algorithm.hpp>
#include <vorn/core/export.hpp>
#include <vorn/core/filter_chain.hpp>
#include <vorn/mv/pointcloud/point_cloud.hpp>

/// Operations on point clouds as objects that are set up by properties.
namespace vorn::mv::pc {

/// An operation that edits the states of a cloud's points.
class VORN_API IFilter : public virtual IPropertySet, public virtual IJsonSerializable {
public:
  ~IFilter() override;

  /// Edits the cloud in place. The properties are read at every call. Working memory: that of the cloud's
  /// operation, at most a byte a point unless the filter says otherwise.
  virtual void operator()(PointCloud& cloud) = 0;

  /// The same, watched. A filter that does not override this is asked about once, before it begins.
  /// @param observer may be null
  /// @throws Cancelled when the observer stops it; the cloud is unchanged then
  virtual void run(PointCloud& cloud, Observer* observer);

protected:
  IFilter() = default;
  IFilter(IFilter const&) = default;
  IFilter(IFilter&&) = default;
  IFilter& operator=(IFilter const&) = default;
  IFilter& operator=(IFilter&&) = default;
};

/// The shape that the filters share: a name, properties, copied and moved as values.
template <class Self>
class VORN_API FilterBase : public AlgorithmBase, public IFilter {
public:
  /// `Self::className`.
  std::string const& getClassName() const override {
    static std::string const name = Self::className;
    return name;
  }

protected:
  /// Takes over `record`, which must be a `PropertySetBase::Private`.
  explicit FilterBase(ObjectBase::Private* record) : AlgorithmBase(record) {}
  /// Takes ownership of the properties.
  FilterBase(std::initializer_list<Property*> properties) : FilterBase(new PropertySetBase::Private) {
    declareProperties(properties);
  }
};

/// All point cloud filters of the library, by class name. With it a chain of filters is read from JSON:
/// `readFilterChain(json, pc::filters())`.
VORN_API Registry<IFilter> const& filters();

/// A filter with default settings, by its class name: "vorn::mv::pc::DzFilter", "DzFilter" or "Dz".
/// @throws Exception when there is no filter of this name
VORN_API std::unique_ptr<IFilter> createFilter(std::string const& name);

} // namespace vorn::mv::pc
