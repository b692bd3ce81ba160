// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// What commands take for a number.
#include <algorithm>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>
#include <gtest/gtest.h>

#include "support/temporary_folder.hpp"
#include "support/tool_run.hpp"
#include "tools/commands/commands.hpp"
#include "tools/commands/number_check.hpp"

namespace vorn::tools {
namespace {

using test::run;
using test::ToolOutcome;

/// Kinds of values that are no numbers, as help texts name them. What has another kind is a number and needs
/// a check; a new option with a new kind of text belongs here.
std::set<std::string> const textKinds{"TEXT",   "FILE",   "PATTERN", "NAME",   "NAME=VALUE",
                                      "SIZE",   "CxR",    "COLOR",   "X,Y,Z",  "FILTER",
                                      "SOURCE", "TARGET", "IMAGE",   "CAMERA", "POSE"};

/// Whether all values of an option are texts.
bool isText(CLI::Option const& option) {
  std::string const type = option.get_type_name();
  std::istringstream kinds(type.substr(0, type.find(':')));
  for (std::string kind; kinds >> kind;) {
    if (textKinds.count(kind.substr(0, kind.find('['))) == 0) {
      return false;
    }
  }
  return true;
}

/// What the checks of an option say of a value, which they may change; empty for nothing.
std::string refusalOf(CLI::Option& option, std::string& value) {
  try {
    for (int i = 0;; ++i) {
      if (std::string const error = (*option.get_validator(i))(value); !error.empty()) {
        return error;
      }
    }
  } catch (CLI::OptionNotFound const&) {
    return "";
  }
}

TEST(NumberOptions, OfEveryCommandRefuseWhatIsNoNumberInWords) {
  auto const program = makeProgram();
  int numbers = 0;
  for (CLI::App* command : program->get_subcommands({})) {
    for (CLI::Option* option : command->get_options()) {
      if (option->get_items_expected_max() == 0 || isText(*option)) {
        continue;
      }
      ++numbers;
      std::string const name = command->get_name() + " " + option->get_name();
      // These tell of "inf" and "nan" themselves; so does --depth, which is one of two numbers.
      bool const isJudgedLater = command->get_name() == "filter" || option->get_name() == "--range";
      for (std::string value : {"15mm", "15,2", "nan", "inf", "-inf", "1e999"}) {
        std::string const error = refusalOf(*option, value);
        if (value.find_first_of("m,") != std::string::npos || !isJudgedLater) {
          EXPECT_NE(error.find(value), std::string::npos) << name << " " << value << ": " << error;
          EXPECT_LT(error.size(), 100U) << name << ": " << error;
        }
      }
    }
  }
  EXPECT_GT(numbers, 60);
}

TEST(NumberOptions, TakeLeadingZerosForDecimal) {
  auto const program = makeProgram();
  int wholes = 0;
  for (CLI::App* command : program->get_subcommands({})) {
    for (CLI::Option* option : command->get_options()) {
      std::string fraction = "2.5";
      std::string padded = "00010";
      if (option->get_items_expected_max() == 0 || isText(*option) ||
          refusalOf(*option, fraction).find("whole number") == std::string::npos) {
        continue;
      }
      ++wholes;
      if (refusalOf(*option, padded).empty()) {
        EXPECT_EQ(padded, "10") << command->get_name() << " " << option->get_name();
      }
    }
  }
  EXPECT_GT(wholes, 20);
  CLI::App app;
  int number = 0;
  app.add_option("--number", number)->transform(wholeNumber<int>());
  for (auto const& [text, value] : {std::pair("010", 10), {"08", 8}, {"-007", -7}, {"000", 0}}) {
    app.parse(std::string("--number=") + text);
    EXPECT_EQ(number, value) << text;
  }
}

TEST(NumberOptions, KeepTheirBounds) {
  struct Case {
    CLI::Validator check;
    std::vector<std::string> good;
    std::vector<std::string> bad;
  };
  for (Case const& c :
       {Case{aboveZero(), {"1e-30", "15.2", "3e38"}, {"0", "-0", "-1", "1e39", "", "1 2"}},
        Case{notBelowZero(), {"0", "-0", "0.5"}, {"-1e-30", "--1"}},
        Case{anyNumber(), {"-7.5", "0", "1e4"}, {"x", "-", "0x10", "1e39", "-1e39"}},
        Case{between(0.5, 2.5), {"0.5", "2.5"}, {"0.49", "2.51"}},
        Case{between(-3, 4), {"-3", "0", "4"}, {"-4", "5", "1.5", "1e0"}},
        Case{wholeNumber<int>(),
             {"-12", "0", "700", "+5", "008", "2147483647"},
             {"0.5", "7 8", " 7", "seven", "0x10", "-", "2147483648", "-2147483649", "99999999999999999999"}},
        Case{numeral(), {"nan", "-inf", "3.5"}, {"3,5", "3.5mm"}}}) {
    for (std::string const& value : c.good) {
      EXPECT_EQ(c.check(value), "") << value;
    }
    for (std::string const& value : c.bad) {
      EXPECT_NE(c.check(value).find("not '" + value + "'"), std::string::npos)
          << value << ": " << c.check(value);
    }
  }
}

TEST(NumberOptions, SayTheirRule) {
  EXPECT_EQ(aboveZero()(std::string("15,2")),
            "must be a number above 0 (decimal point, no unit), not '15,2'");
  EXPECT_EQ(between(1, 5)(std::string("2.5")), "must be a whole number from 1 to 5, not '2.5'");
  EXPECT_EQ(wholeNumber<int>()(std::string("1.5")), "must be a whole number, not '1.5'");
  EXPECT_EQ(wholeNumber<int>()(std::string("3000000000")),
            "must be a whole number of at most 2147483647, not '3000000000'");
  EXPECT_EQ(between(0.1, 1000.0)(std::string("0")), "must be a number from 0.1 to 1000, not '0'");
}

TEST(NumberOptions, ThatAreNoNumbersEndACommandBeforeItBegins) {
  test::TemporaryFolder const folder;
  for (std::vector<std::string> const& arguments :
       {std::vector<std::string>{"calibrate", folder.path(), "-o", folder / "k.json", "--pitch", "nan"},
        {"detect", folder / "none.png", "--pitch", "nan"},
        {"height", folder / "none.ply", folder / "h.tiff", "--cell", "nan"},
        {"height", folder / "none.ply", folder / "h.tiff", "--cell", "0x10"},
        {"profile", folder / "none.png", "1", "2", "3", "nan"},
        {"mesh", folder / "none.ply", folder / "m.ply", "--viewpoint", "0", "inf", "0"}}) {
    ToolOutcome const outcome = run(arguments);
    EXPECT_EQ(outcome.status, 2) << arguments[0] << outcome.errors;
    EXPECT_NE(outcome.errors.find("must be a number"), std::string::npos) << outcome.errors;
  }
}

TEST(NumberOptions, OfFiltersAreWholeWhereTheyCount) {
  test::TemporaryFolder const folder;
  for (std::vector<std::string> const& step : {std::vector<std::string>{"--outlier", "0.2", "1.5"},
                                               {"--outlier", "0.2", "3000000000"},
                                               {"--small-cluster", "0.2", "0x10"},
                                               {"--border", "99999999999"},
                                               {"--erode", "1.5"}}) {
    std::vector<std::string> arguments{"filter", folder / "none.ply", folder / "b.ply"};
    arguments.insert(arguments.end(), step.begin(), step.end());
    ToolOutcome const outcome = run(arguments);
    EXPECT_EQ(outcome.status, 2) << step[0];
    EXPECT_NE(outcome.errors.find(step[0]), std::string::npos) << outcome.errors;
    EXPECT_NE(outcome.errors.find("must be a whole number"), std::string::npos) << outcome.errors;
    EXPECT_NE(outcome.errors.find("not '" + step.back() + "'"), std::string::npos) << outcome.errors;
  }
}

} // namespace
} // namespace vorn::tools
