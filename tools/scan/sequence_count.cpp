// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/scan/sequence_count.hpp"

#include "sl/coding/stripe_code.hpp"
#include "tools/commands/size_option.hpp"

namespace vorn::tools {

std::string missingImages(std::string const& prefix, std::size_t count, cv::Size const& projector) {
  using mv::sl::StripeCode;
  bool const isColumns = prefix == "columns";
  StripeCode const& code = isColumns ? mv::sl::columnCode : mv::sl::rowCode;
  int const resolution = isColumns ? projector.width : projector.height;
  int planes = 1; // fewer tell nothing of any projector
  while (!projector.empty() && planes < StripeCode::maxPlanes && !code.isCodedBy(planes, resolution)) {
    ++planes;
  }
  auto const needed = static_cast<std::size_t>(StripeCode::images(planes));
  if (count >= needed) {
    return "";
  }
  std::string const found = std::to_string(count) + (count == 1 ? " image" : " images");
  std::string const who = projector.empty() ? "any projector takes at least "
                                            : "a projector of " + sizeText(projector) + " takes ";
  return found + " of " + prefix + ", and " + who + std::to_string(needed);
}

} // namespace vorn::tools
