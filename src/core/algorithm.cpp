// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/core/algorithm.hpp>

namespace vorn {

AlgorithmBase::AlgorithmBase(ObjectBase::Private* record) : ObjectBase(record), PropertySetBase(record) {}
AlgorithmBase::~AlgorithmBase() = default;

AlgorithmResultBase::AlgorithmResultBase(ObjectBase::Private* record)
    : ObjectBase(record), PropertySetBase(record) {}
AlgorithmResultBase::~AlgorithmResultBase() = default;

} // namespace vorn
