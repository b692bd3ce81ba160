// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <nlohmann/json_fwd.hpp>

namespace vorn::mv {

/// What a file of OpenCV's storage holds, as JSON: of YAML, XML or JSON text, whatever it is full of.
///
/// Read here and not by cv::FileStorage, which broken files of XML bring down. Numbers are doubles, also
/// those that are not finite; types of nodes are passed over, and base64 stays a string.
/// @throws Exception with the line and what is wrong there
nlohmann::json parseOpenCvStorage(std::string const& text);

} // namespace vorn::mv
