// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/core/interfaces.hpp>

namespace vorn {

// Out of line, so that each interface has one vtable and one type info in the library.
IObject::~IObject() = default;
IJsonSerializable::~IJsonSerializable() = default;
IAlgorithm::~IAlgorithm() = default;
IAlgorithmResult::~IAlgorithmResult() = default;

} // namespace vorn
