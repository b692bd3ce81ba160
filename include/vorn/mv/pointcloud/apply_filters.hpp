// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <vorn/core/export.hpp>
#include <vorn/mv/pointcloud/cloud_filter.hpp>

namespace vorn {
class Observer;
}

namespace vorn::mv {

/// What is left of a cloud after filters, in their order. The cloud given stays as it is, and the result
/// shares nothing with it.
///
/// Working memory: that of each filter.
/// @param observer asked between filters and within those that take long
/// @throws Exception for a filter that needs a grid and a cloud that is not organized, and what a filter
///         throws, each with the filter's number and name
/// @throws Cancelled when the observer stops it
VORN_API PointCloud applyFilters(PointCloud const& cloud, FilterChain<pc::IFilter> const& chain,
                                 Observer* observer = nullptr);

/// The same with the filters that a JSON array describes, such as
/// [{"class": "OutlierFilter", "properties": {"Radius": 2}}].
/// @throws Exception also for a chain that `readFilterChain` refuses
VORN_API PointCloud applyFilters(PointCloud const& cloud, nlohmann::json const& chain,
                                 Observer* observer = nullptr);

} // namespace vorn::mv
