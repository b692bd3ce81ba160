// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/files/json_file.hpp"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>

#include <nlohmann/json.hpp>

#include <vorn/core/atomic_file.hpp>
#include <vorn/core/exception.hpp>

namespace vorn::tools {

nlohmann::json readJsonFile(std::string const& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw Exception("Cannot open " + path + ": " + std::strerror(errno), nullptr, 0, "json");
  }
  std::string const text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  if (file.bad()) {
    throw Exception("Cannot read " + path, nullptr, 0, "json");
  }
  try {
    return nlohmann::json::parse(text);
  } catch (nlohmann::json::parse_error const& e) {
    throw Exception(path + " is not JSON: " + e.what(), nullptr, 0, "json");
  }
}

std::string jsonText(nlohmann::json const& json) {
  return json.dump(1) + "\n";
}

void writeJsonFile(std::string const& path, nlohmann::json const& json) {
  AtomicFile file(path);
  file.write(jsonText(json));
  file.commit();
}

void readObject(std::string const& path, IJsonSerializable& object) {
  nlohmann::json const json = readJsonFile(path);
  try {
    object.read(json);
  } catch (Exception const& e) {
    throw Exception(path + ": " + e.message(), nullptr, 0, e.file().c_str());
  } catch (nlohmann::json::exception const& e) {
    throw Exception(path + ": " + e.what(), nullptr, 0, "read");
  }
}

void writeObject(std::string const& path, IJsonSerializable const& object) {
  nlohmann::json json;
  object.write(json);
  writeJsonFile(path, json);
}

} // namespace vorn::tools
