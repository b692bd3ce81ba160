// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/core/timer.hpp>

#include <iomanip>
#include <ostream>
#include <sstream>

namespace vorn {

double Timer::toc() const {
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start_).count();
}

std::string Timer::toString() const {
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << std::fixed << std::setprecision(3) << toc() << " ms";
  return text.str();
}

std::ostream& operator<<(std::ostream& stream, Timer& timer) {
  return stream << timer.toString();
}

} // namespace vorn
