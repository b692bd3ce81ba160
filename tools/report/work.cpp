// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/report/work.hpp"

#include <algorithm>
#include <iostream>
#include <memory>
#include <streambuf>
#include <utility>

#include <vorn/core/exception.hpp>
#include <vorn/core/system.hpp>

#include "tools/commands/number_check.hpp"
#include "tools/files/input_file.hpp"
#include "tools/report/warning.hpp"

namespace vorn::tools {

namespace {

struct CommonOptions {
  std::string report;
  bool isJson = false;
  bool isQuiet = false;
  bool isVerbose = false;
  bool mayReplace = false;
  std::uint64_t mostMegabytes = usualInputLimit >> 20U;
};

/// Leads `std::cout` elsewhere as long as it lives: nowhere when null.
class Diversion {
public:
  explicit Diversion(std::streambuf* target) : before_(std::cout.rdbuf(target)) {}
  Diversion(Diversion const&) = delete;
  Diversion& operator=(Diversion const&) = delete;
  ~Diversion() { std::cout.rdbuf(before_); } // and its state is good again

private:
  std::streambuf* before_;
};

bool givesStandardOutput(CLI::App const& command) {
  for (CLI::Option const* option : command.get_options()) {
    auto const& values = option->results();
    if (std::any_of(values.begin(), values.end(), isStandardOutput)) {
      return true;
    }
  }
  return false;
}

void doWork(CLI::App const& command, CommonOptions const& options, std::function<void(Report&)> const& work) {
  if (options.isVerbose) {
    System::set("EnableDebugMode", Variant(true));
  }
  setInputLimit(options.mostMegabytes << 20U);
  takeWarnings(); // of an earlier command
  std::vector<std::string> paths;
  if (!options.report.empty()) {
    paths.push_back(options.report);
  }
  if (options.isJson) {
    paths.emplace_back("-");
  }
  if (std::count_if(paths.begin(), paths.end(), isStandardOutput) > 1) {
    throw CLI::ExcludesError("--json", "--report " + options.report);
  }
  Report report(command, std::move(paths), options.mayReplace);
  std::streambuf* const target = options.isQuiet || options.isJson ? nullptr
                                 : givesStandardOutput(command)    ? std::cerr.rdbuf()
                                                                   : std::cout.rdbuf();
  Diversion const diversion(target);
  work(report);
  report.write();
}

} // namespace

void setWork(CLI::App& command, std::function<void(Report&)> work, std::string const& reportNames,
             std::string const& content) {
  auto const options = std::make_shared<CommonOptions>();
  command.add_option(reportNames, options->report,
                     "JSON file for " + (content.empty() ? "what was done" : content) +
                         ", with inputs and settings; - for standard output");
  command.add_flag("--json", options->isJson, "The report on standard output, and nothing else there");
  command.add_flag("--quiet", options->isQuiet, "Nothing on standard output but files that go there");
  command.add_flag("--verbose", options->isVerbose, "The library's own messages on standard error");
  constexpr std::uint64_t most = std::uint64_t{1} << 40;
  command.add_flag("--replace-input", options->mayReplace, "Let an output take the place of an input");
  command.add_option("--max-input", options->mostMegabytes, "Refuse files to read that are larger")
      ->type_name("MB")
      ->transform(between(std::uint64_t{1}, most >> 20U))
      ->capture_default_str();
  command.callback([&command, options, work = std::move(work)] { doWork(command, *options, work); });
}

} // namespace vorn::tools
