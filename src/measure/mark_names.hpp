// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include <vorn/mv/measure/mark.hpp>

namespace vorn::mv {

/// The names of enum items in JSON and messages, and the way back.
std::string nameOf(MarkKind kind);

nlohmann::json toJson(Mark const& mark);
/// @throws nlohmann::json::exception or Exception for a member that is missing or has no such name
Mark markFrom(nlohmann::json const& json);

} // namespace vorn::mv
