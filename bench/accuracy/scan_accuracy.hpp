// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <sim/map_comparison.hpp>
#include <sim/rig.hpp>
#include <sim/scene.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

#include "tools/scan/truth_comparison.hpp"

namespace vorn::bench {

/// A rig and a scene to scan with it.
struct ScanCase {
  std::string name;
  sim::Rig rig;
  sim::Scene scene;
};

struct ScanFigures {
  std::string name;
  double amplitude = 0; ///< mean over the clean pixels, grey levels
  double noise = 0;     ///< likewise
  sim::MapComparison map;
  tools::TruthComparison points;
  std::vector<tools::ArtefactFigure> artefacts;
  std::string refusal; ///< why the scan was refused; empty when it was not, and the figures hold
};

/// Rigs that differ from the demonstration rig in noise, defocus, contrast or stray light and scan its scene,
/// rigs that scan a plane of different albedos from different distances, rigs with more or fewer camera
/// pixels to a projector pixel, and harder scenes. `divisor` divides their pixels.
std::vector<ScanCase> scanCases(int divisor);

/// The first case of that name.
/// @throws std::out_of_range when there is none
ScanCase const& caseNamed(std::vector<ScanCase> const& cases, std::string const& name);

/// Those of them that are worth a calibration: the plain one, a noisy one and a blurred one.
constexpr std::size_t calibratedCases[] = {0, 2, 6};

/// Scans with the rig's true calibration.
ScanFigures scan(ScanCase const& given);

/// Scans with any calibration.
ScanFigures scan(ScanCase const& given, mv::Sl3dScanner scanner);

} // namespace vorn::bench
