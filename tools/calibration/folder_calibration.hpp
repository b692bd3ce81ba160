// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <vorn/mv/scanner/calibrate_camera.hpp>
#include <vorn/mv/scanner/calibrate_laser.hpp>
#include <vorn/mv/scanner/calibrate_rig.hpp>
#include <vorn/mv/scanner/calibrate_scanner.hpp>
#include <vorn/mv/scanner/calibrate_stereo.hpp>

#include "tools/files/view_names.hpp"

/// The library's calibrations from the views in a folder: pose_00, pose_01 and so on in it, or in the one
/// that it holds as "calib", unless `names` calls them and their pictures otherwise. A view whose pictures
/// are missing or cannot be read is left out and says so.
namespace vorn::tools {

/// The pictures in the views' folders whose names begin with one of `prefixes`, a full stop or an underscore
/// behind it, as "columns" for columns_00.png, and those that `names` names; in order. Where there are no
/// such folders, every picture.
/// @throws Exception when there is neither
std::vector<std::string> calibrationPictures(std::string const& folder,
                                             std::vector<std::string> const& prefixes,
                                             ViewNames const& names = {});

/// The description of the target that lies with the views, target.json in the folder, in its "calib", or
/// beside the folder when that is "calib" itself; empty when there is none.
std::string targetFileOf(std::string const& folder);

/// From pose_00/target.png and so on; where there are no such folders, from every picture in the folder.
/// @throws Exception when there is neither; what `mv::calibrateCamera` throws
mv::CameraCalibration calibrateCamera(std::string const& folder, mv::CalibrationSettings const& settings,
                                      Observer* observer = nullptr, ViewNames const& names = {});

/// Where the pictures of a view lie, or its picture.
/// @throws Exception when there is no such folder
std::string viewPath(std::string const& folder, std::string const& view);

/// The description of the pattern set that the views were captured with: pattern_set.json in the folder of
/// the first view that has one, or beside the views; empty for views of the scanner's own sequence.
std::string patternSetFileOf(std::string const& folder);

/// Everything that is read of views of described pattern sets, as far as it is there.
std::vector<std::string> patternViewFiles(std::string const& folder);

/// From pose_00/target.png, columns_00.png ..., rows_00.png ... and so on; or, where `patternSetFileOf` finds
/// a description, from target.png and the images that it names.
/// @throws Exception when there are no such folders; what `mv::calibrateScanner` throws
mv::ScannerCalibration calibrateScanner(std::string const& folder, mv::CalibrationSettings const& settings,
                                        Observer* observer = nullptr, ViewNames const& names = {});

/// From pose_00/target.png and pose_00/target_1.png and so on.
mv::StereoCalibration calibrateStereo(std::string const& folder, mv::CalibrationSettings const& settings,
                                      Observer* observer = nullptr, ViewNames const& names = {});

/// The folder that holds what the second camera of a rig saw: "second" in the folder, or beside it when that
/// is "calib"; its views are in it, or in its "calib".
/// @throws Exception when there is none
std::string secondCameraFolder(std::string const& folder);

/// From the views of the first camera in the folder and those of the second one in `secondCameraFolder`, both
/// as of a scanner; those of one name are of one pose.
/// @throws Exception for views of described pattern sets; what `mv::calibrateRig` throws
mv::RigCalibration calibrateRig(std::string const& folder, mv::CalibrationSettings const& settings,
                                Observer* observer = nullptr, ViewNames const& names = {});

/// From pose_00/target.png and pose_00/line_00.png ..., an image a laser line.
mv::LaserCalibration calibrateLaser(std::string const& folder, mv::CalibrationSettings const& settings,
                                    Observer* observer = nullptr, ViewNames const& names = {});

} // namespace vorn::tools
