// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <exception>
#include <iostream>

#include <CLI/CLI.hpp>

#include <vorn/core/system.hpp>
#include <vorn/mv/core/library.hpp>

#include "commands.hpp"

namespace {

constexpr int failed = 1;
constexpr int wrongUsage = 2;

/// An error's text on one line, as scripts expect it.
std::string oneLine(std::string text) {
  for (char& c : text) {
    if (c == '\n') {
      c = ' ';
    }
  }
  return text;
}

} // namespace

int main(int argc, char** argv) {
  CLI::App app("Structured light and laser line 3D measurement: patterns, calibration, scans, point clouds.",
               "vorn-mv");
  app.require_subcommand(1);
  app.set_version_flag("--version", VORN_MV_VERSION);
  bool verbose = false;
  app.add_flag("--verbose", verbose, "Show the library's own messages on standard error");
  vorn::tools::addCommands(app);

  vorn::mv::Library::init();
  app.parse_complete_callback([&] { vorn::System::set("EnableDebugMode", vorn::Variant(verbose)); });
  try {
    app.parse(argc, argv);
  } catch (CLI::ParseError const& e) {
    return app.exit(e) == 0 ? 0 : wrongUsage;
  } catch (std::exception const& e) {
    std::cerr << "vorn-mv: " << oneLine(e.what()) << '\n';
    return failed;
  }
  return 0;
}
