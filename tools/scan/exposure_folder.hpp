// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <vorn/core/observer.hpp>

#include "tools/scan/exposure.hpp"

namespace vorn::tools {

/// Pictures that belong together.
struct CapturedSequence {
  std::string name;               ///< such as "columns" or "pose_03/rows"
  std::vector<std::string> files; ///< those that its exposure is told by, in order
  Ground ground = Ground::Counts;
};

/// The sequences in a folder: columns_00.png and so on, rows_00.png and so on, other numbered pictures,
/// others one by one. When the folder has no pictures, those in all folders in it.
/// @throws Exception when there are no pictures
std::vector<CapturedSequence> sequencesIn(std::string const& folder);

/// How the images of a sequence are exposed.
struct SequenceExposure {
  std::string name;       ///< of the sequence
  std::size_t images = 0; ///< that were judged
  Exposure exposure;
};

/// How the images of a folder are exposed.
struct FolderExposure {
  /// At which pixels of more than 8 bits are full, in their own grey values: as given, or as the brightest
  /// sequence shows; 0 where all pictures have 8 bits.
  double whiteLevel = 0.0;
  std::vector<SequenceExposure> sequences;
};

/// The exposure of every sequence in a folder; that of columns and rows by their phase images.
/// @param whiteLevel 0: to be found
/// @throws Exception as `sequencesIn`, when a picture cannot be read, has another depth or size than the
/// first
///         of its sequence or pixels that are no whole numbers, and for fewer than four images of columns or
///         rows
FolderExposure exposuresOf(std::string const& folder, double whiteLevel = 0.0, Observer* observer = nullptr);

} // namespace vorn::tools
