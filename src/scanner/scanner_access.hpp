// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/mat.hpp>

#include <vorn/mv/sl/sl3d_scanner.hpp>

#include "core/progress.hpp"
#include "scanner/scan/triangulation.hpp"
#include "sl/decode/grey_stack.hpp"
#include "sl/decode/scan_decoding.hpp"
#include "sl/decode/scan_stack.hpp"

namespace vorn::mv {

/// What whole jobs ask of a scanner beside its public calls.
struct ScannerAccess {
  /// `Sl3dScanner::decode` of images of any depth, watched. A stop leaves the scanner as it was.
  static sl::DecodedScan decode(Sl3dScanner& scanner, sl::GreyStack const& stack, sl::ReasonMap reasonMap,
                                Progress const& progress);

  /// The geometry of a calibrated scanner, with the rays of both devices, which it keeps.
  static sl::TriangulationSetup triangulationSetup(Sl3dScanner& scanner, Progress const& progress = {});

  /// @throws Exception when the scanner was read from a document that lacks the transform
  static void requireTransform(Sl3dScanner const& scanner, char const* context);

  /// @param images size of what is to become points; empty for none
  /// @throws Exception for a scanner that cannot make points, or not of such images
  static void requireScannable(Sl3dScanner const& scanner, cv::Size const& images);

  /// `Sl3dScanner::calib` without the rays of both devices and the messages about them. Returns whether the
  /// errors of both are small enough to have them.
  static bool calib(Sl3dScanner& scanner, CameraCalibData& camera, CameraCalibData& projector);

  /// The same where images of the wrong depth are an error.
  static sl::DecodedScan decodeStack(Sl3dScanner& scanner, sl::GreyStack const& stack, sl::StackDepth depth,
                                     sl::ReasonMap reasonMap, Progress const& progress);

  /// How the scanner codes the axis that it decodes.
  static sl::CodedAxis codedAxis(Sl3dScanner const& scanner);
};

} // namespace vorn::mv
