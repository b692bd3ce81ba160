// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <nlohmann/json_fwd.hpp>

#include <vorn/core/interfaces.hpp>

namespace vorn::tools {

/// @throws Exception when the file cannot be read or is not JSON, naming the file and the place
nlohmann::json readJsonFile(std::string const& path);

/// The text of a JSON file: indented.
std::string jsonText(nlohmann::json const& json);

/// Writes indented JSON; an existing file is replaced only once the new one is complete.
/// @throws Exception when it cannot be written
void writeJsonFile(std::string const& path, nlohmann::json const& json);

/// Reads an object from a JSON file.
/// @throws Exception that names the file and what is wrong in it; the object is unchanged then
void readObject(std::string const& path, IJsonSerializable& object);

/// Writes an object to a JSON file.
void writeObject(std::string const& path, IJsonSerializable const& object);

} // namespace vorn::tools
