// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/mat.hpp>

#include <vorn/core/export.hpp>

/// The tables behind the decoders, one of each a process. They are empty until `Library::start`,
/// `Library::init` or `init_library` fills them, and read-only afterwards: all decoding threads share them.
namespace vorn::mv {

/// Phase of four-step patterns, radians in [0, 2π): 511 x 511, at row r and column c the angle of the vector
/// (c - 255, r - 255). The decoder reads it at row I0 - I2 + 255, column I1 - I3 + 255.
VORN_API cv::Mat_<float>& get_lut_atan2();

/// Amplitude of four-step patterns: 511 x 511, the length of the vector (c - 255, r - 255), which is twice
/// the fringe amplitude in grey levels.
VORN_API cv::Mat_<float>& get_lut_mag();

/// Phase of three-step patterns, radians in [0, 2π): 1021 x 511, at row r and column c the angle of the
/// vector (√3 (c - 255), r - 510). The decoder reads it at row 2 I0 - I1 - I2 + 510, column I1 - I2 + 255.
VORN_API cv::Mat_<float>& get_lut_atan2_p3();

/// Amplitude of three-step patterns: 1021 x 511, the length of the vector (√3 (c - 255), r - 510), which is
/// three times the fringe amplitude in grey levels.
VORN_API cv::Mat_<float>& get_lut_mag_p3();

/// Gray code word to number, 8192 entries.
VORN_API std::vector<unsigned short>& get_lut_gray2bin();

/// Number to Gray code word, 8192 entries.
VORN_API std::vector<unsigned short>& get_lut_bin2gray();

} // namespace vorn::mv
