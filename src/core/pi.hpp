// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/cvdef.h>

namespace vorn {

/// The floats nearest to pi and 2 pi, for phases, which are floats; in doubles they are CV_PI and CV_2PI.
constexpr auto piFloat = static_cast<float>(CV_PI);
constexpr auto twoPiFloat = static_cast<float>(CV_2PI);

} // namespace vorn
