// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/report/report.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <set>

#include <vorn/core/exception.hpp>

#include "tools/files/input_file.hpp"
#include "tools/files/json_file.hpp"
#include "tools/report/page.hpp"
#include "tools/report/page_options.hpp"
#include "tools/report/sha256.hpp"
#include "tools/report/warning.hpp"

namespace vorn::tools {

namespace {

/// "small-cluster" as a member's name: "smallCluster".
std::string memberName(std::string const& option) {
  std::string name;
  bool isUpper = false;
  for (char const c : option.substr(std::min(option.find_first_not_of('-'), option.size()))) {
    name += isUpper ? static_cast<char>(std::toupper(static_cast<unsigned char>(c))) : c;
    isUpper = c == '-';
    if (isUpper) {
      name.pop_back();
    }
  }
  return name;
}

/// A number where the option takes numbers; paths and names may look like one.
nlohmann::json valueOf(std::string const& text, bool isText) {
  nlohmann::json const parsed = isText ? nlohmann::json() : nlohmann::json::parse(text, nullptr, false);
  return parsed.is_number() ? parsed : nlohmann::json(text);
}

nlohmann::json valuesOf(CLI::Option const& option) {
  if (option.get_items_expected_max() == 0) {
    return option.count() > 0; // a flag
  }
  bool const isText = option.get_type_name().rfind("TEXT", 0) == 0;
  if (option.count() == 0) {
    return valueOf(option.get_default_str(), isText);
  }
  nlohmann::json values = nlohmann::json::array();
  for (std::string const& text : option.results()) {
    values.push_back(valueOf(text, isText));
  }
  return option.get_items_expected_max() == 1 ? values.front() : values;
}

nlohmann::json optionsOf(CLI::App const& command) {
  static std::set<std::string> const others{"help", "report", "json", "quiet", "verbose"};
  nlohmann::json options = nlohmann::json::object();
  for (CLI::Option const* option : command.get_options()) {
    std::string const name = memberName(option->get_single_name());
    bool const isSaid =
        option->count() > 0 || !option->get_default_str().empty() || option->get_items_expected_max() == 0;
    // Steps that act in the order of the command line are the command's own to report.
    if (others.count(name) == 0 && isSaid && !option->get_trigger_on_parse()) {
      options[name] = valuesOf(*option);
    }
  }
  return options;
}

nlohmann::json valueOf(Property const& property) {
  Variant const value = property.getValue();
  switch (value.type()) {
  case Variant::Type::Int:
  case Variant::Type::Int64:
    return value.toInt64();
  case Variant::Type::Double:
    return value.toDouble();
  case Variant::Type::Bool:
    return value.toBool();
  default:
    return value.toString();
  }
}

std::string hashOf(std::string const& path) {
  std::ifstream file(path, std::ios::binary);
  Sha256 hash;
  constexpr std::size_t pieceSize = std::size_t{1} << 18;
  std::vector<char> piece(pieceSize);
  while (file.read(piece.data(), static_cast<std::streamsize>(piece.size())) || file.gcount() > 0) {
    hash.update(piece.data(), static_cast<std::size_t>(file.gcount()));
  }
  if (!file.eof()) {
    throw Exception("Cannot read " + path + ": " + std::strerror(errno), nullptr, 0, "report");
  }
  return hash.digest();
}

} // namespace

Report::Report(CLI::App const& command, std::vector<std::string> paths, bool mayReplace)
    : mayReplace_(mayReplace) {
  for (std::string const& path : paths) {
    places_.push_back(placeOf(path));
  }
  constexpr int version = 1;
  json_ = {{"schema", {{"name", "vorn-mv." + command.get_name()}, {"version", version}}},
           {"tool", {{"name", "vorn-mv"}, {"version", VORN_MV_VERSION}}},
           {"inputs", nlohmann::json::array()},
           {"settings", {{"options", optionsOf(command)}, {"properties", nlohmann::json::object()}}},
           {"warnings", nlohmann::json::array()}};
}

void Report::wantPage(PageOptions const& options) {
  if (!options.path.empty()) {
    pagePath_ = options.path;
    page_ = std::make_shared<Page>();
    page_->setMostPoints(options.mostPoints);
  }
}

void Report::declare(std::vector<std::string> const& inputs, std::vector<std::string> outputs) {
  for (Place const& place : places_) {
    outputs.push_back(place.path);
  }
  outputs.push_back(pagePath_);
  checkOutputs(outputs, mayReplace_ ? std::vector<std::string>() : inputs);
  for (std::string const& input : inputs) {
    checkInputFile(input);
    if (isWanted() && !input.empty()) {
      addInput(input);
    }
  }
}

void Report::addInput(std::string const& path) {
  nlohmann::json input = {{"path", path}, {"size", nullptr}, {"sha256", nullptr}};
  if (std::filesystem::is_regular_file(path)) {
    input["size"] = std::filesystem::file_size(path);
    input["sha256"] = hashOf(path);
  }
  json_["inputs"].push_back(std::move(input));
}

void Report::addProperties(IPropertySet const& object) {
  std::string const name = object.getClassName();
  nlohmann::json& values = json_["settings"]["properties"][name.substr(name.rfind(':') + 1)];
  values = nlohmann::json::object();
  for (Property const* property : object.getProperties()) {
    values[property->getName()] = valueOf(*property);
  }
}

Report::Place Report::placeOf(std::string const& path) {
  std::error_code absent;
  auto const time = std::filesystem::last_write_time(path, absent);
  return {path, !absent, time};
}

std::vector<FileContent> Report::takeFiles() {
  std::vector<FileContent> files;
  noteWarnings();
  for (Place const& place : isTaken_ ? std::vector<Place>() : places_) {
    Place const now = placeOf(place.path);
    bool const isFile = std::filesystem::is_regular_file(std::filesystem::status(place.path));
    if (isFile && now.isThere && (!place.isThere || now.time != place.time) &&
        !isStandardOutput(place.path)) {
      throw Exception("Cannot write the report to " + place.path + ": another output went there", nullptr, 0,
                      "report");
    }
    files.push_back({place.path, jsonText(json_)});
  }
  if (isPageWanted() && !isTaken_) {
    files.push_back(pageFile());
  }
  isTaken_ = true;
  return files;
}

void Report::noteWarnings() {
  for (std::string const& warning : takeWarnings()) {
    json_["warnings"].push_back(warning);
    if (isPageWanted()) {
      page_->findings.push_back({PageFinding::Weight::Warning, warning, ""});
    }
  }
}

FileContent Report::pageFile() const {
  return {pagePath_, html(*page_, json_)};
}

void Report::writePage() {
  if (isPageWanted()) {
    noteWarnings();
    writeTogether({pageFile()});
  }
}

void Report::write() {
  writeTogether(takeFiles());
}

} // namespace vorn::tools
