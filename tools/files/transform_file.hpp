// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <nlohmann/json.hpp>
#include <opencv2/core/matx.hpp>

#include <vorn/mv/registration/registration.hpp>

namespace vorn::tools {

/// The motion between two files: their clouds' coordinates are relative to offsets, the files' are not.
/// @param target_from_source moves the points of the source to those of the target
cv::Matx44d betweenFiles(cv::Matx44d const& target_from_source, cv::Vec3d const& sourceOffset,
                         cv::Vec3d const& targetOffset);

/// The reverse of `betweenFiles`.
cv::Matx44d betweenClouds(cv::Matx44d const& target_from_source, cv::Vec3d const& sourceOffset,
                          cv::Vec3d const& targetOffset);

/// What a registration found, as the members of a transform file: "targetFromSource" for the coordinates of
/// the files, and how well it is known.
nlohmann::json transformJson(mv::Registration const& found, cv::Vec3d const& sourceOffset,
                             cv::Vec3d const& targetOffset);

/// A rigid motion of a file: four rows of four numbers, or a matrix object as `transformJson` writes. Of a
/// rotation of few digits, orthonormal to 1e-4, it is the nearest one.
/// @param path of the file, for messages
/// @throws Exception that names file and member when there is none, or it is no rigid motion
cv::Matx44d motionFrom(nlohmann::json const& json, char const* member, std::string const& path);

/// The member "targetFromSource" of a transform file.
/// @throws Exception that names the file when there is none, or it is no rigid motion
cv::Matx44d readTransform(std::string const& path);

/// A free motion in words: "slide along (0, 0, 1)".
std::string wordsOf(mv::FreeMotion const& motion);

/// All free motions of a registration in a sentence; empty when there is none.
std::string freeMotionsInWords(mv::Registration const& found);

/// What speaks against a registration, in a sentence; empty when nothing does.
std::string doubtsInWords(mv::Registration const& found);

} // namespace vorn::tools
