// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <utility>

#include <vorn/core/exception.hpp>

namespace vorn {

/// An exception in the library's convention: `context` is the name of the throwing function or class.
/// Use: `throw error("Insufficient calibration data", "calib");`
inline Exception error(std::string message, char const* context) {
  return Exception(std::move(message), nullptr, 0, context);
}

} // namespace vorn
