// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <vector>

#include <vorn/mv/calib/diagnosis.hpp>

#include "calib/adjust/solved_views.hpp"
#include "core/progress.hpp"

namespace vorn::mv {

/// What a single camera's lens has to do with residuals that are greater than noise: images that are
/// mirrored, or a change of focus or zoom. Tried before the target's shape, which would take a part of it up.
/// @param s0WithoutWorst the residuals over the noise without the view that fits least; asked for where it
///        matters
/// @return nothing for two devices, a held lens, or residuals that are chance
std::vector<Finding> singleLensFindings(SolvedViews const& solved,
                                        std::function<double()> const& s0WithoutWorst,
                                        Progress const& progress);

/// Of two devices between which something changed before a view, the one that shows it by itself: its lens.
std::optional<Finding> changedLens(SolvedViews const& solved, std::size_t first);

/// The lens whose squares fall most with thin prism terms, by more than `leastGain` too; mostly none.
std::optional<Finding> lensModelFinding(SolvedViews const& solved, double leastGain);

} // namespace vorn::mv
