// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace vorn::test {

/// Lets `cv::parallel_for_` run on plain threads, as many as VORN_TEST_THREADS says, whatever the machine
/// has; does nothing where that is not set.
///
/// The thread sanitizer sees how these threads start and end. OpenCV's own pools are not compiled with it, so
/// it would take every hand-over of work in them for a race.
void useThreadBackend();

} // namespace vorn::test
