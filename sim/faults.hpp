// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <opencv2/core/mat.hpp>

#include "sim/render.hpp"
#include "sim/rig.hpp"
#include "sim/scene.hpp"
#include "sim/target.hpp"

/// Target views in which something goes wrong: what a calibration has to notice.
///
///   sim::Campaign campaign = sim::plannedCampaign(rig, sim::demoTarget(), sim::demoTargetPoses());
///   sim::spoil(campaign, sim::faultOf("projector-turned=0.03@5"));
///   sim::writeCalibrationFolder(folder + "/calib", campaign);
namespace vorn::sim {

/// How one view of the target is taken.
struct PlannedView {
  /// The rig as it is meanwhile.
  Rig rig;
  Target target;
  /// world_from_target while the target's image, the columns and the rows are taken.
  Pose atTarget;
  Pose atColumns;
  Pose atRows;
  /// What the target moves by, in its own frame, from one image of the sequences to the next, mm.
  cv::Vec3d creep = {0, 0, 0};
  /// Of the target's image, beside that of the others.
  double targetExposure = 1;
  /// Share of the dots into whose rims specks cut; other dots in every view.
  double dirtyShare = 0;
  bool isCameraMirrored = false;
  bool isProjectorMirrored = false;
};

/// A rig's views of the target, one after another, and the rig with which it then scans.
struct Campaign {
  std::vector<PlannedView> views;
  Rig scanRig;
};

/// Views in which nothing goes wrong.
Campaign plannedCampaign(Rig const& rig, Target const& target, std::vector<Pose> const& world_from_targets);

/// Which views a fault spoils where it does not say so itself.
enum class FaultReach {
  All,      ///< every view and the scan
  Views,    ///< every view
  One,      ///< one view
  Following ///< the views from one on, and the scan
};

/// A kind of fault.
struct FaultKind {
  std::string name;
  std::string what;
  std::string unit; ///< of the strength; empty: it has none
  double strength = 0;
  double least = 0;
  double most = 0;
  FaultReach reach = FaultReach::All;
  /// Whether it is of dots, with marks among them.
  bool isOfDots = false;
};

std::vector<FaultKind> const& faultKinds();

/// Something that goes wrong.
struct Fault {
  FaultKind kind;
  double strength = 0;
  /// The view that is spoiled, or the first one; -1: for one view the fourth or last, for the following ones
  /// those after the first half, else all.
  int view = -1;
};

/// A fault from words: a name of `faultKinds`, with =STRENGTH and @VIEW as wanted.
/// @throws std::invalid_argument that names what is wrong
Fault faultOf(std::string const& words);

/// Adds a fault to what goes wrong.
/// @throws std::invalid_argument for a view that there is not, and for a fault of dots where there are none
void spoil(Campaign& campaign, Fault const& fault);

/// The first view that a fault spoils among so many; -1: it spoils all.
int firstSpoiled(Fault const& fault, int viewCount);

/// The images of one view, CV_8UC1.
struct ViewImages {
  cv::Mat target;
  std::vector<cv::Mat> columns;
  std::vector<cv::Mat> rows;
};

/// Takes a view of the target.
/// @param firstImage numbers the first image, and so selects the noise
ViewImages taken(PlannedView const& view, std::vector<cv::Mat> const& columns,
                 std::vector<cv::Mat> const& rows, int firstImage, RenderOptions const& options = {});

} // namespace vorn::sim
