// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

#include <vorn/core/exception.hpp>
#include <vorn/core/export.hpp>

namespace vorn {

/// Watches a long call and may stop it. A progress bar, a cancel button and a time limit are observers.
///
/// The call asks between bands of rows and between its steps. What cannot be asked in between (single calls
/// of OpenCV, such as a lens calibration, and single steps over a whole map) delays a stop until it is done.
class VORN_API Observer {
public:
  virtual ~Observer();

  /// Called again and again while the work goes on: one call at a time, from the thread that called the
  /// library or from one that works for it. What it throws ends the job as a stop does, and reaches the
  /// caller.
  /// @param stage    what is being done, in English, such as "unwrapping"
  /// @param fraction how much of the whole call is done, from 0 to 1; never less than the time before
  /// @return false to stop: the call then throws `Cancelled` and leaves everything as it was
  virtual bool onProgress(std::string_view stage, double fraction) = 0;
};

/// Thrown by a call that its observer has stopped. The objects and arguments of the call are as they were
/// before it.
class VORN_API Cancelled : public Exception {
public:
  /// @param stage what was being done
  explicit Cancelled(std::string_view stage);
  ~Cancelled() override;
};

} // namespace vorn
