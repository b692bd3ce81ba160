// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/pointcloud/apply_filters.hpp>

#include <string>

#include <nlohmann/json.hpp>

#include <vorn/mv/pointcloud/cloud_filters.hpp>

#include "core/error.hpp"
#include "core/pieces.hpp"

namespace vorn::mv {

namespace {

bool needsGrid(pc::IFilter const& filter) {
  return dynamic_cast<pc::DzFilter const*>(&filter) != nullptr;
}

} // namespace

PointCloud applyFilters(PointCloud const& cloud, FilterChain<pc::IFilter> const& chain, Observer* observer) {
  Progress const progress(observer);
  progress.at("filtering", 0.0);
  PartObserver copying(progress.part(0.0, 0.1));
  PointCloud result = cloud.clone(copying.ifWatched());
  Progress const filtering = progress.part(0.1, 1.0);
  auto const count = static_cast<double>(chain.size());
  for (std::size_t i = 0; i < chain.size(); ++i) {
    pc::IFilter& filter = *chain[i];
    std::string const name = "Filter " + std::to_string(i + 1) + ", " + filter.getClassName();
    if (needsGrid(filter) && !result.isOrganized()) {
      throw error(name + ", needs a grid, but the cloud is not organized", "applyFilters");
    }
    try {
      auto const place = static_cast<double>(i);
      PartObserver part(filtering.part(place / count, (place + 1.0) / count));
      filter.run(result, part.ifWatched());
    } catch (Cancelled const&) {
      throw;
    } catch (Exception const& e) {
      throw error(name + ": " + e.message(), "applyFilters");
    }
  }
  progress.at("filtering", 1.0);
  return result;
}

PointCloud applyFilters(PointCloud const& cloud, nlohmann::json const& chain, Observer* observer) {
  return applyFilters(cloud, readFilterChain(chain, pc::filters()), observer);
}

} // namespace vorn::mv
