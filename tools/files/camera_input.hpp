// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

namespace vorn::tools {

/// Whether a file's name says that OpenCV's storage wrote it: .yml, .yaml or .xml.
bool isOpenCvStorage(std::string const& path);

/// A camera: of a document of its own, of a scanner's, or of a file of OpenCV's (YAML, XML or JSON).
/// @throws Exception that names the file and what is wrong with it
mv::CameraModel readCamera(std::string const& path);

/// Reads a calibrated structured-light scanner.
/// @throws Exception that names the file and what is wrong with it, above all that it holds something else
void loadScanner(std::string const& path, mv::Sl3dScanner& scanner);

} // namespace vorn::tools
