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
#include <vorn/mv/imaging/white_level.hpp>

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

constexpr char const* context = "exposure";

/// @throws Exception also for pixels that are no whole numbers
cv::Mat read(std::string const& file) {
  cv::Mat image = readDeepGrayImage(file);
  if (image.depth() != CV_8U && image.depth() != CV_16U) {
    throw Exception(file + " has " + cv::depthToString(image.depth()) +
                        " pixels; exposure is told of pictures of 8 or 16 bits",
                    nullptr, 0, context);
  }
  return image;
}

/// The grey value at which the camera's pixels are full: one for all sequences, as a dim one does not show
/// it.
double whiteOf(std::vector<CapturedSequence> const& sequences, Observer* observer) {
  double white = 0.0;
  for (std::size_t i = 0; i < sequences.size(); ++i) {
    tell(observer, "looking for the white level", i, sequences.size());
    std::vector<cv::Mat> images;
    for (std::string const& file : sequences[i].files) {
      images.push_back(read(file));
      if (images.back().depth() != images.front().depth()) {
        throw Exception(file + " is not of the depth of " + sequences[i].files.front(), nullptr, 0, context);
      }
    }
    if (images.front().depth() != CV_8U) {
      white = std::max(white, mv::findWhiteLevel(images));
    }
  }
  return white;
}

/// @param whiteLevel of deep pictures
Exposure exposureOf(CapturedSequence const& sequence, double whiteLevel) {
  double const period = periodOf(sequence.name);
  if (period > 0.0 && sequence.files.size() < phaseCount) {
    throw Exception(sequence.name + ": has " + std::to_string(sequence.files.size()) +
                        " images; the exposure of fringes is told by the first 4, the phase images",
                    nullptr, 0, context);
  }
  std::vector<cv::Mat> images;
  for (std::string const& file : sequence.files) {
    images.push_back(read(file));
    if (images.back().size() != images.front().size()) {
      throw Exception(file + " has " + sizeText(images.back().size()) + " pixels, " + sequence.files.front() +
                          " " + sizeText(images.front().size()),
                      nullptr, 0, context);
    }
  }
  constexpr double mostOf8Bits = 255.0;
  double const white = images.front().depth() == CV_8U ? mostOf8Bits : whiteLevel;
  return period > 0.0 ? exposureOfFringes(images, period, sequence.ground, white)
                      : exposureOfImages(images, sequence.ground, white);
}

} // namespace

std::vector<CapturedSequence> sequencesIn(std::string const& folder) {
  if (!fs::is_directory(folder)) {
    throw Exception("There is no folder " + folder, nullptr, 0, context);
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
    throw Exception(folder + " has no pictures", nullptr, 0, context);
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

FolderExposure exposuresOf(std::string const& folder, double whiteLevel, Observer* observer) {
  std::vector<CapturedSequence> const sequences = sequencesIn(folder);
  FolderExposure result;
  result.whiteLevel = whiteLevel > 0.0 ? whiteLevel : whiteOf(sequences, observer);
  for (CapturedSequence const& sequence : sequences) {
    tell(observer, "judging exposure", result.sequences.size(), sequences.size());
    result.sequences.push_back(
        {sequence.name, sequence.files.size(), exposureOf(sequence, result.whiteLevel)});
  }
  tell(observer, "judging exposure", 1, 1);
  return result;
}

} // namespace vorn::tools
