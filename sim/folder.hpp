// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "sim/faults.hpp"
#include "sim/render.hpp"
#include "sim/rig.hpp"
#include "sim/scene.hpp"
#include "sim/target.hpp"

/// Writes rendered images and their truth as the folders that `vorn-mv calibrate` and `vorn-mv scan` read.
///
///   sim::Rig const rig = sim::demoRig();
///   sim::writeScannerTruth(folder + "/scanner_truth.json", rig);
///   sim::writeCalibrationFolder(folder + "/calib", rig, sim::demoTarget(), sim::demoTargetPoses());
///   sim::writeScanFolder(folder + "/scan", rig, sim::demoScene());
///
/// Folders are made when they do not exist. Every file is written beside its place and renamed, so that a
/// file that stood there is lost only to a complete one. Failures are exceptions derived from std::exception
/// that name the path.
namespace vorn::sim {

struct FolderOptions {
  /// Which pattern sequences are projected.
  bool columns = true;
  bool rows = false;
  /// Also the truth_* files.
  bool truth = true;
  RenderOptions render;
  /// Called after each step with the number of steps done and in all.
  std::function<void(int done, int total)> progress;
};

/// One scan: columns_00.png ..., rows_00.png ..., white.png, and
/// - truth_xyz.tiff: CV_32FC3, camera frame, NaN where nothing is hit or no light arrives;
/// - truth_projector.tiff: CV_32FC3, column, row, 0; NaN likewise;
/// - truth_signal.png: 16 bit, 200 x fringe amplitude of columns, of rows, 5000 x noise sigma (grey levels);
/// - truth_mask.png: 255 clean, 128 near edges, 64 clipped or weak, 0 no truth;
/// - truth_label.png, truth_objects.json: which object a pixel shows, and the objects.
void writeScanFolder(std::string const& folder, Rig const& rig, Scene const& scene,
                     FolderOptions const& options = {});

/// Target views pose_00/target.png (under the projector's white), pose_00/columns_00.png ..., rows_00.png
/// ..., and truth_points.json: for every pose the 4 x 4 transform from the target and for every dot index,
/// pattern, xyz, camera, projector.
void writeCalibrationFolder(std::string const& folder, Rig const& rig, Target const& target,
                            std::vector<Pose> const& world_from_targets, FolderOptions const& options = {});

/// The same with what goes wrong in it. Images of a mirrored device are mirrored, where truth_points.json
/// says where the dots truly are; "faults" in it names what was done.
/// @param faults that the campaign was spoiled by
void writeCalibrationFolder(std::string const& folder, Campaign const& campaign,
                            std::vector<Fault> const& faults, FolderOptions const& options = {});

/// Target views of two cameras: pose_00/target.png, pose_00/target_1.png, and truth_points.json with "camera"
/// and "camera_1".
void writeStereoFolder(std::string const& folder, StereoRig const& rig, Target const& target,
                       std::vector<Pose> const& world_from_targets, FolderOptions const& options = {});

/// Target views pose_00/target.png, each with the laser lines on it, one image a line: pose_00/line_00.png
/// ..., and truth_points.json.
void writeLaserCalibrationFolder(std::string const& folder, LaserRig const& rig, Target const& target,
                                 std::vector<Pose> const& world_from_targets,
                                 FolderOptions const& options = {});

/// How a linear stage carries the scene past the laser.
struct Stage {
  /// Motion of the scene from image to image, world frame, mm.
  cv::Vec3d step;
  int images = 0;
};

/// A laser scan: line_00.png ..., one image a stage position (with several lasers one after another at each
/// position); stage.json with "step"; truth_points.json: for every image the points of the line as [pixel x,
/// pixel y, x, y, z], camera frame.
void writeLaserScanFolder(std::string const& folder, LaserRig const& rig, Scene const& scene,
                          Stage const& stage, FolderOptions const& options = {});

/// The true calibration in the JSON form of the library's Sl3dScanner, StereoCamera and LineScanner.
void writeScannerTruth(std::string const& path, Rig const& rig);
void writeStereoTruth(std::string const& path, StereoRig const& rig);
void writeLaserTruth(std::string const& path, LaserRig const& rig);

} // namespace vorn::sim
