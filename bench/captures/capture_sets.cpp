// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "capture_sets.hpp"

#include <algorithm>
#include <filesystem>

#include <nlohmann/json.hpp>

#include <vorn/core/exception.hpp>

#include "tools/files/file_list.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/json_file.hpp"
#include "tools/files/target_file.hpp"

namespace vorn::bench {

namespace fs = std::filesystem;

namespace {

CaptureSet listedSet(std::string const& folder, nlohmann::json const& entry) {
  CaptureSet set;
  set.name = entry.at("name").get<std::string>();
  set.target.read(entry.at("target"));
  tools::prepareFor(set.target);
  set.files = tools::expandFiles({(fs::path(folder) / entry.at("pictures").get<std::string>()).string()});
  set.openCvSize = set.target.size;
  if (entry.contains("opencvSize")) {
    set.openCvSize = {entry["opencvSize"].at(0).get<int>(), entry["opencvSize"].at(1).get<int>()};
  }
  return set;
}

/// The set of a folder that describes its target; without files when it does not.
CaptureSet describedSet(fs::path const& folder) {
  CaptureSet set;
  fs::path const description = folder / "target.json";
  if (!fs::is_regular_file(description)) {
    return set;
  }
  set.name = fs::weakly_canonical(folder).filename().string();
  set.target = tools::readTarget(description.string());
  set.openCvSize = set.target.size;
  for (auto const& entry : fs::directory_iterator(folder)) {
    if (entry.is_regular_file() && tools::hasPictureEnding(entry.path())) {
      set.files.push_back(entry.path().string());
    }
  }
  std::sort(set.files.begin(), set.files.end(), tools::comesBefore);
  return set;
}

} // namespace

std::vector<CaptureSet> captureSets(std::string const& folder, std::string const& description) {
  std::vector<CaptureSet> sets;
  if (!description.empty()) {
    for (nlohmann::json const& entry : tools::readJsonFile(description)) {
      sets.push_back(listedSet(folder, entry));
    }
    return sets;
  }
  std::vector<fs::path> places = {folder};
  for (auto const& entry : fs::directory_iterator(folder)) {
    if (entry.is_directory()) {
      places.push_back(entry.path());
    }
  }
  std::sort(places.begin(), places.end());
  for (fs::path const& place : places) {
    CaptureSet set = describedSet(place);
    if (!set.files.empty()) {
      sets.push_back(std::move(set));
    }
  }
  if (sets.empty()) {
    throw Exception("No folder in " + folder + " holds pictures and a target.json", nullptr, 0, "captures");
  }
  return sets;
}

} // namespace vorn::bench
