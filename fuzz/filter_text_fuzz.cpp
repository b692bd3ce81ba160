// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// Text in the short form of a filter, "Gaussian:Radius=3".
#include <string>

#include <nlohmann/json.hpp>

#include "filter_trial.hpp"

namespace vorn::fuzz {
namespace {

template <class Filter>
FilterChain<Filter> parsed(std::string const& text, Registry<Filter> const& registry) {
  FilterChain<Filter> chain;
  try {
    chain.push_back(parseFilter(text, registry));
  } catch (Exception const&) {
  } catch (nlohmann::json::exception const&) {
  }
  return chain;
}

} // namespace
} // namespace vorn::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  return vorn::fuzz::runInput([=] {
    std::string const text(data, data + size);
    vorn::fuzz::runImageFilters(vorn::fuzz::parsed(text, vorn::mv::imageFilters()));
    vorn::fuzz::runCloudFilters(vorn::fuzz::parsed(text, vorn::mv::pc::filters()));
  });
}
