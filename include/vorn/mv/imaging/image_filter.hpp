// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <initializer_list>
#include <string>

#include <opencv2/core/mat.hpp>

#include <vorn/core/algorithm.hpp>
#include <vorn/core/export.hpp>

namespace vorn::mv {

/// An operation on an image that is set up by properties.
class VORN_API IImageFilter : public virtual IPropertySet, public virtual IJsonSerializable {
public:
  ~IImageFilter() override;

  /// The filtered image: new pixels, the input stays as it is.
  ///
  /// The properties are read at every call. Where the filter looks at a pixel's neighbours, those of a region
  /// of a larger image are seen beyond the region's edge as OpenCV sees them; beyond the edge of the image
  /// the pixels are mirrored (BORDER_DEFAULT) unless the filter says otherwise.
  ///
  /// Working memory: at most a byte a pixel of an 8-bit image unless the filter says otherwise.
  /// @throws cv::Exception for an input or a combination of settings that OpenCV refuses
  virtual cv::Mat apply(cv::Mat const& input) const = 0;

protected:
  IImageFilter() = default;
  IImageFilter(IImageFilter const&) = default;
  IImageFilter(IImageFilter&&) = default;
  IImageFilter& operator=(IImageFilter const&) = default;
  IImageFilter& operator=(IImageFilter&&) = default;
};

/// The shape that the image filters share: no state but the properties, copied and moved as values.
///
/// A filter gives its name, its properties and what it does:
///
///     class VORN_API BlurFilter : public ImageFilterBase<BlurFilter> {
///     public:
///       static constexpr char const* className = "vorn::mv::BlurFilter";
///       BlurFilter(); // : ImageFilterBase({new Property("Radius", 1, 0, 32)}) {}
///       cv::Mat apply(cv::Mat const& input) const override;
///
///     protected:
///       using ImageFilterBase::ImageFilterBase;
///     };
template <class Self>
class VORN_API ImageFilterBase : public AlgorithmBase, public IImageFilter {
public:
  /// `Self::className`.
  std::string const& getClassName() const override {
    static std::string const name = Self::className;
    return name;
  }

protected:
  /// Takes over `record`, which must be a `PropertySetBase::Private`.
  explicit ImageFilterBase(ObjectBase::Private* record) : AlgorithmBase(record) {}
  /// Takes ownership of the properties.
  ImageFilterBase(std::initializer_list<Property*> properties)
      : ImageFilterBase(new PropertySetBase::Private) {
    declareProperties(properties);
  }
};

} // namespace vorn::mv
