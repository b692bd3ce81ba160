// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>

namespace vorn {

// Sets of numbered things that are joined pair by pair. Every thing has a parent in its set, of no greater
// number; the first of a set is its own. `parentOf(i)` refers to where the parent of i is kept.

/// The first of the set that a thing is in; shortens the way to it.
template <class Index, class ParentOf>
Index firstOfSet(Index i, ParentOf const& parentOf) {
  while (parentOf(i) != i) {
    Index& parent = parentOf(i);
    parent = parentOf(parent);
    i = parent;
  }
  return i;
}

/// Makes one set of those that two things are in.
template <class Index, class ParentOf>
void joinSets(Index a, Index b, ParentOf const& parentOf) {
  a = firstOfSet(a, parentOf);
  b = firstOfSet(b, parentOf);
  parentOf(std::max(a, b)) = std::min(a, b);
}

} // namespace vorn
