// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vorn/core/export.hpp>
#include <vorn/core/property_set.hpp>

namespace vorn {

/// The base of every configurable algorithm.
class VORN_API AlgorithmBase : public PropertySetBase, public virtual IAlgorithm {
public:
  AlgorithmBase(AlgorithmBase const&) = default;
  AlgorithmBase(AlgorithmBase&&) = default;
  AlgorithmBase& operator=(AlgorithmBase const&) = default;
  AlgorithmBase& operator=(AlgorithmBase&&) = default;
  ~AlgorithmBase() override;

protected:
  /// Takes over `record`, which must be a `PropertySetBase::Private`.
  explicit AlgorithmBase(ObjectBase::Private* record);
};

/// The base of what algorithms return.
class VORN_API AlgorithmResultBase : public PropertySetBase, public virtual IAlgorithmResult {
public:
  AlgorithmResultBase(AlgorithmResultBase const&) = default;
  AlgorithmResultBase(AlgorithmResultBase&&) = default;
  AlgorithmResultBase& operator=(AlgorithmResultBase const&) = default;
  AlgorithmResultBase& operator=(AlgorithmResultBase&&) = default;
  ~AlgorithmResultBase() override;

protected:
  /// Takes over `record`, which must be a `PropertySetBase::Private`.
  explicit AlgorithmResultBase(ObjectBase::Private* record);
};

} // namespace vorn
