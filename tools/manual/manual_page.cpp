// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/manual/outline.hpp"
#include "tools/manual/writers.hpp"

namespace vorn::tools {

namespace {

/// Text as the formatter takes it: dashes that stay dashes, and no line that it takes for a request.
std::string escaped(std::string const& text) {
  std::string result;
  for (char const c : text) {
    if (c == '\\') {
      result += "\\e";
    } else if (c == '-') {
      result += "\\-";
    } else {
      result += c;
    }
  }
  return result.empty() || (result[0] != '.' && result[0] != '\'') ? result : "\\&" + result;
}

std::string bold(std::string const& text) {
  return "\\fB" + escaped(text) + "\\fR";
}

std::string italic(std::string const& text) {
  return "\\fI" + escaped(text) + "\\fR";
}

/// "--outlier MM COUNT", or the name of a positional argument.
std::string usageOf(ArgumentOutline const& argument, bool isPositional) {
  if (isPositional) {
    return italic(argument.names.front()) + (argument.mayRepeat ? " ..." : "");
  }
  std::string text;
  for (std::string const& name : argument.names) {
    text += (text.empty() ? "" : ", ") + bold(name);
  }
  for (std::string const& value : argument.values) {
    text += " " + italic(value);
  }
  return text;
}

void writeArgument(std::ostream& out, ArgumentOutline const& argument, bool isPositional) {
  out << ".TP\n" << usageOf(argument, isPositional) << '\n' << escaped(argument.help);
  char const last = argument.help.empty() ? '.' : argument.help.back();
  out << (last == '.' ? "" : ".");
  for (std::string const& rule : argument.rules) {
    out << ' ' << escaped(rule);
  }
  if (argument.isRequired && !isPositional) {
    out << " Required.";
  }
  if (argument.mayRepeat && !isPositional) {
    out << " May be repeated.";
  }
  out << '\n';
}

void writeCommand(std::ostream& out, CommandOutline const& command) {
  out << ".SS " << bold("vorn-mv " + command.name);
  for (ArgumentOutline const& option : command.options) {
    if (option.isRequired) {
      out << ' ' << usageOf(option, false);
    }
  }
  out << " [" << italic("options") << ']';
  for (ArgumentOutline const& argument : command.positionals) {
    std::string const usage = usageOf(argument, true);
    out << ' ' << (argument.isRequired ? usage : "[" + usage + "]");
  }
  out << '\n' << escaped(command.help) << ".\n";
  for (ArgumentOutline const& argument : command.positionals) {
    writeArgument(out, argument, true);
  }
  for (ArgumentOutline const& option : command.options) {
    writeArgument(out, option, false);
  }
}

} // namespace

void writeManualPage(std::ostream& out, CLI::App const& program, std::string const& version) {
  CommandOutline const outline = outlineOf(program);
  out << ".TH VORN\\-MV 1 \"\" " << escaped("vorn-mv " + version).insert(0, "\"") << "\" \"User Commands\"\n";
  out << ".SH NAME\nvorn\\-mv \\- calibrate 3D scanners, scan, and clean point clouds\n";
  out << ".SH SYNOPSIS\n"
      << bold("vorn-mv") << ' ' << italic("command") << " [" << italic("options") << "]\n";
  out << ".br\n" << bold("vorn-mv") << ' ' << italic("command") << ' ' << bold("--help") << '\n';
  out << ".SH DESCRIPTION\n" << escaped(outline.help) << "\n";
  out << ".SH OPTIONS\n";
  for (ArgumentOutline const& option : outline.options) {
    writeArgument(out, option, false);
  }
  out << ".SH COMMANDS\n";
  for (CommandOutline const& command : commandsOf(program)) {
    writeCommand(out, command);
  }
  out << ".SH EXIT STATUS\n"
         ".TP\n0\nDone.\n"
         ".TP\n1\nFailed; a line on standard error says what and where. No file is left half written.\n"
         ".TP\n2\nWrong usage.\n";
  out << ".SH EXAMPLES\nA rig rendered for trying, its calibration, a scan, and a cleaner cloud:\n.PP\n.nf\n"
      << escaped("    vorn-mv simulate rig\n"
                 "    vorn-mv calibrate rig/calib --pitch 15 --out scanner.json\n"
                 "    vorn-mv scan rig/scan --calib scanner.json --out cloud.ply --preview cloud.png\n"
                 "    vorn-mv filter cloud.ply clean.ply --outlier 1.0 8 --small-cluster 1.0 500\n")
      << ".fi\n";
}

} // namespace vorn::tools
