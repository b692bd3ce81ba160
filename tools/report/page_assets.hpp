// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

/// The files of tools/report/page, and the library that draws, as the build put them into the program.
namespace vorn::tools::page {

extern std::string_view const frame;   ///< page.html
extern std::string_view const style;   ///< page.css
extern std::string_view const script;  ///< the modules, one behind the other
extern std::string_view const three;   ///< three.js
extern std::string_view const notices; ///< licences of what is not ours, plain text

} // namespace vorn::tools::page
