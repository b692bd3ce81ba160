// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>
#include <opencv2/core/mat.hpp>

#include <sim/scene.hpp>
#include <sim/truth.hpp>

namespace vorn::tools {

/// How far a scan lies from the truth, over the pixels where it should be good.
struct TruthComparison {
  std::size_t expected = 0; ///< clean pixels: lit well and away from edges
  std::size_t measured = 0; ///< those of them that were measured
  double rms = 0.0;         ///< distance to the true point, mm
  double median = 0.0;
  double error95 = 0.0; ///< 95 % of the distances are smaller
  double worst = 0.0;
};

/// @param xyz  H x W measured points, camera frame, NaN where there is none
/// @param mask the clean pixels are those with `sim::TruthMask::Clean`
TruthComparison compareWithTruth(cv::Mat_<cv::Vec3f> const& xyz, sim::Truth const& truth,
                                 cv::Mat_<uchar> const& mask);

/// One figure of a measured artefact.
struct ArtefactFigure {
  std::string what;   ///< such as "sphere A: size error"
  double value = 0.0; ///< mm
};

/// Fits the spheres and the largest plane of a scene to the measured clean pixels that show them: form and
/// size error of each sphere, the error of their distances, the flatness of the plane.
std::vector<ArtefactFigure> measureArtefacts(cv::Mat_<cv::Vec3f> const& xyz, sim::Truth const& truth,
                                             cv::Mat_<uchar> const& mask, sim::Scene const& scene);

/// Both as a table for a person.
void printComparison(TruthComparison const& comparison, std::vector<ArtefactFigure> const& figures);

/// Both as JSON.
nlohmann::json comparisonReport(TruthComparison const& comparison,
                                std::vector<ArtefactFigure> const& figures);

} // namespace vorn::tools
