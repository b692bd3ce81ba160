// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <vorn/mv/sl/pattern_doubt.hpp>

#include "sl/patterns/fringe_sums.hpp"
#include "sl/patterns/order_search.hpp"

namespace vorn::mv::sl {

/// Whether fringes that number each other do so better when one of them runs the other way or begins with
/// another step. Where most pixels have an order, nothing is sought.
/// @param samples of pixels whose fringes are all strong
/// @param designs of the same fringes
std::vector<PatternDoubt> checkAgreement(FringeSamples const& samples,
                                         std::vector<FringeDesign const*> const& designs, int resolution);

} // namespace vorn::mv::sl
