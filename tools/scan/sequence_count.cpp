// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/scan/sequence_count.hpp"

#include <vorn/core/exception.hpp>

#include "sl/coding/stripe_code.hpp"
#include "tools/commands/size_option.hpp"

namespace vorn::tools {

namespace {

using mv::sl::StripeCode;

/// The images that a sequence has at least and at most.
struct ImageCounts {
  std::size_t least;
  std::size_t most;
};

ImageCounts countsFor(std::string const& prefix, cv::Size const& projector) {
  bool const isColumns = prefix == "columns";
  StripeCode const& code = isColumns ? mv::sl::columnCode : mv::sl::rowCode;
  int const resolution = isColumns ? projector.width : projector.height;
  int least = 1; // fewer planes tell nothing of any projector
  while (!projector.empty() && least < StripeCode::maxPlanes && !code.isCodedBy(least, resolution)) {
    ++least;
  }
  int most = projector.empty() ? StripeCode::maxPlanes : least;
  for (int planes = least; !projector.empty() && planes <= StripeCode::maxPlanes; ++planes) {
    most = code.isMadeFor(planes, resolution) ? planes : most;
  }
  return {static_cast<std::size_t>(StripeCode::images(least)),
          static_cast<std::size_t>(StripeCode::images(most))};
}

std::string countText(std::string const& prefix, std::size_t count) {
  return std::to_string(count) + (count == 1 ? " image" : " images") + " of " + prefix;
}

} // namespace

std::string missingImages(std::string const& prefix, std::size_t count, cv::Size const& projector) {
  std::size_t const needed = countsFor(prefix, projector).least;
  if (count >= needed) {
    return "";
  }
  std::string const who = projector.empty() ? "any projector takes at least "
                                            : "a projector of " + sizeText(projector) + " takes ";
  return countText(prefix, count) + ", and " + who + std::to_string(needed);
}

std::string extraImages(std::string const& prefix, std::size_t count, cv::Size const& projector) {
  ImageCounts const counts = countsFor(prefix, projector);
  if (count <= counts.most) {
    return "";
  }
  std::string const who = projector.empty()
                              ? "no projector takes more than "
                              : "a projector of " + sizeText(projector) + " takes " +
                                    (counts.least < counts.most ? std::to_string(counts.least) + " to " : "");
  return countText(prefix, count) + ", and " + who + std::to_string(counts.most);
}

void requireImageCount(std::string const& prefix, std::size_t count, cv::Size const& projector,
                       std::string const& folder, char const* context) {
  std::string const where = folder.empty() ? "" : folder + " has ";
  if (std::string const missing = missingImages(prefix, count, projector); !missing.empty()) {
    throw Exception("Insufficient input patterns! " + where + missing, nullptr, 0, context);
  }
  if (std::string const extra = extraImages(prefix, count, projector); !extra.empty()) {
    throw Exception("Too many input patterns! " + where + extra, nullptr, 0, context);
  }
}

} // namespace vorn::tools
