// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/core/json_file.hpp>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>

#include <nlohmann/json.hpp>

#include <vorn/core/atomic_file.hpp>

#include "core/error.hpp"
#include "core/json_member.hpp"

namespace vorn {

namespace {

constexpr char const* context = "json";
/// Far more than a calibration of a thousand views with its residuals, and less than what a pipe without an
/// end could fill the memory with: parsed, a bracket takes forty times its byte.
constexpr std::size_t mostMegabytes = 128;

/// What a call of the JSON library throws, as an exception that names the file.
template <class Body>
void inFile(std::string const& path, char const* caller, Body const& body) {
  try {
    body();
  } catch (Exception const& e) {
    throw error(path + ": " + e.message(), e.file().empty() ? caller : e.file().c_str());
  } catch (nlohmann::json::exception const& e) {
    throw error(path + ": " + wordsOf(e), caller);
  }
}

std::string contentOf(std::string const& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    int const reason = errno;
    throw error(reason == ENOENT ? "There is no file " + path
                                 : "Cannot open " + path + ": " + std::strerror(reason),
                context);
  }
  std::string text;
  std::array<char, 65536> piece;
  while (file.read(piece.data(), piece.size()) || file.gcount() > 0) {
    text.append(piece.data(), static_cast<std::size_t>(file.gcount()));
    if (text.size() > mostMegabytes << 20U) {
      throw error(path + " brings more than " + std::to_string(mostMegabytes) + " MB, too much for JSON",
                  context);
    }
  }
  if (file.bad()) {
    throw error("Cannot read " + path, context);
  }
  return text;
}

} // namespace

nlohmann::json readJsonFile(std::string const& path) {
  std::string const text = contentOf(path);
  try {
    return nlohmann::json::parse(text);
  } catch (nlohmann::json::exception const& e) {
    throw error(path + " is not JSON: " + wordsOf(e), context);
  }
}

void writeJsonFile(std::string const& path, nlohmann::json const& json) {
  std::string text;
  inFile(path, "save", [&] { text = json.dump(1) + "\n"; });
  AtomicFile file(path);
  file.write(text);
  file.commit();
}

void load(std::string const& path, IJsonSerializable& object) {
  nlohmann::json const json = readJsonFile(path);
  inFile(path, "load", [&] { object.read(json); });
}

void save(std::string const& path, IJsonSerializable const& object) {
  nlohmann::json json;
  inFile(path, "save", [&] { object.write(json); });
  writeJsonFile(path, json);
}

} // namespace vorn
