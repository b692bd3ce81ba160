// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/commands/target_options.hpp"

#include <nlohmann/json.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/core/json_file.hpp>

#include "tools/commands/size_option.hpp"

namespace vorn::tools {

void TargetOptions::addTo(CLI::App& command, CLI::Option* other) {
  CLI::Option* file =
      command.add_option("--target", file_, "Description of the target, a file as target.json");
  CLI::Option* size = command
                          .add_option("--size", size_,
                                      "Columns and rows of a target without the three markers, as 10x8: of "
                                      "dots, of a staggered grid's "
                                      "dots in a row and rows, of a chessboard's inner corners")
                          ->type_name("CxR")
                          ->excludes(file);
  CLI::Option* kind = command.add_option("--kind", kind_, "What the target's points are; default: circles")
                          ->check(CLI::IsMember({"circles", "staggered", "chessboard"}))
                          ->excludes(file);
  if (other != nullptr) {
    for (CLI::Option* option : {file, size, kind}) {
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
    return load<mv::TargetDescription>(file_);
  }
  // Read as a file would be, so that both are held to the same bounds.
  nlohmann::json json = {{"kind", kind_.empty() ? "circles" : kind_}, {"pitch", pitch > 0 ? pitch : 1.0}};
  if (size_.empty()) {
    json["marks"] = {{0, 0}, {1, 0}, {0, 1}};
  } else {
    cv::Size const size = parsePixels(size_, "--size");
    json["size"] = {size.width, size.height};
  }
  mv::TargetDescription target;
  target.read(json);
  return target;
}

} // namespace vorn::tools
