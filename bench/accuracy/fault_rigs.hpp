// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <sim/faults.hpp>
#include <vorn/mv/calib/adjustment.hpp>
#include <vorn/mv/scanner/calibrate_scanner.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

/// Rigs on which calibrations are tried, their views, and the errors of what comes out.
namespace vorn::bench {

/// A rig, and the target as it is shown to it.
struct CalibratedRig {
  std::string name;
  sim::Rig rig;
  sim::Target target;
  std::vector<sim::Pose> poses;

  sim::Campaign campaign() const { return sim::plannedCampaign(rig, target, poses); }
};

/// A base of 172 mm at 530 mm, 1024 x 768 and 640 x 400 pixels, eight views.
CalibratedRig plainRig(int divisor = 1);

/// The demonstration's rig with its twelve views.
CalibratedRig demonstrationRig(int divisor = 1);

/// Any rig whose target fills its field: base, distance, lenses, aims, noise and poses by chance.
CalibratedRig randomRig(std::uint64_t seed, int views, int divisor);

/// One view of a campaign, rendered.
mv::ScannerView rendered(sim::Campaign const& campaign, std::size_t view);

/// The points of a campaign's views as a detector and decoder of so much noise would find them, pixels: the
/// projector's are read where the camera sees the dots.
struct PointNoise {
  double camera = 0.006;
  double projector = 0.0018;
};
std::vector<mv::AdjustmentView> drawnViews(sim::Campaign const& campaign, PointNoise const& noise,
                                           std::uint64_t seed);

/// Errors of a calibration over what both devices see between the nearest and the farthest dot, micrometres.
struct VolumeErrors {
  double raw = 0;
  double rigid = 0; ///< after the rigid motion that fits best
  double bars = 0;  ///< root mean square of lengths of 100 mm
  /// What the scanner's covariance foretells of `rigid` at the same places; 0 without one. Not what a report
  /// foretells: that is for the depths that the target had in the views.
  double foretold = 0;
};
VolumeErrors errorsOf(mv::Sl3dScanner const& scanner, CalibratedRig const& truth);

} // namespace vorn::bench
