// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/scan/exposure_folder.hpp"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <map>
#include <set>
#include <utility>

#include <vorn/core/exception.hpp>

#include "sl/coding/stripe_code.hpp"
#include "tools/commands/size_option.hpp"
#include "tools/files/file_list.hpp"
#include "tools/files/image_files.hpp"
#include "tools/progress.hpp"

namespace vorn::tools {

namespace fs = std::filesystem;

namespace {

using Sequences = std::map<std::string, std::vector<std::string>>;

/// A picture's name without the two digits or more that number it.
std::string sequenceOf(fs::path const& path) {
  std::string const stem = path.stem().string();
  std::size_t end = stem.size();
  while (end > 0 && std::isdigit(static_cast<unsigned char>(stem[end - 1])) != 0) {
    --end;
  }
  constexpr std::size_t fewestDigits = 2;
  if (stem.size() - end < fewestDigits) {
    return stem;
  }
  while (end > 0 && stem[end - 1] == '_') {
    --end;
  }
  return end == 0 ? "images" : stem.substr(0, end);
}

/// The pictures in a folder by their sequences, in the order of their names. Beside those of a scanner or of
/// a calibration's view, other pictures are results.
void addSequences(fs::path const& folder, std::string const& prefix, Sequences& sequences) {
  std::vector<fs::path> pictures;
  for (auto const& entry : fs::directory_iterator(folder)) {
    if (entry.is_regular_file() && hasPictureEnding(entry.path())) {
      pictures.push_back(entry.path());
    }
  }
  std::sort(pictures.begin(), pictures.end(),
            [](fs::path const& a, fs::path const& b) { return comesBefore(a.string(), b.string()); });
  static std::set<std::string> const captured{"columns", "rows", "line", "target", "target_1"};
  auto const isCaptured = [](fs::path const& picture) { return captured.count(sequenceOf(picture)) != 0; };
  if (std::any_of(pictures.begin(), pictures.end(), isCaptured)) {
    pictures.erase(std::remove_if(pictures.begin(), pictures.end(),
                                  [&](fs::path const& picture) { return !isCaptured(picture); }),
                   pictures.end());
  }
  for (fs::path const& picture : pictures) {
    sequences[prefix + sequenceOf(picture)].push_back(picture.string());
  }
}

constexpr std::size_t phaseCount = 4;

/// The period of a sequence's fringes, projector pixels; 0 for images that are none.
double periodOf(std::string const& name) {
  std::string const sequence = fs::path(name).filename().string();
  return sequence == "columns" ? mv::sl::columnCode.period
         : sequence == "rows"  ? mv::sl::rowCode.period
                               : 0.0;
}

Exposure exposureOf(CapturedSequence const& sequence) {
  double const period = periodOf(sequence.name);
  if (period > 0.0 && sequence.files.size() < phaseCount) {
    throw Exception(sequence.name + ": has " + std::to_string(sequence.files.size()) +
                        " images; the exposure of fringes is told by the first 4, the phase images",
                    nullptr, 0, "exposure");
  }
  std::vector<cv::Mat> images;
  for (std::string const& file : sequence.files) {
    images.push_back(readGrayImage(file));
    if (images.back().size() != images.front().size()) {
      throw Exception(file + " has " + sizeText(images.back().size()) + " pixels, " + sequence.files.front() +
                          " " + sizeText(images.front().size()),
                      nullptr, 0, "exposure");
    }
  }
  return period > 0.0 ? exposureOfFringes(images, period, sequence.ground)
                      : exposureOfImages(images, sequence.ground);
}

} // namespace

std::vector<CapturedSequence> sequencesIn(std::string const& folder) {
  if (!fs::is_directory(folder)) {
    throw Exception("There is no folder " + folder, nullptr, 0, "exposure");
  }
  Sequences sequences;
  addSequences(folder, "", sequences);
  if (sequences.empty()) {
    for (auto const& entry : fs::recursive_directory_iterator(folder)) {
      if (entry.is_directory()) {
        addSequences(entry.path(), entry.path().lexically_relative(folder).generic_string() + "/", sequences);
      }
    }
  }
  if (sequences.empty()) {
    throw Exception(folder + " has no pictures", nullptr, 0, "exposure");
  }
  std::vector<CapturedSequence> result;
  for (auto& [name, files] : sequences) {
    if (periodOf(name) > 0.0 && files.size() > phaseCount) {
      files.resize(phaseCount);
    }
    bool const isOfTarget = sequences.count(name.substr(0, name.rfind('/') + 1) + "target") != 0;
    result.push_back({name, std::move(files), isOfTarget ? Ground::IsNoFault : Ground::Counts});
  }
  return result;
}

std::vector<SequenceExposure> exposuresOf(std::string const& folder, Observer* observer) {
  std::vector<CapturedSequence> const sequences = sequencesIn(folder);
  std::vector<SequenceExposure> all;
  for (CapturedSequence const& sequence : sequences) {
    tell(observer, "judging exposure", all.size(), sequences.size());
    all.push_back({sequence.name, sequence.files.size(), exposureOf(sequence)});
  }
  tell(observer, "judging exposure", 1, 1);
  return all;
}

} // namespace vorn::tools
