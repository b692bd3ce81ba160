// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

namespace vorn {

namespace detail {

/// The number of edits from one word to the other (Damerau 1964, adjacent letters exchanged at most once).
inline std::size_t editsBetween(std::string const& a, std::string const& b) {
  std::vector<std::vector<std::size_t>> edits(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
  for (std::size_t i = 0; i <= a.size(); ++i) {
    for (std::size_t k = 0; k <= b.size(); ++k) {
      if (i == 0 || k == 0) {
        edits[i][k] = i + k;
        continue;
      }
      std::size_t const change = a[i - 1] == b[k - 1] ? 0 : 1;
      edits[i][k] = std::min({edits[i - 1][k] + 1, edits[i][k - 1] + 1, edits[i - 1][k - 1] + change});
      if (i > 1 && k > 1 && a[i - 1] == b[k - 2] && a[i - 2] == b[k - 1]) {
        edits[i][k] = std::min(edits[i][k], edits[i - 2][k - 2] + 1);
      }
    }
  }
  return edits[a.size()][b.size()];
}

} // namespace detail

/// The one of `known` that a misspelt word most likely stands for: the fewest letters left out, put in,
/// changed or exchanged with their neighbour, at most a third of the word's. Empty when there is none.
inline std::string nearestWord(std::string const& word, std::vector<std::string> const& known) {
  std::string best;
  std::size_t fewest = word.size() / 3 + 1;
  for (std::string const& candidate : known) {
    std::size_t const edits = detail::editsBetween(word, candidate);
    if (edits < fewest) {
      fewest = edits;
      best = candidate;
    }
  }
  return best;
}

} // namespace vorn
