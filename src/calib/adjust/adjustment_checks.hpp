// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

#include <vorn/mv/calib/adjustment.hpp>

#include "calib/adjust/bundle_start.hpp"

namespace vorn::mv {

/// @throws Exception that names the setting and its value
void checkSettings(AdjustmentSettings const& settings);

/// @throws Exception that names the view and what is wrong with its lists
void checkView(AdjustmentView const& view, std::size_t index, int deviceCount);

/// @throws Exception for a model that cannot be started from, or held
void checkDevice(DeviceStart const& start, std::size_t device);

} // namespace vorn::mv
