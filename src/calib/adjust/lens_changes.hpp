// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include <opencv2/core/types.hpp>

#include "calib/adjust/bundle.hpp"
#include "core/progress.hpp"

namespace vorn::mv {

/// The same bundle with a flat target, solved for it.
/// @throws Exception when there is no solution
Bundle flattened(Bundle const& solved, Progress const& progress);

/// Two lenses of a single camera, one for the views before some view and one from there on.
struct LensChange {
  std::size_t first = 0; ///< the first view after the change; two or more are on each side
  double s0 = 1;         ///< what is left of the residuals, over the noise
  double before = 0;     ///< focal lengths, the mean of fx and fy, pixels
  double after = 0;
};

/// How much better a single camera's views fit, to first order, with another focal length and principal point
/// from some view on: a third of what the weighted squares fall by, about 1 by chance.
/// @param solved as of `bestLensChange`
double lensChangeAt(Bundle const& solved, std::size_t first);

/// The change that explains a single camera's residuals best: where to first order another focal length and
/// principal point lower the squares most, or a view beside it.
/// @param solved with a flat target and a free lens
/// @return nothing below 4 views, or where the views on one side do not determine a lens
std::optional<LensChange> bestLensChange(Bundle const& solved, Progress const& progress);

/// Views of a single camera whose images are taken to be mirrored.
struct MirroredImages {
  std::vector<std::size_t> views;
  double s0 = 1; ///< what is left of the residuals, over the noise, once they are turned back
};

/// The views that, turned back, explain the residuals best: a flat target looks the same from behind, so that
/// what tells a mirrored view from others is the principal point alone, which lies on the other side of the
/// image's middle. At most half of the views, those at one end of the order of the principal points that each
/// would have by itself.
/// @param solved as of `bestLensChange`
/// @param size of the images
/// @return nothing below 4 views or where the views determine no lens
std::optional<MirroredImages> bestMirroredImages(Bundle const& solved, cv::Size const& size,
                                                 Progress const& progress);

} // namespace vorn::mv
