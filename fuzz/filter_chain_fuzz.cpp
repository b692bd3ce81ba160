// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// A JSON document is read as a chain of image filters and as one of cloud filters; chains that are taken are
// run.
#include <vorn/core/exception.hpp>
#include <vorn/core/filter_chain.hpp>
#include <vorn/mv/imaging/image_filters.hpp>
#include <vorn/mv/pointcloud/cloud_filter.hpp>
#include <vorn/mv/pointcloud/point_cloud.hpp>

#include "filter_trial.hpp"
#include "read_contract.hpp"

namespace vorn::fuzz {
namespace {

/// Long chains only repeat what short ones do.
constexpr std::size_t mostFilters = 6;

template <class Filter>
FilterChain<Filter> readChain(nlohmann::json const& document, Registry<Filter> const& registry) {
  FilterChain<Filter> chain;
  try {
    chain = readFilterChain(document, registry);
  } catch (Exception const&) {
    return chain;
  } catch (nlohmann::json::exception const&) {
    return chain;
  }
  nlohmann::json text;
  writeFilterChain(chain, text);
  nlohmann::json again;
  writeFilterChain(readFilterChain(text, registry), again);
  require(again.dump() == text.dump(), "a chain reads what it writes");
  return chain;
}

void tryChains(nlohmann::json const& document) {
  auto const imageChain = readChain(document, mv::imageFilters());
  if (!imageChain.empty() && imageChain.size() <= mostFilters) {
    runImageFilters(imageChain);
  }
  auto const cloudChain = readChain(document, mv::pc::filters());
  if (!cloudChain.empty() && cloudChain.size() <= mostFilters) {
    runCloudFilters(cloudChain);
  }
}

} // namespace
} // namespace vorn::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  return vorn::fuzz::runInput([=] {
    auto const document = nlohmann::json::parse(data, data + size, nullptr, false);
    if (!document.is_discarded()) {
      vorn::fuzz::tryChains(document);
    }
  });
}
