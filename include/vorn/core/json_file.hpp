// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <nlohmann/json_fwd.hpp>

#include <vorn/core/export.hpp>
#include <vorn/core/interfaces.hpp>

namespace vorn {

/// The content of a JSON file.
/// @throws Exception that names the file: "There is no file scanner.json", or with the system's reason, or
///         that it is longer than 128 MB, or with the line and column where it is no JSON
[[nodiscard]] VORN_API nlohmann::json readJsonFile(std::string const& path);

/// Writes JSON, indented by one blank a level. An existing file is replaced only once the new one is complete
/// (see `AtomicFile`).
/// @throws Exception that names the file when it cannot be written; the old file is untouched then
VORN_API void writeJsonFile(std::string const& path, nlohmann::json const& json);

/// Reads an object from a JSON file, as its `read` does.
/// @throws Exception that names the file and what is wrong in it; the object is as it was then
VORN_API void load(std::string const& path, IJsonSerializable& object);

/// A new object from a JSON file: `auto const scanner = vorn::load<vorn::mv::Sl3dScanner>("scanner.json");`.
/// @throws Exception that names the file and what is wrong in it
template <class T>
[[nodiscard]] T load(std::string const& path) {
  T object;
  load(path, static_cast<IJsonSerializable&>(object));
  return object;
}

/// Writes an object to a JSON file, as its `write` does. An existing file is replaced only once the new one
/// is complete.
/// @throws Exception that names the file when it cannot be written, or the object cannot; the old file is
///         untouched then
VORN_API void save(std::string const& path, IJsonSerializable const& object);

} // namespace vorn
