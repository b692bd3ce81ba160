// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace vorn::tools {

/// As long as one lives, nothing reaches standard error: libraries that decode pictures write lines of their
/// own there, which name no file. May live in several threads at a time.
class Silence {
public:
  Silence();
  Silence(Silence const&) = delete;
  Silence& operator=(Silence const&) = delete;
  ~Silence();
};

} // namespace vorn::tools
