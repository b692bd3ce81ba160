// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Validators.hpp>
#include <nlohmann/json.hpp>

#include <vorn/core/property_set.hpp>

#include "tools/files/output_path.hpp"
#include "tools/report/warning.hpp"

namespace vorn::tools {

class Page;
struct PageOptions;

/// What a command did, in the one form that all reports of the tool have: an object with
///
/// - "schema": "name", which is "vorn-mv." and the command, and "version", which grows with every change that
///   a reader could stumble over;
/// - "tool": "name" and "version" of the program;
/// - "inputs": a list of what was read, each with "path", "size" in bytes and "sha256"; both are null for
///   what is no regular file, such as a pipe;
/// - "settings": "options", those of the command line with their values and defaults, and "properties", all
///   properties that were used, by class;
/// - "warnings": a list of texts, those of `warn`;
///
/// and beside them the command's own members. All names are in camelCase, those of properties as they are.
/// Each command's form stands in tools/report/schema as a JSON schema.
class Report {
public:
  /// @param command       whose options are taken as they were parsed
  /// @param paths         where to write it, "-" for standard output; none when nobody wants one
  /// @param mayReplace    whether outputs may be inputs
  Report(CLI::App const& command, std::vector<std::string> paths, bool mayReplace);

  /// Whether it is written anywhere, be it within a page. Inputs are hashed only then.
  bool isWanted() const { return !places_.empty() || page_ != nullptr; }

  /// Says before `declare` whether the report is to be shown as a page too, which is written with it.
  void wantPage(PageOptions const& options);
  /// Whether there is to be a page.
  bool isPageWanted() const { return page_ != nullptr; }
  /// What the page shows beside the report itself: to be filled before the report is written.
  Page& page() { return *page_; }

  /// To be called before long work: checks that the outputs and the report can be written and that none of
  /// them is another or an input, and notes the inputs, which are read through once more for their hashes.
  /// Empty paths are passed over.
  /// @throws Exception as `checkOutputs`; for an input that is a folder, a device or too large, or that
  /// cannot
  ///         be read
  void declare(std::vector<std::string> const& inputs, std::vector<std::string> outputs);

  /// Writes it to one more file, whether or not another is wanted.
  void alsoWriteTo(std::string const& path) { places_.push_back(placeOf(path)); }

  /// Adds the properties of an object, all of them.
  void addProperties(IPropertySet const& object);

  /// Says on standard error what the user should know though the work goes on, and notes it.
  void warn(std::string const& text) { tools::warn(text); }

  /// A member of the command's own.
  nlohmann::json& operator[](std::string const& name) { return json_[name]; }
  bool has(std::string const& name) const { return json_.contains(name); }

  /// Adds each member of an object as one of the command's own.
  void add(nlohmann::json const& members) { json_.update(members); }

  /// The report as files to write, for those that are to stand there together with others; `write` writes
  /// nothing then.
  std::vector<FileContent> takeFiles();

  /// Writes it to where it goes, unless that is done.
  /// @throws Exception when that is not possible, or when the command itself has written a file there since
  ///         the report was begun
  void write();

  /// Writes the page alone, where one is wanted: of work that fails and has something to show all the same.
  void writePage();

private:
  /// What stood under a path, to see whether it was written.
  struct Place {
    std::string path;
    bool isThere;
    std::filesystem::file_time_type time;
  };

  static Place placeOf(std::string const& path);
  void addInput(std::string const& path);
  void noteWarnings();
  FileContent pageFile() const;

  std::vector<Place> places_;
  std::string pagePath_;
  std::shared_ptr<Page> page_;
  bool mayReplace_;
  nlohmann::json json_;
  bool isTaken_ = false;
};

} // namespace vorn::tools
