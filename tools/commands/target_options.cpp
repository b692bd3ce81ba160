// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/commands/target_options.hpp"

#include <nlohmann/json.hpp>

#include <vorn/core/exception.hpp>

#include "tools/commands/number_check.hpp"
#include "tools/commands/size_option.hpp"
#include "tools/files/target_file.hpp"

namespace vorn::tools {

void TargetOptions::addTo(CLI::App& command, CLI::Option* other) {
  CLI::Option* file =
      command.add_option("--target", file_, "Description of the target, a file as target.json");
  CLI::Option* size = command
                          .add_option("--size", size_,
                                      "Columns and rows of a target without the three markers, as 10x8: of "
                                      "dots, of a staggered grid's "
                                      "dots in a row and rows, of chessboards' inner corners")
                          ->type_name("CxR")
                          ->excludes(file);
  CLI::Option* kind = command.add_option("--kind", kind_, "What the target's points are; default: circles")
                          ->check(CLI::IsMember({"circles", "staggered", "chessboard", "charuco"}))
                          ->excludes(file);
  CLI::Option* marker = command
                            .add_option("--marker-size", markerSize_,
                                        "Side of a ChArUco board's markers with their dark border, mm")
                            ->type_name("MM")
                            ->check(aboveZero())
                            ->needs(kind);
  CLI::Option* dictionary =
      command
          .add_option("--dictionary", dictionary_, "Dictionary of a ChArUco board's markers, as DICT_5X5_100")
          ->type_name("NAME")
          ->needs(kind);
  if (other != nullptr) {
    for (CLI::Option* option : {file, size, kind, marker, dictionary}) {
      option->excludes(other);
    }
  }
}

mv::TargetDescription TargetOptions::description(double pitch) const {
  if (!file_.empty()) {
    if (pitch > 0) {
      throw Exception("The pitch stands in " + file_ + " and is given by --pitch too", nullptr, 0,
                      "--target");
    }
    return readTarget(file_);
  }
  // Read as a file would be, so that both are held to the same bounds.
  nlohmann::json json = {{"kind", kind_.empty() ? "circles" : kind_}, {"pitch", pitch > 0 ? pitch : 1.0}};
  if (kind_ == "charuco") {
    if (!(pitch > 0)) {
      throw Exception("The markers of a ChArUco board are measured by --marker-size: give its squares' side "
                      "by --pitch too",
                      nullptr, 0, "--kind");
    }
    json["markerSize"] = markerSize_;
    json["dictionary"] = dictionary_;
  } else if (markerSize_ != 0 || !dictionary_.empty()) {
    throw Exception("--marker-size and --dictionary belong to --kind charuco", nullptr, 0, "--kind");
  }
  if (size_.empty() && kind_ != "charuco") {
    json["marks"] = {{0, 0}, {1, 0}, {0, 1}};
  } else if (!size_.empty()) {
    cv::Size const size = parsePixels(size_, "--size");
    json["size"] = {size.width, size.height};
  }
  mv::TargetDescription target;
  target.read(json);
  prepareFor(target);
  return target;
}

} // namespace vorn::tools
