// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include <vorn/core/export.hpp>

namespace vorn {

/// `text` without its blanks (spaces and tabs).
/// @param all true takes out every blank, false only those at both ends
VORN_API std::string removeSpaces(std::string_view text, bool all);

/// The pieces of `text` between the separators; an empty text has one empty piece.
VORN_API std::vector<std::string> split(std::string_view text, char separator);

/// The text of a JSON value: a string's own characters, anything else as JSON.
VORN_API std::string toString(nlohmann::json const& json);

/// The decimal number with the fewest digits that reads back as the same value; "nan", "inf", "-inf".
VORN_API std::string toString(double value);

} // namespace vorn
