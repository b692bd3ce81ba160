// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace vorn::tools {

/// The one of `known` that a misspelt word most likely stands for: the fewest letters left out, put in,
/// changed or exchanged with their neighbour, at most a third of the word's. Empty when there is none.
std::string nearestWord(std::string const& word, std::vector<std::string> const& known);

} // namespace vorn::tools
