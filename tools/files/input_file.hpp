// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vorn::tools {

/// The most bytes of one file that the tool reads unless `--max-input` says otherwise: more than any camera's
/// picture takes, and less than what brings a machine to its knees.
constexpr std::uint64_t usualInputLimit = std::uint64_t{1} << 30;

/// Sets the most bytes of one file that the functions below take, for the whole program.
void setInputLimit(std::uint64_t bytes);

/// For what another reader is to read: that it is a file with an end.
/// @throws Exception for a folder, a device, and a file larger than the limit; none for what is not there,
///         whose reader says so, and for a pipe
void checkInputFile(std::string const& path);

/// The whole content of a file. Of a pipe it is what comes until its writer closes it, up to the limit.
/// @throws Exception as `checkInputFile`, and when the file cannot be read or a pipe brings more than the
/// limit
std::vector<unsigned char> readInputFile(std::string const& path);

} // namespace vorn::tools
