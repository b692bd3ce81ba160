// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace vorn::tools {

/// Checks before a long computation that its results can be written: that the folder of each path exists and
/// can be written to, that no folder stands in the file's place, and that no two of them are one file, nor
/// one of the inputs. Empty paths are passed over.
/// @throws Exception that names the first path for which this does not hold
void checkOutputs(std::vector<std::string> const& paths, std::vector<std::string> const& inputs = {});

/// Whether a path stands for standard output: "-", /dev/stdout and the like.
bool isStandardOutput(std::string const& path);

/// The ending of a path in lower case, with its dot; empty when there is none.
std::string lowerCaseEnding(std::string const& path);

/// Whether a path ends in .tif or .tiff: the picture format that holds floating-point values.
bool isTiff(std::string const& path);

/// A file and what is to stand in it; "-" for standard output.
struct FileContent {
  std::string path;
  std::string bytes;
};

/// Writes files that belong together: what fails before all of them are complete leaves every one as it was.
/// They appear in their order.
/// @throws Exception when one cannot be written
void writeTogether(std::vector<FileContent> const& contents);

} // namespace vorn::tools
